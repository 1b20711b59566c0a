// What servers are told of sessions, whatever dies in between. "Another process" is another
// object on the same file.
#include "node/isa/sessions.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/radius/scripted_server.h"
#include "tests/unit/node_host/temp_dir.h"

namespace {

using namespace node::radius;
using node::Sessions;
using node::Time;
using node::Traffic;
using radius_test::ScriptedServer;

constexpr Time second{1'000'000};

class SessionsTest : public testing::Test {
protected:
    SessionsTest() { begin(); }

    // Another process: it counts from zero.
    void begin(Time interim = Time(0)) {
        traffic.clear();
        sessions.emplace(reactor, log,
                         Sessions::Settings{file, [this](unsigned ifId) { return traffic[ifId]; },
                                            [this] { return wall + reactor.now() / second; }});
        tellServer(interim);
    }
    void tellServer(Time interim = Time(0)) {
        ClientSettings settings;
        settings.servers = {server.settings()};
        settings.patience = Time(0);
        settings.pacedRate = 0;
        sessions->useServers(std::move(settings), format, interim);
    }
    // Without a farewell: what was to be written is not.
    void kill() {
        const std::string before = contents();
        sessions.reset();
        directory.write("sessions", before);
        if (before.empty()) {
            std::filesystem::remove(file);
        }
    }
    std::string contents() const {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    void open(unsigned ifId, bool resume = false, const std::vector<Buffer>& classes = {{1}}) {
        Line line;
        line.interfaceName = "1/" + std::to_string(ifId);
        line.interfaceNumber = ifId;
        line.circuitId = "circuit " + std::to_string(ifId);
        sessions->open(ifId, line, classes, resume);
    }
    void pass(Time time = second / 10) { reactor.advance(time); }
    // The session of line 7 goes on for ten seconds and ends; how long it is said to have lasted.
    uint32_t secondsToldAfterTenMore() {
        open(7, true);
        reactor.advance(10 * second);
        sessions->close(7, TerminateCause::adminReset);
        pass();
        return number(server.requests.back(), attribute::acctSessionTime);
    }
    // Answers everything that was not answered yet.
    void answer() {
        while (answered < server.requests.size()) {
            server.answer(ScriptedServer::Sent(server.requests[answered++]),
                          Code::accountingResponse);
            pass();
        }
    }
    // "Start 7 ID" of each request so far.
    std::vector<std::string> told() const {
        std::vector<std::string> result;
        for (const ScriptedServer::Sent& sent : server.requests) {
            const uint32_t status = number(sent, attribute::acctStatusType);
            result.push_back(std::string(status == 1   ? "Start"
                                         : status == 2 ? "Stop"
                                                       : "Interim") +
                             " " + std::to_string(number(sent, attribute::nasPort)) + " " +
                             textOf(*sent.view().first(attribute::acctSessionId)));
        }
        return result;
    }
    static uint32_t number(const ScriptedServer::Sent& sent, AttributeName name) {
        const auto value = sent.view().first(name);
        return value ? numberOf(*value).value() : 0;
    }

    node_test::TempDir directory;
    const std::string file = directory.path() + "/sessions";
    radius_test::VirtualReactor reactor;
    std::ostringstream out;
    node::EventLog log{out};
    ScriptedServer server{reactor, "first", "secret of the first"};
    LoginFormat format;
    std::map<unsigned, Traffic> traffic;
    int64_t wall = 1'800'000'000;
    size_t answered = 0;
    std::optional<Sessions> sessions;
};

using Told = std::vector<std::string>;

TEST_F(SessionsTest, StartIsWrittenBeforeItIsSent) {
    open(7);
    EXPECT_TRUE(told().empty());
    EXPECT_EQ(std::string::npos, contents().find("circuit"));
    pass();
    const std::string id = sessions->idOf(7);
    EXPECT_EQ(Told{"Start 7 " + id}, told());
    EXPECT_NE(std::string::npos, contents().find(id));
    EXPECT_EQ(1U, sessions->untold());
    answer();
    EXPECT_EQ(0U, sessions->untold());
    pass(60 * second);
    EXPECT_EQ(1U, server.requests.size());
}

TEST_F(SessionsTest, StopCarriesWhatWentThroughAndWhy) {
    traffic[7] = {1000, 0, 10, 0};  // of an earlier session
    open(7);
    sessions->close(7, TerminateCause::idleTimeout);
    traffic[7] = {1500, 0, 13, 0};  // nothing passes in between; the kept frame does at once
    open(7);
    const std::string id = sessions->idOf(7);
    pass();
    answer();
    answer();
    reactor.advance(20 * second);
    traffic[7] = {(uint64_t{5} << 32) + 1000, uint64_t{1} << 33, 14, 7};
    sessions->close(7, TerminateCause::lostCarrier);
    pass();
    const ScriptedServer::Sent stop = server.requests.back();
    EXPECT_EQ("Stop 7 " + id, told().back());
    EXPECT_EQ(0U, number(stop, attribute::acctInputOctets));
    EXPECT_EQ(5U, number(stop, attribute::acctInputGigawords));
    EXPECT_EQ(2U, number(stop, attribute::acctOutputGigawords));
    EXPECT_EQ(4U, number(stop, attribute::acctInputPackets));
    EXPECT_EQ(7U, number(stop, attribute::acctOutputPackets));
    EXPECT_EQ(2U, number(stop, attribute::acctTerminateCause));
    EXPECT_NEAR(20.0, number(stop, attribute::acctSessionTime), 1.0);
    EXPECT_EQ((Buffer{1}), Buffer(stop.view().first(attribute::classOfLogin)->begin(),
                                  stop.view().first(attribute::classOfLogin)->end()));
    answer();
    EXPECT_EQ(0U, sessions->untold());
    EXPECT_EQ("tal sessions 2\nend 0\n", contents());
}

TEST_F(SessionsTest, StopWaitsForItsStartAndTheNextStartForTheStop) {
    open(7);
    const std::string first = sessions->idOf(7);
    pass();
    sessions->close(7, TerminateCause::adminReset);
    open(7);
    const std::string next = sessions->idOf(7);
    EXPECT_NE(first, next);
    pass();
    EXPECT_EQ(Told{"Start 7 " + first}, told());
    answer();
    EXPECT_EQ((Told{"Start 7 " + first, "Stop 7 " + first, "Start 7 " + next}), told());
}

TEST_F(SessionsTest, ReplayGoesOnWithTheSessionAndWhatItCounted) {
    open(7);
    const std::string id = sessions->idOf(7);
    traffic[7] = {100, 0, 1, 0};
    pass();
    answer();
    kill();
    begin();
    EXPECT_TRUE(sessions->isLeft(7));
    open(7, true, {{9}});
    EXPECT_FALSE(sessions->isLeft(7));
    EXPECT_EQ(id, sessions->idOf(7));
    traffic[7] = {50, 0, 2, 0};
    pass();
    EXPECT_EQ(1U, server.requests.size());
    sessions->close(7, TerminateCause::adminReset);
    pass();
    EXPECT_EQ("Stop 7 " + id, told().back());
    EXPECT_EQ(150U, number(server.requests.back(), attribute::acctInputOctets));
    EXPECT_EQ(9, (*server.requests.back().view().first(attribute::classOfLogin))[0]);
}

TEST_F(SessionsTest, FreshLoginEndsWhatWasLeft) {
    open(7);
    const std::string id = sessions->idOf(7);
    pass();
    answer();
    kill();
    begin();
    open(7, false);
    pass();
    EXPECT_EQ("Stop 7 " + id, told().back());
    EXPECT_EQ(11U, number(server.requests.back(), attribute::acctTerminateCause));
    answer();
    EXPECT_EQ("Start 7 " + sessions->idOf(7), told().back());
    EXPECT_NE(id, sessions->idOf(7));
}

TEST_F(SessionsTest, StartThatNobodyAnsweredIsSentAgainUnderItsId) {
    open(7);
    const std::string id = sessions->idOf(7);
    pass();
    kill();
    server.requests.clear();
    begin();
    pass();
    EXPECT_EQ(Told{"Start 7 " + id}, told());
}

TEST_F(SessionsTest, SessionThatWasNeverWrittenWasNeverTold) {
    open(7);
    kill();
    begin();
    pass();
    EXPECT_TRUE(told().empty());
    EXPECT_FALSE(sessions->isLeft(7));
}

TEST_F(SessionsTest, EndThatIsNotYetWrittenIsWrittenAtTheEndOfTheProcess) {
    open(7);
    const std::string id = sessions->idOf(7);
    pass();
    answer();
    sessions->close(7, TerminateCause::adminReset);
    sessions.reset();
    begin();
    EXPECT_FALSE(sessions->isLeft(7));
    pass();
    EXPECT_EQ("Stop 7 " + id, told().back());
}

TEST_F(SessionsTest, InterimRecordsComeAtTheirIntervalUntilTheEnd) {
    tellServer(60 * second);
    open(7);
    const std::string id = sessions->idOf(7);
    pass();
    answer();
    traffic[7] = {70, 0, 1, 0};
    reactor.advance(60 * second);
    EXPECT_EQ("Interim 7 " + id, told().back());
    EXPECT_EQ(70U, number(server.requests.back(), attribute::acctInputOctets));
    // One that is not answered is not followed by a second.
    const auto interims = [this] {
        std::set<uint8_t> ids;
        for (size_t i = answered; i < server.requests.size(); ++i) {
            ids.insert(server.requests[i].view().id());
        }
        return ids.size();
    };
    EXPECT_EQ(1U, interims());
    answer();
    sessions->close(7, TerminateCause::adminReset);
    pass();
    answer();
    const size_t before = server.requests.size();
    reactor.advance(600 * second);
    EXPECT_EQ(before, server.requests.size());
}

TEST_F(SessionsTest, OtherServersAreToldWhatTheFirstDidNotTake) {
    open(7);
    const std::string id = sessions->idOf(7);
    pass();
    tellServer();
    pass();
    EXPECT_EQ((Told{"Start 7 " + id, "Start 7 " + id}), told());
    EXPECT_NE(server.requests[0].channel, server.requests[1].channel);
}

TEST_F(SessionsTest, WithoutServersNothingIsToldAndOpenSessionsAreRemembered) {
    sessions->useServers(std::nullopt, format, Time(0));
    open(7);
    open(8);
    sessions->close(8, TerminateCause::adminReset);
    pass();
    EXPECT_TRUE(told().empty());
    kill();
    begin();
    EXPECT_EQ(std::set<unsigned>{7}, sessions->left());
}

TEST_F(SessionsTest, ServerThatTakesNothingFillsNeitherMemoryNorDisk) {
    server.refusesChannels = true;
    tellServer();
    size_t mostUnderWay = 0;
    for (int i = 0; i < 17'000; ++i) {
        open(1);
        sessions->close(1, TerminateCause::adminReset);
        if (i % 500 == 0) {  // each is written and given to the client in between
            pass();
            mostUnderWay = std::max(mostUnderWay, sessions->underWay());
        }
    }
    EXPECT_LE(sessions->untold(), 16'384U);
    EXPECT_GT(mostUnderWay, 0U);
    EXPECT_LE(mostUnderWay, 256U + 64U) << "the window and a few more";
    open(1);
    EXPECT_NE("", sessions->idOf(1));
    // The oldest were given to the client, and are not told any more.
    const std::string text = out.str();
    const size_t dropped = text.find(" forgotten");
    ASSERT_NE(std::string::npos, dropped);
    server.refusesChannels = false;
    server.answersProbes = true;
    reactor.advance(10 * second);
    ASSERT_FALSE(server.requests.empty());
    for (const std::string& each : told()) {
        const std::string id = each.substr(each.rfind(' ') + 1);
        EXPECT_EQ(std::string::npos, text.find(id + " forgotten")) << each;
    }
}

TEST_F(SessionsTest, MoreThanTheServersMayHaveAtATimeAreToldOneAfterTheOther) {
    for (unsigned i = 0; i < 1000; ++i) {
        open(1 + i % 99);
    }
    pass();
    EXPECT_EQ(256U + 64U, sessions->underWay());
    server.onRequest = [this](const ScriptedServer::Sent& sent) {
        server.answer(sent, Code::accountingResponse);
    };
    reactor.advance(20 * second);
    EXPECT_EQ(0U, sessions->untold());
    std::set<std::string> stops;
    for (const std::string& each : told()) {
        if (each.starts_with("Stop")) {
            stops.insert(each);
        }
    }
    EXPECT_EQ(901U, stops.size());
}

TEST_F(SessionsTest, EndOfTheProcessSavesWhatPassedSinceTheLastChange) {
    open(7);
    const std::string id = sessions->idOf(7);
    pass();
    answer();
    traffic[7] = {1000, 2000, 10, 20};
    sessions->finish();
    traffic[7] = {1, 0, 1, 0};  // of another counting
    sessions.reset();
    begin();
    open(7, true);
    EXPECT_EQ(id, sessions->idOf(7));
    traffic[7] = {5, 6, 1, 2};
    sessions->close(7, TerminateCause::adminReset);
    pass();
    const ScriptedServer::Sent stop = server.requests.back();
    EXPECT_EQ("Stop 7 " + id, told().back());
    EXPECT_EQ(1005U, number(stop, attribute::acctInputOctets));
    EXPECT_EQ(2006U, number(stop, attribute::acctOutputOctets));
    EXPECT_EQ(11U, number(stop, attribute::acctInputPackets));
    EXPECT_EQ(22U, number(stop, attribute::acctOutputPackets));
}

TEST_F(SessionsTest, CountingThatBeginsAnewMakesNoHugeNumbers) {
    open(7);
    traffic[7] = {1000, 2000, 10, 20};
    sessions->close(7, TerminateCause::adminReset);
    open(7);
    pass();
    answer();
    answer();
    traffic[7] = {1, 0, 1, 0};
    sessions->close(7, TerminateCause::adminReset);
    pass();
    const ScriptedServer::Sent stop = server.requests.back();
    for (const AttributeName name :
         {attribute::acctInputOctets, attribute::acctInputGigawords, attribute::acctOutputOctets,
          attribute::acctInputPackets, attribute::acctOutputPackets}) {
        EXPECT_EQ(0U, number(stop, name));
    }
}

TEST_F(SessionsTest, PacketsAreCountedOverTheEndOfTheirThirtyTwoBits) {
    traffic[7] = {0, 0, 0xfffffff0, 0};
    open(7);
    sessions->close(7, TerminateCause::adminReset);
    open(7);
    traffic[7] = {1000, 0, 5, 0};
    pass();
    answer();
    answer();
    sessions->close(7, TerminateCause::adminReset);
    pass();
    EXPECT_EQ(21U, number(server.requests.back(), attribute::acctInputPackets));
}

TEST_F(SessionsTest, RecordsOfASessionCarryTheNamesItBeganWith) {
    format.userName = *TextTemplate::parse("before-{interface-number}");
    format.nasPortId = *TextTemplate::parse("port {interface} }");
    tellServer();
    open(7);
    pass();
    answer();
    const auto text = [this](AttributeName name) {
        return textOf(*server.requests.back().view().first(name));
    };
    ASSERT_EQ("before-7", text(attribute::userName));
    format.userName = *TextTemplate::parse("{remote-id}");  // which is not known
    format.nasPortId = *TextTemplate::parse("other");
    tellServer();
    sessions->close(7, TerminateCause::adminReset);
    pass();
    ASSERT_TRUE(told().back().starts_with("Stop 7"));
    EXPECT_EQ("before-7", text(attribute::userName));
    EXPECT_EQ("port 1/7 }", text(attribute::nasPortId));
    EXPECT_EQ("circuit 7", text(attribute::agentCircuitId));
    // So does the next process.
    kill();
    begin();
    pass();
    EXPECT_EQ("before-7", text(attribute::userName));
}

TEST_F(SessionsTest, NamesMayHoldWhatIsAPlaceInATemplate) {
    Line line;
    line.interfaceName = "1/7";
    line.interfaceNumber = 7;
    line.circuitId = "{mac} {{nas";
    sessions->open(7, line, {}, false);
    pass();
    EXPECT_EQ("{mac} {{nas", textOf(*server.requests.back().view().first(attribute::userName)));
    EXPECT_EQ("1/7", textOf(*server.requests.back().view().first(attribute::nasPortId)));
}

TEST_F(SessionsTest, SessionOfTheFirstFormatGetsTheNamesOfTheConfiguration) {
    sessions.reset();
    directory.write("sessions",
                    "tal sessions 1\n"
                    "of-before 7 1799999000 1 1799999100 2 1 2 3 4 312f37 6f . . 0 0 . . -\n"
                    "end 1\n");
    begin();
    pass();
    ASSERT_EQ("Stop 7 of-before", told().back());
    EXPECT_EQ("o", textOf(*server.requests.back().view().first(attribute::userName)));
    EXPECT_EQ(100U, number(server.requests.back(), attribute::acctSessionTime));
}

// A record that cannot be sent is dropped, and a refused one is tried again: one timer for both.
TEST_F(SessionsTest, SessionWithoutANameIsDroppedAndLeavesNoTimerBehind) {
    server.refusesChannels = true;
    std::filesystem::remove_all(directory.path());  // nothing can be written: tried again later
    Line nameless;
    nameless.interfaceNumber = 8;
    sessions->open(8, nameless, {}, false);
    sessions->close(8, TerminateCause::adminReset);
    open(7);
    pass();
    pass();
    sessions.reset();
    EXPECT_EQ(0U, reactor.timers());
    reactor.advance(60 * second);
}

TEST_F(SessionsTest, ClockThatIsSetWhileASessionLastsDoesNotChangeItsTime) {
    wall = 100;  // 1970
    open(7);
    pass();
    answer();
    reactor.advance(30 * second);
    wall = 1'800'000'000;
    sessions->close(7, TerminateCause::adminReset);
    pass();
    EXPECT_NEAR(30.0, number(server.requests.back(), attribute::acctSessionTime), 1.0);
}

TEST_F(SessionsTest, ClockThatWasSetSinceThePreviousProcessDoesNotChangeItsTimeEither) {
    wall = 100;
    open(7);
    pass();
    answer();
    reactor.advance(30 * second);
    sessions->finish();
    sessions.reset();
    wall = 1'800'000'000;
    begin();
    EXPECT_NEAR(40.0, secondsToldAfterTenMore(), 1.0);
}

// A replay that nobody answers: its gate lets traffic pass until the request's end. Then the line
// logs in afresh, and its first frames pass before that is heard of.
TEST_F(SessionsTest, WhatAHeldGateLetPassIsOfTheSessionThatWasLeft) {
    open(7);
    pass();
    answer();
    kill();
    begin();
    traffic[7] = {500, 50, 5, 1};
    sessions->settle(7);
    traffic[7] = {540, 50, 6, 1};
    open(7, false);
    pass();
    EXPECT_EQ(500U, number(server.requests.back(), attribute::acctInputOctets));
    answer();
    traffic[7] = {1040, 50, 9, 1};
    sessions->close(7, TerminateCause::adminReset);
    pass();
    EXPECT_EQ(540U, number(server.requests.back(), attribute::acctInputOctets));
    EXPECT_EQ(4U, number(server.requests.back(), attribute::acctInputPackets));
}

TEST_F(SessionsTest, EndOfTheProcessSavesWhatAHeldGateLetPass) {
    open(7);
    pass();
    traffic[7] = {100, 0, 1, 0};
    sessions->finish();
    sessions.reset();
    begin();
    traffic[7] = {300, 0, 3, 0};
    sessions->finish();
    const std::vector<node::StoredSession> saved = node::readSessionFile(file);
    ASSERT_EQ(1U, saved.size());
    EXPECT_EQ(400U, saved[0].traffic.inputOctets);
}

TEST_F(SessionsTest, NamesOfASessionStayThoseOfItsStart) {
    open(7);
    const std::string before = sessions->namesOf(7)->userName;
    format.userName = *TextTemplate::parse("another {interface}");
    tellServer();
    EXPECT_EQ(before, sessions->namesOf(7)->userName);
    EXPECT_FALSE(sessions->namesOf(8));
    open(8);
    EXPECT_EQ("another 1/8", sessions->namesOf(8)->userName);
}

TEST_F(SessionsTest, TimeBetweenTwoProcessesBelongsToASession) {
    open(7);
    pass();
    answer();
    kill();
    reactor.advance(1000 * second);
    begin();
    EXPECT_NEAR(1010.0, secondsToldAfterTenMore(), 1.0);
}

TEST_F(SessionsTest, SessionWhoseStartMayHaveBeenTakenIsStoppedWhenServersAreBack) {
    open(7);
    const std::string id = sessions->idOf(7);
    pass();
    ASSERT_EQ(Told{"Start 7 " + id}, told());
    sessions->useServers(std::nullopt, format, Time(0));  // with the answer on its way
    open(8);                                              // nobody hears of this one
    sessions->close(7, TerminateCause::adminReset);
    sessions->close(8, TerminateCause::adminReset);
    pass();
    server.requests.clear();
    tellServer();
    pass();
    answer();
    EXPECT_EQ((Told{"Start 7 " + id, "Stop 7 " + id}), told());
}

TEST_F(SessionsTest, WithoutServersWhatEndedIsForgottenAlsoByTheNextProcess) {
    sessions->useServers(std::nullopt, format, Time(0));
    open(7);
    open(8);
    pass();
    sessions.reset();
    begin();
    sessions->useServers(std::nullopt, format, Time(0));
    sessions->close(7, TerminateCause::adminReset);
    pass();
    EXPECT_EQ(1U, node::readSessionFile(file).size());
}

TEST_F(SessionsTest, ServersAreToldAlsoWhenTheFileCannotBeWritten) {
    std::filesystem::create_directory(file + ".new");  // stands in the way
    open(7);
    pass();
    const std::string id = sessions->idOf(7);
    EXPECT_EQ(Told{"Start 7 " + id}, told());
    answer();
    server.onRequest = [this](const ScriptedServer::Sent& sent) {
        server.answer(sent, Code::accountingResponse);
    };
    sessions->close(7, TerminateCause::adminReset);
    open(8);
    pass(6 * second);
    const Told after = told();
    EXPECT_EQ(1, std::count(after.begin(), after.end(), "Stop 7 " + id));
    const std::string before = out.str();
    const size_t first = before.find("not written, servers are told all the same");
    ASSERT_NE(std::string::npos, first);
    EXPECT_EQ(first, before.rfind("not written")) << "said once";
    std::filesystem::remove(file + ".new");
    pass(6 * second);
    EXPECT_NE(std::string::npos, out.str().find("written again"));
    EXPECT_NE(std::string::npos, contents().find(sessions->idOf(8)));
}

// The gate stays open for a replay, which is then refused.
TEST_F(SessionsTest, WhatPassesBeforeALeftSessionEndsIsItsOwnAndNotTheNextOnes) {
    open(7);
    const std::string id = sessions->idOf(7);
    pass();
    answer();
    kill();
    begin();
    traffic[7] = {500, 0, 5, 0};
    sessions->close(7, TerminateCause::nasReboot);
    traffic[7] = {530, 0, 6, 0};
    open(7);
    pass();
    ASSERT_EQ("Stop 7 " + id, told().back());
    EXPECT_EQ(500U, number(server.requests.back(), attribute::acctInputOctets));
    answer();
    answer();
    sessions->close(7, TerminateCause::adminReset);
    pass();
    EXPECT_EQ(30U, number(server.requests.back(), attribute::acctInputOctets));
}

}  // namespace
