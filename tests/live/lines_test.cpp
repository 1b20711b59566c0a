// Lines of a running node: requests, gates and kept frames, links, all lines at once.
#include <gtest/gtest.h>

#include "tests/live/live_node.h"

using namespace node_test;

namespace {

class LiveLines : public LiveTest {};

constexpr auto aMoment = std::chrono::milliseconds(50);

TEST_F(LiveLines, FrameThatAsksGoesOnAfterTheAcceptAndOthersPassThen) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    const LiveNode node(dir, liveConfig(1));
    subscriber.send(other(1));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
    subscriber.send(numbered(2));
    EXPECT_EQ(nextOf(core), 2U);
    ASSERT_TRUE(node.says("pending -> open (accepted), 1 kept frame forwarded"));
    subscriber.send(other(3));
    EXPECT_EQ(nextOf(core), 3U);
    EXPECT_EQ(node.state(1), "open");
}

TEST_F(LiveLines, AllFramesOfTheQueueGoOnInTheirOrder) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    const std::string isa = "[[isa.user]]\ncircuit-id = \"" + circuitId(1) +
                            "\"\nverdict = \"accept\"\ndelay-ms = 2000\n";
    const LiveNode node(dir, liveConfig(1, isa, "max-queue-size = 3\n"));
    subscriber.send(numbered(1));
    ASSERT_TRUE(node.says("blocked -> pending (traffic)"));
    for (uint32_t number = 2; number <= 5; ++number) {
        subscriber.send(numbered(number));
    }
    for (uint32_t number = 1; number <= 3; ++number) {
        EXPECT_EQ(nextOf(core), number);
    }
    EXPECT_EQ(nextOf(core, aMoment), 0U);
    EXPECT_EQ(node.counter(1, "frames_queued"), 3U);
    EXPECT_EQ(node.counter(1, "queue_overflows"), 2U);
    EXPECT_EQ(node.counter(1, "frames_matched"), 5U);
}

TEST_F(LiveLines, UnansweredLineAsksAgainAtOnceAfterTheTimeout) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    const LiveNode node(dir, liveConfig(1, "unknown = \"never\"\n", "timeout = 1\n"));
    subscriber.send(numbered(1));
    ASSERT_TRUE(node.says("pending -> blocked (no answer in time)"));
    subscriber.send(numbered(2));
    ASSERT_TRUE(node.says("blocked -> pending (traffic)", 2));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
}

TEST_F(LiveLines, RejectedLineStaysShutAndItsFramesAreCounted) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    const LiveNode node(dir, liveConfig(1, "unknown = \"reject\"\n"));
    subscriber.send(numbered(1));
    ASSERT_TRUE(node.says("pending -> rejected (rejected)"));
    for (uint32_t number = 2; number <= 11; ++number) {
        subscriber.send(numbered(number));
    }
    EXPECT_TRUE(within([&] { return node.counter(1, "dropped_rejected") == 10; }));
    EXPECT_EQ(node.counter(1, "frames_seen"), 11U);
    EXPECT_EQ(node.counter(1, "requests_raised"), 1U);
    EXPECT_EQ(nextOf(core, aMoment), 0U);
}

TEST_F(LiveLines, ClosedGateIsShutTowardsTheSubscriberUnlessTheLineIsOutwardOpen) {
    const LineNet net(1);
    RawSocket subscriber = listenOn(LineNet::subscriber(1));
    RawSocket core("core");
    {
        LiveNode node(dir, liveConfig(1));
        core.send(other(1));
        EXPECT_EQ(nextOf(subscriber, aMoment), 0U);
    }
    const LiveNode node(dir, liveConfig(1, "unknown = \"accept\"\n", "outward-open = true\n"));
    core.send(other(2));
    EXPECT_EQ(nextOf(subscriber), 2U);
}

TEST_F(LiveLines, RulesOfManagementAreInForceForTheNextFrame) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    const LiveNode node(dir, liveConfig(1));
    node.talctl({"rule", "delete", "1/1", "ethertype"});
    subscriber.send(numbered(1));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
    EXPECT_EQ(node.state(1), "blocked");
    node.talctl({"rule", "add", "1/1", "--ethertype", "0x88b7"});
    subscriber.send(other(2));
    EXPECT_EQ(nextOf(core), 2U);
    EXPECT_EQ(node.counter(1, "frames_matched"), 1U);
}

