// The service functions for settings and status: which member each one reaches, what it makes
// of arguments and results, and that it adds nothing of its own.
#include "rpc/rpctal.h"
#include "tests/fake/module_test.h"

#include <limits.h>
#include <array>
#include <functional>
#include <type_traits>

namespace {

using fake::sameLines;
using fake::Service;

static_assert(sizeof(bool) == 1);
static_assert(sizeof(talIntfFwdState) == 4 && sizeof(talIntfAuthenFwdState) == 4 &&
              sizeof(talIntfAuthorFwdState) == 4);
static_assert(std::is_same_v<decltype(rpcTalIntfAdminStateSet), uint32_t(unsigned, int)>);
static_assert(std::is_same_v<decltype(rpcTalIntfAdminStateGet), uint32_t(unsigned, bool*)>);
static_assert(std::is_same_v<decltype(rpcTalAdminStateSet), uint32_t(int)>);
static_assert(std::is_same_v<decltype(rpcTalAdminStateGet), uint32_t(bool*)>);

// One per-interface setting with its service functions, and the member behind the getter.
struct Setting {
    const char* name;
    uint32_t (*set)(unsigned, int);
    uint32_t (*get)(unsigned, bool*);
    talResultCode (*member)(tal&, unsigned, bool*);
    const char* engineCall;
    const char* setterName;
    const char* getterName;
    bool byDefault;
};

const Setting settings[] = {
    {"admin", rpcTalIntfAdminStateSet, rpcTalIntfAdminStateGet,
     [](tal& m, unsigned intf, bool* state) { return m.talIntfAdminStateGet(intf, state); },
     "ittalPortAdminStateSet", "talIntfAdminStateSet", "talIntfAdminStateGet", false},
    {"authentication", rpcTalIntfAuthenAdminStateSet, rpcTalIntfAuthenAdminStateGet,
     [](tal& m, unsigned intf, bool* state) { return m.talIntfAuthenAdminStateGet(intf, state); },
     "ittalPortAuthenAdminStateSet", "talIntfAuthenAdminStateSet", "talIntfAuthenAdminStateGet",
     true},
    {"authorization", rpcTalIntfAuthorAdminStateSet, rpcTalIntfAuthorAdminStateGet,
     [](tal& m, unsigned intf, bool* state) { return m.talIntfAuthorAdminStateGet(intf, state); },
     "ittalPortAuthorAdminStateSet", "talIntfAuthorAdminStateSet", "talIntfAuthorAdminStateGet",
     true},
    {"automatic request", rpcTalIntfAutoReqAdminStateSet, rpcTalIntfAutoReqAdminStateGet,
     [](tal& m, unsigned intf, bool* state) { return m.talIntfAutoReqAdminStateGet(intf, state); },
     "ittalPortAutoReqAdminStateSet", "talIntfAutoReqAdminStateSet", "talIntfAutoReqAdminStateGet",
     false},
};

class SettingsServiceTest : public ModuleTest {
protected:
    void SetUp() override {
        startWith({1, 5});
        platform.forget();
    }
    static uint32_t statistics(unsigned intf, std::array<uint32_t, 13>& c, size_t null = 13) {
        std::array<uint32_t*, 13> p{};
        for (size_t i = 0; i < 13; ++i) {
            p[i] = i == null ? nullptr : &c[i];
        }
        return rpcTalIntfStatisticsGet(intf, p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], p[8],
                                       p[9], p[10], p[11], p[12]);
    }
    struct States {
        uint32_t forwarding;
        uint32_t authentication;
        uint32_t authorization;
        bool operator==(const States&) const = default;
    };
    static uint32_t states(unsigned intf, States& out) {
        auto forwarding = static_cast<talIntfFwdState>(out.forwarding);
        auto authentication = static_cast<talIntfAuthenFwdState>(out.authentication);
        auto authorization = static_cast<talIntfAuthorFwdState>(out.authorization);
        const uint32_t result =
            rpcTalIntfStatesGet(intf, &forwarding, &authentication, &authorization);
        out = {forwarding, authentication, authorization};
        return result;
    }
    std::string lockText(const char* name) {
        return std::string("log 1: Error obtaining exclusive lock in tal::") + name + ".";
    }
};

