// Every service function as a management program meets it: by its C name alone. Nothing of the
// module is included here but rpc/'s header.
#include "rpc/rpctal.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "tests/control/service_stage.h"

namespace {

using Lines = std::vector<std::string>;

constexpr unsigned unknown = 77;

class ServiceFunctions : public testing::Test {
protected:
    ServiceStage stage{1, 2};
};

// The four states of an interface, which are read and written alike.
struct IntfState {
    const char* name;
    uint32_t (*set)(unsigned, int);
    uint32_t (*get)(unsigned, bool*);
    const char* engineCall;
    bool atStart;
};

const IntfState intfStates[] = {
    {"admin", rpcTalIntfAdminStateSet, rpcTalIntfAdminStateGet, "ittalPortAdminStateSet", false},
    {"authentication", rpcTalIntfAuthenAdminStateSet, rpcTalIntfAuthenAdminStateGet,
     "ittalPortAuthenAdminStateSet", true},
    {"authorization", rpcTalIntfAuthorAdminStateSet, rpcTalIntfAuthorAdminStateGet,
     "ittalPortAuthorAdminStateSet", true},
    {"automatic request", rpcTalIntfAutoReqAdminStateSet, rpcTalIntfAutoReqAdminStateGet,
     "ittalPortAutoReqAdminStateSet", false},
};

class IntfStateFunctions : public ServiceFunctions, public testing::WithParamInterface<IntfState> {
protected:
    bool valueOf(unsigned intf) {
        bool value = !GetParam().atStart;
        EXPECT_EQ(0u, GetParam().get(intf, &value));
        return value;
    }
    void setOpposite(unsigned intf) {
        EXPECT_EQ(0u, GetParam().set(intf, GetParam().atStart ? 0 : 1));
    }
};

INSTANTIATE_TEST_SUITE_P(Each, IntfStateFunctions, testing::ValuesIn(intfStates),
                         [](const auto& each) {
                             std::string name = each.param.name;
                             std::erase(name, ' ');
                             return name;
                         });

TEST_P(IntfStateFunctions, DefaultIsReadAfterTheStart) {
    EXPECT_EQ(GetParam().atStart, valueOf(1));
    EXPECT_EQ(GetParam().atStart, valueOf(2));
}

TEST_P(IntfStateFunctions, SetterReachesTheEngineAndTheGetterReadsItBack) {
    setOpposite(1);
    EXPECT_EQ(1u, stage.count(GetParam().engineCall));
    EXPECT_EQ(!GetParam().atStart, valueOf(1));
    EXPECT_EQ(GetParam().atStart, valueOf(2));
}

TEST_P(IntfStateFunctions, AnyStateButZeroMeansOn) {
    for (const int on : {7, -1, 256}) {
        ASSERT_EQ(0u, GetParam().set(1, 0));
        EXPECT_EQ(0u, GetParam().set(1, on));
        EXPECT_TRUE(valueOf(1)) << on;
    }
}

TEST_P(IntfStateFunctions, InterfaceZeroSetsEveryInterface) {
    setOpposite(0);
    EXPECT_EQ(!GetParam().atStart, valueOf(1));
    EXPECT_EQ(!GetParam().atStart, valueOf(2));
}

TEST_P(IntfStateFunctions, UnknownInterfaceIsThreeAndWritesNothing) {
    bool value = true;
    EXPECT_EQ(3u, GetParam().get(unknown, &value));
    EXPECT_TRUE(value);
    EXPECT_EQ(3u, GetParam().set(unknown, 1));
    EXPECT_EQ(Lines{}, stage.engineCalls());
}

TEST_P(IntfStateFunctions, RefusalOfTheEngineIsOneAndKeepsTheValue) {
    stage.refuse(GetParam().engineCall);
    EXPECT_EQ(1u, GetParam().set(1, GetParam().atStart ? 0 : 1));
    EXPECT_EQ(GetParam().atStart, valueOf(1));
}

TEST_P(IntfStateFunctions, NullOutputIsOne) {
    EXPECT_EQ(1u, GetParam().get(1, nullptr));
}

TEST_P(IntfStateFunctions, RefusedLockIsOne) {
    stage.refuse("exclusiveLock");
    stage.refuse("sharedLock");
    bool value = true;
    EXPECT_EQ(1u, GetParam().set(1, 1));
    EXPECT_EQ(1u, GetParam().get(1, &value));
    EXPECT_TRUE(value);
}

TEST_F(ServiceFunctions, GlobalAdminStateIsOffAtTheStartAndAnyNonZeroSwitchesItOn) {
    bool state = true;
    EXPECT_EQ(0u, rpcTalAdminStateGet(&state));
    EXPECT_FALSE(state);
    EXPECT_EQ(0u, rpcTalAdminStateSet(7));
    EXPECT_EQ(1u, stage.count("ittalAdminStateSet"));
    EXPECT_EQ(0u, rpcTalAdminStateGet(&state));
    EXPECT_TRUE(state);
    EXPECT_EQ(0u, rpcTalAdminStateSet(0));
    EXPECT_EQ(0u, rpcTalAdminStateGet(&state));
    EXPECT_FALSE(state);
    EXPECT_EQ(1u, rpcTalAdminStateGet(nullptr));
}

TEST_F(ServiceFunctions, GlobalAdminStateThatTheEngineRefusesIsOne) {
    stage.refuse("ittalAdminStateSet");
    EXPECT_EQ(1u, rpcTalAdminStateSet(1));
    bool state = true;
    EXPECT_EQ(0u, rpcTalAdminStateGet(&state));
    EXPECT_FALSE(state);
}

TEST_F(ServiceFunctions, PeerThatIsNotNotifiedIsFour) {
    stage.refuse("isaradiusbllTalMode");
    const uint32_t result = rpcTalAdminStateSet(1);
    ASSERT_EQ(1u, stage.count("isaradiusbllTalMode"));
    EXPECT_EQ(4u, result);
    bool state = true;
    EXPECT_EQ(0u, rpcTalAdminStateGet(&state));
    EXPECT_FALSE(state);
}

// Status.

using OperStateGet = uint32_t (*)(unsigned, bool*);

TEST_F(ServiceFunctions, OperStatesComeFromTheEngine) {
    const std::pair<OperStateGet, const char*> reads[] = {
        {rpcTalIntfAuthenOperStateGet, "ittalPortAuthenOperStateGet"},
        {rpcTalIntfAuthorOperStateGet, "ittalPortAuthorOperStateGet"},
    };
    for (const auto& [get, call] : reads) {
        bool state = false;
        stage.engineReports(call, {1});
        EXPECT_EQ(0u, get(1, &state)) << call;
        EXPECT_TRUE(state) << call;
        stage.engineReports(call, {0});
        EXPECT_EQ(0u, get(1, &state)) << call;
        EXPECT_FALSE(state) << call;
        EXPECT_EQ(3u, get(unknown, &state)) << call;
        EXPECT_EQ(1u, get(1, nullptr)) << call;
        EXPECT_EQ(2u, stage.count(call));
        stage.refuse(call);
        EXPECT_EQ(1u, get(1, &state)) << call;
    }
}

class Statistics : public ServiceFunctions {
protected:
    std::array<uint32_t, 13> c{};
    std::array<uint32_t*, 13> out{};

