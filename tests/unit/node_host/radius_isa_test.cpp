// Whom ISA over RADIUS asks for, and whom an answer lets in, whatever becomes of the line in
// between. Subscribers are A1, B2 and so on, by the end of their MAC addresses.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <system_error>

#include "node/isa/radius/client/socket.h"
#include "tests/unit/node_host/radius_bench.h"

namespace {

using namespace std::chrono_literals;
using node::PortState;
using node_test::RadiusBench;

constexpr unsigned line = 1;
constexpr uint8_t a = 0xa1;
constexpr uint8_t b = 0xb2;

class RadiusIsaTest : public RadiusBench {
protected:
    // A1 was asked for in vain: the line is blocked, and asked for again one day.
    void loseOneRequest() {
        addLine(line, 1);
        begin();
        link(line, true);
        frame(line, a);
        runFor(1500ms);
        ASSERT_EQ(PortState::blocked, state(line));
        ASSERT_EQ("A1", asked());
    }
    node::radius::ServerState serverState() {
        runFor(300ms);  // what is shown may be as old
        return radius->servers().at(0).state;
    }
};

TEST_F(RadiusIsaTest, LineWithoutAnAnswerIsAskedForAgainInItsSubscribersName) {
    loseOneRequest();
    serveAll();
    runFor(2s);
    EXPECT_EQ("A1", asked());
    EXPECT_EQ(PortState::open, state(line));
}

TEST_F(RadiusIsaTest, LineThatLostItsLinkIsNotAskedForInTheNameOfWhoeverWasThere) {
    loseOneRequest();
    link(line, false);
    link(line, true);
    serveAll();
    runFor(5s);
    EXPECT_EQ("", asked());
    EXPECT_EQ(PortState::blocked, state(line));
    frame(line, b);
    runFor(1s);
    EXPECT_EQ("B2", asked());
    EXPECT_EQ(PortState::open, state(line));
}

TEST_F(RadiusIsaTest, LineThatWasSwitchedOffIsNotAskedForInTheNameOfWhoeverWasThere) {
    loseOneRequest();
    engine.setAdmin(line, false);
    engine.setAdmin(line, true);
    serveAll();
    runFor(5s);
    EXPECT_EQ("", asked());
    EXPECT_EQ(PortState::blocked, state(line));
}

TEST_F(RadiusIsaTest, LineWithoutALinkIsNotAskedForWhenItsLinkComesBackEither) {
    loseOneRequest();
    engine.setNodeAdmin(false);
    link(line, false);
    engine.setNodeAdmin(true);
    serveAll();
    runFor(5s);
    link(line, true);
    runFor(5s);
    EXPECT_EQ("", asked());
    EXPECT_EQ(PortState::blocked, state(line));
}

// The server's return has asked for the line already when the link goes.
TEST_F(RadiusIsaTest, LinkThatGoesJustBeforeALineIsAskedForAgainIsSeen) {
    loseOneRequest();
    ASSERT_FALSE(server.probes.empty());
    loop.post([this] {
        server.answer(radius_test::ScriptedServer::Sent(server.probes.back()),
                      node::radius::Code::accessAccept);
        link(line, false);
    });
    runFor(100ms);
    ASSERT_EQ(node::radius::ServerState::alive, serverState());
    link(line, true);
    serveAll();
    runFor(5s);
    EXPECT_EQ("", asked());
    EXPECT_EQ(PortState::blocked, state(line));
}

TEST_F(RadiusIsaTest, AnswerToTheRequestBeforeALostLinkDoesNotDecideTheNextOne) {
    addLine(line);
    begin();
    link(line, true);
    frame(line, a);
    runFor(1ms);
    ASSERT_EQ("A1", asked());
    // In one turn of the loop.
    link(line, false);
    link(line, true);
    frame(line, b);
    ASSERT_EQ(PortState::pending, state(line));
    serve([](const std::string& name) { return name == "A1"; });
    server.answer(radius_test::ScriptedServer::Sent(server.requests[0]),
                  node::radius::Code::accessAccept);
    EXPECT_EQ(PortState::pending, state(line)) << "nobody has answered for B2";
    runFor(1s);
    EXPECT_EQ("B2", asked());
    EXPECT_EQ(PortState::rejected, state(line));
}

TEST_F(RadiusIsaTest, RequestThatIsOutdatedBeforeItIsLookedAtIsNotAskedFor) {
    addLine(line);
    begin();
    link(line, true);
    serveAll();
    // As a thread of management does it between two turns of the loop.
    frame(line, a);
    engine.setAdmin(line, false);
    engine.setAdmin(line, true);
    frame(line, b);
    runFor(1s);
    EXPECT_EQ("B2", asked());
    EXPECT_EQ(PortState::open, state(line));
    EXPECT_EQ(node::Isa::Verdict::accepted, isa.record(line).verdict);
}

TEST_F(RadiusIsaTest, RequestThatEndsWhileItsLineAsksAgainIsWithdrawnAtTheServers) {
    config.servers[0].tries = 10;
    addLine(line);
    begin();
    link(line, true);
    frame(line, a);
    runFor(1ms);
    engine.setAdmin(line, false);
    engine.setAdmin(line, true);
    frame(line, b);
    runFor(1ms);
    EXPECT_EQ("A1 B2", asked());
    runFor(300ms);
    EXPECT_EQ(1U, radius->servers().at(0).inFlight);
}

TEST_F(RadiusIsaTest, EndOfTheNodeSavesWhatPassed) {
    addLine(line);
    begin();
    link(line, true);
    serveAll();
    frame(line, a);
    runFor(1s);
    ASSERT_EQ(1U, node::readSessionFile(config.sessionFile).size());
    const node::Traffic before = node::readSessionFile(config.sessionFile)[0].traffic;
    frame(line, a);
    frame(line, a);
    radius->close();
    const std::vector<node::StoredSession> saved = node::readSessionFile(config.sessionFile);
    ASSERT_EQ(1U, saved.size());
    EXPECT_EQ(0, saved[0].ended);
    EXPECT_EQ(before.inputPackets + 2, saved[0].traffic.inputPackets);
    EXPECT_GT(saved[0].traffic.inputOctets, before.inputOctets);
}

TEST_F(RadiusIsaTest, ReloadThatFailsChangesNothing) {
    addLine(line);
    addLine(line + 1);
    begin();
    const node::radius::Socket taken(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(0, bind(taken.get(), reinterpret_cast<const sockaddr*>(&address), size));
    ASSERT_EQ(0, getsockname(taken.get(), reinterpret_cast<sockaddr*>(&address), &size));
    link(line, true);
    frame(line, a);
    runFor(1ms);
    node::RadiusConfig next = config;
    next.userName = "of the next: {mac}";
    next.dynamic.listen = {"127.0.0.1", ntohs(address.sin_port)};
    next.dynamic.clients = {{"asker", "127.0.0.1"}};
    EXPECT_THROW(radius->reload(next), std::system_error);
    serveAll();
    server.answer(radius_test::ScriptedServer::Sent(server.requests[0]),
                  node::radius::Code::accessAccept);
    EXPECT_EQ(PortState::open, state(line)) << "the request goes on";
    link(line + 1, true);
    frame(line + 1, b);
    runFor(1s);
    EXPECT_EQ("A1 B2", asked()) << "under the names of before";
    // The same once more, and this time it can be done.
    next.dynamic = {};
    radius->reload(next);
    EXPECT_NE(std::string::npos, out.str().find("counters begin again"));
}

TEST_F(RadiusIsaTest, LineWhoseVerdictTheModuleDidNotTakeIsAskedForAgainWithoutTraffic) {
    addLine(line, 1);
    begin();
    link(line, true);
    serveAll();
    takesVerdicts = false;
    frame(line, a);
    runFor(900ms);
    ASSERT_EQ(PortState::pending, state(line));
    takesVerdicts = true;
    runFor(2s);
    EXPECT_EQ("A1 A1", asked());
    EXPECT_EQ(PortState::open, state(line));
}

// Policy "keep": lines that were open when the node was restarted.
class KeepTest : public RadiusIsaTest {
protected:
    KeepTest() {
        config.onFailure = node::RadiusConfig::OnFailure::keep;
        addLine(line);
    }
    // As an earlier process left the line, whose stored login is asked for now.
    void replay() {
        node::StoredSession left;
        left.id = "of-before";
        left.ifId = line;
        left.began = 1'799'990'000;
        left.announced = true;
        left.line.interfaceNumber = line;
        node::writeSessionFile(config.sessionFile, {left});
        begin();
        engine.sendStoredRequest(line);
        link(line, true);
    }
};

TEST_F(KeepTest, LineThatWasOpenIsOpenedAsItWasUntilTheServersHaveTheirWord) {
    config.userName = "lines of the first-{interface-number}";
    replay();
    runFor(3s);
    EXPECT_EQ(PortState::open, state(line));
    serve([](const std::string&) { return false; });
    runFor(3s);
    EXPECT_EQ(PortState::rejected, state(line));
}

TEST_F(KeepTest, AcceptAfterAnOpeningThatTheModuleDidNotTakeOpensTheLine) {
    config.userName = "lines of the first-{interface-number}";
    replay();
    takesVerdicts = false;
    runFor(3s);
    ASSERT_EQ(PortState::pending, state(line)) << "the module did not take it";
    takesVerdicts = true;
    runFor(120s);
    ASSERT_EQ(PortState::blocked, state(line));
    serveAll();
    frame(line, b);
    runFor(1s);
    EXPECT_EQ(PortState::open, state(line));
}

TEST_F(KeepTest, AnswerForALineThatWasOpenedWithoutOneDoesNotDecideTheNextRequest) {
    config.userName = "lines of the first-{interface-number}";
    config.servers[0].tries = 30;  // only the patience of two seconds ends a request
    server.answersProbes = true;
    replay();
    runFor(3s);
    ASSERT_EQ(PortState::open, state(line));
    ASSERT_EQ(1U, radius->servers().at(0).inFlight);
    // All in one turn of the loop: the subscriber goes, another one comes, the answer arrives.
    const radius_test::ScriptedServer::Sent sent(server.requests.back());
    link(line, false);
    link(line, true);
    frame(line, b);
    server.answer(sent, node::radius::Code::accessReject);
    EXPECT_EQ(PortState::pending, state(line));
    EXPECT_EQ(std::string::npos, out.str().find("authentication rejected"));
}

// A line that is open for ten seconds, and another one that finds out that no server lives.
class SessionTimeoutTest : public RadiusIsaTest {
protected:
    void begin(node::RadiusConfig::OnFailure policy) {
        config.onFailure = policy;
        addLine(line);
        addLine(line + 1);
        RadiusBench::begin();
        node::radius::AttributeWriter writer;
        writer.addNumber(node::radius::attribute::sessionTimeout, 10);
        granted = writer.take();
        serveAll();
        link(line, true);
        frame(line, a);
        runFor(1s);
        ASSERT_EQ(PortState::open, state(line));
        ASSERT_EQ("A1", asked());
    }
    void killServers() {
        fallSilent();
        link(line + 1, true);
        frame(line + 1, b);
        runFor(4s);
        ASSERT_EQ(node::radius::ServerState::dead, serverState());
    }
    size_t ended() const {
        const std::string text = out.str();
        size_t count = 0;
        for (size_t at = 0; (at = text.find("the session is over", at)) != std::string::npos;
             ++at) {
            ++count;
        }
        return count;
    }
};

TEST_F(SessionTimeoutTest, SessionThatIsOverLogsInAgain) {
    begin(node::RadiusConfig::OnFailure::block);
    runFor(8s);
    EXPECT_EQ(0U, ended());
    runFor(2s);
    EXPECT_EQ(1U, ended());
    EXPECT_EQ("A1", asked());
    EXPECT_EQ(PortState::open, state(line));
}

TEST_F(SessionTimeoutTest, SessionEndsWithoutServersUnlessThePolicyKeepsIt) {
    begin(node::RadiusConfig::OnFailure::block);
    killServers();
    runFor(8s);
    EXPECT_EQ(1U, ended());
    EXPECT_EQ(PortState::pending, state(line));
}

TEST_F(SessionTimeoutTest, KeptSessionEndsOnlyWhenAServerIsBack) {
    begin(node::RadiusConfig::OnFailure::keep);
    killServers();
    runFor(20s);
    EXPECT_EQ(0U, ended());
    EXPECT_EQ(PortState::open, state(line));
    serveAll();
    runFor(2s);
    EXPECT_EQ(1U, ended());
    EXPECT_EQ(PortState::open, state(line));
    EXPECT_NE(std::string::npos, asked().find("A1"));
}

}  // namespace