TEST_F(SettingsServiceTest, EachSetterReachesItsOwnSettingOnly) {
    for (const Setting& setting : settings) {
        for (const bool state : {!setting.byDefault, setting.byDefault}) {
            SCOPED_TRACE(setting.name);
            platform.forget();
            EXPECT_EQ(0u, setting.set(5, state ? 1 : 0));
            EXPECT_TRUE(sameLines(
                platform.calls({Service::engine}),
                {std::string(setting.engineCall) + "(5, " + (state ? "true" : "false") + ")"}));
            for (const Setting& other : settings) {
                bool read = !state;
                EXPECT_EQ(0u, other.get(5, &read));
                EXPECT_EQ(&other == &setting ? state : other.byDefault, read) << other.name;
                bool member = !read;
                EXPECT_EQ(talResOk, other.member(module, 5, &member));
                EXPECT_EQ(read, member);
            }
        }
    }
}

TEST_F(SettingsServiceTest, AnyStateButZeroMeansEnabled) {
    for (const Setting& setting : settings) {
        for (const int state : {7, 1, -1, 2, 256, 0x10000, INT_MAX, INT_MIN}) {
            EXPECT_EQ(0u, setting.set(5, 0));
            EXPECT_EQ(0u, setting.set(5, state)) << setting.name;
            bool read = false;
            EXPECT_EQ(0u, setting.get(5, &read));
            EXPECT_TRUE(read) << setting.name << " " << state;
        }
    }
}

TEST_F(SettingsServiceTest, AnyNodeStateButZeroMeansEnabled) {
    for (const int state : {7, 1, -1, 256, INT_MIN}) {
        EXPECT_EQ(0u, rpcTalAdminStateSet(0));
        bool read = true;
        EXPECT_EQ(0u, rpcTalAdminStateGet(&read));
        EXPECT_FALSE(read);
        platform.forget();
        EXPECT_EQ(0u, rpcTalAdminStateSet(state));
        EXPECT_TRUE(
            sameLines(platform.calls(), {"ittalAdminStateSet(true)", "isaradiusbllTalMode(1)"}));
        EXPECT_EQ(0u, rpcTalAdminStateGet(&read));
        EXPECT_TRUE(read) << state;
    }
}

TEST_F(SettingsServiceTest, UnknownInterfaceIsThree) {
    for (const unsigned intf : {2u, 0xFFFFFFFFu}) {
        bool state = true;
        for (const Setting& setting : settings) {
            EXPECT_EQ(3u, setting.set(intf, 1));
            EXPECT_EQ(3u, setting.get(intf, &state));
        }
        EXPECT_EQ(3u, rpcTalIntfAuthenOperStateGet(intf, &state));
        EXPECT_EQ(3u, rpcTalIntfAuthorOperStateGet(intf, &state));
        std::array<uint32_t, 13> counters{};
        EXPECT_EQ(3u, statistics(intf, counters));
        States out{};
        EXPECT_EQ(3u, states(intf, out));
    }
    EXPECT_TRUE(platform.calls().empty());
}

TEST_F(SettingsServiceTest, NullOutputIsOne) {
    EXPECT_EQ(1u, rpcTalAdminStateGet(nullptr));
    for (const Setting& setting : settings) {
        EXPECT_EQ(1u, setting.get(5, nullptr)) << setting.name;
    }
    EXPECT_EQ(1u, rpcTalIntfAuthenOperStateGet(5, nullptr));
    EXPECT_EQ(1u, rpcTalIntfAuthorOperStateGet(5, nullptr));
    for (size_t null = 0; null < 13; ++null) {
        std::array<uint32_t, 13> counters{};
        EXPECT_EQ(1u, statistics(5, counters, null)) << null;
    }
    EXPECT_TRUE(platform.calls().empty());
}

