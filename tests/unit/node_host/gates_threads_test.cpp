// Gates moved from many threads at once. The fake has no lock: whoever calls it must hold one.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <sstream>
#include <thread>
#include <vector>

#include "node/engine/bridge.h"
#include "node/engine/engine.h"
#include "tests/unit/node/frame_builder.h"
#include "tests/unit/node_host/fake_gates.h"
#include "tests/unit/node_host/line_rules.h"

namespace {

using namespace std::chrono_literals;
using node::Gate;
using node::Stage;

constexpr unsigned line = 5;
constexpr unsigned turns = 3000;

TEST(GatesThreads, GateIsWhereItsPortIsWhoeverMovedItLast) {
    node::Loop loop(node::Pace::recorded);
    std::ostringstream out;
    node::EventLog log(out);
    node::Engine engine(loop, log);
    node_test::FakeGates gates;
    std::string ignored;
    gates.attach({.ifId = line, .ifIndex = 1}, ignored);
    engine.addLine(line, "dsl5");
    engine.onEvent([](const std::string&) {});
    node::attachBridge(&engine);
    node_test::giveRule(line, node_test::anyFrame());
    engine.setNodeAdmin(true);
    engine.gateBy(line, &gates);
    engine.link(line, true);

    const auto frame = node_test::ether(0x88b5, {1, 2, 3});
    const std::function<void(unsigned)> inputs[] = {
        // A whole login, which the others disturb.
        [&](unsigned) {
            engine.setAdmin(line, false);
            engine.setAdmin(line, true);
            engine.setStageOper(line, Stage::authentication, true);
            engine.setStageOper(line, Stage::authorization, true);
            engine.frame(line, frame);
            engine.reply(line, Stage::authentication, true);
            engine.reply(line, Stage::authorization, true);
        },
        [&](unsigned i) { engine.link(line, i % 10 != 0); },
        [&](unsigned i) { engine.reply(line, Stage::authentication, i % 100 != 0); },
        [&](unsigned) { engine.frame(line, frame); },
        [&](unsigned i) {
            if (i % 2 == 0) {
                node_test::takeRule(line, 0);
            } else {
                auto rule = node_test::anyFrame();
                rule.selector[0] = '5';
                EXPECT_EQ(ittalConditionAdd(bridgeName, &rule), 0);
            }
        },
        [&](unsigned i) { engine.setMaxQueue(line, i % 4); },
        [&](unsigned) { (void)engine.counters(line); },  // only that nothing is read half-written
    };
    std::atomic<unsigned> opened{0};
    {
        std::vector<std::thread> threads;
        for (const auto& input : inputs) {
            threads.emplace_back([&] {
                for (unsigned i = 0; i < turns; ++i) {
                    input(i);
                    opened += engine.status(line)->passes ? 1 : 0;
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    EXPECT_GT(opened, 0u) << "nothing of it mattered";
    const auto& gate = gates.lines[line];
    engine.read(line, [&](const node::Port& port) {
        const Gate wanted = port.passes() ? Gate::open : static_cast<Gate>(port.state());
        EXPECT_EQ(gate.gate, wanted);
        EXPECT_EQ(gate.rules.size(), 1u);
    });
    node::attachBridge(nullptr);
}

}  // namespace
