// What a node finds of an earlier one and makes of it, and what it leaves behind.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "node/store/stored_logins.h"
#include "tests/live/live_node.h"

using namespace node_test;

namespace {

class LiveRestart : public LiveTest {
protected:
    // Line 1 is accepted and gets its login; then the node is killed, with the gate open.
    void openAndKill(const std::string& config, RawSocket& subscriber, RawSocket& core) {
        LiveNode node(dir, config);
        subscriber.send(numbered(1));
        EXPECT_EQ(nextOf(core), 1U);
        EXPECT_TRUE(node.says("written to"));
        node.kill();
        subscriber.send(other(2));
        EXPECT_EQ(nextOf(core), 2U) << "an open gate stays open without a node";
    }
    static std::string user(unsigned line, const std::string& verdict, int delay) {
        return "[[isa.user]]\ncircuit-id = \"" + circuitId(line) + "\"\nverdict = \"" + verdict +
               "\"\n" + (verdict == "never" ? "" : "delay-ms = " + std::to_string(delay) + "\n");
    }
};

constexpr auto aMoment = std::chrono::milliseconds(50);

TEST_F(LiveRestart, TrafficPassesBeforeDuringAndAfterTheReplay) {
    const LineNet net(2);
    RawSocket subscriber(LineNet::subscriber(1)), closed(LineNet::subscriber(2));
    RawSocket core = listenOn("core");
    const std::string config = liveConfig(2, user(1, "accept", 2000));
    openAndKill(config, subscriber, core);
    closed.send(other(3));
    EXPECT_EQ(nextOf(core, aMoment), 0U) << "a closed gate stays closed without a node";
    const LiveNode node(dir, config);
    ASSERT_TRUE(node.says("dsl1: gate found open"));
    ASSERT_TRUE(node.says("blocked -> pending (stored request)"));
    subscriber.send(other(4));
    EXPECT_EQ(nextOf(core), 4U);
    EXPECT_EQ(node.state(1), "pending");
    ASSERT_TRUE(node.says("pending -> open (accepted)"));
    subscriber.send(other(5));
    EXPECT_EQ(nextOf(core), 5U);
    EXPECT_EQ(node.counter(1, "stored_requests"), 1U);
    EXPECT_EQ(node.state(2), "blocked");
}

TEST_F(LiveRestart, KilledInTheMiddleOfTheReplayTheGateStaysOpen) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    openAndKill(liveConfig(1), subscriber, core);
    {
        LiveNode node(dir, liveConfig(1, "unknown = \"never\"\n"));
        ASSERT_TRUE(node.says("blocked -> pending (stored request)"));
        node.kill();
    }
    subscriber.send(other(3));
    EXPECT_EQ(nextOf(core), 3U);
    const LiveNode node(dir, liveConfig(1));
    ASSERT_TRUE(node.says("pending -> open (accepted)"));
    subscriber.send(other(4));
    EXPECT_EQ(nextOf(core), 4U);
}

TEST_F(LiveRestart, RejectedReplayCloses) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    openAndKill(liveConfig(1), subscriber, core);
    const LiveNode node(dir, liveConfig(1, user(1, "reject", 2000)));
    ASSERT_TRUE(node.says("blocked -> pending (stored request)"));
    subscriber.send(other(3));
    EXPECT_EQ(nextOf(core), 3U);
    ASSERT_TRUE(node.says("pending -> rejected (rejected)"));
    subscriber.send(other(4));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
}

TEST_F(LiveRestart, UnansweredReplayCloses) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    openAndKill(liveConfig(1), subscriber, core);
    const LiveNode node(dir, liveConfig(1, "unknown = \"never\"\n", "timeout = 1\n"));
    ASSERT_TRUE(node.says("pending -> blocked (no answer in time)"));
    subscriber.send(other(3));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
    subscriber.send(numbered(4));
    EXPECT_TRUE(node.says("blocked -> pending (traffic)"));
}