TEST_F(LiveLines, SwitchingOffClosesBeforeTheCallReturns) {
    const LineNet net(2);
    RawSocket one(LineNet::subscriber(1)), two(LineNet::subscriber(2)), core = listenOn("core");
    const LiveNode node(dir, liveConfig(2));
    one.send(numbered(1));
    EXPECT_EQ(nextOf(core), 1U);
    two.send(numbered(2));
    EXPECT_EQ(nextOf(core), 2U);
    node.talctl({"interface", "set", "1/1", "--admin", "off"});
    one.send(numbered(3));
    two.send(numbered(4));
    EXPECT_EQ(nextOf(core), 4U);
    node.talctl({"admin", "off"});
    one.send(numbered(5));
    two.send(numbered(6));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
    node.talctl({"admin", "on"});
    two.send(numbered(7));
    EXPECT_EQ(nextOf(core), 7U);
}

TEST_F(LiveLines, LostLinkClosesAndTheNextLoginOpensAgain) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    const LiveNode node(dir, liveConfig(1));
    subscriber.send(numbered(1));
    EXPECT_EQ(nextOf(core), 1U);
    ASSERT_TRUE(node.says("pending -> open"));
    run("ip link set sub1 down");
    ASSERT_TRUE(node.says("open -> blocked (link lost)"));
    // The first event after the start only arms the module; the second sets the stages up.
    run("ip link set sub1 up");
    ASSERT_TRUE(node.says("link      up", 2));
    EXPECT_TRUE(within([&] { return subscriber.trySend(other(2)); }));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
    // What the bridge does with the port's return is not the node's business.
    EXPECT_TRUE(within([&] {
        subscriber.send(numbered(3));
        return nextOf(core, aMoment) == 3;
    }));
    EXPECT_TRUE(node.reaches(1, "open"));
}

TEST_F(LiveLines, DeviceUnderANewIndexGetsItsGateAgain) {
    const LineNet net(2);
    RawSocket core = listenOn("core");
    const LiveNode node(dir, liveConfig(2));
    {
        RawSocket subscriber(LineNet::subscriber(1));
        subscriber.send(numbered(1));
        EXPECT_EQ(nextOf(core), 1U);
    }
    ASSERT_TRUE(node.says("pending -> open"));
    const unsigned before = LineNet::index("dsl1");
    run("ip link del dsl1");
    ASSERT_TRUE(node.says("dsl1: gone"));
    ASSERT_TRUE(node.says("open -> blocked (link lost)"));
    run("ip link add dsl1 type veth peer name sub1 && ip link set sub1 up");
    ASSERT_TRUE(node.says("dsl1: gate new", 2));
    EXPECT_NE(LineNet::index("dsl1"), before);
    run("ip link set dsl1 master br0 up");
    ASSERT_TRUE(node.says("ds01 1/1    link      up", 2));
    RawSocket subscriber(LineNet::subscriber(1));
    subscriber.send(other(2));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
    EXPECT_TRUE(within([&] {
        subscriber.send(numbered(3));
        return nextOf(core, aMoment) == 3;
    }));
    EXPECT_TRUE(node.reaches(1, "open"));
}

TEST_F(LiveLines, GatesThatSomebodyTakesOffComeBackAsTheyWere) {
    const LineNet net(3);
    RawSocket open(LineNet::subscriber(1)), closed(LineNet::subscriber(2)), core = listenOn("core");
    RawSocket half(LineNet::subscriber(3));
    const LiveNode node(dir, liveConfig(3));
    open.send(numbered(1));
    EXPECT_EQ(nextOf(core), 1U);
    ASSERT_TRUE(node.says("pending -> open"));
    run("tc qdisc del dev dsl1 clsact && tc qdisc del dev dsl2 clsact && "
        "tc filter del dev dsl3 egress");
    for (const char* device : {"dsl1", "dsl2", "dsl3"}) {
        EXPECT_TRUE(node.says(std::string(device) + ": WITHOUT A GATE: somebody took it off"));
        EXPECT_TRUE(node.says(std::string(device) + ": gate put on again"));
    }
    closed.send(other(2));
    half.send(other(3));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
    open.send(other(4));
    EXPECT_EQ(nextOf(core), 4U);
    closed.send(numbered(5));
    EXPECT_EQ(nextOf(core), 5U);
    EXPECT_TRUE(node.reaches(2, "open"));
    EXPECT_EQ(node.log().find("link lost"), std::string::npos);
}

