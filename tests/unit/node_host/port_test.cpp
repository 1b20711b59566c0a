#include "node/engine/port.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>

namespace {

using namespace std::chrono_literals;
using node::Cause;
using node::Counter;
using node::ForwardingState;
using node::Port;
using node::PortState;
using node::Stage;
using node::StageState;
using node::Time;

const std::array<uint8_t, 3> bytes{1, 2, 3};
constexpr bool matching = true;
constexpr bool other = false;

class PortTest : public testing::Test {
protected:
    PortTest() {
        port.setNodeAdmin(true, 0s);
        port.setAdmin(true, 0s);
        port.linkUp(0s);
    }
    void open(Time now) {
        port.frame(bytes, matching, now);
        port.reply(Stage::authentication, true, now);
        port.reply(Stage::authorization, true, now);
        ASSERT_EQ(port.state(), PortState::open);
    }
    uint32_t count(Counter counter) const { return port.counters()[counter]; }

    Port port;
};

TEST_F(PortTest, MatchingFrameAsksAndIsKept) {
    const Port::Outcome outcome = port.frame(bytes, matching, 1s);
    EXPECT_TRUE(outcome.raised());
    EXPECT_EQ(outcome.cause, Cause::traffic);
    EXPECT_EQ(port.state(), PortState::pending);
    EXPECT_EQ(port.stageState(Stage::authentication), StageState::pending);
    EXPECT_EQ(port.stageState(Stage::authorization), StageState::pending);
    EXPECT_EQ(port.forwardingState(), ForwardingState::pending);
    EXPECT_EQ(count(Counter::requestsRaised), 1u);
    EXPECT_EQ(count(Counter::framesQueued), 1u);
}

TEST_F(PortTest, OtherFrameIsDropped) {
    EXPECT_FALSE(port.frame(bytes, other, 1s).moved());
    EXPECT_EQ(count(Counter::droppedBlocked), 1u);
    EXPECT_EQ(count(Counter::framesMatched), 0u);
}

TEST_F(PortTest, GateOpensWhenBothStagesAcceptedAndForwardsKeptFrames) {
    port.frame(bytes, matching, 1s);
    const auto first = port.reply(Stage::authentication, true, 2s);
    ASSERT_TRUE(first);
    EXPECT_FALSE(first->moved());
    EXPECT_EQ(port.stageState(Stage::authentication), StageState::accepted);
    const auto second = port.reply(Stage::authorization, true, 2s);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->to, PortState::open);
    ASSERT_EQ(second->forward.size(), 1u);
    EXPECT_EQ(second->forward[0], Port::Bytes(bytes.begin(), bytes.end()));
    EXPECT_EQ(count(Counter::accepts), 2u);
    EXPECT_EQ(count(Counter::forwarded), 1u);
    EXPECT_EQ(port.forwardingState(), ForwardingState::open);
}

TEST_F(PortTest, OpenGateForwardsEveryFrame) {
    open(1s);
    EXPECT_TRUE(port.frame(bytes, matching, 2s).forwardFrame);
    EXPECT_TRUE(port.frame(bytes, other, 2s).forwardFrame);
    EXPECT_EQ(count(Counter::forwarded), 3u);
    EXPECT_EQ(count(Counter::requestsRaised), 1u);
}

TEST_F(PortTest, OneStageSwitchedOnIsEnough) {
    port.setStageAdmin(Stage::authorization, false, 0s);
    port.frame(bytes, matching, 1s);
    EXPECT_EQ(port.stageState(Stage::authorization), StageState::off);
    EXPECT_FALSE(port.reply(Stage::authorization, true, 2s));
    EXPECT_EQ(port.reply(Stage::authentication, true, 2s)->to, PortState::open);
}

TEST_F(PortTest, RejectOfEitherStageCloses) {
    for (const Stage stage : {Stage::authentication, Stage::authorization}) {
        Port fresh;
        fresh.setNodeAdmin(true, 0s);
        fresh.setAdmin(true, 0s);
        fresh.linkUp(0s);
        fresh.frame(bytes, matching, 1s);
        const auto outcome = fresh.reply(stage, false, 2s);
        ASSERT_TRUE(outcome);
        EXPECT_EQ(outcome->to, PortState::rejected);
        EXPECT_EQ(fresh.stageState(stage), StageState::rejected);
        EXPECT_EQ(fresh.forwardingState(), ForwardingState::blocked);
        EXPECT_EQ(fresh.counters()[Counter::rejects], 1u);
        EXPECT_EQ(fresh.counters()[Counter::droppedPending], 1u);
    }
}