TEST_F(LiveRestart, OpenGateWithoutAStoredLoginCloses) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    openAndKill(liveConfig(1), subscriber, core);
    std::filesystem::remove(node::storedLoginsFile);
    const LiveNode node(dir, liveConfig(1));
    ASSERT_TRUE(node.says("closed: it was found open, but there is no stored login"));
    subscriber.send(other(3));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
    subscriber.send(numbered(4));
    EXPECT_EQ(nextOf(core), 4U);
}

TEST_F(LiveRestart, NodeThatIsConfiguredOffClosesWhatItFindsOpen) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    openAndKill(liveConfig(1), subscriber, core);
    const LiveNode node(dir, liveConfig(1, "", "", "[node]\ntal = false\n"));
    ASSERT_TRUE(node.says("closed: it was found open"));
    subscriber.send(numbered(3));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
    EXPECT_TRUE(node::readStoredLogins(node::storedLoginsFile).empty());
}

TEST_F(LiveRestart, LinkLostMeanwhileClosesThoughTheLoginIsReplayed) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    const std::string config = liveConfig(1, user(1, "accept", 2000));
    openAndKill(config, subscriber, core);
    run("ip link set sub1 down && ip link set sub1 up");
    const LiveNode node(dir, config);
    ASSERT_TRUE(node.says("dsl1: gate found, but the link was lost meanwhile"));
    EXPECT_TRUE(within([&] { return subscriber.trySend(other(3)); }));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
    EXPECT_TRUE(node.says("pending -> open (accepted)"));
}

TEST_F(LiveRestart, CleanStopLeavesOpenLinesOpenAndClosedOnesClosed) {
    const LineNet net(2);
    RawSocket open(LineNet::subscriber(1)), closed(LineNet::subscriber(2));
    RawSocket core = listenOn("core");
    {
        LiveNode node(dir, liveConfig(2));
        open.send(numbered(1));
        EXPECT_EQ(nextOf(core), 1U);
        ASSERT_TRUE(node.says("written to"));
        EXPECT_EQ(node.stop(), 0);
    }
    open.send(other(2));
    EXPECT_EQ(nextOf(core), 2U);
    closed.send(numbered(3));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
    const LiveNode node(dir, liveConfig(2));
    ASSERT_TRUE(node.says("pending -> open (accepted)"));
}

TEST_F(LiveRestart, FrameThatAskedUnheardIsHeardByTheNextNode) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    {
        LiveNode node(dir, liveConfig(1));
        ASSERT_TRUE(node.says("link      up"));
        EXPECT_EQ(::kill(node.pid(), SIGSTOP), 0);
        subscriber.send(numbered(1));
        node.kill();
    }
    const LiveNode node(dir, liveConfig(1));
    EXPECT_EQ(nextOf(core), 1U);
    EXPECT_EQ(node.counter(1, "frames_seen"), 1U);
}

// Ten frames of every kind, then a restart, then ten more: frames are counted once and for all,
// requests by the process that made them.
TEST_F(LiveRestart, CountersOfFramesGoOnAndThoseOfRequestsStartAgain) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    const std::string config = liveConfig(1, user(1, "accept", 2000), "max-queue-size = 2\n");
    const auto send = [&](unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            subscriber.send(other(100 + i));
        }
    };
    {
        LiveNode node(dir, config);
        ASSERT_TRUE(node.says("link      up"));
        send(10);  // dropped, blocked
        subscriber.send(numbered(1));
        ASSERT_TRUE(node.says("blocked -> pending"));
        send(7);  // dropped, pending
        subscriber.send(numbered(2));
        subscriber.send(numbered(3));  // finds the queue full
        ASSERT_TRUE(node.says("2 kept frames forwarded"));
        send(20);  // forwarded
        const std::pair<const char*, unsigned> now[] = {
            {"frames_seen", 40},     {"frames_matched", 3},  {"requests_raised", 1},
            {"accepts", 2},          {"frames_queued", 2},   {"queue_overflows", 1},
            {"dropped_blocked", 10}, {"dropped_pending", 8}, {"dropped_rejected", 0},
            {"forwarded", 22}};
        for (const auto& [name, value] : now) {
            EXPECT_EQ(node.counter(1, name), value) << name;
        }
        node.kill();
    }
    send(30);  // forwarded, nobody looks
    const LiveNode node(dir, config);
    ASSERT_TRUE(node.says("pending -> open"));
    send(5);
    const std::pair<const char*, unsigned> now[] = {
        {"frames_seen", 75},     {"frames_matched", 3},   {"requests_raised", 1},
        {"stored_requests", 1},  {"accepts", 2},          {"frames_queued", 0},
        {"queue_overflows", 1},  {"dropped_blocked", 10}, {"dropped_pending", 8},
        {"dropped_rejected", 0}, {"forwarded", 57}};
    for (const auto& [name, value] : now) {
        EXPECT_EQ(node.counter(1, name), value) << name;
    }
}