TEST_F(SettingsServiceTest, StatesWithANullOutputNeverCrash) {
    platform.engine.outputs("ittalPortStatesGet", {1, 2, 3}, 5);
    auto forwarding = static_cast<talIntfFwdState>(77);
    auto authentication = static_cast<talIntfAuthenFwdState>(77);
    auto authorization = static_cast<talIntfAuthorFwdState>(77);
    EXPECT_EQ(1u, rpcTalIntfStatesGet(5, nullptr, &authentication, &authorization));
    EXPECT_EQ(1u, rpcTalIntfStatesGet(5, &forwarding, nullptr, &authorization));
    EXPECT_EQ(1u, rpcTalIntfStatesGet(5, &forwarding, &authentication, nullptr));
    EXPECT_EQ(1u, rpcTalIntfStatesGet(5, nullptr, nullptr, nullptr));
}

TEST_F(SettingsServiceTest, InterfaceZeroSetsEveryInterface) {
    for (const Setting& setting : settings) {
        platform.forget();
        const bool state = !setting.byDefault;
        EXPECT_EQ(0u, setting.set(0, state ? 1 : 0));
        const std::string value = state ? "true)" : "false)";
        EXPECT_TRUE(sameLines(
            platform.calls({Service::engine}),
            {setting.engineCall + ("(1, " + value), setting.engineCall + ("(5, " + value)}));
    }
}

TEST_F(SettingsServiceTest, RefusalsAreTranslated) {
    for (const Setting& setting : settings) {
        platform.answers.clear();
        platform.answers.always(setting.engineCall, -1);
        EXPECT_EQ(1u, setting.set(5, setting.byDefault ? 0 : 1)) << setting.name;
    }
    platform.answers.clear();
    platform.answers.always("isaradiusbllTalMode", 9);
    EXPECT_EQ(4u, rpcTalAdminStateSet(1)) << "the peer was not told";
    bool state = true;
    EXPECT_EQ(0u, rpcTalAdminStateGet(&state));
    EXPECT_FALSE(state);
    platform.answers.clear();
    platform.answers.always("ittalAdminStateSet", -1);
    EXPECT_EQ(1u, rpcTalAdminStateSet(1));
}

TEST_F(SettingsServiceTest, LocksAndTextsAreTheMembers) {
    bool state = false;
    std::array<uint32_t, 13> counters{};
    States out{};
    struct Function {
        const char* lock;
        const char* member;
        std::function<uint32_t()> run;
    };
    std::vector<Function> functions = {
        {"exclusiveLock", "talAdminStateSet", [] { return rpcTalAdminStateSet(1); }},
        {"sharedLock", "talAdminStateGet", [&] { return rpcTalAdminStateGet(&state); }},
        {"sharedLock", "talIntfAuthenOperStateGet",
         [&] { return rpcTalIntfAuthenOperStateGet(5, &state); }},
        {"sharedLock", "talIntfAuthorOperStateGet",
         [&] { return rpcTalIntfAuthorOperStateGet(5, &state); }},
        {"sharedLock", "talIntfStatisticsGet", [&] { return statistics(5, counters); }},
        {"sharedLock", "talIntfStatesGet", [&] { return states(5, out); }},
    };
    for (const Setting& setting : settings) {
        functions.push_back(
            {"exclusiveLock", setting.setterName, [&setting] { return setting.set(5, 1); }});
        functions.push_back({"sharedLock", setting.getterName,
                             [&setting, &state] { return setting.get(5, &state); }});
    }
    for (const Function& function : functions) {
        SCOPED_TRACE(function.member);
        platform.answers.clear();
        platform.answers.always(function.lock);
        platform.forget();
        EXPECT_EQ(1u, function.run());
        EXPECT_TRUE(sameLines(platform.texts(), {lockText(function.member)}));
        EXPECT_EQ(1u, platform.count("exclusiveLock") + platform.count("sharedLock"))
            << "the service layer takes no lock of its own";
        EXPECT_TRUE(platform.calls().empty());
    }
}

