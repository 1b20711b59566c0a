// Gates outlive the process that made them, and the next process takes them over.
#include <bpf/bpf.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "node/engine/kernel/capabilities.h"
#include "node/engine/kernel/gate_maps.h"
#include "node/engine/kernel/tc_hook.h"
#include "tests/kernel/child.h"
#include "tests/kernel/engine_fixture.h"
#include "tests/unit/node/condition_builder.h"

using namespace node_test;
using node::Direction;
using node::GateMaps;
using Found = KernelEngine::Found;

namespace {

const ittalCondition every = anyFrame();
const std::span<const ittalCondition> everything(&every, 1);

class KernelRestartTest : public KernelTest {
protected:
    // An earlier process with line 1 open, line 2 blocked, line 3 pending, line 4 rejected.
    static void earlierProcess(const std::string& pins = {}) {
        Child child([&] {
            static Engine engine(4, pins);
            for (unsigned line = 1; line <= 4; ++line) {
                engine.attach(line);
                EXPECT_TRUE(engine->setRules(line, everything));
                EXPECT_TRUE(engine->arm(line, 7));
            }
            EXPECT_TRUE(engine->setGate(1, Gate::open));
            EXPECT_TRUE(engine->setGate(3, Gate::pending));
            EXPECT_TRUE(engine->setGate(4, Gate::rejected));
        });
        child.kill();
    }

    static uint32_t programOn(unsigned line) {
        return node::attachedProgram(LineNet::index(LineNet::access(line)),
                                     Direction::fromSubscriber)
            .value_or(0);
    }

    static GateMaps mapsOn(unsigned line) {
        bool refused = false;
        auto maps = GateMaps::ofProgram(programOn(line), refused);
        EXPECT_TRUE(maps);
        return maps ? std::move(*maps) : GateMaps();
    }

