// Links, gates and engine of lines on real interfaces, without any.
#include "node/live/live_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <stdexcept>

#include "node/engine/bridge.h"
#include "tests/unit/node_host/fake_gates.h"
#include "tests/unit/node_host/line_rules.h"

namespace {

using namespace std::chrono_literals;
using node::Gate;
using node::LinkEvent;
using node::LinkState;
using node::LiveLines;
using node_test::FakeGates;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr LinkState up{.ifIndex = 10, .up = true, .carrierDowns = 2};
constexpr LinkState downState{.ifIndex = 10, .up = false, .carrierDowns = 3};

class LiveLinesTest : public testing::Test {
protected:
    LiveLinesTest() : engine(loop, log) {
        engine.addLine(1, "dsl1");
        engine.addLine(2, "dsl2");
        engine.onEvent([](const std::string&) {});
    }
    void attach(const std::optional<LinkState>& state) {
        std::string error;
        attached = lines.attach(lines.lines()[0], state, error);
    }
    void begin() {
        lines.begin(engine, loop, [this](unsigned ifId, bool now) {
            // The gate of a lost link is shut before anybody hears of it.
            gateThen = gates.gate(ifId);
            links.push_back(std::to_string(ifId) + (now ? " up" : " down"));
            engine.link(ifId, now);
        });
    }
    void runFor(node::Time time) {
        loop.at(loop.now() + time, [this] { loop.stop(); });
        loop.run(true);
    }
    // In the state in which a port opens.
    void open() {
        engine.setNodeAdmin(true);
        engine.setAdmin(1, true);
        engine.setAutoRequest(1, true);
        attach(up);
        begin();
        engine.reply(1, node::Stage::authentication, true);
        engine.reply(1, node::Stage::authorization, true);
        ASSERT_EQ(gates.gate(1), Gate::open);
        gates.calls.clear();
        links.clear();
    }

