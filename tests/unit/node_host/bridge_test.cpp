#include "node/engine/bridge.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "platform/ittal.h"
#include "tests/unit/node_host/line_rules.h"

namespace {

using namespace std::chrono_literals;

constexpr unsigned line = 5;

// An ARP request of 192.0.2.1.
std::vector<uint8_t> arpFrame() {
    std::vector<uint8_t> frame(60);
    std::fill_n(frame.begin(), 6, 0xff);
    const uint8_t rest[] = {0x12, 0x34, 0x56, 0x78, 0x9a, 0xbc, 0x08, 0x06, 0,    1,   8, 0, 6,
                            4,    0,    1,    0x12, 0x34, 0x56, 0x78, 0x9a, 0xbc, 192, 0, 2, 1};
    std::copy(std::begin(rest), std::end(rest), frame.begin() + 6);
    return frame;
}

class BridgeTest : public testing::Test {
protected:
    BridgeTest() : engine(loop, log) {
        engine.addLine(line, "dsl5");
        engine.onEvent([this](const std::string& text) { events.push_back(text); });
        engine.onForward([this](unsigned, std::span<const uint8_t> bytes) {
            forwarded.push_back(bytes.size());
        });
        node::attachBridge(&engine);
    }
    ~BridgeTest() override { node::attachBridge(nullptr); }

    void switchOn() {
        ASSERT_EQ(ittalAdminStateSet(bridgeName, true), 0);
        ASSERT_EQ(ittalPortAdminStateSet(bridgeName, line, true), 0);
        node_test::giveRule(line, node_test::etherTypeIs(0x0806));
        engine.link(line, true);
    }

    node::Loop loop{node::Pace::instant};
    std::ostringstream out;
    node::EventLog log{out};
    node::Engine engine;
    std::vector<std::string> events;
    std::vector<size_t> forwarded;
};

TEST_F(BridgeTest, EventIsRaisedByTheLoopOnly) {
    switchOn();
    engine.frame(line, arpFrame());
    EXPECT_TRUE(events.empty());
    loop.at(1us, [this] { loop.stop(); });
    loop.run(true);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].substr(0, 26), "taldsl5 000   123456789abc");
    EXPECT_EQ(events[0].substr(26, 15), "192.000.002.001");
}

TEST_F(BridgeTest, RepliesOpenTheGateAndEndTheTimeout) {
    switchOn();
    engine.frame(line, arpFrame());
    EXPECT_EQ(ittalPortAuthenReply(bridgeName, line, true), 0);
    EXPECT_TRUE(forwarded.empty());
    EXPECT_EQ(ittalPortAuthorReply(bridgeName, line, true), 0);
    EXPECT_EQ(forwarded, std::vector<size_t>{60});
    engine.frame(line, arpFrame());
    EXPECT_EQ(forwarded.size(), 2u);
    loop.run(true);
    EXPECT_EQ(loop.now(), 0us);
    unsigned states[3] = {9, 9, 9};
    ASSERT_EQ(ittalPortStatesGet(bridgeName, line, &states[0], &states[1], &states[2]), 0);
    EXPECT_EQ(states[0], 2u);
    EXPECT_EQ(states[1], 3u);
    EXPECT_EQ(states[2], 3u);
}

TEST_F(BridgeTest, UnansweredRequestTimesOut) {
    switchOn();
    ASSERT_EQ(ittalPortTimeoutSet(bridgeName, line, 7), 0);
    engine.frame(line, arpFrame());
    loop.run(true);
    EXPECT_EQ(loop.now(), 7s);
    EXPECT_EQ(engine.status(line)->state, node::PortState::blocked);
    EXPECT_EQ(ittalPortAuthenReply(bridgeName, line, true), -1);
}

TEST_F(BridgeTest, StoredRequestRaisesAHeader) {
    switchOn();
    EXPECT_EQ(ittalStoredReqSend(bridgeName, line), 0);
    loop.at(1us, [this] { loop.stop(); });
    loop.run(true);
    EXPECT_EQ(events, std::vector<std::string>{"taldsl5 02"});
}

TEST_F(BridgeTest, SettingsAreReadBack) {
    bool flag = true;
    unsigned number = 0;
    EXPECT_EQ(ittalAdminStateGet(bridgeName, &flag), 0);
    EXPECT_FALSE(flag);
    ASSERT_EQ(ittalPortAuthenAdminStateSet(bridgeName, line, false), 0);
    EXPECT_EQ(ittalPortAuthenAdminStateGet(bridgeName, line, &flag), 0);
    EXPECT_FALSE(flag);
    EXPECT_EQ(ittalPortAuthorAdminStateGet(bridgeName, line, &flag), 0);
    EXPECT_TRUE(flag);
    ASSERT_EQ(ittalPortAutoReqAdminStateSet(bridgeName, line, true), 0);
    EXPECT_EQ(ittalPortAutoReqAdminStateGet(bridgeName, line, &flag), 0);
    EXPECT_TRUE(flag);
    ASSERT_EQ(ittalPortMaxQueueSizeSet(bridgeName, line, 9), 0);
    EXPECT_EQ(ittalPortMaxQueueSizeGet(bridgeName, line, &number), 0);
    EXPECT_EQ(number, 9u);
    ASSERT_EQ(ittalPortTimeoutSet(bridgeName, line, 33), 0);
    EXPECT_EQ(ittalPortTimeoutGet(bridgeName, line, &number), 0);
    EXPECT_EQ(number, 33u);
    ASSERT_EQ(ittalPortAuthorOperStateSet(bridgeName, line, 0), 0);
    EXPECT_EQ(ittalPortAuthorOperStateGet(bridgeName, line, &number), 0);
    EXPECT_EQ(number, 0u);
    EXPECT_EQ(ittalPortAuthenOperStateGet(bridgeName, line, &number), 0);
    EXPECT_EQ(number, 1u);
    ASSERT_EQ(ittalPortAuthenOperStateSet(bridgeName, line, 0), 0);
    EXPECT_EQ(ittalPortAuthenOperStateGet(bridgeName, line, &number), 0);
    EXPECT_EQ(number, 0u);
    ASSERT_EQ(ittalPortAuthorAdminStateSet(bridgeName, line, false), 0);
    ASSERT_EQ(ittalPortAdminStateGet(bridgeName, line, &flag), 0);
    EXPECT_FALSE(flag);
    EXPECT_EQ(ittalRequestState(bridgeName, false), 0);
}

