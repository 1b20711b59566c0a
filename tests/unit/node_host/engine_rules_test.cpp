// What the conditions of a line's selector make of its traffic.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "node/engine/bridge.h"
#include "tests/unit/node/frame_builder.h"
#include "tests/unit/node_host/line_rules.h"

namespace {

using namespace std::chrono_literals;
using node_test::Buffer;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr unsigned line = 5;
constexpr unsigned other = 6;

class EngineRules : public testing::Test {
protected:
    EngineRules() : engine(loop, log) {
        engine.addLine(line, "dsl5");
        engine.addLine(other, "dsl6");
        engine.onEvent([this](const std::string& text) { events.push_back(text); });
        node::attachBridge(&engine);
        EXPECT_EQ(ittalAdminStateSet(bridgeName, true), 0);
        for (const unsigned ifId : {line, other}) {
            EXPECT_EQ(ittalPortAdminStateSet(bridgeName, ifId, true), 0);
            engine.link(ifId, true);
        }
    }
    ~EngineRules() override { node::attachBridge(nullptr); }

    void runShortly() {
        loop.at(loop.now() + 1us, [this] { loop.stop(); });
        loop.run(true);
    }
    node::PortState state() const { return engine.status(line)->state; }

    const Buffer discover = node_test::dhcpFrame({53, 1, 1, 60, 3, 's', 't', 'b', 255});
    const Buffer request = node_test::dhcpFrame({53, 1, 3, 60, 3, 's', 't', 'b', 255});

    node::Loop loop{node::Pace::instant};
    std::ostringstream out;
    node::EventLog log{out};
    node::Engine engine;
    std::vector<std::string> events;
};

TEST_F(EngineRules, LineWithoutRulesTrapsNothing) {
    engine.frame(line, discover);
    engine.frame(line, node_test::ether(0x0806, node_test::arp(1)));
    EXPECT_EQ(state(), node::PortState::blocked);
    EXPECT_EQ(engine.status(line)->counters[node::Counter::framesMatched], 0u);
    EXPECT_THAT(engine.status(line)->rules, IsEmpty());
}

TEST_F(EngineRules, FrameThatARuleDescribesIsTrappedAndTheRuleNamed) {
    node_test::giveRule(line, node_test::dhcpMessage(3));
    engine.frame(line, request);
    EXPECT_EQ(state(), node::PortState::blocked);
    engine.frame(line, discover);
    EXPECT_EQ(state(), node::PortState::pending);
    EXPECT_EQ(engine.status(line)->trapRule, "dhcp discover");
    EXPECT_THAT(out.str(),
                HasSubstr("DHCP DISCOVER (rule: dhcp discover) from 00:1a:2b:3c:4d:5e\n"));
    runShortly();
    EXPECT_EQ(events.size(), 1u);
}

TEST_F(EngineRules, RulesAreAlternativesAndTheLowestTypeIsNamed) {
    node_test::giveRule(line, node_test::optionBegins(3, "stb"));
    node_test::giveRule(line, node_test::dhcpMessage(3));
    node_test::giveRule(line, node_test::etherTypeIs(0x0806));
    EXPECT_THAT(engine.status(line)->rules,
                ElementsAre("ethertype 0x0806", "dhcp discover", "vendor-id stb*"));
    engine.frame(line, request);
    EXPECT_EQ(engine.status(line)->trapRule, "vendor-id stb*");
}

TEST_F(EngineRules, RulesOfOneLineSayNothingAboutAnother) {
    node_test::giveRule(other, node_test::anyFrame());
    engine.frame(line, discover);
    EXPECT_EQ(state(), node::PortState::blocked);
    EXPECT_EQ(engine.status(other)->trapRule, "");
}

TEST_F(EngineRules, RemovedRuleTrapsNoMore) {
    node_test::giveRule(line, node_test::anyFrame());
    node_test::takeRule(line, 0);
    engine.frame(line, discover);
    EXPECT_EQ(state(), node::PortState::blocked);
    EXPECT_THAT(engine.status(line)->rules, IsEmpty());
}

TEST_F(EngineRules, RemovingARuleLeavesAnOpenGateOpen) {
    node_test::giveRule(line, node_test::anyFrame());
    engine.frame(line, discover);
    ASSERT_EQ(ittalPortAuthenReply(bridgeName, line, true), 0);
    ASSERT_EQ(ittalPortAuthorReply(bridgeName, line, true), 0);
    node_test::takeRule(line, 0);
    EXPECT_EQ(state(), node::PortState::open);
}

TEST_F(EngineRules, AutomaticRequestNeedsNoRule) {
    ASSERT_EQ(ittalPortAutoReqAdminStateSet(bridgeName, line, true), 0);
    engine.link(line, false);
    engine.link(line, true);
    EXPECT_EQ(state(), node::PortState::pending);
    EXPECT_EQ(engine.status(line)->trapRule, "");
}

TEST_F(EngineRules, DamagedFramesMatchNothing) {
    node_test::giveRule(line, node_test::anyFrame());
    engine.frame(line, Buffer(13));
    engine.frame(line, {});
    EXPECT_EQ(state(), node::PortState::blocked);
}

}  // namespace
