// A kept frame enters the stack again through the open gate.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "tests/kernel/engine_fixture.h"
#include "tests/unit/node/condition_builder.h"

using namespace node_test;

namespace {

class KernelReinjectTest : public KernelTest {};

const ittalCondition every = anyFrame();
const std::span<const ittalCondition> everything(&every, 1);

TEST_F(KernelReinjectTest, TheTrappedFrameComesOutBehindTheGate) {
    const LineNet net(2);
    Engine engine(2);
    engine.attach(1);
    ASSERT_TRUE(engine->setRules(1, everything));
    RawSocket subscriber(LineNet::subscriber(1)), core("core");
    std::string error;
    for (const size_t size : {18U, 60U, 300U, 1514U}) {
        Buffer frame = numbered(7, size);
        frame[size - 1] = 0x99;
        ASSERT_TRUE(engine->setGate(1, Gate::blocked));
        ASSERT_TRUE(engine->arm(1));
        subscriber.send(frame);
        ASSERT_TRUE(eventually([&] { return engine->poll() == 1; }));
        ASSERT_TRUE(engine->setGate(1, Gate::open));
        ASSERT_TRUE(engine->reinject(1, engine.trapped.back().second, error)) << error;
        EXPECT_EQ(core.receive(), frame);
    }
    EXPECT_FALSE(core.receive(std::chrono::milliseconds(20)));
}

TEST_F(KernelReinjectTest, TagsAreKept) {
    const LineNet net(1);
    Engine engine(1);
    engine.attach(1);
    ASSERT_TRUE(engine->setRules(1, everything));
    RawSocket subscriber(LineNet::subscriber(1)), core("core", 0x0003);  // every type
    std::string error;
    const std::vector<Buffer> stacks = {{0x81, 0x00, 0xe0, 0x05},
                                        {0x88, 0xa8, 0x20, 0x05, 0x81, 0x00, 0x00, 0x07},
                                        {0x91, 0x00, 0x00, 0x05}};
    for (const Buffer& tags : stacks) {
        Buffer frame = numbered(7);
        frame.insert(frame.begin() + 12, tags.begin(), tags.end());
        ASSERT_TRUE(engine->setGate(1, Gate::blocked));
        ASSERT_TRUE(engine->arm(1));
        subscriber.send(frame);
        ASSERT_TRUE(eventually([&] { return engine->poll() == 1; }));
        ASSERT_TRUE(engine->setGate(1, Gate::open));
        ASSERT_TRUE(engine->reinject(1, engine.trapped.back().second, error)) << error;
        std::optional<Buffer> seen;
        do {
            seen = core.receive();  // the bridge has something to say as well
        } while (seen && seen->size() != frame.size());
        EXPECT_EQ(seen, frame);
    }
}

// A datagram of an ordinary socket, whose checksum is left to the interface.
void sendDatagram(uint16_t port) {
    const node::Fd out(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    ASSERT_EQ(inet_pton(AF_INET, "192.0.2.2", &to.sin_addr), 1);
    const char text[] = "as a socket sends it";
    ASSERT_EQ(
        sendto(out.get(), text, sizeof text, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to),
        static_cast<ssize_t>(sizeof text));
}

// Over the pseudo-header and the rest of a datagram without IP options: 0xffff when it is sound.
uint32_t datagramSum(const Buffer& frame) {
    uint32_t sum = 17 + static_cast<uint32_t>(frame.size()) - 34;
    for (size_t i = 26; i < frame.size(); ++i) {
        sum += i % 2 == 0 ? frame[i] * 256U : frame[i];
    }
    return (sum & 0xffff) + (sum >> 16);
}

TEST_F(KernelReinjectTest, AnUnfinishedChecksumIsCompleted) {
    const LineNet net(1);
    Engine engine(1);
    engine.attach(1);
    const ittalCondition ipv4 = etherTypeIs(0x0800);
    ASSERT_TRUE(engine->setRules(1, std::span(&ipv4, 1)));
    ASSERT_TRUE(engine->arm(1));
    run("ip address add 192.0.2.1/24 dev sub1 && "
        "ip neighbour add 192.0.2.2 lladdr 02:00:00:00:00:02 dev sub1");
    RawSocket core("core", 0x0800);
    sendDatagram(9);
    ASSERT_TRUE(eventually([&] { return engine->poll() == 1; }));
    const Buffer kept = engine.trapped.back().second;
    ASSERT_NE(datagramSum(kept), 0xffffU) << "the interface completed it, nothing is tested";
    ASSERT_TRUE(engine->setGate(1, Gate::open));
    std::string error;
    ASSERT_TRUE(engine->reinject(1, kept, error)) << error;
    const auto seen = core.receive();
    ASSERT_TRUE(seen);
    ASSERT_EQ(seen->size(), kept.size());
    EXPECT_EQ(datagramSum(*seen), 0xffffU);
}

TEST_F(KernelReinjectTest, ReinjectedFramesAreCountedOnce) {
    const LineNet net(1);
    Engine engine(1);
    engine.attach(1);
    ASSERT_TRUE(engine->setRules(1, everything));
    ASSERT_TRUE(engine->arm(1, 3));
    RawSocket subscriber(LineNet::subscriber(1)), core("core");
    for (uint32_t number = 1; number <= 5; ++number) {
        subscriber.send(numbered(number));
    }
    ASSERT_TRUE(engine.counted(1, 5));
    ASSERT_EQ(engine->poll(), 3U);
    ASSERT_TRUE(engine->setGate(1, Gate::open));
    std::string error;
    for (uint32_t number = 1; number <= 3; ++number) {
        ASSERT_TRUE(engine->reinject(1, engine.trapped[number - 1].second, error)) << error;
        EXPECT_EQ(nextNumber(core), number);
    }
    subscriber.send(numbered(6));
    EXPECT_EQ(nextNumber(core), 6U);
    const auto totals = engine->totals(1);
    EXPECT_EQ(totals.trapped, 3U);  // the node counts these: seen, matched, kept, forwarded
    EXPECT_EQ(totals.counters[KERNEL_FRAMES_SEEN], 3U);
    EXPECT_EQ(totals.counters[KERNEL_DROPPED_BLOCKED], 2U);
    EXPECT_EQ(totals.counters[KERNEL_FORWARDED], 1U);
}

TEST_F(KernelReinjectTest, AGateThatIsNotOpenTakesNoFrame) {
    const LineNet net(1);
    Engine engine(1);
    engine.attach(1);
    std::string error;
    for (const Gate gate : {Gate::blocked, Gate::pending, Gate::rejected}) {
        ASSERT_TRUE(engine->setGate(1, gate));
        error.clear();
        EXPECT_FALSE(engine->reinject(1, numbered(1), error));
        EXPECT_NE(error.find("not open"), std::string::npos) << error;
    }
    EXPECT_EQ(engine->totals(1).counters[KERNEL_FRAMES_SEEN], 0U);
}

TEST_F(KernelReinjectTest, AnInterfaceWhoseGateWasTakenOffTakesNoFrameAndCountsNone) {
    const LineNet net(1);
    Engine engine(1);
    engine.attach(1);
    ASSERT_TRUE(engine->setGate(1, Gate::open));
    run("tc filter del dev dsl1 ingress");
    RawSocket core("core");
    std::string error;
    EXPECT_FALSE(engine->reinject(1, numbered(1), error));
    EXPECT_NE(error.find("took the gate of line 1 off"), std::string::npos) << error;
    EXPECT_EQ(engine->totals(1).counters[KERNEL_FRAMES_SEEN], 0U);
    EXPECT_EQ(engine->totals(1).counters[KERNEL_FORWARDED], 0U);
    ASSERT_TRUE(engine->restore(1, error)) << error;
    EXPECT_TRUE(engine->reinject(1, numbered(2), error)) << error;
    EXPECT_EQ(nextNumber(core), 2U) << "and not the first";
}

TEST_F(KernelReinjectTest, AFrameTheKernelCannotTakeIsAnErrorAndCountsNothing) {
    const LineNet net(1);
    Engine engine(1);
    engine.attach(1);
    ASSERT_TRUE(engine->setGate(1, Gate::open));
    std::string error;
    for (const size_t size : {0U, 13U, 5000U, 16384U}) {
        error.clear();
        EXPECT_FALSE(engine->reinject(1, Buffer(size, 0x55), error)) << size;
        EXPECT_FALSE(error.empty());
    }
    EXPECT_EQ(engine->totals(1).counters[KERNEL_FRAMES_SEEN], 0U);
    EXPECT_EQ(engine->totals(1).counters[KERNEL_FORWARDED], 0U);
}

}  // namespace