    node::Loop loop{node::Pace::instant};
    std::ostringstream out;
    node::EventLog log{out};
    node::Engine engine;
    FakeGates gates;
    LiveLines lines{{{1, "veth1", true}, {2, "veth2", false}}, gates, log};
    std::vector<std::string> links;
    Gate gateThen = Gate::blocked;
    bool attached = false;
};

TEST_F(LiveLinesTest, DeviceThatIsThereGetsAGateWithWhatItsLineSays) {
    attach(up);
    EXPECT_TRUE(attached);
    const auto& line = gates.lines[1].line;
    EXPECT_EQ(line.ifIndex, 10u);
    EXPECT_EQ(line.carrierDowns, 2u);
    EXPECT_TRUE(line.outwardOpen);
    EXPECT_THAT(gates.calls, ElementsAre("attach 1 at 10"));
    EXPECT_THAT(out.str(), HasSubstr("veth1: gate new"));
}

TEST_F(LiveLinesTest, DeviceThatIsNotThereIsNoFailure) {
    attach(std::nullopt);
    EXPECT_TRUE(attached);
    EXPECT_THAT(gates.calls, IsEmpty());
    EXPECT_THAT(out.str(), HasSubstr("veth1: not there yet"));
    begin();
    EXPECT_THAT(links, IsEmpty());
}

TEST_F(LiveLinesTest, FailureToAttachIsToldAtTheStart) {
    gates.refuses = "another program is attached";
    attach(up);
    EXPECT_FALSE(attached);
}

TEST_F(LiveLinesTest, WithoutALinkAGateFoundOpenCloses) {
    gates.finds = node::LineGates::Found::own;
    gates.lines[1].gate = Gate::open;
    attach(downState);
    EXPECT_EQ(gates.gate(1), Gate::blocked);
    EXPECT_THAT(gates.calls, ElementsAre("attach 1 at 10", "linkDown 1 count 3"));
}

TEST_F(LiveLinesTest, LinksAreReportedFromTheBeginningOn) {
    attach(up);
    lines.changed("veth1", LinkEvent::down, downState);
    EXPECT_THAT(links, IsEmpty());
    begin();
    EXPECT_THAT(links, ElementsAre("1 up"));
    lines.changed("veth1", LinkEvent::down, downState);
    lines.changed("veth1", LinkEvent::up, up);
    EXPECT_THAT(links, ElementsAre("1 up", "1 down", "1 up"));
    lines.changed("other", LinkEvent::up, up);
    EXPECT_EQ(links.size(), 3u);
}

TEST_F(LiveLinesTest, LostLinkShutsTheGateFirst) {
    open();
    lines.changed("veth1", LinkEvent::down, downState);
    EXPECT_EQ(gateThen, Gate::blocked);
    EXPECT_THAT(gates.calls, ElementsAre("linkDown 1 count 3"));
    EXPECT_EQ(gates.gate(1), Gate::blocked);
    EXPECT_EQ(engine.status(1)->state, node::PortState::blocked);
}

TEST_F(LiveLinesTest, LossesThatNobodyHeardOfAreNotedBeforeTheLinkIsUsed) {
    open();
    lines.changed("veth1", LinkEvent::down, downState);
    gates.calls.clear();
    lines.changed("veth1", LinkEvent::up, {.ifIndex = 10, .up = true, .carrierDowns = 5});
    EXPECT_THAT(gates.calls, ElementsAre("linkDown 1 count 5"));
    EXPECT_EQ(gates.gate(1), Gate::pending) << "automatic request";
    EXPECT_EQ(gates.lines[1].traps, 1u);
}

TEST_F(LiveLinesTest, DeviceThatComesBackGetsItsGateBeforeItsLink) {
    open();
    lines.changed("veth1", LinkEvent::down, downState);
    lines.changed("veth1", LinkEvent::gone, downState);
    gates.calls.clear();
    lines.changed("veth1", LinkEvent::appeared, {.ifIndex = 11, .up = true, .carrierDowns = 0});
    EXPECT_THAT(gates.calls, ElementsAre("attach 1 at 11"));
    EXPECT_EQ(gates.polls, 2u) << "frames that attaching found, here and at the beginning";
    EXPECT_EQ(gates.gate(1), Gate::blocked);
    EXPECT_THAT(links, ElementsAre("1 down"));
    lines.changed("veth1", LinkEvent::up, {.ifIndex = 11, .up = true, .carrierDowns = 0});
    EXPECT_THAT(links, ElementsAre("1 down", "1 up"));
    EXPECT_EQ(gates.gate(1), Gate::pending) << "automatic request";
}

TEST_F(LiveLinesTest, DeviceWithoutAGateHasNoLinkAndIsTriedAgain) {
    attach(std::nullopt);
    begin();
    gates.refuses = "no room";
    lines.changed("veth1", LinkEvent::appeared, up);
    lines.changed("veth1", LinkEvent::up, up);
    EXPECT_THAT(out.str(), HasSubstr("veth1: WITHOUT A GATE: no room"));
    EXPECT_THAT(links, IsEmpty());
    loop.at(2s + 500ms, [this] { gates.refuses.clear(); });
    runFor(4s);
    EXPECT_THAT(gates.calls, ElementsAre("attach 1 at 10", "attach 1 at 10", "attach 1 at 10",
                                         "attach 1 at 10"));
    EXPECT_THAT(links, ElementsAre("1 up"));
    EXPECT_EQ(gates.polls, 2u);
}

TEST_F(LiveLinesTest, GateThatSomebodyTookOffIsPutOnAgainAsItWas) {
    open();
    const unsigned arms = gates.lines[1].arms, rulesWritten = gates.lines[1].rulesWritten;
    gates.lines[1].takenOff = true;
    runFor(5s);
    EXPECT_THAT(gates.calls, ElementsAre("restore 1"));
    EXPECT_THAT(out.str(), HasSubstr("veth1: WITHOUT A GATE: somebody took it off"));
    EXPECT_THAT(out.str(), HasSubstr("veth1: gate put on again"));
    EXPECT_EQ(gates.gate(1), Gate::open) << "the login is as good as before";
    EXPECT_EQ(gates.lines[1].arms, arms);
    EXPECT_EQ(gates.lines[1].rulesWritten, rulesWritten);
    EXPECT_THAT(links, IsEmpty());
}

TEST_F(LiveLinesTest, LineWhoseGateCannotBePutBackLosesItsLinkUntilItCan) {
    open();
    gates.lines[1].takenOff = true;
    gates.refuses = "another program is attached";
    loop.at(2500ms, [this] {
        EXPECT_THAT(links, ElementsAre("1 down"));
        EXPECT_THAT(out.str(), HasSubstr("veth1: WITHOUT A GATE: another program is attached"));
        EXPECT_EQ(gates.gate(1), Gate::blocked);
        gates.refuses.clear();
    });
    runFor(4s);
    EXPECT_THAT(gates.calls, ElementsAre("restore 1", "attach 1 at 10"));
    EXPECT_THAT(links, ElementsAre("1 down", "1 up"));
}

TEST_F(LiveLinesTest, FramesLostForWantOfRoomAreToldOnce) {
    gates.lines[1].totals.trapsLost = 7;  // of an earlier process
    open();
    loop.at(5s, [this] {
        EXPECT_THAT(out.str(), Not(HasSubstr("no room")));
        gates.lines[1].totals.trapsLost = 12;
    });
    loop.at(7s, [this] {
        EXPECT_THAT(out.str(), HasSubstr("veth1: no room for 5 frames that ask"));
        out.str("");
    });
    runFor(12s);
    EXPECT_THAT(out.str(), Not(HasSubstr("no room")));
}

TEST_F(LiveLinesTest, DeviceThatIsGoneIsNotTriedAgain) {
    attach(std::nullopt);
    begin();
    gates.refuses = "no room";
    lines.changed("veth1", LinkEvent::appeared, downState);
    lines.changed("veth1", LinkEvent::gone, downState);
    gates.calls.clear();
    runFor(3s);
    EXPECT_THAT(gates.calls, IsEmpty());
}

TEST_F(LiveLinesTest, AtTheEndTheGatesStayAsTheyAre) {
    open();
    lines.end();
    engine.setNodeAdmin(false);
    lines.changed("veth1", LinkEvent::down, downState);
    EXPECT_EQ(gates.gate(1), Gate::open);
    EXPECT_THAT(gates.calls, IsEmpty());
}

// Takes back a timer only if it was given.
class StrictLoop : public node::Loop {
public:
    StrictLoop() : node::Loop(node::Pace::instant) {}
    Timer at(node::Time time, node::Task task) override {
        return *given.insert(node::Loop::at(time, std::move(task))).first;
    }
    void cancel(const Timer& timer) override {
        cancelled.push_back(given.erase(timer) == 1);
        node::Loop::cancel(timer);
    }
    std::set<Timer> given;
    std::vector<bool> cancelled;
};

TEST_F(LiveLinesTest, EndTakesBackOnlyWhatTheBeginningSetUp) {
    attach(up);
    StrictLoop strict;
    const auto fails = [](unsigned, bool) { throw std::runtime_error("no module"); };
    EXPECT_THROW(lines.begin(engine, strict, fails), std::runtime_error);
    lines.end();
    EXPECT_THAT(strict.cancelled, IsEmpty());
    lines.begin(engine, strict, [](unsigned, bool) {});
    lines.end();
    EXPECT_THAT(strict.cancelled, ElementsAre(true));
    EXPECT_THROW(lines.begin(engine, strict, fails), std::runtime_error);
    lines.end();
    EXPECT_THAT(strict.cancelled, ElementsAre(true));
}

TEST_F(LiveLinesTest, KeptFramesGoOnWhereThereIsADevice) {
    open();
    const std::vector<uint8_t> frame(60);
    lines.forward(1, frame);
    lines.forward(9, frame);
    EXPECT_THAT(gates.calls, ElementsAre("reinject 1 60"));
    gates.refuses = "too long";
    lines.forward(1, frame);
    EXPECT_THAT(out.str(), HasSubstr("a kept frame is lost: too long"));
}

TEST_F(LiveLinesTest, KeptFrameThatCannotGoOnCountsAsDropped) {
    engine.onForward(
        [this](unsigned ifId, std::span<const uint8_t> frame) { lines.forward(ifId, frame); });
    engine.setNodeAdmin(true);
    engine.setAdmin(1, true);
    engine.setAutoRequest(1, true);
    engine.setMaxQueue(1, 3);
    attach(up);
    begin();
    node::attachBridge(&engine);
    node_test::giveRule(1, node_test::anyFrame());
    node::attachBridge(nullptr);
    const std::vector<uint8_t> frame(60, 1);
    engine.frame(1, frame);
    engine.frame(1, frame);
    gates.refuses = "too long";
    engine.reply(1, node::Stage::authentication, true);
    engine.reply(1, node::Stage::authorization, true);
    const auto counters = engine.counters(1);
    ASSERT_TRUE(counters);
    EXPECT_EQ((*counters)[node::Counter::framesSeen], 2u);
    EXPECT_EQ((*counters)[node::Counter::framesQueued], 2u);
    EXPECT_EQ((*counters)[node::Counter::forwarded], 0u);
    EXPECT_EQ((*counters)[node::Counter::droppedPending], 2u);
}

TEST_F(LiveLinesTest, GateFoundOpenIsExplained) {
    gates.finds = node::LineGates::Found::own;
    gates.lines[1].gate = Gate::open;
    attach(up);
    EXPECT_THAT(out.str(), HasSubstr("veth1: gate found open"));
    begin();
    EXPECT_THAT(out.str(), HasSubstr("closed: it was found open, but there is no stored login"));
    EXPECT_EQ(gates.gate(1), Gate::blocked);
}

TEST_F(LiveLinesTest, WhatPassedADeviceThatComesLaterIsCountedFromItsFirstComingOn) {
    begin();
    gates.lines[1].totals.inwardOctets = 1000;  // of an earlier process, found when it comes
    gates.finds = node::LineGates::Found::own;
    lines.changed("veth1", LinkEvent::appeared, up);
    EXPECT_EQ(engine.passed(1).inwardOctets, 0u);
    gates.lines[1].totals.inwardOctets += 30;
    lines.changed("veth1", LinkEvent::gone, downState);
    lines.changed("veth1", LinkEvent::appeared, up);
    EXPECT_EQ(engine.passed(1).inwardOctets, 30u) << "it was only away";
}

}  // namespace
