// Operational states, counters and forwarding states, read from the engine at each call.
#include "tests/fake/module_test.h"

#include <limits.h>
#include <string.h>

#include <array>
#include <functional>

namespace {

using fake::sameLines;
using fake::Service;

using Counters = std::array<uint32_t, 13>;

class InterfaceStatusTest : public ModuleTest {
protected:
    void SetUp() override {
        startWith({1, 5});
        platform.forget();
    }

    // With the pointer of this place null, none for 13.
    talResultCode statistics(unsigned intf, Counters& c, size_t null = 13) {
        std::array<uint32_t*, 13> p{};
        for (size_t i = 0; i < 13; ++i) {
            p[i] = i == null ? nullptr : &c[i];
        }
        return module.talIntfStatisticsGet(intf, p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7],
                                           p[8], p[9], p[10], p[11], p[12]);
    }
    talResultCode states(unsigned intf, uint32_t (&out)[3], unsigned null = 3) {
        talIntfFwdState forwarding = static_cast<talIntfFwdState>(out[0]);
        talIntfAuthenFwdState authentication = static_cast<talIntfAuthenFwdState>(out[1]);
        talIntfAuthorFwdState authorization = static_cast<talIntfAuthorFwdState>(out[2]);
        const talResultCode result = module.talIntfStatesGet(
            intf, null == 0 ? nullptr : &forwarding, null == 1 ? nullptr : &authentication,
            null == 2 ? nullptr : &authorization);
        out[0] = forwarding;
        out[1] = authentication;
        out[2] = authorization;
        return result;
    }
    talResultCode authen(unsigned intf, bool* state) {
        return module.talIntfAuthenOperStateGet(intf, state);
    }
    talResultCode author(unsigned intf, bool* state) {
        return module.talIntfAuthorOperStateGet(intf, state);
    }

    // The four reads with outputs nobody looks at.
    struct Read {
        const char* name;
        const char* call;
        const char* what;
        std::function<talResultCode(unsigned)> run;
    };
    std::vector<Read> reads() {
        return {
            {"talIntfAuthenOperStateGet", "ittalPortAuthenOperStateGet",
             "authentication operational state",
             [this](unsigned intf) {
                 bool state = false;
                 return authen(intf, &state);
             }},
            {"talIntfAuthorOperStateGet", "ittalPortAuthorOperStateGet",
             "authorization operational state",
             [this](unsigned intf) {
                 bool state = false;
                 return author(intf, &state);
             }},
            {"talIntfStatisticsGet", "ittalPortStatisticsGet", "statistics",
             [this](unsigned intf) {
                 Counters counters{};
                 return statistics(intf, counters);
             }},
            {"talIntfStatesGet", "ittalPortStatesGet", "interface states",
             [this](unsigned intf) {
                 uint32_t out[3] = {};
                 return states(intf, out);
             }},
        };
    }
};

TEST_F(InterfaceStatusTest, OperationalStatesComeFromTheEngineAtEachCall) {
    for (const bool up : {true, false, true}) {
        platform.engine.outputs("ittalPortAuthenOperStateGet", {up}, 5);
        platform.engine.outputs("ittalPortAuthorOperStateGet", {!up}, 5);
        bool state = !up;
        EXPECT_EQ(talResOk, authen(5, &state));
        EXPECT_EQ(up, state);
        EXPECT_EQ(talResOk, author(5, &state));
        EXPECT_EQ(!up, state);
    }
    EXPECT_EQ(3u, platform.count("ittalPortAuthenOperStateGet"));
    EXPECT_EQ(3u, platform.count("ittalPortAuthorOperStateGet"));
}

TEST_F(InterfaceStatusTest, AnyOperationalStateButZeroIsUp) {
    for (const unsigned value : {1u, 2u, 255u, 256u, 0x10000u, 0x80000000u}) {
        platform.engine.outputs("ittalPortAuthenOperStateGet", {value}, 5);
        platform.engine.outputs("ittalPortAuthorOperStateGet", {value}, 5);
        bool state = false;
        EXPECT_EQ(talResOk, authen(5, &state));
        EXPECT_TRUE(state) << value;
        state = false;
        EXPECT_EQ(talResOk, author(5, &state));
        EXPECT_TRUE(state) << value;
    }
}

TEST_F(InterfaceStatusTest, OnlyTheOneByteOfTheStateIsWritten) {
    struct {
        unsigned char before;
        bool state;
        unsigned char after[7];
    } guarded = {0x5A, false, {0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A}};
    platform.engine.outputs("ittalPortAuthenOperStateGet", {1}, 5);
    platform.engine.outputs("ittalPortAuthorOperStateGet", {1}, 5);
    EXPECT_EQ(talResOk, authen(5, &guarded.state));
    EXPECT_EQ(talResOk, author(5, &guarded.state));
    EXPECT_TRUE(guarded.state);
    EXPECT_EQ(0x5A, guarded.before);
    for (const unsigned char byte : guarded.after) {
        EXPECT_EQ(0x5A, byte);
    }
}

