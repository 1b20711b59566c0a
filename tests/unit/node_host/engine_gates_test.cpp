// What the engine does to gates that are elsewhere: states, traps, rules, counters.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "node/engine/bridge.h"
#include "node/engine/engine.h"
#include "tests/unit/node/frame_builder.h"
#include "tests/unit/node_host/fake_gates.h"
#include "tests/unit/node_host/line_rules.h"

namespace {

using namespace std::chrono_literals;
using node::Counter;
using node::Gate;
using node::PortState;
using node::Stage;
using node_test::FakeGates;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned line = 5;
constexpr unsigned other = 6;

class EngineGates : public testing::Test {
protected:
    EngineGates() : engine(loop, log) {
        engine.onEvent([](const std::string&) {});
        engine.onForward([this](unsigned ifId, std::span<const uint8_t> frame) {
            std::string ignored;
            gates.reinject(ifId, frame, ignored);
        });
        node::attachBridge(&engine);
        for (const unsigned ifId : {line, other}) {
            engine.addLine(ifId, "dsl" + std::to_string(ifId));
            std::string ignored;
            gates.attach({.ifId = ifId, .ifIndex = 100 + ifId}, ignored);
        }
        gates.calls.clear();
        EXPECT_EQ(ittalAdminStateSet(bridgeName, true), 0);
        EXPECT_EQ(ittalPortAdminStateSet(bridgeName, line, true), 0);
        node_test::giveRule(line, node_test::anyFrame());
    }
    ~EngineGates() override { node::attachBridge(nullptr); }

    void begin() {
        engine.gateBy(line, &gates);
        engine.link(line, true);
    }
    // One that the kernel hands up, if it has a trap left.
    bool frame() {
        const bool up = gates.takeTrap(line);
        if (up) {
            engine.frame(line, node_test::ether(0x88b5, {1, 2, 3}));
        }
        return up;
    }
    void answer(bool accepted) {
        engine.reply(line, Stage::authentication, accepted);
        if (accepted) {
            engine.reply(line, Stage::authorization, accepted);
        }
    }
    void runUntil(node::Time time) {
        loop.at(time, [this] { loop.stop(); });
        loop.run(true);
    }
    // As after a device came back.
    void loseRecord() {
        gate() = {};
        gate().attached = true;
    }
    FakeGates::State& gate() { return gates.lines[line]; }