TEST_F(BridgeTest, StatisticsComeInTheirOrder) {
    switchOn();
    engine.frame(line, arpFrame());
    std::array<unsigned, 13> c{};
    ASSERT_EQ(ittalPortStatisticsGet(bridgeName, line, &c[0], &c[1], &c[2], &c[3], &c[4], &c[5],
                                     &c[6], &c[7], &c[8], &c[9], &c[10], &c[11], &c[12]),
              0);
    EXPECT_EQ(c, (std::array<unsigned, 13>{1, 1, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0}));
    EXPECT_EQ(ittalPortStatisticsGet(bridgeName, line, &c[0], &c[1], &c[2], &c[3], &c[4], &c[5],
                                     &c[6], &c[7], &c[8], &c[9], &c[10], &c[11], nullptr),
              -1);
}

TEST_F(BridgeTest, UnknownLinesAndBridgesAreRefused) {
    bool flag = false;
    unsigned number = 0;
    EXPECT_EQ(ittalPortAdminStateSet(bridgeName, 6, true), -1);
    EXPECT_EQ(ittalPortAdminStateGet(bridgeName, 6, &flag), -1);
    EXPECT_EQ(ittalPortAuthenReply(bridgeName, 6, true), -1);
    EXPECT_EQ(ittalStoredReqSend(bridgeName, 6), -1);
    EXPECT_EQ(ittalPortTimeoutGet(bridgeName, 0, &number), -1);
    EXPECT_EQ(ittalPortAdminStateGet(bridgeName, line, nullptr), -1);
    EXPECT_EQ(ittalAdminStateSet("elsewhere", true), -1);
    EXPECT_EQ(ittalAdminStateSet(nullptr, true), -1);
    EXPECT_EQ(ittalAdminStateGet(bridgeName, nullptr), -1);
    node::attachBridge(nullptr);
    EXPECT_EQ(ittalAdminStateSet(bridgeName, true), -1);
}

TEST_F(BridgeTest, SettingOfInterfaceZeroIsAcceptedAndForgotten) {
    EXPECT_EQ(ittalPortAdminStateSet(bridgeName, 0, true), 0);
    EXPECT_EQ(ittalPortTimeoutSet(bridgeName, 0, 5), 0);
    EXPECT_EQ(ittalPortAuthenReply(bridgeName, 0, true), -1);
    EXPECT_EQ(ittalStoredReqSend(bridgeName, 0), -1);
}

TEST_F(BridgeTest, NamesAreChecked) {
    EXPECT_EQ(ittalSelectorAdd(bridgeName, nullptr), -1);
    EXPECT_EQ(ittalSelectorAdd(bridgeName, "4"), 0);
    EXPECT_EQ(ittalActionListAdd(bridgeName, "4"), 0);
    ittalCondition condition{};
    std::memset(condition.selector, 'x', sizeof condition.selector);
    EXPECT_EQ(ittalConditionAdd(bridgeName, &condition), -1);
    EXPECT_EQ(ittalConditionAdd(bridgeName, nullptr), -1);
    std::strcpy(condition.selector, "4");
    EXPECT_EQ(ittalConditionAdd(bridgeName, &condition), 0);
    EXPECT_EQ(ittalConditionDel(bridgeName, "4", 0), 0);
    ittalAction action{};
    std::strcpy(action.list, "4");
    action.type = 2;
    EXPECT_EQ(ittalActionAdd(bridgeName, &action), 0);
    EXPECT_EQ(ittalActionDel(bridgeName, "4", 2), 0);
    EXPECT_EQ(ittalListSet(bridgeName, line, "4", "4", 1, 0), 0);
    EXPECT_EQ(ittalListSet(bridgeName, 6, "4", "4", 1, 0), -1);
    EXPECT_EQ(ittalListSet(bridgeName, line, "4", nullptr, 1, 0), -1);
    EXPECT_EQ(itqosSelectorRename(bridgeName, "4", "5"), 0);
    EXPECT_EQ(ittalActionListRename(bridgeName, "4", "5"), 0);
    EXPECT_EQ(ittalSelectorDel(bridgeName, "5"), -1);
    EXPECT_EQ(ittalActionListDel(bridgeName, "5"), -1);
}

}  // namespace