TEST_F(PortTest, RejectedLineAsksAgainOnlyAfterTheBackOff) {
    port.frame(bytes, matching, 1s);
    port.reply(Stage::authentication, false, 2s);
    EXPECT_FALSE(port.frame(bytes, matching, 2s + node::rejectBackOff - 1us).moved());
    EXPECT_EQ(count(Counter::droppedRejected), 1u);
    EXPECT_FALSE(port.frame(bytes, other, 2s + node::rejectBackOff).moved());
    EXPECT_TRUE(port.frame(bytes, matching, 2s + node::rejectBackOff).raised());
}

TEST_F(PortTest, RejectOfAnOpenLineClosesIt) {
    open(1s);
    EXPECT_EQ(port.reply(Stage::authorization, false, 5s)->to, PortState::rejected);
}

TEST_F(PortTest, AnswerNobodyWaitsForIsRefused) {
    EXPECT_FALSE(port.reply(Stage::authentication, true, 1s));
    port.frame(bytes, matching, 1s);
    EXPECT_TRUE(port.reply(Stage::authentication, true, 2s));
    EXPECT_FALSE(port.reply(Stage::authentication, true, 2s));
    port.expire(1s + 120s);
    EXPECT_FALSE(port.reply(Stage::authorization, true, 200s));
    EXPECT_EQ(port.state(), PortState::blocked);
}

TEST_F(PortTest, UnansweredRequestEndsAtItsTimeout) {
    port.setTimeout(10);
    port.frame(bytes, matching, 1s);
    ASSERT_EQ(port.deadline(), Time(11s));
    EXPECT_FALSE(port.expire(11s - 1us).moved());
    const Port::Outcome outcome = port.expire(11s);
    EXPECT_EQ(outcome.to, PortState::blocked);
    EXPECT_EQ(outcome.cause, Cause::timeout);
    EXPECT_EQ(count(Counter::timeouts), 1u);
    EXPECT_EQ(count(Counter::droppedPending), 1u);
    EXPECT_FALSE(port.deadline());
    EXPECT_TRUE(port.frame(bytes, matching, 12s).raised());
}

TEST_F(PortTest, TimeoutSetDuringARequestCountsForTheNext) {
    port.frame(bytes, matching, 1s);
    port.setTimeout(5);
    EXPECT_EQ(port.deadline(), Time(121s));
}

TEST_F(PortTest, QueueKeepsItsSizeAndCountsTheRest) {
    port.setMaxQueue(3);
    for (int i = 0; i < 5; ++i) {
        port.frame(bytes, matching, 1s);
    }
    port.frame(bytes, other, 1s);
    EXPECT_EQ(count(Counter::requestsRaised), 1u);
    EXPECT_EQ(count(Counter::framesQueued), 3u);
    EXPECT_EQ(count(Counter::queueOverflows), 2u);
    EXPECT_EQ(count(Counter::droppedPending), 3u);
    port.reply(Stage::authentication, true, 2s);
    EXPECT_EQ(port.reply(Stage::authorization, true, 2s)->forward.size(), 3u);
}

TEST_F(PortTest, LinkLossBlocksAndSilencesTheLineUntilItsStagesAreUp) {
    open(1s);
    const Port::Outcome outcome = port.linkDown(2s);
    EXPECT_EQ(outcome.to, PortState::blocked);
    EXPECT_EQ(outcome.cause, Cause::linkLoss);
    EXPECT_FALSE(port.stageOper(Stage::authentication));
    EXPECT_FALSE(port.stageOper(Stage::authorization));
    const uint32_t seen = count(Counter::framesSeen);
    port.frame(bytes, matching, 3s);
    EXPECT_EQ(count(Counter::framesSeen), seen);
    port.linkUp(4s);
    EXPECT_FALSE(port.frame(bytes, matching, 5s).moved());
    port.setStageOper(Stage::authentication, true, 6s);
    EXPECT_TRUE(port.frame(bytes, matching, 7s).raised());
    EXPECT_EQ(port.stageState(Stage::authentication), StageState::pending);
    EXPECT_EQ(port.stageState(Stage::authorization), StageState::idle);
}

TEST_F(PortTest, RequestOfOneStageDoesNotOpenForTheOther) {
    port.setStageOper(Stage::authorization, false, 0s);
    port.frame(bytes, matching, 1s);
    EXPECT_FALSE(port.reply(Stage::authentication, true, 2s)->moved());
    EXPECT_FALSE(port.reply(Stage::authorization, true, 2s));
    EXPECT_EQ(port.state(), PortState::pending);
}