TEST_F(InterfaceStatusTest, ThirteenCountersArriveInTheEnginesOrder) {
    std::vector<unsigned> values;
    for (unsigned i = 0; i < 13; ++i) {
        values.push_back(0xF0000000 + i);
    }
    platform.engine.outputs("ittalPortStatisticsGet", values, 5);
    Counters counters{};
    EXPECT_EQ(talResOk, statistics(5, counters));
    for (unsigned i = 0; i < 13; ++i) {
        EXPECT_EQ(0xF0000000 + i, counters[i]) << i;
    }
}

TEST_F(InterfaceStatusTest, StatesArriveInOrderAndUninterpreted) {
    const unsigned values[][3] = {{0, 1, 2}, {2, 4, 3}, {3, 5, 9}, {UINT_MAX, 0x80000000, 7}};
    for (const auto& value : values) {
        platform.engine.outputs("ittalPortStatesGet", {value[0], value[1], value[2]}, 5);
        uint32_t out[3] = {77, 77, 77};
        EXPECT_EQ(talResOk, states(5, out));
        for (unsigned i = 0; i < 3; ++i) {
            EXPECT_EQ(value[i], out[i]);
        }
    }
}

TEST_F(InterfaceStatusTest, EachReadMakesOneEngineCallUnderTheSharedLock) {
    for (const Read& read : reads()) {
        SCOPED_TRACE(read.name);
        platform.forget();
        EXPECT_EQ(talResOk, read.run(5));
        const std::vector<fake::Call> calls = platform.find(read.call);
        ASSERT_EQ(1u, calls.size());
        EXPECT_EQ("5", calls[0].key);
        EXPECT_EQ(1u, platform.calls().size());
        EXPECT_GE(calls[0].sharedHeld, 1);
        EXPECT_EQ(0u, platform.count("exclusiveLock"));
        EXPECT_TRUE(platform.texts().empty());
    }
}

TEST_F(InterfaceStatusTest, InterfaceZeroGoesToTheEngineAsItIs) {
    for (const Read& read : reads()) {
        SCOPED_TRACE(read.name);
        platform.forget();
        EXPECT_EQ(talResOk, read.run(0));
        const std::vector<fake::Call> calls = platform.find(read.call);
        ASSERT_EQ(1u, calls.size());
        EXPECT_EQ("0", calls[0].key);
    }
    // The table was neither read nor written: no entry has appeared under key 0.
    platform.forget();
    EXPECT_EQ(talResOk, module.talIntfTimeoutSet(0, 60));
    EXPECT_TRUE(
        sameLines(platform.calls(), {"ittalPortTimeoutSet(1, 60)", "ittalPortTimeoutSet(5, 60)"}));
}

