// What passes a gate, in both directions, and what is counted.
#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <gtest/gtest.h>
#include <linux/pkt_cls.h>
#include <sys/resource.h>

#include <array>
#include <iterator>

#include "node/engine/kernel/tc_hook.h"
#include "tests/kernel/engine_fixture.h"
#include "tests/kernel/test_run.h"
#include "tests/unit/node/condition_builder.h"
#include "tests/unit/node/frame_builder.h"

using namespace node_test;

namespace {

constexpr uint32_t sentinel = 0xfffffff0;

class KernelGateTest : public KernelTest {};

std::array<uint32_t, 13> counters(std::initializer_list<std::pair<size_t, uint32_t>> values) {
    std::array<uint32_t, 13> out{};
    for (const auto& [index, value] : values) {
        out[index] = value;
    }
    return out;
}

TEST_F(KernelGateTest, OnlyTheOpenGateLetsFramesIn) {
    const LineNet net(2);
    Engine engine(2);
    engine.attach(1);
    engine.attach(2);
    ASSERT_TRUE(engine->setGate(2, Gate::open));
    RawSocket subscriber(LineNet::subscriber(1)), other(LineNet::subscriber(2)), core("core");
    uint32_t number = 0, sent = 0;
    for (const Gate gate : {Gate::blocked, Gate::pending, Gate::rejected, Gate::open, Gate::blocked,
                            Gate::open, Gate::rejected}) {
        ASSERT_TRUE(engine->setGate(1, gate));
        EXPECT_EQ(engine->gate(1), gate);
        const uint32_t first = number + 1;
        for (int i = 0; i < 100; ++i) {
            subscriber.send(numbered(++number));
        }
        sent += 100;
        ASSERT_TRUE(engine.counted(1, sent));
        other.send(numbered(sentinel));
        for (uint32_t expected = first; gate == Gate::open && expected <= number; ++expected) {
            ASSERT_EQ(nextNumber(core), expected);
        }
        ASSERT_EQ(nextNumber(core), sentinel);  // so nothing else came through
    }
}

TEST_F(KernelGateTest, OnlyTheOpenGateLetsFramesOut) {
    const LineNet net(2);
    Engine engine(2);
    engine.attach(1);
    engine.attach(2, true);
    RawSocket closed(LineNet::subscriber(1)), outwardOpen(LineNet::subscriber(2)), core("core");
    uint32_t number = 0, dropped = 0;
    for (const Gate gate :
         {Gate::blocked, Gate::pending, Gate::rejected, Gate::open, Gate::blocked}) {
        ASSERT_TRUE(engine->setGate(1, gate));
        ASSERT_TRUE(engine->setGate(2, gate));
        core.send(numbered(++number));
        EXPECT_EQ(nextNumber(outwardOpen), number);
        if (gate == Gate::open) {
            EXPECT_EQ(nextNumber(closed), number);
        } else {
            ++dropped;
        }
        EXPECT_TRUE(eventually([&] { return engine->totals(1).droppedOutward == dropped; }));
    }
    EXPECT_FALSE(closed.receive(std::chrono::milliseconds(50)));
    EXPECT_EQ(engine->totals(2).droppedOutward, 0U);
    EXPECT_EQ(engine->totals(1).passedOutward, 1U);
    EXPECT_EQ(engine->totals(1).outwardOctets, numbered(0).size());
    EXPECT_EQ(engine->totals(2).passedOutward, number);
    EXPECT_EQ(engine->totals(2).outwardOctets, number * numbered(0).size());
    // Frames towards the subscriber are none of the thirteen.
    EXPECT_EQ(engine->totals(1).counters, counters({}));
}

TEST_F(KernelGateTest, CountersAreExact) {
    const LineNet net(2);
    Engine engine(2);
    engine.attach(1);
    engine.attach(2);
    RawSocket subscriber(LineNet::subscriber(1));
    const auto send = [&](Gate gate, unsigned matching, unsigned others) {
        ASSERT_TRUE(engine->setGate(1, gate));
        const auto before = engine->totals(1);
        for (unsigned i = 0; i < matching; ++i) {
            subscriber.send(numbered(7));
        }
        for (unsigned i = 0; i < others; ++i) {
            subscriber.send(numbered(8));
        }
        ASSERT_TRUE(engine.counted(
            1, before.counters[KERNEL_FRAMES_SEEN] + before.trapped + matching + others));
    };
    ittalCondition seven = userPattern();
    seven.u.user.sequence[4] = 0x00070000;
    seven.u.user.mask[4] = 0xffff0000;
    ASSERT_TRUE(engine->setRules(1, std::span(&seven, 1)));
    send(Gate::blocked, 3, 5);
    send(Gate::rejected, 7, 11);
    send(Gate::pending, 13, 17);
    send(Gate::open, 19, 23);
    ASSERT_TRUE(engine->arm(1, 2));
    send(Gate::pending, 5, 1);
    const auto totals = engine->totals(1);
    EXPECT_EQ(totals.counters, counters({{KERNEL_FRAMES_SEEN, 102},
                                         {KERNEL_FRAMES_MATCHED, 26},
                                         {KERNEL_QUEUE_OVERFLOWS, 16},
                                         {KERNEL_DROPPED_BLOCKED, 8},
                                         {KERNEL_DROPPED_PENDING, 34},
                                         {KERNEL_DROPPED_REJECTED, 18},
                                         {KERNEL_FORWARDED, 42}}));
    EXPECT_EQ(totals.inwardOctets, 42 * numbered(0).size());
    EXPECT_EQ(totals.trapped, 2U);
    EXPECT_EQ(totals.trapsLost, 0U);
    EXPECT_EQ(engine->totals(2).counters, counters({}));
}

// As the kernel's segmentation hands it over: three payloads behind one set of headers.
TEST_F(KernelGateTest, ALargeFrameCountsAsTheFramesItStandsFor) {
    constexpr uint32_t segments = 3;
    const LineNet net(1);
    Engine engine(1);
    engine.attach(1);
    ASSERT_TRUE(engine->setGate(1, Gate::open));
    Buffer tcp(20, 0);
    tcp[12] = 0x80;  // 12 octets of options
    tcp.resize(32 + 1500);
    Buffer six = {0x60, 0, 0, 0, 0x05, 0xe4, 17, 64};
    six.resize(40 + 8 + 1500);
    Buffer routed = six;
    routed[6] = 43;
    const struct {
        Buffer frame;
        uint32_t headers;
    } rows[] = {{ether(0x0800, ipv4(tcp, {.protocol = 6})), 14 + 20 + 32},
                {ether(0x0800, ipv4(tcp, {.protocol = 6, .options = Buffer(8, 1)})), 14 + 28 + 32},
                {ether(0x86dd, six), 14 + 40 + 8},
                {ether(0x86dd, routed), 0},
                {ether(0x88b5, Buffer(1500, 0)), 0}};
    for (const auto& row : rows) {
        const auto before = engine->totals(1);
        __sk_buff context = arrivedOn(LineNet::index(LineNet::access(1)));
        context.gso_segs = segments;
        context.gso_size = 500;
        ASSERT_TRUE(testRun(engine->program(), context, row.frame));
        const auto after = engine->totals(1);
        EXPECT_EQ(after.counters[KERNEL_FORWARDED] - before.counters[KERNEL_FORWARDED], segments);
        EXPECT_EQ(after.counters[KERNEL_FRAMES_SEEN] - before.counters[KERNEL_FRAMES_SEEN],
                  segments);
        EXPECT_EQ(after.inwardOctets - before.inwardOctets,
                  row.frame.size() + (segments - 1) * row.headers)
            << "row " << &row - rows;
    }
}

TEST_F(KernelGateTest, ALineThatWasNeverAttachedIsRefused) {
    const LineNet net(1);
    Engine engine(1);
    std::string error;
    const unsigned ifIndex = LineNet::index(LineNet::access(1));
    for (const unsigned ifId : {0U, 1U, 127U, 128U, 1000U}) {
        EXPECT_FALSE(engine->setGate(ifId, Gate::open)) << ifId;
        EXPECT_FALSE(engine->arm(ifId)) << ifId;
        EXPECT_FALSE(engine->setRules(ifId, {})) << ifId;
        EXPECT_FALSE(engine->linkDown(ifId, 1)) << ifId;
        EXPECT_FALSE(engine->reinject(ifId, numbered(1), error)) << ifId;
        EXPECT_FALSE(engine->restore(ifId, error)) << ifId;
        EXPECT_EQ(engine->gate(ifId), Gate::blocked) << ifId;
    }
    for (const unsigned ifId : {0U, 128U, 1000U}) {
        error.clear();
        EXPECT_FALSE(engine->attach({.ifId = ifId, .ifIndex = ifIndex}, error)) << ifId;
        EXPECT_FALSE(error.empty());
    }
    EXPECT_FALSE(engine->attach({.ifId = 1, .ifIndex = 99999}, error));
    EXPECT_FALSE(engine->setGate(1, Gate::open));
}

TEST_F(KernelGateTest, DetachingFreesTheInterfaceAndForgetsTheLine) {
    const LineNet net(1);
    Engine engine(1);
    engine.attach(1);
    RawSocket subscriber(LineNet::subscriber(1)), core("core");
    subscriber.send(numbered(1));
    ASSERT_TRUE(engine.counted(1, 1));
    std::string error;
    ASSERT_TRUE(engine->detach(1, error)) << error;
    subscriber.send(numbered(2));
    EXPECT_EQ(nextNumber(core), 2U);
    core.send(numbered(3));
    EXPECT_EQ(nextNumber(subscriber), 3U);
    EXPECT_FALSE(engine->setGate(1, Gate::open));
    EXPECT_TRUE(engine->detach(1, error));

    EXPECT_EQ(engine.attach(1), KernelEngine::Found::nothing);
    EXPECT_EQ(engine->gate(1), Gate::blocked);
    EXPECT_EQ(engine->totals(1).counters, counters({}));
    subscriber.send(numbered(4));
    ASSERT_TRUE(engine.counted(1, 1));
    EXPECT_FALSE(core.receive(std::chrono::milliseconds(50)));
}

// A program of somebody else, which drops everything.
int dropper() {
    const bpf_insn instructions[] = {{BPF_ALU64 | BPF_MOV | BPF_K, 0, 0, 0, TC_ACT_SHOT},
                                     {BPF_JMP | BPF_EXIT, 0, 0, 0, 0}};
    return bpf_prog_load(BPF_PROG_TYPE_SCHED_CLS, "dropper", "unspecified", instructions,
                         std::size(instructions), nullptr);
}

TEST_F(KernelGateTest, AGateIsMissingOnlyWhereTheKernelSaysSo) {
    const LineNet net(4);
    Engine engine(4);
    for (unsigned line = 1; line <= 4; ++line) {
        engine.attach(line);
        ASSERT_TRUE(engine->inPlace(line));
    }
    run("tc qdisc del dev dsl1 clsact && tc filter del dev dsl2 ingress && "
        "tc filter del dev dsl3 egress && ip link del dsl4");
    for (const unsigned line : {1U, 2U, 3U}) {
        EXPECT_FALSE(engine->inPlace(line)) << line;
    }
    EXPECT_TRUE(engine->inPlace(4)) << "its interface is gone, and that is told otherwise";
    std::string error;
    ASSERT_TRUE(engine->restore(1, error)) << error;
    ASSERT_TRUE(engine->inPlace(1));
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{.rlim_cur = 0, .rlim_max = before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_TRUE(engine->inPlace(1)) << "nothing can be asked without a descriptor";
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    const node::Fd other(dropper());
    ASSERT_TRUE(node::attachProgram(LineNet::index("dsl1"), node::Direction::fromSubscriber,
                                    other.get(), error))
        << error;
    EXPECT_FALSE(engine->inPlace(1)) << "another program is there";
}

TEST_F(KernelGateTest, AGateThatIsPutOnAgainIsWhatItWas) {
    const LineNet net(2);
    Engine engine(2);
    const ittalCondition every = anyFrame();
    for (const unsigned line : {1U, 2U}) {
        engine.attach(line);
        ASSERT_TRUE(engine->setRules(line, std::span(&every, 1)));
    }
    ASSERT_TRUE(engine->setGate(1, Gate::open));
    ASSERT_TRUE(engine->arm(2, 3));
    run("tc filter del dev dsl1 ingress && tc filter del dev dsl2 egress");
    std::string error;
    for (const unsigned line : {1U, 2U}) {
        EXPECT_FALSE(engine->inPlace(line));
        ASSERT_TRUE(engine->restore(line, error)) << error;
        EXPECT_TRUE(engine->inPlace(line));
    }
    RawSocket one(LineNet::subscriber(1)), two(LineNet::subscriber(2)), core("core");
    two.send(numbered(1));
    ASSERT_TRUE(eventually([&] { return engine->poll() == 1; })) << "armed as before";
    one.send(numbered(2));
    EXPECT_EQ(nextNumber(core), 2U);
    EXPECT_EQ(engine->gate(1), Gate::open);
    EXPECT_EQ(engine->gate(2), Gate::blocked);
    ASSERT_TRUE(engine->setGate(1, Gate::blocked));
    ASSERT_TRUE(engine->arm(1));
    one.send(numbered(3));
    ASSERT_TRUE(eventually([&] { return engine->poll() == 1; })) << "the rules are there";
}

// Somebody else's program on the same hook.
bool attachDropper(unsigned ifIndex) {
    const node::Fd program(dropper());
    bpf_tc_hook hook{};
    hook.sz = sizeof hook;
    hook.ifindex = static_cast<int>(ifIndex);
    hook.attach_point = BPF_TC_INGRESS;
    bpf_tc_opts opts{};
    opts.sz = sizeof opts;
    opts.prog_fd = program.get();
    opts.priority = 9;
    opts.handle = 1;
    return bpf_tc_attach(&hook, &opts) == 0;
}

TEST_F(KernelGateTest, FiltersOfOthersSeeWhatTheOpenGatePassesAndOutliveIt) {
    const LineNet net(1);
    Engine engine(1);
    engine.attach(1);
    RawSocket subscriber(LineNet::subscriber(1)), core("core");
    ASSERT_TRUE(engine->setGate(1, Gate::open));
    ASSERT_TRUE(attachDropper(LineNet::index(LineNet::access(1))));
    subscriber.send(numbered(1));
    ASSERT_TRUE(engine.counted(1, 1));
    std::string error;
    ASSERT_TRUE(engine->detach(1, error)) << error;
    subscriber.send(numbered(2));
    EXPECT_FALSE(core.receive(std::chrono::milliseconds(50)));
}

}  // namespace