    static bool writeLayout(unsigned line, uint32_t layout) {
        const uint32_t key = 0;
        const KernelMeta meta{KERNEL_MAGIC, layout};
        return bpf_map_update_elem(mapsOn(line).fd(GateMaps::meta), &key, &meta, BPF_ANY) == 0;
    }
};

// Sends numbered frames into a line until told to stop.
class Traffic {
public:
    Traffic(unsigned line, uint32_t first) {
        thread_ = std::thread([this, line, first] {
            RawSocket subscriber(LineNet::subscriber(line));
            while (!stop_ || sent_ == 0) {
                subscriber.send(numbered(first + sent_));
                ++sent_;
                std::this_thread::sleep_for(std::chrono::microseconds(20));
            }
        });
    }
    ~Traffic() { stop(); }
    uint32_t stop() {
        stop_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
        return sent_;
    }
    uint32_t sent() const { return sent_; }

private:
    std::thread thread_;
    std::atomic<bool> stop_{false};
    std::atomic<uint32_t> sent_{0};
};

std::vector<unsigned> straysOf(Engine& engine) {
    std::vector<unsigned> strays = engine->strays();
    std::sort(strays.begin(), strays.end());
    return strays;
}

TEST_F(KernelRestartTest, AKilledProcessLeavesOpenLinesOpenAndClosedLinesClosed) {
    const LineNet net(4);
    RawSocket core("core");
    earlierProcess();
    for (unsigned line = 4; line >= 1; --line) {
        RawSocket(LineNet::subscriber(line)).send(numbered(line));
    }
    EXPECT_EQ(nextNumber(core), 1U);
    EXPECT_FALSE(core.receive(std::chrono::milliseconds(50)));
    for (unsigned line = 4; line >= 2; --line) {
        RawSocket subscriber(LineNet::subscriber(line));
        core.send(numbered(9));
        EXPECT_FALSE(subscriber.receive(std::chrono::milliseconds(20)));
    }
}

TEST_F(KernelRestartTest, TheNextProcessTakesGatesOverAndForgetsRequests) {
    const LineNet net(4);
    earlierProcess();
    const GateMaps earlier = mapsOn(1);
    const uint32_t program = programOn(1);
    RawSocket(LineNet::subscriber(1)).send(numbered(1));  // while nobody watches
    Engine engine(4);
    for (unsigned line = 1; line <= 4; ++line) {
        EXPECT_EQ(engine.attach(line), Found::own);
        EXPECT_EQ(engine->gate(line), line == 1 ? Gate::open : Gate::blocked);
        EXPECT_TRUE(mapsOn(line).sameAs(earlier));
        EXPECT_NE(programOn(line), program);  // the code is the new process's
    }
    EXPECT_EQ(engine->totals(1).counters[KERNEL_FORWARDED], 1U);
    for (unsigned line = 2; line <= 4; ++line) {
        RawSocket(LineNet::subscriber(line)).send(numbered(line));
        ASSERT_TRUE(engine.counted(line, 1));
    }
    EXPECT_EQ(engine->poll(), 0U);
}

TEST_F(KernelRestartTest, FramesHandedUpButNotReadAreThereForTheNextProcess) {
    const LineNet net(4);
    earlierProcess();
    RawSocket(LineNet::subscriber(3)).send(numbered(33));
    Engine engine(4);
    engine.attach(3);
    EXPECT_EQ(engine->poll(), 1U);
    ASSERT_EQ(engine.trapped.size(), 1U);
    EXPECT_EQ(engine.trapped[0], std::pair(3U, numbered(33)));
}

TEST_F(KernelRestartTest, TakingOverUnderTrafficLosesNothingAndLeaksNothing) {
    const LineNet net(4);
    RawSocket core("core");
    earlierProcess();
    Traffic open(1, 1), closed(2, 0x1000000);
    for (const bool otherLayout : {false, true, false, false, true}) {
        if (otherLayout) {
            ASSERT_TRUE(writeLayout(1, KERNEL_LAYOUT + 1));
        }
        const uint32_t before = open.sent();
        Engine engine(4);
        for (unsigned line = 1; line <= 4; ++line) {
            EXPECT_EQ(engine.attach(line), otherLayout ? Found::older : Found::own);
        }
        EXPECT_EQ(engine->gate(1), Gate::open);
        EXPECT_EQ(engine->gate(2), Gate::blocked);
        ASSERT_TRUE(eventually([&] { return open.sent() > before + 500; }));
    }
    closed.stop();
    const uint32_t sent = open.stop();
    for (uint32_t number = 1; number <= sent; ++number) {
        ASSERT_EQ(nextNumber(core), number) << "of " << sent;
    }
    EXPECT_FALSE(core.receive(std::chrono::milliseconds(50)));
}

TEST_F(KernelRestartTest, MapsOfAnotherLayoutGiveTheirGatesAndNothingElse) {
    const LineNet net(4);
    earlierProcess();
    RawSocket(LineNet::subscriber(1)).send(numbered(1));
    ASSERT_TRUE(writeLayout(1, KERNEL_LAYOUT + 1));
    const GateMaps earlier = mapsOn(1);
    Engine engine(4);
    for (unsigned line = 1; line <= 4; ++line) {
        EXPECT_TRUE(mapsOn(line).sameAs(earlier));  // nothing changes before attach
        EXPECT_EQ(engine.attach(line), Found::older);
        EXPECT_EQ(engine->gate(line), line == 1 ? Gate::open : Gate::blocked);
        EXPECT_FALSE(mapsOn(line).sameAs(earlier));
        EXPECT_EQ(mapsOn(line).layout(), static_cast<uint32_t>(KERNEL_LAYOUT));
    }
    EXPECT_EQ(engine->totals(1).counters[KERNEL_FORWARDED], 0U);
}

TEST_F(KernelRestartTest, MapsThatALineHasLeftForgetItsInterface) {
    const LineNet net(4);
    earlierProcess();
    const GateMaps earlier = mapsOn(1);
    const std::string claimedByOthers = "maps " + std::to_string(earlier.id());
    std::string error;
    const std::vector<unsigned> interfaces{LineNet::index("dsl1")};
    const auto engine = KernelEngine::start(
        interfaces,
        {.pinDirectory = {},
         .claim = [&](const std::string& maps) { return maps != claimedByOthers; }},
        [](unsigned, std::span<const uint8_t>) {}, error);
    ASSERT_TRUE(engine) << error;
    for (const unsigned line : {1U, 2U, 3U}) {
        const unsigned ifIndex = LineNet::index(LineNet::access(line));
        ASSERT_EQ(earlier.lineOf(ifIndex), line);
        EXPECT_TRUE(engine->attach({.ifId = line, .ifIndex = ifIndex}, error)) << error;
        EXPECT_FALSE(mapsOn(line).sameAs(earlier));
        EXPECT_FALSE(earlier.lineOf(ifIndex)) << line;
        EXPECT_EQ(mapsOn(line).lineOf(ifIndex), line);
        EXPECT_TRUE(engine->inOwnMaps(ifIndex));
    }
    EXPECT_EQ(earlier.lineOf(LineNet::index("dsl4")), 4U);
    EXPECT_FALSE(engine->inOwnMaps(LineNet::index("dsl4")));
}

TEST_F(KernelRestartTest, AProcessKilledHalfWayThroughIsTakenOverFromBothSets) {
    const LineNet net(4);
    earlierProcess();
    ASSERT_TRUE(writeLayout(1, KERNEL_LAYOUT + 1));
    Child([] {
        static Engine engine(4);
        engine.attach(2);
        engine->setGate(2, Gate::open);
    }).kill();
    Engine engine(4);
    EXPECT_EQ(engine.attach(1), Found::older);
    EXPECT_EQ(engine.attach(2), Found::own);
    EXPECT_EQ(engine.attach(3), Found::older);
    EXPECT_EQ(engine->gate(1), Gate::open);
    EXPECT_EQ(engine->gate(2), Gate::open);
    EXPECT_EQ(engine->gate(3), Gate::blocked);
}

TEST_F(KernelRestartTest, ALineWhoseLinkWasLostMeanwhileIsBlocked) {
    const LineNet net(4);
    earlierProcess();
    run("ip link set sub1 down; ip link set sub1 up");
    Engine engine(4);
    EXPECT_EQ(engine.attach(1), Found::linkLost);
    EXPECT_EQ(engine->gate(1), Gate::blocked);
}

TEST_F(KernelRestartTest, ALinkLostUnderTheEyesOfTheProcessDoesNotCountLater) {
    const LineNet net(4);
    {
        Engine engine(4);
        engine.attach(1);
        run("ip link set sub1 down; ip link set sub1 up");
        ASSERT_TRUE(engine->linkDown(1, LineNet::carrierDowns("dsl1")));
        EXPECT_EQ(engine->gate(1), Gate::blocked);
        ASSERT_TRUE(engine->setGate(1, Gate::open));
    }
    Engine engine(4);
    EXPECT_EQ(engine.attach(1), Found::own);
    EXPECT_EQ(engine->gate(1), Gate::open);
}

TEST_F(KernelRestartTest, AGateIsNotInheritedByAnotherLine) {
    const LineNet net(4);
    earlierProcess();
    Engine engine(4);
    std::string error;
    const unsigned ifIndex = LineNet::index("dsl1");
    const auto found = engine->attach({.ifId = 50, .ifIndex = ifIndex}, error);
    EXPECT_EQ(found, Found::nothing) << error;
    EXPECT_EQ(engine->gate(50), Gate::blocked);
    RawSocket(LineNet::subscriber(1)).send(numbered(1));
    EXPECT_TRUE(engine.counted(50, 1));
}

TEST_F(KernelRestartTest, AnInterfaceBackUnderANewIndexIsBlocked) {
    const LineNet net(2);
    Engine engine(2);
    engine.attach(1);
    ASSERT_TRUE(engine->setGate(1, Gate::open));
    const unsigned before = LineNet::index("dsl1");
    run("ip link del dsl1 && ip link add dsl1 type veth peer name sub1 && "
        "ip link set dsl1 master br0 up && ip link set sub1 up");
    ASSERT_NE(LineNet::index("dsl1"), before);
    LineNet::awaitForwarding(1);
    EXPECT_EQ(engine.attach(1), Found::nothing);
    EXPECT_EQ(engine->gate(1), Gate::blocked);
    EXPECT_TRUE(engine->strays().empty());
    RawSocket subscriber("sub1"), core("core");
    subscriber.send(numbered(1));
    ASSERT_TRUE(engine.counted(1, 1));
    ASSERT_TRUE(engine->setGate(1, Gate::open));
    subscriber.send(numbered(2));
    EXPECT_EQ(nextNumber(core), 2U);
}

TEST_F(KernelRestartTest, LinesThatAreNoLongerWantedAreFoundAndFreed) {
    const LineNet net(4);
    earlierProcess();
    Engine engine(4);
    engine.attach(1);
    engine.attach(4);
    const std::vector<unsigned> strays = straysOf(engine);
    EXPECT_EQ(strays, (std::vector<unsigned>{LineNet::index("dsl2"), LineNet::index("dsl3")}));
    std::string error;
    EXPECT_FALSE(engine->freeStray(LineNet::index("dsl1"), error));
    for (const unsigned stray : strays) {
        EXPECT_TRUE(engine->freeStray(stray, error)) << error;
    }
    EXPECT_TRUE(engine->strays().empty());
    RawSocket core("core");
    RawSocket(LineNet::subscriber(2)).send(numbered(2));
    EXPECT_EQ(nextNumber(core), 2U);
    EXPECT_EQ(programOn(3), 0U);
    EXPECT_NE(programOn(1), 0U);
}

TEST_F(KernelRestartTest, AProgramOfSomebodyElseInOurPlaceIsLeftAlone) {
    const LineNet net(1);
    const bpf_insn instructions[] = {{BPF_ALU64 | BPF_MOV | BPF_K, 0, 0, 0, 0},
                                     {BPF_JMP | BPF_EXIT, 0, 0, 0, 0}};
    const node::Fd program(bpf_prog_load(BPF_PROG_TYPE_SCHED_CLS, "somebody", "unspecified",
                                         instructions, std::size(instructions), nullptr));
    const unsigned ifIndex = LineNet::index("dsl1");
    for (const Direction direction : {Direction::fromSubscriber, Direction::toSubscriber}) {
        std::string error;
        ASSERT_TRUE(node::attachProgram(ifIndex, direction, program.get(), error)) << error;
        const auto theirs = node::attachedProgram(ifIndex, direction);
        Engine engine(1);
        EXPECT_FALSE(engine->attach({.ifId = 1, .ifIndex = ifIndex}, error));
        EXPECT_NE(error.find("another program"), std::string::npos) << error;
        EXPECT_TRUE(engine->strays().empty());
        EXPECT_FALSE(engine->freeStray(ifIndex, error));
        EXPECT_EQ(node::attachedProgram(ifIndex, direction), theirs);
        ASSERT_TRUE(node::detachProgram(ifIndex, direction, error)) << error;
    }
}

// As after a process that was killed between the two, or when somebody took one off.
TEST_F(KernelRestartTest, HalfAGateIsFoundAndFreed) {
    const LineNet net(4);
    earlierProcess();
    run("tc filter del dev dsl2 ingress && tc filter del dev dsl3 egress");
    Engine engine(4);
    engine.attach(1);
    engine.attach(4);
    const std::vector<unsigned> strays = straysOf(engine);
    ASSERT_EQ(strays, (std::vector<unsigned>{LineNet::index("dsl2"), LineNet::index("dsl3")}));
    for (const unsigned stray : strays) {
        std::string error;
        EXPECT_TRUE(engine->inOwnMaps(stray));
        EXPECT_TRUE(engine->freeStray(stray, error)) << error;
        EXPECT_FALSE(node::attachedProgram(stray, Direction::fromSubscriber));
        EXPECT_FALSE(node::attachedProgram(stray, Direction::toSubscriber));
    }
}

TEST_F(KernelRestartTest, AFreedStraysCountersStartAgain) {
    const LineNet net(4);
    earlierProcess();
    Engine engine(4);
    engine.attach(1);
    RawSocket(LineNet::subscriber(2)).send(numbered(1));
    std::string error;
    ASSERT_TRUE(engine->freeStray(LineNet::index("dsl2"), error)) << error;
    engine.attach(2);
    EXPECT_EQ(engine->totals(2).trapped, 0U);
    EXPECT_EQ(engine->totals(2).counters[KERNEL_DROPPED_BLOCKED], 0U);
}

// Such a qdisc has one list of filters for both directions.
TEST_F(KernelRestartTest, AnInterfaceWithAnIngressQdiscIsRefusedAndLeftAlone) {
    const LineNet net(1);
    const unsigned ifIndex = LineNet::index("dsl1");
    run("tc qdisc add dev dsl1 ingress");
    Engine engine(1);
    for (int attempt = 0; attempt < 2; ++attempt) {
        std::string error;
        EXPECT_FALSE(engine->attach({.ifId = 1, .ifIndex = ifIndex}, error));
        EXPECT_NE(error.find("has the qdisc \"ingress\""), std::string::npos) << error;
        EXPECT_EQ(programOn(1), 0U);
    }
    RawSocket core("core");
    RawSocket(LineNet::subscriber(1)).send(numbered(2));
    EXPECT_EQ(nextNumber(core), 2U);
    run("tc qdisc del dev dsl1 ingress");
    EXPECT_EQ(engine.attach(1), Found::nothing);
}

TEST_F(KernelRestartTest, ALineThatCannotMoveToAnotherInterfaceStaysWhereItIs) {
    const LineNet net(2);
    Engine engine(2);
    engine.attach(1);
    ASSERT_TRUE(engine->setRules(1, everything));
    ASSERT_TRUE(engine->setGate(1, Gate::open));
    run("tc qdisc add dev dsl2 ingress");
    std::string error;
    EXPECT_FALSE(engine->attach({.ifId = 1, .ifIndex = LineNet::index("dsl2")}, error));
    EXPECT_EQ(engine->gate(1), Gate::open);
    RawSocket subscriber("sub1"), core("core");
    subscriber.send(numbered(1));
    EXPECT_EQ(nextNumber(core), 1U);
    ASSERT_TRUE(engine->setGate(1, Gate::blocked));
    ASSERT_TRUE(engine->arm(1));
    subscriber.send(numbered(2));
    EXPECT_TRUE(eventually([&] { return engine->poll() == 1; })) << "its rules are there";
}

TEST_F(KernelRestartTest, BothDirectionsOfALineHaveTheirOwnPrograms) {
    const LineNet net(1);
    Engine engine(1);
    engine.attach(1);
    const unsigned ifIndex = LineNet::index("dsl1");
    const auto from = node::attachedProgram(ifIndex, Direction::fromSubscriber);
    const auto to = node::attachedProgram(ifIndex, Direction::toSubscriber);
    EXPECT_TRUE(from && to && *from != *to);
}

TEST_F(KernelRestartTest, WithThreeCapabilitiesPinsAreNeededToFindEarlierGates) {
    const LineNet net(4);
    ASSERT_EQ(unshare(CLONE_NEWNS), 0);
    ASSERT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    const std::string pins =
        std::filesystem::temp_directory_path() / ("tal-pins-" + std::to_string(getpid()));
    std::filesystem::create_directory(pins);
    ASSERT_EQ(mount("bpf", pins.c_str(), "bpf", 0, nullptr), 0);
    earlierProcess(pins);
    EXPECT_TRUE(inChild([&] {
        std::string error;
        ASSERT_TRUE(node::dropOtherCapabilities(error)) << error;
        Engine engine(4, pins);
        EXPECT_EQ(engine.attach(1), Found::own);
        EXPECT_EQ(engine->gate(1), Gate::open);
        EXPECT_EQ(engine.attach(3), Found::own);
        EXPECT_EQ(engine->gate(3), Gate::blocked);
        EXPECT_TRUE(engine->inOwnMaps(LineNet::index("dsl2")));
    }));
    // Pins are also made of maps that were found without.
    for (const char* pin :
         {"talMeta", "talSlots", "talLines", "talRules", "talCounters", "talEvents"}) {
        EXPECT_TRUE(std::filesystem::remove(pins + "/" + pin));
    }
    EXPECT_TRUE(inChild([&] {
        Engine engine(4, pins);
        EXPECT_EQ(engine.attach(1), Found::own);
    }));
    EXPECT_TRUE(inChild([&] {
        std::string error;
        ASSERT_TRUE(node::dropOtherCapabilities(error)) << error;
        Engine engine(4, pins);
        EXPECT_EQ(engine.attach(1), Found::own);
        EXPECT_EQ(engine->gate(1), Gate::open);
    }));
    // Pins of another layout are replaced, and still give their gates.
    ASSERT_TRUE(writeLayout(1, KERNEL_LAYOUT + 1));
    EXPECT_TRUE(inChild([&] {
        std::string error;
        ASSERT_TRUE(node::dropOtherCapabilities(error)) << error;
        Engine engine(4, pins);
        EXPECT_EQ(engine.attach(1), Found::older);
        EXPECT_EQ(engine->gate(1), Gate::open);
    }));
    EXPECT_TRUE(inChild([&] {
        std::string error;
        ASSERT_TRUE(node::dropOtherCapabilities(error)) << error;
        Engine engine(4);
        EXPECT_EQ(engine.attach(1), Found::unreadable);
        EXPECT_EQ(engine->gate(1), Gate::blocked);
        EXPECT_FALSE(engine->inOwnMaps(LineNet::index("dsl2")));
    }));
    EXPECT_EQ(umount(pins.c_str()), 0);
    std::filesystem::remove(pins);
}

}  // namespace