TEST_F(InterfaceStatusTest, UnknownInterfaceIsThreeAndReachesNoEngine) {
    for (const Read& read : reads()) {
        for (const unsigned intf : {2u, 6u, 0xFFFFFFFFu}) {
            EXPECT_EQ(talResIntfInvalid, read.run(intf)) << read.name;
        }
    }
    EXPECT_TRUE(platform.calls().empty());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(InterfaceStatusTest, AnyNullOutputIsOneAndReachesNoEngine) {
    EXPECT_EQ(talResError, authen(5, nullptr));
    EXPECT_EQ(talResError, author(5, nullptr));
    for (size_t null = 0; null < 13; ++null) {
        Counters counters;
        counters.fill(77);
        EXPECT_EQ(talResError, statistics(5, counters, null)) << null;
        for (const uint32_t counter : counters) {
            EXPECT_EQ(77u, counter);
        }
    }
    for (unsigned null = 0; null < 3; ++null) {
        uint32_t out[3] = {77, 77, 77};
        EXPECT_EQ(talResError, states(5, out, null)) << null;
    }
    EXPECT_TRUE(platform.calls().empty());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(InterfaceStatusTest, UnknownInterfaceIsToldBeforeANullOutput) {
    Counters counters{};
    uint32_t out[3] = {};
    EXPECT_EQ(talResIntfInvalid, authen(6, nullptr));
    EXPECT_EQ(talResIntfInvalid, author(6, nullptr));
    EXPECT_EQ(talResIntfInvalid, statistics(6, counters, 0));
    EXPECT_EQ(talResIntfInvalid, states(6, out, 0));
}

TEST_F(InterfaceStatusTest, RefusedReadIsWarnedOfOnceAndAnswersOne) {
    for (const Read& read : reads()) {
        for (const int refusal : {1, -1, 3, INT_MIN}) {
            for (const unsigned intf : {5u, 0u}) {
                platform.answers.clear();
                platform.answers.always(read.call, refusal);
                platform.forget();
                EXPECT_EQ(talResError, read.run(intf)) << read.name << " " << refusal;
                EXPECT_TRUE(
                    sameLines(platform.texts(),
                              {std::string("warning: ") + read.name + " Error getting TAL " +
                               read.what + " on interface " + std::to_string(intf) + "."}));
            }
        }
    }
}

TEST_F(InterfaceStatusTest, RefusedReadLeavesTheOutputsAsTheEngineLeftThem) {
    for (const Read& read : reads()) {
        platform.answers.always(read.call);
    }
    for (const bool before : {false, true}) {
        bool state = before;
        EXPECT_EQ(talResError, authen(5, &state));
        EXPECT_EQ(before, state);
        EXPECT_EQ(talResError, author(5, &state));
        EXPECT_EQ(before, state);
    }
    Counters counters;
    counters.fill(77);
    EXPECT_EQ(talResError, statistics(5, counters));
    for (const uint32_t counter : counters) {
        EXPECT_EQ(77u, counter);
    }
    uint32_t out[3] = {77, 78, 79};
    EXPECT_EQ(talResError, states(5, out));
    EXPECT_EQ(77u, out[0]);
    EXPECT_EQ(78u, out[1]);
    EXPECT_EQ(79u, out[2]);
}

// A byte that is no bool: reading it as one would be undefined.
TEST_F(InterfaceStatusTest, OutputsStayUntouchedUnlessTheEngineWasAskedAndWrote) {
    platform.answers.always("ittalPortAuthenOperStateGet");
    platform.answers.always("ittalPortAuthorOperStateGet");
    platform.answers.always("ittalPortStatesGet");
    platform.answers.nth("sharedLock", 1);
    platform.answers.nth("sharedLock", 2);
    platform.answers.nth("sharedLock", 3);
    tal& subject = module;  // GCC 12 takes a reference member with a member pointer for misaligned
    // Three refused locks, then an unknown interface, then a known one that the engine refuses.
    for (const unsigned intf : {5u, 6u, 5u}) {
        for (const auto get : {&tal::talIntfAuthenOperStateGet, &tal::talIntfAuthorOperStateGet}) {
            constexpr unsigned char before = 0x5A;
            bool state;
            memcpy(&state, &before, 1);
            EXPECT_NE(talResOk, (subject.*get)(intf, &state));
            unsigned char after = 0;
            memcpy(&after, &state, 1);
            EXPECT_EQ(before, after) << intf;
        }
        uint32_t out[3] = {77, 78, 79};
        EXPECT_NE(talResOk, states(intf, out));
        EXPECT_EQ(77u, out[0]);
        EXPECT_EQ(78u, out[1]);
        EXPECT_EQ(79u, out[2]);
    }
    EXPECT_EQ(3u, platform.calls().size()) << "only the last round reached the engine";
}

TEST_F(InterfaceStatusTest, WhatARefusingEngineWroteIsHandedOut) {
    platform.engine.refusedGetsFill = true;
    for (const Read& read : reads()) {
        platform.answers.always(read.call);
    }
    for (const bool up : {true, false}) {
        platform.engine.outputs("ittalPortAuthenOperStateGet", {up ? 256u : 0u}, 5);
        platform.engine.outputs("ittalPortAuthorOperStateGet", {up ? 1u : 0u}, 5);
        bool state = !up;
        EXPECT_EQ(talResError, authen(5, &state));
        EXPECT_EQ(up, state);
        state = !up;
        EXPECT_EQ(talResError, author(5, &state));
        EXPECT_EQ(up, state);
    }
    platform.engine.outputs("ittalPortStatesGet", {0, 4, 9}, 5);
    uint32_t out[3] = {77, 78, 79};
    EXPECT_EQ(talResError, states(5, out));
    EXPECT_EQ(0u, out[0]);
    EXPECT_EQ(4u, out[1]);
    EXPECT_EQ(9u, out[2]);
    Counters counters;
    counters.fill(77);
    EXPECT_EQ(talResError, statistics(5, counters));
    EXPECT_EQ(Counters{}, counters);
}

TEST_F(InterfaceStatusTest, RefusedLockIsLoggedAndAnswersOne) {
    for (const Read& read : reads()) {
        platform.answers.clear();
        platform.answers.always("sharedLock");
        platform.forget();
        EXPECT_EQ(talResError, read.run(5));
        EXPECT_TRUE(sameLines(
            platform.texts(),
            {std::string("log 1: Error obtaining exclusive lock in tal::") + read.name + "."}));
        EXPECT_TRUE(platform.calls().empty());
        EXPECT_EQ(1u, platform.count("sharedLock"));
    }
}

TEST_F(InterfaceStatusTest, RefusedLockOfTheInterfaceCheckReadsAsUnknownInterface) {
    for (const Read& read : reads()) {
        platform.answers.clear();
        platform.answers.nth("sharedLock", 2);
        platform.forget();
        EXPECT_EQ(talResIntfInvalid, read.run(5)) << read.name;
        EXPECT_TRUE(sameLines(platform.texts(),
                              {"log 1: Error obtaining exclusive lock in tal::talIsValidIntf."}));
        EXPECT_TRUE(platform.calls().empty());
    }
}

}  // namespace