    Statistics() {
        for (size_t i = 0; i < c.size(); ++i) {
            out[i] = &c[i];
        }
    }
    uint32_t read(unsigned intf) {
        return rpcTalIntfStatisticsGet(intf, out[0], out[1], out[2], out[3], out[4], out[5], out[6],
                                       out[7], out[8], out[9], out[10], out[11], out[12]);
    }
};

TEST_F(Statistics, ThirteenCountersKeepTheirOrder) {
    stage.engineReports("ittalPortStatisticsGet",
                        {101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111, 112, 0xFFFFFFFF});
    EXPECT_EQ(0u, read(2));
    EXPECT_EQ((std::array<uint32_t, 13>{101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111, 112,
                                        0xFFFFFFFF}),
              c);
    EXPECT_EQ(3u, read(unknown));
    stage.refuse("ittalPortStatisticsGet");
    EXPECT_EQ(1u, read(2));
}

TEST_F(Statistics, AnyNullCounterIsOneWithoutACallOfTheEngine) {
    for (size_t i = 0; i < out.size(); ++i) {
        out[i] = nullptr;
        EXPECT_EQ(1u, read(1)) << i;
        out[i] = &c[i];
    }
    EXPECT_EQ(0u, stage.count("ittalPortStatisticsGet"));
}

TEST_F(ServiceFunctions, StatesOutsideTheirEnumerationLeaveTheirOutputAlone) {
    constexpr uint32_t before = 99;
    for (uint32_t forwardingNow = 0; forwardingNow < 5; ++forwardingNow) {
        for (uint32_t stageNow = 0; stageNow < 7; ++stageNow) {
            stage.engineReports("ittalPortStatesGet", {forwardingNow, stageNow, 6 - stageNow});
            talIntfFwdState forwarding{before};
            talIntfAuthenFwdState authentication{before};
            talIntfAuthorFwdState authorization{before};
            EXPECT_EQ(0u, rpcTalIntfStatesGet(1, &forwarding, &authentication, &authorization));
            EXPECT_EQ(forwardingNow <= 2 ? forwardingNow : before, forwarding);
            EXPECT_EQ(stageNow <= 4 ? stageNow : before, authentication);
            EXPECT_EQ(6 - stageNow <= 4 ? 6 - stageNow : before, authorization);
        }
    }
}

TEST_F(ServiceFunctions, StatesOfAnUnknownInterfaceAndNullOutputsAreRefused) {
    talIntfFwdState forwarding{};
    talIntfAuthenFwdState authentication{};
    talIntfAuthorFwdState authorization{};
    EXPECT_EQ(3u, rpcTalIntfStatesGet(unknown, &forwarding, &authentication, &authorization));
    EXPECT_EQ(1u, rpcTalIntfStatesGet(1, nullptr, &authentication, &authorization));
    EXPECT_EQ(1u, rpcTalIntfStatesGet(1, &forwarding, nullptr, &authorization));
    EXPECT_EQ(1u, rpcTalIntfStatesGet(1, &forwarding, &authentication, nullptr));
    EXPECT_EQ(0u, stage.count("ittalPortStatesGet"));
}

// Replies.

class Replies : public ServiceFunctions {
protected:
    Replies() {
        EXPECT_EQ(0u, rpcTalAdminStateSet(1));
        EXPECT_EQ(0u, rpcTalIntfAdminStateSet(1, 1));
        stage.trap(1);
        stage.forget();
    }
};

TEST_F(Replies, FirstAcceptedReplyStoresTheLoginAndTheSecondFindsNothingToStore) {
    EXPECT_EQ(0u, rpcTalReply(1, 2, 0));
    const std::string stored = stage.storedFile();
    EXPECT_EQ(0u, stored.find("interface: 1\n")) << stored;
    EXPECT_EQ(0u, rpcTalReply(1, 3, 0));
    EXPECT_EQ(stored, stage.storedFile());
    EXPECT_EQ((Lines{"ittalPortAuthenReply(1, true)", "ittalPortAuthorReply(1, true)"}),
              stage.engineCalls());
}

TEST_F(Replies, RejectedReplyStoresNothing) {
    EXPECT_EQ(0u, rpcTalReply(1, 2, -1));
    EXPECT_EQ((Lines{"ittalPortAuthenReply(1, false)"}), stage.engineCalls());
    EXPECT_EQ("", stage.storedFile());
}

TEST_F(Replies, KeepsTheOtherResultsAsARequestStateThatNeverAnswersZero) {
    EXPECT_EQ(1u, rpcTalReply(1, 2, 5));
    EXPECT_EQ(3u, rpcTalReply(unknown, 3, 5));
    EXPECT_EQ(2u, stage.count("ittalRequestState"));
    EXPECT_EQ(0u, stage.count("ittalPortAuthenReply"));
}

TEST_F(Replies, UnknownKindAndInterfaceAreRefused) {
    for (const unsigned kind : {0u, 1u, 4u, 0xFFFFFFFFu}) {
        EXPECT_EQ(1u, rpcTalReply(1, kind, 0)) << kind;
    }
    EXPECT_EQ(3u, rpcTalReply(unknown, 2, 0));
    EXPECT_EQ(Lines{}, stage.engineCalls());
}

// Rules.

class Rules : public ServiceFunctions {
protected:
    rpcTalRule rule{};

