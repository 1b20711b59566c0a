// Which frames of a closed line are handed up, how many, and what happens to those that cannot.
#include <bpf/bpf.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <thread>

#include "node/engine/kernel/tc_hook.h"
#include "tests/kernel/engine_fixture.h"
#include "tests/kernel/test_run.h"
#include "tests/unit/node/condition_builder.h"

using namespace node_test;

namespace {

class KernelTrapTest : public KernelTest {};

const ittalCondition every = anyFrame();
const std::span<const ittalCondition> everything(&every, 1);

bool readable(int fd) {
    pollfd waiting{fd, POLLIN, 0};
    return poll(&waiting, 1, static_cast<int>(std::chrono::milliseconds(patience).count())) == 1;
}

TEST_F(KernelTrapTest, OneFrameGoesUpPerRequestAndFurtherOnesAreOnlyCounted) {
    const LineNet net(2);
    Engine engine(2);
    for (const unsigned line : {1U, 2U}) {
        engine.attach(line);
        ASSERT_TRUE(engine->setRules(line, everything));
    }
    RawSocket subscriber(LineNet::subscriber(1));
    uint32_t sent = 0;
    for (uint32_t request = 1; request <= 3; ++request) {
        ASSERT_TRUE(engine->setGate(1, Gate::blocked));
        ASSERT_TRUE(engine->arm(1));
        subscriber.send(numbered(++sent));
        ASSERT_TRUE(readable(engine->fd()));
        EXPECT_EQ(engine->poll(), 1U);
        ASSERT_TRUE(engine->setGate(1, Gate::pending));
        for (int i = 0; i < 50; ++i) {
            subscriber.send(numbered(++sent));
        }
        ASSERT_TRUE(engine.counted(1, sent));
        EXPECT_EQ(engine->poll(), 0U);
        ASSERT_EQ(engine.trapped.size(), request);
        EXPECT_EQ(engine.trapped.back(), std::pair(1U, numbered(sent - 50)));
        const auto totals = engine->totals(1);
        EXPECT_EQ(totals.trapped, request);
        EXPECT_EQ(totals.counters[KERNEL_FRAMES_MATCHED], 50 * request);
        EXPECT_EQ(totals.counters[KERNEL_QUEUE_OVERFLOWS], 50 * request);
    }
}

TEST_F(KernelTrapTest, AsManyFramesGoUpAsTheQueueTakes) {
    const LineNet net(1);
    Engine engine(1);
    engine.attach(1);
    ASSERT_TRUE(engine->setRules(1, everything));
    RawSocket subscriber(LineNet::subscriber(1));
    ASSERT_TRUE(engine->arm(1, 5));
    for (uint32_t number = 1; number <= 9; ++number) {
        subscriber.send(numbered(number));
    }
    ASSERT_TRUE(engine.counted(1, 9));
    EXPECT_EQ(engine->poll(), 5U);
    for (uint32_t number = 1; number <= 5; ++number) {
        EXPECT_EQ(engine.trapped[number - 1].second, numbered(number));
    }
}

TEST_F(KernelTrapTest, WithoutTrapsRulesOrMatchNothingGoesUp) {
    const LineNet net(1);
    Engine engine(1);
    engine.attach(1);
    RawSocket subscriber(LineNet::subscriber(1));
    ASSERT_TRUE(engine->setRules(1, everything));
    subscriber.send(numbered(1));  // not armed
    ASSERT_TRUE(engine.counted(1, 1));
    ASSERT_TRUE(engine->arm(1, 1));
    ASSERT_TRUE(engine->arm(1, 0));
    subscriber.send(numbered(2));  // taken back
    ASSERT_TRUE(engine.counted(1, 2));
    ASSERT_TRUE(engine->arm(1, 1));
    const ittalCondition other = etherTypeIs(0x0806);
    ASSERT_TRUE(engine->setRules(1, std::span(&other, 1)));
    subscriber.send(numbered(3));  // no match
    ASSERT_TRUE(engine.counted(1, 3));
    ASSERT_TRUE(engine->setRules(1, {}));
    subscriber.send(numbered(4));  // no rule
    ASSERT_TRUE(engine.counted(1, 4));
    ASSERT_TRUE(engine->setRules(1, everything));
    ASSERT_TRUE(engine->setGate(1, Gate::open));
    ASSERT_TRUE(engine->arm(1, 1));
    subscriber.send(numbered(5));  // let through
    ASSERT_TRUE(engine.counted(1, 5));
    EXPECT_EQ(engine->poll(), 0U);
    EXPECT_EQ(engine->totals(1).trapped, 0U);
}

TEST_F(KernelTrapTest, OpeningTheGateTakesTheTrapsBack) {
    const LineNet net(1);
    Engine engine(1);
    engine.attach(1);
    ASSERT_TRUE(engine->setRules(1, everything));
    ASSERT_TRUE(engine->arm(1, 3));
    ASSERT_TRUE(engine->setGate(1, Gate::open));
    ASSERT_TRUE(engine->setGate(1, Gate::blocked));
    RawSocket(LineNet::subscriber(1)).send(numbered(1));
    ASSERT_TRUE(engine.counted(1, 1));
    EXPECT_EQ(engine->poll(), 0U);
}

TEST_F(KernelTrapTest, AFullRingBufferLosesFramesAndCountsThem) {
    constexpr uint32_t traps = 800;
    const LineNet net(2);
    Engine engine(2);
    for (const unsigned line : {1U, 2U}) {
        engine.attach(line);
        ASSERT_TRUE(engine->setRules(line, everything));
        ASSERT_TRUE(engine->arm(line, traps));
    }
    RawSocket subscriber(LineNet::subscriber(1)), other(LineNet::subscriber(2));
    constexpr uint32_t frames = 2000;
    for (uint32_t number = 1; number <= frames; ++number) {
        subscriber.send(numbered(number, 1400));
    }
    ASSERT_TRUE(engine.counted(1, frames));
    const auto totals = engine->totals(1);
    EXPECT_GE(totals.trapped, 700U);  // of 1424 bytes each, in a buffer of a megabyte
    EXPECT_LT(totals.trapped, 740U);
    EXPECT_EQ(totals.trapped + totals.trapsLost, frames);
    EXPECT_EQ(totals.counters[KERNEL_FRAMES_SEEN], totals.trapsLost);
    EXPECT_EQ(totals.counters[KERNEL_DROPPED_BLOCKED], totals.trapsLost);
    EXPECT_EQ(engine->poll(), totals.trapped);
    for (uint32_t i = 0; i < totals.trapped; ++i) {
        ASSERT_EQ(engine.trapped[i].second, numbered(i + 1, 1400));
    }
    // With room again, both lines go on; what was lost has cost no trap.
    other.send(numbered(2));
    ASSERT_TRUE(engine.counted(2, 1));
    EXPECT_EQ(engine->poll(), 1U);
    for (uint32_t number = 1; number <= traps; ++number) {
        subscriber.send(numbered(number));
    }
    ASSERT_TRUE(engine.counted(1, frames + traps));
    EXPECT_EQ(engine->poll(), traps - totals.trapped);
    EXPECT_EQ(engine->totals(1).trapped, traps);
}

// How many traps the line has, as the program sees it.
int64_t trapsOf(const std::string& interface) {
    const unsigned ifIndex = LineNet::index(interface);
    bool refused = false;
    const auto program = node::attachedProgram(ifIndex, node::Direction::fromSubscriber);
    const auto maps = node::GateMaps::ofProgram(program.value_or(0), refused);
    const auto line = maps ? maps->lineOf(ifIndex) : std::nullopt;
    KernelLineRecord record{};
    EXPECT_TRUE(line);
    EXPECT_EQ(bpf_map_lookup_elem(maps->fd(node::GateMaps::lines), &*line, &record), 0);
    return record.traps;
}

void runProgram(int program, unsigned ifIndex, const Buffer& frame, int times) {
    EXPECT_TRUE(testRun(program, arrivedOn(ifIndex), frame, times));
}

// The node has given one trap and waits for a frame: it must not be lost while none went up.
TEST_F(KernelTrapTest, ATrapIsNotLostWhenProcessorsMeetAtAFullRingBuffer) {
    constexpr int rounds = 40;
    constexpr int frames = 20000;
    const LineNet net(1);
    Engine engine(1);
    engine.attach(1);
    ASSERT_TRUE(engine->setRules(1, everything));
    ASSERT_TRUE(engine->arm(1, 1000));
    const unsigned ifIndex = LineNet::index(LineNet::access(1));
    const int program = engine->program();
    runProgram(program, ifIndex, numbered(1, 1400), 1000);  // more than there is room for
    ASSERT_GT(engine->totals(1).trapsLost, 0U);
    for (int round = 0; round < rounds; ++round) {
        ASSERT_TRUE(engine->arm(1, 1));
        const auto load = [&] { runProgram(program, ifIndex, numbered(2, 1400), frames); };
        std::thread one(load), other(load);
        one.join();
        other.join();
        ASSERT_EQ(trapsOf("dsl1"), 1) << "round " << round;
    }
    EXPECT_GT(engine->poll(), 700U);
    RawSocket(LineNet::subscriber(1)).send(numbered(3));
    EXPECT_TRUE(eventually([&] { return engine->poll() == 1; }));
}

TEST_F(KernelTrapTest, AFrameBeyondTheLimitGoesUpAsFarAsItReaches) {
    const LineNet net(1, 65535);
    Engine engine(1);
    engine.attach(1);
    ASSERT_TRUE(engine->setRules(1, everything));
    RawSocket subscriber(LineNet::subscriber(1));
    uint32_t sent = 0;
    for (const size_t size : {16383U, 16384U, 16385U, 40000U}) {
        ASSERT_TRUE(engine->arm(1));
        Buffer frame = numbered(++sent, size);
        frame[size - 1] = frame[KERNEL_FRAME - 2] = 0x77;
        subscriber.send(frame);
        ASSERT_TRUE(engine.counted(1, sent));
        ASSERT_EQ(engine->poll(), 1U) << size;
        frame.resize(std::min<size_t>(size, KERNEL_FRAME));
        EXPECT_EQ(engine.trapped.back().second, frame) << size;
    }
    // With a tag the limit is the same.
    Buffer tagged = numbered(1, 20000);
    const uint8_t tag[] = {0x81, 0x00, 0x20, 0x05};
    tagged.insert(tagged.begin() + 12, std::begin(tag), std::end(tag));
    ASSERT_TRUE(engine->arm(1));
    subscriber.send(tagged);
    ASSERT_TRUE(engine.counted(1, sent + 1));
    ASSERT_EQ(engine->poll(), 1U);
    tagged.resize(KERNEL_FRAME);
    EXPECT_EQ(engine.trapped.back().second, tagged);
}

}  // namespace