    node::Loop loop{node::Pace::instant};
    std::ostringstream out;
    node::EventLog log{out};
    node::Engine engine;
    FakeGates gates;
};

TEST_F(EngineGates, NothingReachesTheGateBeforeItIsTheLines) {
    engine.link(line, true);
    EXPECT_EQ(gate().arms, 0u);
    EXPECT_EQ(gate().rulesWritten, 0u);
    engine.gateBy(line, &gates);
    EXPECT_EQ(gate().traps, 1u);
    EXPECT_EQ(gate().rules.size(), 1u);
    EXPECT_EQ(gates.lines[other].rulesWritten, 0u);
}

TEST_F(EngineGates, LineThatCannotAskHasNoTraps) {
    engine.gateBy(line, &gates);
    EXPECT_EQ(gate().traps, 0u) << "without a link";
    engine.link(line, true);
    EXPECT_EQ(gate().traps, 1u);
    engine.setAdmin(line, false);
    EXPECT_EQ(gate().traps, 0u);
    engine.setAdmin(line, true);
    EXPECT_EQ(gate().traps, 1u);
    engine.setRequests(false);
    EXPECT_EQ(gate().traps, 0u);
    engine.setRequests(true);
    EXPECT_EQ(gate().traps, 1u);
    engine.setNodeAdmin(false);
    EXPECT_EQ(gate().traps, 0u);
}

TEST_F(EngineGates, GateFollowsThePort) {
    begin();
    ASSERT_TRUE(frame());
    EXPECT_EQ(gate().gate, Gate::pending);
    EXPECT_THAT(gates.calls, IsEmpty());
    answer(true);
    EXPECT_EQ(gate().gate, Gate::open);
    EXPECT_EQ(gate().traps, 0u);
    EXPECT_THAT(gates.calls, ElementsAre("reinject 5 17"));
    EXPECT_TRUE(engine.status(line)->passes);
    engine.link(line, false);
    EXPECT_EQ(gate().gate, Gate::blocked);
    EXPECT_FALSE(engine.status(line)->passes);
}

TEST_F(EngineGates, StormCostsAsManyFramesAsTheQueueHolds) {
    engine.setMaxQueue(line, 4);
    begin();
    EXPECT_EQ(gate().traps, 4u);
    unsigned up = 0;
    for (unsigned i = 0; i < 1000; ++i) {
        up += frame() ? 1 : 0;
    }
    EXPECT_EQ(up, 4u);
    EXPECT_EQ(engine.counters(line)->values()[static_cast<size_t>(Counter::framesQueued)], 4u);
    answer(true);
    EXPECT_EQ(gates.calls.size(), 4u);
}

TEST_F(EngineGates, QueueOfAnotherSizeChangesTheNumberOfTraps) {
    begin();
    engine.setMaxQueue(line, 7);
    EXPECT_EQ(gate().traps, 7u);
    engine.setMaxQueue(line, 0);
    EXPECT_EQ(gate().traps, 1u) << "the frame that raises the login";
}

TEST_F(EngineGates, RulesThatANewGateRefusedAreToldAgain) {
    begin();
    gates.refusesRules = true;
    loseRecord();
    engine.renewGate(line);
    gates.refusesRules = false;
    EXPECT_EQ(gate().rules.size(), 0u);
    engine.withRules<bool>([](node::RuleBook&) { return true; });
    EXPECT_EQ(gate().rules.size(), 1u);
}

TEST_F(EngineGates, AfterATimeoutTheLineMayAskAgainAtOnce) {
    engine.setTimeout(line, 3);
    begin();
    ASSERT_TRUE(frame());
    EXPECT_EQ(gate().traps, 0u);
    runUntil(3s + 1us);
    EXPECT_EQ(gate().gate, Gate::blocked);
    EXPECT_EQ(gate().traps, 1u);
    ASSERT_TRUE(frame());
    EXPECT_EQ(gate().gate, Gate::pending);
}

TEST_F(EngineGates, RejectedLineAsksAgainAfterTheBackOffAndNotBefore) {
    engine.setMaxQueue(line, 2);
    begin();
    ASSERT_TRUE(frame());
    answer(false);
    EXPECT_EQ(gate().gate, Gate::rejected);
    EXPECT_EQ(gate().traps, 0u) << "the one that was left is taken back";
    loop.at(node::rejectBackOff - 1us, [this] { EXPECT_EQ(gate().traps, 0u); });
    runUntil(node::rejectBackOff + 1us);
    EXPECT_EQ(gate().gate, Gate::rejected);
    EXPECT_EQ(gate().traps, 2u);
    ASSERT_TRUE(frame());
    EXPECT_EQ(gate().gate, Gate::pending);
}

TEST_F(EngineGates, FrameThatLedToNothingGivesItsTrapBack) {
    begin();
    // The rule goes while the frame is on its way up.
    ASSERT_TRUE(gates.takeTrap(line));
    node_test::takeRule(line, 0);
    engine.frame(line, node_test::ether(0x88b5, {1}));
    EXPECT_EQ(engine.status(line)->state, PortState::blocked);
    EXPECT_EQ(gate().traps, 1u);
}

TEST_F(EngineGates, RulesReachTheGatesOfTheirLinesAndNoOthers) {
    engine.gateBy(other, &gates);
    begin();
    const unsigned written = gate().rulesWritten;
    const unsigned others = gates.lines[other].rulesWritten;
    node_test::takeRule(line, 0);
    EXPECT_THAT(gate().rules, IsEmpty());
    EXPECT_EQ(gate().rulesWritten, written + 1);
    EXPECT_EQ(gates.lines[other].rulesWritten, others);
    EXPECT_EQ(ittalSelectorAdd(bridgeName, "another"), 0);
    EXPECT_EQ(gate().rulesWritten, written + 1) << "nothing changed for it";
}

TEST_F(EngineGates, AnotherSelectorBringsItsRules) {
    begin();
    EXPECT_EQ(ittalSelectorAdd(bridgeName, "two"), 0);
    EXPECT_EQ(ittalActionListAdd(bridgeName, "two"), 0);
    EXPECT_EQ(ittalListSet(bridgeName, line, "two", "two", 1, 0), 0);
    EXPECT_THAT(gate().rules, IsEmpty());
}

TEST_F(EngineGates, GateFoundOpenStaysSoForTheReplayOnly) {
    const struct {
        const char* name;
        std::function<void()> end;
        Gate gate;
    } rows[] = {
        {"accepted", [&] { answer(true); }, Gate::open},
        {"rejected", [&] { answer(false); }, Gate::rejected},
        {"link lost", [&] { engine.link(line, false); }, Gate::blocked},
        {"switched off", [&] { engine.setAdmin(line, false); }, Gate::blocked},
        {"node switched off", [&] { engine.setNodeAdmin(false); }, Gate::blocked},
    };
    for (const auto& row : rows) {
        engine.link(line, false);
        engine.setNodeAdmin(true);
        engine.setAdmin(line, true);
        for (const Stage stage : {Stage::authentication, Stage::authorization}) {
            engine.setStageOper(line, stage, true);
        }
        engine.gateBy(line, nullptr);
        gate().gate = Gate::open;
        engine.sendStoredRequest(line);
        EXPECT_TRUE(engine.gateBy(line, &gates)) << row.name;
        EXPECT_EQ(gate().gate, Gate::open) << row.name;
        EXPECT_EQ(gate().traps, 0u) << row.name;
        engine.link(line, true);
        EXPECT_EQ(engine.status(line)->state, PortState::pending) << row.name;
        EXPECT_EQ(gate().gate, Gate::open) << row.name;
        row.end();
        EXPECT_EQ(gate().gate, row.gate) << row.name;
    }
}

TEST_F(EngineGates, ReplayThatNobodyAnswersCloses) {
    engine.setTimeout(line, 2);
    engine.sendStoredRequest(line);
    gate().gate = Gate::open;
    EXPECT_TRUE(engine.gateBy(line, &gates));
    engine.link(line, true);
    runUntil(2s + 1us);
    EXPECT_EQ(gate().gate, Gate::blocked);
    EXPECT_EQ(gate().traps, 1u);
}

TEST_F(EngineGates, GateFoundOpenWithoutAStoredLoginCloses) {
    gate().gate = Gate::open;
    EXPECT_FALSE(engine.gateBy(line, &gates));
    EXPECT_EQ(gate().gate, Gate::blocked);
}

TEST_F(EngineGates, ReplayThatCannotBeAskedWithTheLinkUpCloses) {
    engine.setRequests(false);
    engine.sendStoredRequest(line);
    gate().gate = Gate::open;
    EXPECT_TRUE(engine.gateBy(line, &gates));
    EXPECT_EQ(gate().gate, Gate::open);
    engine.link(line, true);
    EXPECT_EQ(gate().gate, Gate::blocked);
}

TEST_F(EngineGates, GateFoundClosedStaysClosedDuringTheReplay) {
    engine.sendStoredRequest(line);
    EXPECT_FALSE(engine.gateBy(line, &gates));
    engine.link(line, true);
    EXPECT_EQ(gate().gate, Gate::pending);
    answer(true);
    EXPECT_EQ(gate().gate, Gate::open);
}

TEST_F(EngineGates, RenewedGateGetsStateRulesAndTraps) {
    begin();
    loseRecord();
    engine.renewGate(line);
    EXPECT_EQ(gate().rules.size(), 1u);
    EXPECT_EQ(gate().traps, 1u);
    ASSERT_TRUE(frame());
    answer(true);
    loseRecord();
    engine.renewGate(line);
    EXPECT_EQ(gate().gate, Gate::open);
}

TEST_F(EngineGates, GateThatIsGivenBackStaysAsItIs) {
    begin();
    ASSERT_TRUE(frame());
    answer(true);
    engine.gateBy(line, nullptr);
    engine.setNodeAdmin(false);
    EXPECT_EQ(gate().gate, Gate::open);
}

TEST_F(EngineGates, CountersAreThoseOfTheGateAndOfThePort) {
    begin();
    gate().totals.counters[static_cast<size_t>(Counter::framesSeen)] = 1000;
    gate().totals.counters[static_cast<size_t>(Counter::forwarded)] = 0xffffffff;
    ASSERT_TRUE(frame());
    answer(true);
    const node::Counters sum = *engine.counters(line);
    EXPECT_EQ(sum[Counter::framesSeen], 1001u);
    EXPECT_EQ(sum[Counter::requestsRaised], 1u);
    EXPECT_EQ(sum[Counter::forwarded], 0u) << "32 bits, wrapping";
    unsigned read[13] = {};
    EXPECT_EQ(ittalPortStatisticsGet(bridgeName, line, &read[0], &read[1], &read[2], &read[3],
                                     &read[4], &read[5], &read[6], &read[7], &read[8], &read[9],
                                     &read[10], &read[11], &read[12]),
              0);
    EXPECT_EQ(read[0], 1001u);
    EXPECT_EQ(engine.status(line)->counters[Counter::framesSeen], 1001u);
    EXPECT_FALSE(engine.counters(77));
}

TEST_F(EngineGates, GateCountsTheOctetsOfWhatPassesAndKeptFramesPassItToo) {
    begin();
    gate().totals.inwardOctets = 5000000000;
    gate().totals.outwardOctets = 7000000000;
    gate().totals.passedOutward = 70;
    gate().totals.counters[static_cast<size_t>(Counter::forwarded)] = 49;
    ASSERT_TRUE(frame());
    answer(true);
    node::Engine::Passed passed = engine.passed(line);
    EXPECT_EQ(passed.inwardOctets, 5000000000u);
    EXPECT_EQ(passed.outwardOctets, 7000000000u);
    EXPECT_EQ(passed.inwardFrames, 50u) << "with the kept one";
    EXPECT_EQ(passed.outwardFrames, 70u);

    engine.gateBy(line, nullptr);
    passed = engine.passed(line);
    EXPECT_GT(passed.inwardOctets, 0u) << "of the kept frame";
    EXPECT_LT(passed.inwardOctets, 2000u);
    EXPECT_EQ(passed.outwardOctets, 0u);
    EXPECT_EQ(passed.inwardFrames, 1u);
    EXPECT_EQ(engine.passed(77).inwardFrames, 0u);
}

TEST_F(EngineGates, WhatPassedInEarlierProcessesIsNotCountedAgain) {
    const auto forwarded = static_cast<size_t>(Counter::forwarded);
    gate().totals.inwardOctets = 1'000'000'000;
    gate().totals.outwardOctets = 3'000'000'000;
    gate().totals.passedOutward = 0xffffffff;
    gate().totals.counters[forwarded] = 0xfffffff0;
    begin();
    const auto expectPassed = [this](uint64_t inward, uint64_t outward, uint32_t inFrames,
                                     uint32_t outFrames) {
        const node::Engine::Passed passed = engine.passed(line);
        EXPECT_EQ(passed.inwardOctets, inward);
        EXPECT_EQ(passed.outwardOctets, outward);
        EXPECT_EQ(passed.inwardFrames, inFrames);
        EXPECT_EQ(passed.outwardFrames, outFrames);
    };
    expectPassed(0, 0, 0, 0);
    gate().totals.inwardOctets += 500;
    gate().totals.outwardOctets += 700;
    gate().totals.passedOutward += 7;
    gate().totals.counters[forwarded] += 50;
    expectPassed(500, 700, 50, 7);
    EXPECT_EQ((*engine.counters(line))[Counter::forwarded], 34u) << "those of the gate go on";

    engine.renewGate(line);  // its interface was away
    expectPassed(500, 700, 50, 7);
    engine.passedBegins(line);
    expectPassed(0, 0, 0, 0);
}

}  // namespace