TEST_F(SettingsServiceTest, OperationalStatesAndCountersPassThrough) {
    for (const bool up : {true, false}) {
        platform.engine.outputs("ittalPortAuthenOperStateGet", {up}, 5);
        platform.engine.outputs("ittalPortAuthorOperStateGet", {!up}, 5);
        bool state = !up;
        EXPECT_EQ(0u, rpcTalIntfAuthenOperStateGet(5, &state));
        EXPECT_EQ(up, state);
        EXPECT_EQ(0u, rpcTalIntfAuthorOperStateGet(5, &state));
        EXPECT_EQ(!up, state);
    }
    std::vector<unsigned> values;
    for (unsigned i = 0; i < 13; ++i) {
        values.push_back(1000 + i);
    }
    platform.engine.outputs("ittalPortStatisticsGet", values, 5);
    std::array<uint32_t, 13> counters{};
    EXPECT_EQ(0u, statistics(5, counters));
    for (unsigned i = 0; i < 13; ++i) {
        EXPECT_EQ(1000 + i, counters[i]);
    }
}

TEST_F(SettingsServiceTest, StatesAreForwardedOnlyWithinTheirRanges) {
    const uint32_t values[] = {0, 1, 2, 3, 4, 5, 6, 255, 256, 0x80000000, 0xFFFFFFFF};
    for (const uint32_t forwarding : values) {
        for (const uint32_t authentication : values) {
            for (const uint32_t authorization : values) {
                platform.engine.outputs("ittalPortStatesGet",
                                        {forwarding, authentication, authorization}, 5);
                States out{77, 78, 79};
                ASSERT_EQ(0u, states(5, out));
                const States expected{forwarding <= 2 ? forwarding : 77,
                                      authentication <= 4 ? authentication : 78,
                                      authorization <= 4 ? authorization : 79};
                ASSERT_EQ(expected, out)
                    << forwarding << " " << authentication << " " << authorization;
            }
        }
        platform.forget();
    }
}

TEST_F(SettingsServiceTest, KeepsWritingTheStatesAfterAFailure) {
    platform.engine.outputs("ittalPortStatesGet", {1, 2, 3}, 5);
    const States nothing{0, 0, 0};
    States out{77, 78, 79};
    EXPECT_EQ(3u, states(6, out));
    EXPECT_EQ(nothing, out);
    platform.answers.nth("sharedLock", 1);
    out = {77, 78, 79};
    EXPECT_EQ(1u, states(5, out));
    EXPECT_EQ(nothing, out);
    platform.answers.always("ittalPortStatesGet", -1);
    out = {77, 78, 79};
    EXPECT_EQ(1u, states(5, out));
    EXPECT_EQ(nothing, out);
    platform.engine.refusedGetsFill = true;
    EXPECT_EQ(1u, states(5, out));
    EXPECT_EQ((States{1, 2, 3}), out) << "what a refusing engine wrote";
}

TEST_F(SettingsServiceTest, ExceptionLeavesTheStatesAlone) {
    const States before{77, 78, 79};
    // The two locks and the engine.
    for (unsigned n = 1; n <= 3; ++n) {
        platform.armException(n);
        States out = before;
        EXPECT_EQ(1u, states(5, out));
        ASSERT_TRUE(platform.struck());
        EXPECT_EQ(before, out) << platform.struck()->text;
    }
    platform.disarmFault();
}

TEST_F(SettingsServiceTest, RefusedStatesAnswerOne) {
    platform.answers.always("ittalPortStatesGet", -1);
    States out{77, 78, 79};
    EXPECT_EQ(1u, states(5, out));
    EXPECT_TRUE(sameLines(platform.texts(), {"warning: talIntfStatesGet Error getting TAL "
                                             "interface states on interface 5."}));
}

TEST_F(SettingsServiceTest, CallsAnswerTheSameWhicheverComesFirst) {
    EXPECT_EQ(&module, &singleton<tal>::instance());
    EXPECT_EQ(0u, rpcTalIntfAdminStateSet(5, 7));
    bool state = false;
    EXPECT_EQ(talResOk, module.talIntfAdminStateGet(5, &state));
    EXPECT_TRUE(state);
}

TEST(SettingsServiceAtLoadTest, FirstCallOfAllFindsTheModule) {
    FakePlatform platform;
    bool state = true;
    EXPECT_EQ(0u, rpcTalAdminStateGet(&state));
    EXPECT_FALSE(state);
    EXPECT_EQ(3u, rpcTalIntfAdminStateSet(5, 1)) << "nothing started, no interface";
}

}  // namespace