// Every switch that can silence a line, and the way it closes an open one.
TEST_F(PortTest, SwitchedOffLinesAskNothingAndClose) {
    struct Switch {
        const char* what;
        void (*off)(Port&);
    };
    const Switch switches[] = {
        {"node", [](Port& line) { line.setNodeAdmin(false, 2s); }},
        {"line", [](Port& line) { line.setAdmin(false, 2s); }},
        {"both stages",
         [](Port& line) {
             line.setStageAdmin(Stage::authentication, false, 2s);
             line.setStageAdmin(Stage::authorization, false, 2s);
         }},
    };
    for (const Switch& entry : switches) {
        SCOPED_TRACE(entry.what);
        port = Port();
        port.setNodeAdmin(true, 0s);
        port.setAdmin(true, 0s);
        port.linkUp(0s);
        open(1s);
        entry.off(port);
        EXPECT_EQ(port.state(), PortState::blocked);
        EXPECT_FALSE(port.frame(bytes, matching, 3s).moved());
    }
}

TEST_F(PortTest, RequestsSwitchedOffStopNewOnesOnly) {
    open(1s);
    port.setRequests(false, 2s);
    EXPECT_EQ(port.state(), PortState::open);
    port.linkDown(3s);
    port.linkUp(4s);
    port.setStageOper(Stage::authentication, true, 4s);
    EXPECT_FALSE(port.frame(bytes, matching, 5s).moved());
    port.setRequests(true, 6s);
    EXPECT_TRUE(port.frame(bytes, matching, 7s).raised());
}

TEST_F(PortTest, StageSwitchedOnLaterClosesTheGate) {
    port.setStageAdmin(Stage::authorization, false, 0s);
    port.frame(bytes, matching, 1s);
    port.reply(Stage::authentication, true, 1s);
    ASSERT_EQ(port.state(), PortState::open);
    const Port::Outcome outcome = port.setStageAdmin(Stage::authorization, true, 2s);
    EXPECT_EQ(outcome.to, PortState::blocked);
    EXPECT_EQ(outcome.cause, Cause::switchedOn);
}

TEST_F(PortTest, LastMissingStageSwitchedOffOpensTheGate) {
    port.frame(bytes, matching, 1s);
    port.reply(Stage::authentication, true, 1s);
    const Port::Outcome outcome = port.setStageAdmin(Stage::authorization, false, 2s);
    EXPECT_EQ(outcome.to, PortState::open);
    EXPECT_EQ(outcome.forward.size(), 1u);
}

TEST_F(PortTest, StoredRequestAsksWithoutTraffic) {
    const Port::Outcome outcome = port.storedRequest(1s);
    EXPECT_TRUE(outcome.raised());
    EXPECT_EQ(outcome.cause, Cause::storedRequest);
    EXPECT_EQ(count(Counter::storedRequests), 1u);
    EXPECT_EQ(count(Counter::requestsRaised), 1u);
}

TEST_F(PortTest, StoredRequestWaitsForTheLineAndGoesBeforeAnAutomaticOne) {
    Port fresh;
    fresh.setNodeAdmin(true, 0s);
    fresh.setAdmin(true, 0s);
    fresh.setAutoRequest(true);
    EXPECT_FALSE(fresh.storedRequest(0s).moved());
    EXPECT_EQ(fresh.linkUp(1s).cause, Cause::storedRequest);
}

TEST_F(PortTest, StoredRequestOfALineSwitchedOffIsForgotten) {
    Port fresh;
    fresh.setNodeAdmin(true, 0s);
    fresh.setAdmin(true, 0s);
    fresh.storedRequest(0s);
    fresh.setAdmin(false, 0s);
    fresh.setAdmin(true, 0s);
    EXPECT_FALSE(fresh.linkUp(1s).moved());
}

TEST_F(PortTest, StoredRequestDuringARequestChangesNothing) {
    port.frame(bytes, matching, 1s);
    EXPECT_FALSE(port.storedRequest(2s).moved());
    port.expire(121s);
    EXPECT_EQ(port.state(), PortState::blocked);
    EXPECT_EQ(count(Counter::storedRequests), 0u);
}

TEST_F(PortTest, AutomaticRequestAsksWheneverTheLinkComesUp) {
    port.setAutoRequest(true);
    EXPECT_FALSE(port.linkUp(1s).moved());  // it is up already
    port.linkDown(2s);
    const Port::Outcome outcome = port.linkUp(3s);
    EXPECT_TRUE(outcome.raised());
    EXPECT_EQ(outcome.cause, Cause::automaticRequest);
}