TEST_F(LiveRestart, LineThatIsConfiguredNoMoreKeepsItsGateUntilToldOtherwise) {
    const LineNet net(2);
    RawSocket open(LineNet::subscriber(1)), closed(LineNet::subscriber(2));
    RawSocket core = listenOn("core");
    openAndKill(liveConfig(2), open, core);
    {
        LiveNode node(dir, liveConfig(1));
        ASSERT_TRUE(node.says("dsl2: keeps the gate of an earlier run"));
        closed.send(numbered(3));
        EXPECT_EQ(nextOf(core, aMoment), 0U);
        EXPECT_EQ(node.stop(), 0);
    }
    LiveNode node(dir,
                  liveConfig(1, "unknown = \"accept\"\n", "", "[engine]\nfree-removed = true\n"));
    ASSERT_TRUE(node.says("dsl2: freed, no line has it now"));
    closed.send(other(4));
    EXPECT_EQ(nextOf(core), 4U);
}

TEST_F(LiveRestart, LineOnAnotherDeviceStartsBlockedThoughItsLoginIsReplayed) {
    const LineNet net(2);
    RawSocket first(LineNet::subscriber(1)), second(LineNet::subscriber(2));
    RawSocket core = listenOn("core");
    openAndKill(liveConfig(1), first, core);
    std::string moved = liveConfig(1, user(1, "accept", 2000));
    moved.replace(moved.find("device = \"dsl1\""), 15, "device = \"dsl2\"");
    const LiveNode node(dir, moved);
    ASSERT_TRUE(node.says("dsl2: gate new"));
    ASSERT_TRUE(node.says("dsl1: keeps the gate of an earlier run"));
    second.send(other(3));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
    EXPECT_TRUE(node.says("pending -> open (accepted)"));
    first.send(other(4));
    EXPECT_EQ(nextOf(core), 4U);
}

TEST_F(LiveRestart, ReleaseFreesAllDevicesAndWhatEarlierRunsLeft) {
    const LineNet net(3);
    RawSocket one(LineNet::subscriber(1)), two(LineNet::subscriber(2)), core = listenOn("core");
    RawSocket three(LineNet::subscriber(3));
    openAndKill(liveConfig(2), one, core);
    const std::string path = dir.write("release.toml", liveConfig(1));
    const Ended ended = runToEnd({TALNODE, "--release", "--config", path});
    EXPECT_EQ(ended.code, 0) << ended.text;
    EXPECT_NE(ended.text.find("dsl1: freed, everything passes"), std::string::npos) << ended.text;
    EXPECT_NE(ended.text.find("dsl2: freed, no line has it now"), std::string::npos);
    uint32_t number = 10;
    for (RawSocket* each : {&one, &two, &three}) {
        each->send(other(++number));
        EXPECT_EQ(nextOf(core), number);
    }
    EXPECT_EQ(runToEnd({TALNODE, "--release", "--config", path}).code, 0) << "nothing to do";
}

}  // namespace
