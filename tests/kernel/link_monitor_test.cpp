// Interfaces come, go and lose their links under the monitor's eyes.
#include "node/engine/kernel/link_monitor.h"

#include <gtest/gtest.h>

#include "tests/kernel/engine_fixture.h"

using namespace node_test;
using node::LinkEvent;
using node::LinkMonitor;
using node::LinkState;

namespace {

class KernelLinkTest : public KernelTest {};

class Watcher {
public:
    Watcher() {
        monitor_ = LinkMonitor::open(
            [this](const std::string& name, LinkEvent event, const LinkState& state) {
                static constexpr const char* words[] = {"appeared", "up", "down", "gone"};
                events_.push_back(name + " " + words[static_cast<size_t>(event)]);
                last = state;
            },
            error_);
        EXPECT_NE(monitor_, nullptr) << error_;
    }

    LinkMonitor* operator->() { return monitor_.get(); }

    // Reads until so many events have come; all of them, also those behind.
    std::vector<std::string> next(size_t count) {
        EXPECT_TRUE(eventually([&] {
            EXPECT_TRUE(monitor_->read(error_)) << error_;
            return events_.size() >= count || HasFailure();
        })) << events_.size()
            << " of " << count;
        return std::exchange(events_, {});
    }

    LinkState last;

private:
    static bool HasFailure() { return testing::Test::HasFailure(); }
    std::unique_ptr<LinkMonitor> monitor_;
    std::vector<std::string> events_;
    std::string error_;
};

using Events = std::vector<std::string>;

TEST_F(KernelLinkTest, WhatIsThereIsReportedWhenItIsWatched) {
    const LineNet net(2);
    run("ip link set sub2 down");
    Watcher watcher;
    watcher->watch("dsl1");
    EXPECT_EQ(watcher.next(2), (Events{"dsl1 appeared", "dsl1 up"}));
    EXPECT_EQ(watcher.last.ifIndex, LineNet::index("dsl1"));
    watcher->watch("dsl2");
    EXPECT_EQ(watcher.next(1), (Events{"dsl2 appeared"}));
    watcher->watch("dsl1");
    watcher->watch("dsl3");
    EXPECT_EQ(watcher.next(0), Events{});
    EXPECT_TRUE(watcher->state("dsl1")->up);
    EXPECT_FALSE(watcher->state("dsl2")->up);
    EXPECT_FALSE(watcher->state("dsl3"));
}

TEST_F(KernelLinkTest, LinksAreLostAndComeBack) {
    const LineNet net(2);
    Watcher watcher;
    watcher->watch("dsl1");
    watcher.next(2);
    run("ip link set sub1 down");
    EXPECT_EQ(watcher.next(1), (Events{"dsl1 down"}));
    run("ip link set sub1 up");
    EXPECT_EQ(watcher.next(1), (Events{"dsl1 up"}));
    run("ip link set dsl1 down");
    EXPECT_EQ(watcher.next(1), (Events{"dsl1 down"}));
    run("ip link set sub2 down; ip link set dsl1 up");  // another line is not reported
    EXPECT_EQ(watcher.next(1), (Events{"dsl1 up"}));
}

TEST_F(KernelLinkTest, ALinkThatWasLostBetweenTwoReadsIsReportedAsLost) {
    const LineNet net(1);
    Watcher watcher;
    watcher->watch("dsl1");
    watcher.next(2);
    run("ip link set sub1 down; ip link set sub1 up");
    EXPECT_EQ(watcher.next(2), (Events{"dsl1 down", "dsl1 up"}));
    EXPECT_EQ(watcher.last.carrierDowns, LineNet::carrierDowns("dsl1"));
}

TEST_F(KernelLinkTest, AnInterfaceComesBackUnderANewIndex) {
    const LineNet net(1);
    Watcher watcher;
    watcher->watch("dsl1");
    watcher.next(2);
    const unsigned before = watcher.last.ifIndex;
    run("ip link del dsl1");
    EXPECT_EQ(watcher.next(2), (Events{"dsl1 down", "dsl1 gone"}));
    EXPECT_FALSE(watcher->state("dsl1"));
    run("ip link add dsl1 type veth peer name sub1; ip link set dsl1 up; ip link set sub1 up");
    EXPECT_EQ(watcher.next(2), (Events{"dsl1 appeared", "dsl1 up"}));
    EXPECT_NE(watcher.last.ifIndex, before);
    EXPECT_EQ(watcher.last.ifIndex, LineNet::index("dsl1"));
}

TEST_F(KernelLinkTest, GoneAndBackBetweenTwoReadsIsReportedAsBoth) {
    const LineNet net(1);
    Watcher watcher;
    watcher->watch("dsl1");
    watcher.next(2);
    run("ip link del dsl1; ip link add dsl1 type veth peer name sub1");
    EXPECT_EQ(watcher.next(3), (Events{"dsl1 down", "dsl1 gone", "dsl1 appeared"}));
}

TEST_F(KernelLinkTest, ARenamedInterfaceIsGoneUnderItsOldName) {
    const LineNet net(1);
    Watcher watcher;
    watcher->watch("dsl1");
    watcher->watch("line");
    watcher.next(2);
    run("ip link set dsl1 down; ip link set dsl1 name line");
    EXPECT_EQ(watcher.next(3), (Events{"dsl1 down", "dsl1 gone", "line appeared"}));
    run("ip link set line up");
    EXPECT_EQ(watcher.next(1), (Events{"line up"}));
}

TEST_F(KernelLinkTest, LeavingABridgeIsNoLossOfTheInterface) {
    const LineNet net(1);
    Watcher watcher;
    watcher->watch("dsl1");
    watcher.next(2);
    run("ip link set dsl1 nomaster");
    run("ip link set sub1 down");
    EXPECT_EQ(watcher.next(1), (Events{"dsl1 down"}));
}

TEST_F(KernelLinkTest, WhenTheKernelHadToDropMessagesTheEndIsStillRight) {
    const LineNet net(3);
    Watcher watcher;
    for (const char* name : {"dsl1", "dsl2", "dsl3"}) {
        watcher->watch(name);
    }
    watcher.next(6);
    // Far more messages than the socket holds; what matters comes after it is full.
    run("for i in $(seq 3000); do echo link set br0 mtu $((1000 + i % 7)); done | ip -batch -");
    run("ip link del dsl1; ip link set sub2 down; ip link set sub3 down; ip link set sub3 up");
    const Events events = watcher.next(5);
    const auto has = [&](const char* event) {
        return std::count(events.begin(), events.end(), event) == 1;
    };
    EXPECT_TRUE(has("dsl1 gone"));
    EXPECT_TRUE(has("dsl2 down"));
    EXPECT_TRUE(has("dsl3 down"));
    EXPECT_TRUE(has("dsl3 up"));
    EXPECT_FALSE(watcher->state("dsl1"));
    EXPECT_FALSE(watcher->state("dsl2")->up);
    EXPECT_TRUE(watcher->state("dsl3")->up);
}

}  // namespace