TEST_F(LiveLines, DeviceThatIsMissingAtTheStartIsTakenWhenItComes) {
    const LineNet net(1);
    RawSocket core = listenOn("core");
    const LiveNode node(dir, liveConfig(2));
    ASSERT_TRUE(node.says("dsl2: not there yet"));
    run("ip link add dsl2 type veth peer name sub2 && ip link set sub2 up");
    ASSERT_TRUE(node.says("dsl2: gate new"));
    run("ip link set dsl2 master br0 up");
    ASSERT_TRUE(node.says("link      up", 2));
    RawSocket subscriber(LineNet::subscriber(2));
    EXPECT_TRUE(within([&] {
        subscriber.send(numbered(1));
        return nextOf(core, aMoment) == 1;
    }));
}

TEST_F(LiveLines, NinetyNineLinesStartTrapOpenAndRestartWithoutALeak) {
    constexpr unsigned allLines = 99;
    const LineNet net(allLines);
    RawSocket core = listenOn("core");
    std::vector<RawSocket> subscribers;
    std::string users = "unknown = \"never\"\n", slowUsers = users;
    const auto opened = [](unsigned line) { return line % 3 == 1; };
    for (unsigned line = 1; line <= allLines; ++line) {
        subscribers.emplace_back(LineNet::subscriber(line));
        if (line % 3 != 0) {
            const std::string user = "[[isa.user]]\ncircuit-id = \"" + circuitId(line) +
                                     "\"\nverdict = \"" + (opened(line) ? "accept" : "reject") +
                                     "\"\n";
            users += user;
            slowUsers += user + "delay-ms = 10000\n";
        }
    }
    constexpr unsigned accepted = 33;
    const std::string config = liveConfig(allLines, users);
    const std::string replayConfig = liveConfig(allLines, slowUsers);
    std::vector<bool> came(3000, false);
    // Every frame that comes out is one of an opened line, and comes once.
    const auto collect = [&](uint32_t base, unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            const uint32_t number = nextOf(core);
            ASSERT_GT(number, base);
            ASSERT_LE(number, base + allLines);
            ASSERT_TRUE(opened(number - base)) << number;
            ASSERT_FALSE(came[number]) << number;
            came[number] = true;
        }
        ASSERT_EQ(nextOf(core, aMoment), 0U);
    };
    {
        LiveNode node(dir, config);
        ASSERT_TRUE(node.says("link      up", allLines));
        for (unsigned line = 1; line <= allLines; ++line) {
            subscribers[line - 1].send(other(2000 + line));  // asks for nothing
            subscribers[line - 1].send(numbered(line));
        }
        collect(0, accepted);
        ASSERT_TRUE(node.says("pending -> open", accepted));
        ASSERT_TRUE(node.says("pending -> rejected", accepted));
        ASSERT_TRUE(node.says("written to", accepted));
        node.kill();
    }
    for (unsigned line = 1; line <= allLines; ++line) {
        subscribers[line - 1].send(numbered(1000 + line));
    }
    collect(1000, accepted);
    const LiveNode node(dir, replayConfig);
    // In the middle of the replay: the answers take longer than this.
    ASSERT_TRUE(node.says("blocked -> pending (stored request)", accepted));
    for (unsigned line = 1; line <= allLines; ++line) {
        subscribers[line - 1].send(other(2000 + line));
    }
    collect(2000, accepted);
    EXPECT_EQ(node.state(1), "pending") << "the replay was over, nothing was tested";
    EXPECT_TRUE(node.says("stays open while the stored login is replayed", accepted));
    EXPECT_TRUE(node.says("pending -> open", accepted));
    EXPECT_EQ(node.log().find("link lost"), std::string::npos);
}

}  // namespace
