// Which privileges are missing, and that only three remain.
#include "node/engine/kernel/capabilities.h"

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <array>
#include <fstream>

#include "tests/kernel/child.h"
#include "tests/kernel/engine_fixture.h"

using namespace node_test;

namespace {

class KernelCapabilitiesTest : public KernelTest {};

using Words = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;

bool give(std::initializer_list<unsigned> capabilities) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    Words words{};
    for (const unsigned number : capabilities) {
        words[number / 32].effective |= 1U << number % 32;
        words[number / 32].permitted |= 1U << number % 32;
    }
    return syscall(SYS_capset, &header, words.data()) == 0;
}

// The line of /proc/self/status, as a number.
uint64_t statusOf(const std::string& field) {
    std::ifstream status("/proc/self/status");
    std::string word, value;
    while (status >> word) {
        if (word == field + ":") {
            status >> value;
            return std::stoull(value, nullptr, 16);
        }
    }
    return ~0ULL;
}

constexpr uint64_t bit(unsigned number) {
    return 1ULL << number;
}

constexpr uint64_t three = bit(CAP_BPF) | bit(CAP_NET_ADMIN) | bit(CAP_PERFMON);

TEST_F(KernelCapabilitiesTest, RootMissesNone) {
    EXPECT_TRUE(node::missingCapabilities().empty());
    EXPECT_EQ(node::missingCapabilitiesText(), "");
    EXPECT_TRUE(node::canFindEarlierMaps());
}

TEST_F(KernelCapabilitiesTest, TheMissingOneIsNamed) {
    const struct {
        std::initializer_list<unsigned> given;
        std::vector<std::string> missing;
    } rows[] = {
        {{CAP_BPF, CAP_NET_ADMIN}, {"CAP_PERFMON"}},
        {{CAP_BPF, CAP_PERFMON}, {"CAP_NET_ADMIN"}},
        {{CAP_NET_ADMIN, CAP_PERFMON}, {"CAP_BPF"}},
        {{CAP_SYS_ADMIN, CAP_NET_RAW}, {"CAP_BPF", "CAP_NET_ADMIN", "CAP_PERFMON"}},
        {{CAP_BPF, CAP_NET_ADMIN, CAP_PERFMON}, {}},
    };
    for (const auto& row : rows) {
        EXPECT_TRUE(inChild([&] {
            ASSERT_TRUE(give(row.given));
            EXPECT_EQ(node::missingCapabilities(), row.missing);
            const std::string text = node::missingCapabilitiesText();
            for (const std::string& name : row.missing) {
                EXPECT_NE(text.find(name), std::string::npos) << text;
            }
            EXPECT_EQ(text.empty(), row.missing.empty());
            EXPECT_EQ(text.find("captures work without") != std::string::npos,
                      !row.missing.empty());
        }));
    }
}

TEST_F(KernelCapabilitiesTest, OnlyTheThreeRemainForGood) {
    EXPECT_TRUE(inChild([] {
        std::string error;
        ASSERT_TRUE(node::dropOtherCapabilities(error)) << error;
        for (const char* field : {"CapPrm", "CapEff", "CapBnd"}) {
            EXPECT_EQ(statusOf(field), three) << field;
        }
        EXPECT_EQ(statusOf("CapInh") & ~three, 0U);
        EXPECT_EQ(statusOf("CapAmb"), 0U);
        EXPECT_EQ(prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0), 1);
        EXPECT_FALSE(node::canFindEarlierMaps());
        EXPECT_FALSE(give({CAP_SYS_ADMIN}));
        EXPECT_TRUE(node::missingCapabilities().empty());
    }));
}

TEST_F(KernelCapabilitiesTest, WithNoneOfTheThreeNothingRemains) {
    EXPECT_TRUE(inChild([] {
        ASSERT_TRUE(give({CAP_NET_RAW, CAP_SETPCAP}));
        std::string error;
        ASSERT_TRUE(node::dropOtherCapabilities(error)) << error;
        EXPECT_EQ(statusOf("CapPrm"), 0U);
        EXPECT_EQ(statusOf("CapEff"), 0U);
    }));
}

TEST_F(KernelCapabilitiesTest, TheThreeSufficeForEverythingAGateDoes) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core("core");
    EXPECT_TRUE(inChild([&] {
        std::string error;
        ASSERT_TRUE(node::dropOtherCapabilities(error)) << error;
        Engine engine(1);
        EXPECT_EQ(engine.attach(1), KernelEngine::Found::nothing);
        ASSERT_TRUE(engine->setGate(1, Gate::open));
        ASSERT_TRUE(engine->reinject(1, numbered(5), error)) << error;
        EXPECT_EQ(nextNumber(core), 5U);
        EXPECT_EQ(engine.attach(1), KernelEngine::Found::own);
        ASSERT_TRUE(engine->detach(1, error)) << error;
    }));
}

TEST_F(KernelCapabilitiesTest, EachOfTheThreeIsNeeded) {
    const LineNet net(1);
    for (const unsigned missing : {CAP_BPF, CAP_NET_ADMIN, CAP_PERFMON}) {
        EXPECT_TRUE(inChild([&] {
            std::array<unsigned, 2> given{};
            size_t count = 0;
            for (const unsigned number : {CAP_BPF, CAP_NET_ADMIN, CAP_PERFMON}) {
                if (number != missing) {
                    given[count++] = number;
                }
            }
            ASSERT_TRUE(give({given[0], given[1]}));
            std::string error;
            const auto engine = KernelEngine::start(
                {}, {}, [](auto&&...) {}, error);
            const unsigned ifIndex = LineNet::index("dsl1");
            EXPECT_FALSE(engine && engine->attach({.ifId = 1, .ifIndex = ifIndex}, error))
                << missing;
            EXPECT_FALSE(error.empty());
        }));
    }
}

}  // namespace