TEST_F(PortTest, EndOfALoginBlocksAndTheNextRequestMayFollowAtOnce) {
    open(1s);
    const Port::Outcome outcome = port.end(2s);
    EXPECT_EQ(outcome.to, PortState::blocked);
    EXPECT_EQ(outcome.cause, Cause::ended);
    EXPECT_TRUE(port.storedRequest(2s).raised());
    EXPECT_EQ(port.raisedBy(), Cause::storedRequest);
    EXPECT_TRUE(port.end(3s).moved());
    EXPECT_TRUE(port.frame(bytes, matching, 3s).raised());
    EXPECT_EQ(port.raisedBy(), Cause::traffic);
}

TEST_F(PortTest, OctetsAreThoseOfForwardedFrames) {
    port.frame(bytes, matching, 1s);  // kept
    port.frame(bytes, matching, 1s);  // beyond the queue
    EXPECT_EQ(port.forwardedOctets(), 0u);
    port.reply(Stage::authentication, true, 1s);
    port.reply(Stage::authorization, true, 1s);
    EXPECT_EQ(port.forwardedOctets(), 3u);
    port.frame(bytes, other, 2s);
    EXPECT_EQ(port.forwardedOctets(), 6u);
}

TEST_F(PortTest, KeptFrameThatWasLostIsNoLongerForwarded) {
    port.frame(bytes, matching, 1s);
    port.reply(Stage::authentication, true, 1s);
    port.reply(Stage::authorization, true, 1s);
    port.lost(bytes.size());
    EXPECT_EQ(port.counters()[Counter::framesSeen], 1u);
    EXPECT_EQ(port.counters()[Counter::forwarded], 0u);
    EXPECT_EQ(port.counters()[Counter::droppedPending], 1u);
    EXPECT_EQ(port.forwardedOctets(), 0u);
}

// Random inputs: every frame is accounted for once, the queue keeps its bound, a gate is open
// only with every stage that is on accepted, and a request is open exactly with a deadline.
TEST(PortProperties, HoldForAnyOrderOfInputs) {
    std::mt19937 random(20240601);
    const auto pick = [&](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    for (int round = 0; round < 200; ++round) {
        Port port;
        Time now{0};
        uint64_t forwardedFrames = 0;
        const auto apply = [&](const Port::Outcome& outcome) {
            forwardedFrames += outcome.forward.size() + (outcome.forwardFrame ? 1 : 0);
            EXPECT_LE(outcome.forward.size(), 100u);
        };
        for (int step = 0; step < 300; ++step) {
            now += std::chrono::milliseconds(pick(20000));
            const Stage stage = pick(2) ? Stage::authentication : Stage::authorization;
            switch (pick(14)) {
                case 0:
                    apply(port.linkUp(now));
                    break;
                case 1:
                    apply(pick(4) ? Port::Outcome{} : port.linkDown(now));
                    break;
                case 2:
                    apply(port.storedRequest(now));
                    break;
                case 3:
                case 4:
                    if (const auto outcome = port.reply(stage, pick(5) != 0, now)) {
                        apply(*outcome);
                    }
                    break;
                case 5:
                    apply(port.expire(now));
                    break;
                case 6:
                    apply(port.setNodeAdmin(pick(8) != 0, now));
                    break;
                case 7:
                    apply(port.setAdmin(pick(8) != 0, now));
                    break;
                case 8:
                    apply(port.setStageAdmin(stage, pick(4) != 0, now));
                    break;
                case 9:
                    apply(port.setStageOper(stage, pick(4) != 0, now));
                    break;
                case 10:
                    port.setAutoRequest(pick(2) != 0);
                    port.setMaxQueue(1 + pick(5));
                    break;
                default:
                    apply(port.frame(bytes, pick(2) != 0, now));
            }
            EXPECT_EQ(port.deadline().has_value(), port.state() == PortState::pending);
            if (port.state() == PortState::open) {
                for (const Stage each : {Stage::authentication, Stage::authorization}) {
                    EXPECT_TRUE(port.stageState(each) == StageState::off ||
                                port.stageState(each) == StageState::accepted);
                }
            }
        }
        apply(port.linkDown(now));  // gives up what is still kept
        const node::Counters& counters = port.counters();
        EXPECT_EQ(counters[Counter::forwarded], forwardedFrames);
        EXPECT_EQ(counters[Counter::framesSeen],
                  counters[Counter::forwarded] + counters[Counter::droppedBlocked] +
                      counters[Counter::droppedPending] + counters[Counter::droppedRejected]);
    }
}

}  // namespace
