// The bridge is called from any thread while the loop plays traffic: frames, answers,
// settings, reads and named objects at once. Worth most under ThreadSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "node/engine/bridge.h"
#include "platform/ittal.h"
#include "tests/unit/node_host/line_rules.h"

namespace {

using namespace std::chrono_literals;

constexpr unsigned lines = 3;

// One frame per millisecond, over all lines in turn; IPv4 from 192.0.2.1.
class Traffic : public node::Source {
public:
    explicit Traffic(node::Engine& engine) : engine_(engine), frame_(60) {
        frame_[12] = 0x08;
        frame_[14] = 0x45;
        frame_[17] = 46;
        frame_[26] = 192;
        frame_[28] = 2;
        frame_[29] = 1;
    }
    std::optional<node::Time> next() override {
        return sent_ < 20000 ? std::optional<node::Time>(sent_ * 1ms) : std::nullopt;
    }
    void deliver() override { engine_.frame(1 + sent_++ % lines, frame_); }

private:
    node::Engine& engine_;
    std::vector<uint8_t> frame_;
    unsigned sent_ = 0;
};

TEST(EngineThreads, FramesAnswersSettingsAndReadsAtOnce) {
    node::Loop loop(node::Pace::instant);
    std::ostringstream out;
    node::EventLog log(out);
    log.setClock([&] { return loop.now(); });
    node::Engine engine(loop, log);
    uint64_t events = 0;  // the loop's thread
    engine.onEvent([&](const std::string& line) {
        EXPECT_EQ(line.substr(0, 3), "tal");
        ++events;
    });
    for (unsigned id = 1; id <= lines; ++id) {
        engine.addLine(id, "dsl" + std::to_string(id));
    }
    node::attachBridge(&engine);
    ASSERT_EQ(ittalAdminStateSet(bridgeName, true), 0);
    for (unsigned id = 1; id <= lines; ++id) {
        ASSERT_EQ(ittalPortAdminStateSet(bridgeName, id, true), 0);
        node_test::giveRule(id, node_test::etherTypeIs(0x0800));
        engine.link(id, true);
    }
    Traffic traffic(engine);
    loop.add(traffic);

    std::atomic<bool> done{false};
    const auto repeat = [&](auto work) {
        return std::thread([&done, work] {
            for (unsigned i = 0; !done; ++i) {
                work(1 + i % lines, i);
            }
        });
    };
    std::vector<std::thread> threads;
    threads.push_back(repeat([](unsigned id, unsigned i) {
        ittalPortAuthenReply(bridgeName, id, i % 7 != 0);
        ittalPortAuthorReply(bridgeName, id, i % 5 != 0);
    }));
    threads.push_back(repeat([](unsigned id, unsigned i) {
        ittalPortAuthorAdminStateSet(bridgeName, id, i % 3 != 0);
        ittalPortMaxQueueSizeSet(bridgeName, id, 1 + i % 10);
        ittalPortAdminStateSet(bridgeName, id, i % 11 != 0);
        ittalStoredReqSend(bridgeName, id);
    }));
    threads.push_back(repeat([&engine](unsigned id, unsigned) {
        unsigned states[3];
        EXPECT_EQ(ittalPortStatesGet(bridgeName, id, &states[0], &states[1], &states[2]), 0);
        EXPECT_LE(states[0], 2u);
        EXPECT_TRUE(engine.status(id));
    }));
    threads.push_back(repeat([](unsigned id, unsigned) {
        node_test::takeRule(id, 1);
        node_test::giveRule(id, node_test::etherTypeIs(0x0800));
    }));
    loop.run(true);
    done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    loop.run(true);  // what the threads still raised, and its timeouts
    uint64_t raised = 0;
    for (unsigned id = 1; id <= lines; ++id) {
        raised += engine.status(id)->counters[node::Counter::requestsRaised];
        EXPECT_NE(engine.status(id)->state, node::PortState::pending);
    }
    EXPECT_EQ(events, raised);
    node::attachBridge(nullptr);
}

}  // namespace