    Rules() { rule = unset(0); }

    static rpcTalRule unset(int type) {
        rpcTalRule record{};
        record.ethType = talUnset;
        record.type8Value = talUnset;
        record.type2Value = talUnset;
        for (rpcTalRulePattern& pattern : record.pattern) {
            pattern.format = talUnset;
        }
        record.type = static_cast<rpc_tal_rule_type>(type);
        return record;
    }
    static rpcTalRule etherType(uint32_t value) {
        rpcTalRule record = unset(1);
        record.ethType = value;
        return record;
    }
    static rpcTalRule vendor(const char* text) {
        rpcTalRule record = unset(3);
        record.pattern[0].format = 0;
        strncpy(record.pattern[0].text, text, sizeof record.pattern[0].text - 1);
        return record;
    }
    uint32_t add(unsigned intf, rpcTalRule record) {
        return rpcTalRuleSet(intf, &record, talOperationAdd);
    }
    uint32_t remove(unsigned intf, int type) {
        rpcTalRule record = unset(type);
        return rpcTalRuleSet(intf, &record, talOperationDelete);
    }
    rpcTalRule get(unsigned intf) {
        rpcTalRule record = unset(0);
        EXPECT_EQ(0u, rpcTalRuleGet(intf, &record));
        return record;
    }
};

TEST_F(Rules, EverySlotIsReadBackAsItWasWritten) {
    rpcTalRule written[] = {etherType(0x0800), unset(2), vendor("acme"), unset(4), unset(5),
                            unset(6),          unset(7), unset(8),       unset(9)};
    written[1].type2Value = 1;
    written[3].pattern[1].format = 1;
    memcpy(written[3].pattern[1].mac, "\x00\x11\x22\x33\x44\x55", 6);
    written[4].pattern[2].format = 2;
    memset(written[4].pattern[2].raw, 0xAB, 255);
    written[4].pattern[2].rawLength = 255;
    memcpy(written[5].macAddr, "\x00\x11\x22\x00\x00\x00", 6);
    memset(written[5].macMask, 0xFF, 3);
    written[6].ipValue = 0xC0000200;
    written[6].ipMask = 0xFFFFFF00;
    written[7].type8Value = 100;
    written[8].userPatternSequence[31] = 0x01020304;
    written[8].userPatternMask[31] = 0xFFFF0000;
    for (const rpcTalRule& record : written) {
        EXPECT_EQ(0u, add(1, record)) << record.type;
    }
    EXPECT_EQ(std::size(written), stage.count("ittalConditionAdd"));

    const rpcTalRule got = get(1);
    EXPECT_EQ(0x0800u, got.ethType);
    EXPECT_EQ(1u, got.type2Value);
    EXPECT_EQ(0u, got.pattern[0].format);
    EXPECT_STREQ("acme", got.pattern[0].text);
    EXPECT_EQ(1u, got.pattern[1].format);
    EXPECT_EQ(0, memcmp(written[3].pattern[1].mac, got.pattern[1].mac, 6));
    EXPECT_EQ(2u, got.pattern[2].format);
    EXPECT_EQ(255u, got.pattern[2].rawLength);
    EXPECT_EQ(0, memcmp(written[4].pattern[2].raw, got.pattern[2].raw, 255));
    EXPECT_EQ(0, memcmp(written[5].macAddr, got.macAddr, 6));
    EXPECT_EQ(0, memcmp(written[5].macMask, got.macMask, 6));
    EXPECT_EQ(0xC0000200u, got.ipValue);
    EXPECT_EQ(0xFFFFFF00u, got.ipMask);
    EXPECT_EQ(100u, got.type8Value);
    EXPECT_EQ(0x01020304u, got.userPatternSequence[31]);
    EXPECT_EQ(0xFFFF0000u, got.userPatternMask[31]);
    EXPECT_EQ(talUnset, get(2).ethType);
}

TEST_F(Rules, UnsetRecordDeletesItsTypeAndAMissingTypeIsNoError) {
    ASSERT_EQ(0u, add(1, etherType(0x0800)));
    EXPECT_EQ(0u, remove(1, 1));
    EXPECT_EQ(1u, stage.count("ittalConditionDel"));
    EXPECT_EQ(talUnset, get(1).ethType);
    EXPECT_EQ(0u, remove(1, 1));
    EXPECT_EQ(1u, stage.count("ittalConditionDel"));
}

TEST_F(Rules, IncompatibleRuleIsTwo) {
    ASSERT_EQ(0u, add(1, vendor("acme")));
    EXPECT_EQ(2u, add(1, etherType(0x86DD)));
    EXPECT_EQ(0u, add(1, etherType(0x0800)));
}

TEST_F(Rules, InterfaceZeroAddressesEveryInterface) {
    EXPECT_EQ(0u, add(0, etherType(0x0800)));
    EXPECT_EQ(0x0800u, get(1).ethType);
    EXPECT_EQ(0x0800u, get(2).ethType);
}

TEST_F(Rules, UnknownInterfaceIsThree) {
    EXPECT_EQ(3u, add(unknown, etherType(0x0800)));
    EXPECT_EQ(3u, rpcTalRuleGet(unknown, &rule));
    rule.type2Value = 0;
    EXPECT_EQ(3u, rpcTalRuleBundleSet(unknown, &rule));
}

TEST_F(Rules, TypeOutsideItsNumbersIsOneInEveryCall) {
    for (const int type : {12, 10, -1}) {
        rule = unset(type);
        rule.type2Value = 0;
        EXPECT_EQ(1u, rpcTalRuleSet(1, &rule, talOperationAdd)) << type;
        EXPECT_EQ(1u, rpcTalRuleBundleSet(1, &rule)) << type;
        EXPECT_EQ(1u, rpcTalRuleGet(1, &rule)) << type;
    }
    EXPECT_EQ(Lines{}, stage.engineCalls());
}

TEST_F(Rules, TextThatDoesNotEndWithin256BytesIsOne) {
    rule = vendor("");
    memset(rule.pattern[0].text, 'a', sizeof rule.pattern[0].text);
    memset(rule.pattern[0].mac, 'a', 1);
    EXPECT_EQ(1u, add(1, rule));
    EXPECT_EQ(Lines{}, stage.engineCalls());
}

TEST_F(Rules, NullRecordsAreOne) {
    EXPECT_EQ(1u, rpcTalRuleSet(1, nullptr, talOperationAdd));
    EXPECT_EQ(1u, rpcTalRuleBundleSet(1, nullptr));
    EXPECT_EQ(1u, rpcTalRuleGet(1, nullptr));
}

TEST_F(Rules, BundleReplacesTheRulesOfAnInterface) {
    ASSERT_EQ(0u, add(1, vendor("acme")));
    rule.type2Value = 1;
    rule.ethType = 0x0800;
    EXPECT_EQ(0u, rpcTalRuleBundleSet(1, &rule));
    const rpcTalRule got = get(1);
    EXPECT_EQ(1u, got.type2Value);
    EXPECT_EQ(0x0800u, got.ethType);
    EXPECT_EQ(talUnset, got.pattern[0].format);
}

TEST_F(Rules, KeepsABundleFromLeavingTheType2RuleOut) {
    EXPECT_EQ(1u, rpcTalRuleBundleSet(1, &rule));
    rule.type2Value = 2;
    EXPECT_EQ(1u, rpcTalRuleBundleSet(1, &rule));
    for (const uint32_t value : {0u, 1u}) {
        rule.type2Value = value;
        rule.ethType = 0x0806;
        EXPECT_EQ(2u, rpcTalRuleBundleSet(1, &rule)) << value;
    }
    EXPECT_EQ(Lines{}, stage.engineCalls());
}

// Profiles and reset.

TEST_F(ServiceFunctions, ConversionUnprotectsDynamicProfilesAndTellsFailure) {
    stage.addServiceProfile("gold");
    EXPECT_EQ(0u, rpcTalConvertAllDynamicProfilesToStatic());
    EXPECT_EQ(1u, stage.count("servProfileUnprotect"));
    EXPECT_EQ(1u, stage.count("saveDynamicProfiles"));

    stage.addServiceProfile("silver");
    stage.refuse("servProfileUnprotect");
    EXPECT_EQ(1u, rpcTalConvertAllDynamicProfilesToStatic());
    EXPECT_EQ(1u, stage.count("saveDynamicProfiles"));
}

TEST_F(ServiceFunctions, ResetAppliesTheDefaultsAndThenClearsIsa) {
    ASSERT_EQ(0u, rpcTalAdminStateSet(1));
    EXPECT_EQ(0u, clearIsaConfiguration());
    EXPECT_EQ(1u, stage.count("isaradiusbllClearConfig"));
    bool state = true;
    EXPECT_EQ(0u, rpcTalAdminStateGet(&state));
    EXPECT_FALSE(state);
}

TEST_F(ServiceFunctions, ResetLeavesIsaAloneWhenTheDefaultsAreRefused) {
    stage.refuse("ittalAdminStateSet");
    stage.refuse("ittalRequestState");
    EXPECT_EQ(1u, clearIsaConfiguration());
    EXPECT_EQ(0u, stage.count("isaradiusbllClearConfig"));
}

}  // namespace
