// Every member of the engine adapter: which bridge function it calls, with what, and how the
// bridge's answer is folded; and both engine records byte for byte.
#include "platform/ittal.h"
#include "talfea/talfea.h"
#include "tests/fake/fake_platform.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

using fake::sameLines;
using Bytes = std::vector<unsigned char>;

namespace {

unsigned numbers[13];
bool flag;

struct AdapterCall {
    const char* bridgeFunction;
    std::string line;  // of the call as the bridge sees it, without outputs
    std::function<unsigned(TalFea&)> call;
};

TalFea::feaTalRule ruleOfType(uint32_t type) {
    TalFea::feaTalRule rule{};
    rule.type = type;
    return rule;
}

TalFea::feaTalActionType action(uint32_t type) {
    return static_cast<TalFea::feaTalActionType>(type);
}

std::vector<AdapterCall> adapterCalls() {
    static TalFea::feaTalRule rule = ruleOfType(7);
    return {
        {"ittalSelectorAdd", R"(ittalSelectorAdd("s"))",
         [](TalFea& fea) { return fea.talSelectorAdd("s"); }},
        {"ittalSelectorDel", R"(ittalSelectorDel("s"))",
         [](TalFea& fea) { return fea.talSelectorDel("s"); }},
        {"itqosSelectorRename", R"(itqosSelectorRename("s", "t"))",
         [](TalFea& fea) { return fea.talSelectorRename("s", "t"); }},
        {"ittalConditionAdd", R"(ittalConditionAdd("s", 7, 11))",
         [](TalFea& fea) { return fea.talConditionAdd("s", &rule); }},
        {"ittalConditionDel", R"(ittalConditionDel("s", 7))",
         [](TalFea& fea) { return fea.talConditionDel("s", &rule); }},
        {"ittalActionAdd", R"(ittalActionAdd("l", 2, 2))",
         [](TalFea& fea) { return fea.talActionAdd("l", action(2)); }},
        {"ittalActionDel", R"(ittalActionDel("l", 3))",
         [](TalFea& fea) { return fea.talActionDel("l", action(3)); }},
        {"ittalActionListAdd", R"(ittalActionListAdd("l"))",
         [](TalFea& fea) { return fea.talActionListAdd("l"); }},
        {"ittalActionListDel", R"(ittalActionListDel("l"))",
         [](TalFea& fea) { return fea.talActionListDel("l"); }},
        {"ittalActionListRename", R"(ittalActionListRename("l", "m"))",
         [](TalFea& fea) { return fea.talActionListRename("l", "m"); }},
        {"ittalListSet", R"(ittalListSet(42, "s", "l", -5, 4294967295))",
         [](TalFea& fea) { return fea.talListSet(42, "s", "l", -5, 4294967295U); }},
        {"ittalAdminStateSet", "ittalAdminStateSet(true)",
         [](TalFea& fea) { return fea.feaTalAdminStateSet(true); }},
        {"ittalAdminStateGet", "ittalAdminStateGet()",
         [](TalFea& fea) { return fea.feaTalAdminStateGet(&flag); }},
        {"ittalPortAdminStateSet", "ittalPortAdminStateSet(42, true)",
         [](TalFea& fea) { return fea.feaTalPortAdminStateSet(42, true); }},
        {"ittalPortAdminStateGet", "ittalPortAdminStateGet(42)",
         [](TalFea& fea) { return fea.feaTalPortAdminStateGet(42, &flag); }},
        {"ittalPortAuthenAdminStateSet", "ittalPortAuthenAdminStateSet(42, false)",
         [](TalFea& fea) { return fea.feaTalPortAuthenAdminStateSet(42, false); }},
        {"ittalPortAuthenAdminStateGet", "ittalPortAuthenAdminStateGet(42)",
         [](TalFea& fea) { return fea.feaTalPortAuthenAdminStateGet(42, &flag); }},
        {"ittalPortAuthorAdminStateSet", "ittalPortAuthorAdminStateSet(42, true)",
         [](TalFea& fea) { return fea.feaTalPortAuthorAdminStateSet(42, true); }},
        {"ittalPortAuthorAdminStateGet", "ittalPortAuthorAdminStateGet(42)",
         [](TalFea& fea) { return fea.feaTalPortAuthorAdminStateGet(42, &flag); }},
        {"ittalPortAutoReqAdminStateSet", "ittalPortAutoReqAdminStateSet(42, false)",
         [](TalFea& fea) { return fea.feaTalPortAutoReqAdminStateSet(42, false); }},
        {"ittalPortAutoReqAdminStateGet", "ittalPortAutoReqAdminStateGet(42)",
         [](TalFea& fea) { return fea.feaTalPortAutoReqAdminStateGet(42, &flag); }},
        {"ittalPortTimeoutSet", "ittalPortTimeoutSet(42, 301)",
         [](TalFea& fea) { return fea.feaTalPortTimeoutSet(42, 301); }},
        {"ittalPortTimeoutGet", "ittalPortTimeoutGet(42)",
         [](TalFea& fea) { return fea.feaTalPortTimeoutGet(42, numbers); }},
        {"ittalPortMaxQueueSizeSet", "ittalPortMaxQueueSizeSet(42, 101)",
         [](TalFea& fea) { return fea.feaTalPortMaxQueueSizeSet(42, 101); }},
        {"ittalPortMaxQueueSizeGet", "ittalPortMaxQueueSizeGet(42)",
         [](TalFea& fea) { return fea.feaPortTalMaxQueueSizeGet(42, numbers); }},
        {"ittalPortAuthenOperStateSet", "ittalPortAuthenOperStateSet(42, 7)",
         [](TalFea& fea) { return fea.feaTalPortAuthenOperStateSet(42, 7); }},
        {"ittalPortAuthenOperStateGet", "ittalPortAuthenOperStateGet(42)",
         [](TalFea& fea) { return fea.feaTalPortAuthenOperStateGet(42, numbers); }},
        {"ittalPortAuthorOperStateSet", "ittalPortAuthorOperStateSet(42, 8)",
         [](TalFea& fea) { return fea.feaTalPortAuthorOperStateSet(42, 8); }},
        {"ittalPortAuthorOperStateGet", "ittalPortAuthorOperStateGet(42)",
         [](TalFea& fea) { return fea.feaTalPortAuthorOperStateGet(42, numbers); }},
        {"ittalPortStatisticsGet", "ittalPortStatisticsGet(42)",
         [](TalFea& fea) {
             unsigned* n = numbers;
             return fea.feaTalPortStatisticsGet(42, n, n + 1, n + 2, n + 3, n + 4, n + 5, n + 6,
                                                n + 7, n + 8, n + 9, n + 10, n + 11, n + 12);
         }},
        {"ittalPortAuthenReply", "ittalPortAuthenReply(42, true)",
         [](TalFea& fea) { return fea.feaTalPortAuthenReply(42, true); }},
        {"ittalPortAuthorReply", "ittalPortAuthorReply(42, false)",
         [](TalFea& fea) { return fea.feaTalPortAuthorReply(42, false); }},
        {"ittalPortStatesGet", "ittalPortStatesGet(42)",
         [](TalFea& fea) {
             return fea.feaTalPortStatesGet(42, numbers, numbers + 1, numbers + 2);
         }},
        {"ittalRequestState", "ittalRequestState(true)",
         [](TalFea& fea) { return fea.feaTalRequestState(true); }},
        {"ittalStoredReqSend", "ittalStoredReqSend(42)",
         [](TalFea& fea) { return fea.feaTalStoredReqSend(42); }},
    };
}

class EngineAdapterTest : public testing::TestWithParam<AdapterCall> {
protected:
    FakePlatform platform;
    TalFea fea;
};

INSTANTIATE_TEST_SUITE_P(Calls, EngineAdapterTest, testing::ValuesIn(adapterCalls()),
                         [](const auto& call) { return call.param.bridgeFunction; });

TEST_P(EngineAdapterTest, MakesOneBridgeCallWithItsArguments) {
    EXPECT_EQ(0u, GetParam().call(fea));
    const std::vector<std::string> calls = platform.calls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(GetParam().line, calls[0].substr(0, calls[0].find(" ->")));
}

TEST_P(EngineAdapterTest, AnyNonZeroAnswerBecomesOne) {
    for (const int answer : {1, 2, 255, 256, 65536, INT_MAX, -1, -256, INT_MIN}) {
        platform.answers.always(GetParam().bridgeFunction, answer);
        EXPECT_EQ(1u, GetParam().call(fea)) << answer;
    }
    platform.answers.always(GetParam().bridgeFunction, 0);
    EXPECT_EQ(0u, GetParam().call(fea));
}

TEST_P(EngineAdapterTest, BridgeNameIsReadAtEveryCall) {
    GetParam().call(fea);
    bridgeName = "another bridge";
    GetParam().call(fea);
    const std::vector<fake::Call> calls = platform.find(GetParam().bridgeFunction);
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ("bridge0", calls[0].bridge);
    EXPECT_EQ("another bridge", calls[1].bridge);
    EXPECT_STREQ("another bridge", bridgeName);
}

TEST_P(EngineAdapterTest, LogsNothingAndTakesNoLock) {
    platform.answers.always(GetParam().bridgeFunction, -1);
    GetParam().call(fea);
    EXPECT_TRUE(platform.texts().empty());
    EXPECT_TRUE(platform.calls({fake::Service::lock}).empty());
}

class EngineGetterTest : public testing::Test {
protected:
    FakePlatform platform;
    TalFea fea;
};

TEST_F(EngineGetterTest, BoolsComeBackThroughThePointer) {
    const struct {
        const char* name;
        unsigned (TalFea::*get)(unsigned, bool*);
    } getters[] = {
        {"ittalPortAdminStateGet", &TalFea::feaTalPortAdminStateGet},
        {"ittalPortAuthenAdminStateGet", &TalFea::feaTalPortAuthenAdminStateGet},
        {"ittalPortAuthorAdminStateGet", &TalFea::feaTalPortAuthorAdminStateGet},
        {"ittalPortAutoReqAdminStateGet", &TalFea::feaTalPortAutoReqAdminStateGet},
    };
    for (const auto& getter : getters) {
        platform.engine.outputs(getter.name, {1}, 5);
        bool five = false;
        bool six = true;
        EXPECT_EQ(0u, (fea.*getter.get)(5, &five));
        EXPECT_EQ(0u, (fea.*getter.get)(6, &six));
        EXPECT_TRUE(five) << getter.name;
        EXPECT_FALSE(six) << getter.name;
    }
    bool state = false;
    platform.engine.outputs("ittalAdminStateGet", {1});
    EXPECT_EQ(0u, fea.feaTalAdminStateGet(&state));
    EXPECT_TRUE(state);
}

TEST_F(EngineGetterTest, NumbersComeBackThroughThePointer) {
    const struct {
        const char* name;
        unsigned (TalFea::*get)(unsigned, unsigned*);
    } getters[] = {
        {"ittalPortTimeoutGet", &TalFea::feaTalPortTimeoutGet},
        {"ittalPortMaxQueueSizeGet", &TalFea::feaPortTalMaxQueueSizeGet},
        {"ittalPortAuthenOperStateGet", &TalFea::feaTalPortAuthenOperStateGet},
        {"ittalPortAuthorOperStateGet", &TalFea::feaTalPortAuthorOperStateGet},
    };
    for (const auto& getter : getters) {
        platform.engine.outputs(getter.name, {0xFFFFFFFE}, 5);
        unsigned value = 1;
        EXPECT_EQ(0u, (fea.*getter.get)(5, &value));
        EXPECT_EQ(0xFFFFFFFEu, value) << getter.name;
    }
}

TEST_F(EngineGetterTest, ThirteenCountersKeepTheirOrder) {
    platform.engine.outputs("ittalPortStatisticsGet", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13});
    unsigned n[13] = {};
    EXPECT_EQ(0u, fea.feaTalPortStatisticsGet(9, n, n + 1, n + 2, n + 3, n + 4, n + 5, n + 6, n + 7,
                                              n + 8, n + 9, n + 10, n + 11, n + 12));
    for (unsigned i = 0; i < 13; ++i) {
        EXPECT_EQ(i + 1, n[i]);
    }
}

TEST_F(EngineGetterTest, ThreeStatesKeepTheirOrder) {
    platform.engine.outputs("ittalPortStatesGet", {1, 2, 3});
    unsigned forwarding = 0;
    unsigned authentication = 0;
    unsigned authorization = 0;
    EXPECT_EQ(0u, fea.feaTalPortStatesGet(9, &forwarding, &authentication, &authorization));
    EXPECT_EQ(1u, forwarding);
    EXPECT_EQ(2u, authentication);
    EXPECT_EQ(3u, authorization);
}

// ---- records

class EngineRecordTest : public testing::Test {
protected:
    FakePlatform platform;
    TalFea fea;

    // A rule in which no byte is zero, so that anything copied by mistake shows.
    static TalFea::feaTalRule fullRule(uint32_t type) {
        TalFea::feaTalRule rule;
        auto* bytes = reinterpret_cast<unsigned char*>(&rule);
        for (size_t i = 0; i < sizeof(rule); ++i) {
            bytes[i] = static_cast<unsigned char>(1 + i % 255);
        }
        rule.type = type;
        return rule;
    }

    Bytes conditionBytes(const char* selector, TalFea::feaTalRule rule) {
        platform.forget();
        EXPECT_EQ(0u, fea.talConditionAdd(selector, &rule));
        const std::vector<fake::Call> calls = platform.find("ittalConditionAdd");
        return calls.size() == 1 ? calls[0].record : Bytes();
    }

    static void put(Bytes& record, size_t offset, const void* data, size_t size) {
        ASSERT_LE(offset + size, record.size());
        memcpy(record.data() + offset, data, size);
    }
    static void put32(Bytes& record, size_t offset, uint32_t value) {
        put(record, offset, &value, sizeof(value));
    }
    static void put16(Bytes& record, size_t offset, uint16_t value) {
        put(record, offset, &value, sizeof(value));
    }
    // A condition of the selector "41" with type and code set and nothing else.
    static Bytes condition(uint32_t type, uint32_t code) {
        Bytes record(400, 0);
        put(record, 0, "41", 2);
        put32(record, 128, type);
        put32(record, 132, code);
        return record;
    }
};

TEST_F(EngineRecordTest, RuleRecordHasItsFieldsInOrder) {
    EXPECT_EQ(552u, sizeof(TalFea::feaTalRule));
    EXPECT_EQ(0u, offsetof(TalFea::feaTalRule, macAddr));
    EXPECT_EQ(6u, offsetof(TalFea::feaTalRule, macMask));
    EXPECT_EQ(12u, offsetof(TalFea::feaTalRule, ipAddr));
    EXPECT_EQ(16u, offsetof(TalFea::feaTalRule, ipMask));
    EXPECT_EQ(20u, offsetof(TalFea::feaTalRule, ethType));
    EXPECT_EQ(24u, offsetof(TalFea::feaTalRule, type8Value));
    EXPECT_EQ(28u, offsetof(TalFea::feaTalRule, selection));
    EXPECT_EQ(32u, offsetof(TalFea::feaTalRule, pattern));
    EXPECT_EQ(288u, offsetof(TalFea::feaTalRule, patternLength));
    EXPECT_EQ(292u, offsetof(TalFea::feaTalRule, userPatternSequence));
    EXPECT_EQ(420u, offsetof(TalFea::feaTalRule, userPatternMask));
    EXPECT_EQ(548u, offsetof(TalFea::feaTalRule, type));
}

TEST_F(EngineRecordTest, Type0CarriesNothingElse) {
    EXPECT_EQ(condition(0, 0), conditionBytes("41", fullRule(0)));
}

TEST_F(EngineRecordTest, Type1CarriesTheLow16BitsOfTheEtherType) {
    TalFea::feaTalRule rule = fullRule(1);
    rule.ethType = 0xABCD0806;
    Bytes expected = condition(1, 5);
    put16(expected, 136, 0x0806);
    EXPECT_EQ(expected, conditionBytes("41", rule));
}

TEST_F(EngineRecordTest, Type2CarriesTheSelectionMode) {
    const struct {
        uint32_t selection;
        unsigned char mode;
    } modes[] = {{0, 1}, {1, 3}, {2, 0}, {3, 0}, {0xFFFFFFFF, 0}};
    for (const auto& mode : modes) {
        TalFea::feaTalRule rule = fullRule(2);
        rule.selection = mode.selection;
        Bytes expected = condition(2, 29);
        expected[396] = mode.mode;
        EXPECT_EQ(expected, conditionBytes("41", rule)) << mode.selection;
    }
}

TEST_F(EngineRecordTest, Types3To5Carry255PatternBytesAndTheLowByteOfTheLength) {
    const struct {
        uint32_t type;
        uint32_t subCode;
    } types[] = {{3, 1}, {4, 2}, {5, 4}};
    for (const auto& type : types) {
        for (const uint32_t length : {0u, 3u, 255u, 256u, 300u, 0xFFFFFF07u}) {
            TalFea::feaTalRule rule = fullRule(type.type);
            rule.patternLength = length;
            Bytes expected = condition(type.type, 29);
            put32(expected, 136, type.subCode);
            put(expected, 140, rule.pattern, 255);
            expected[395] = static_cast<unsigned char>(length & 0xFF);
            EXPECT_EQ(expected, conditionBytes("41", rule)) << type.type << " " << length;
        }
    }
}

TEST_F(EngineRecordTest, Type6CarriesAddressThenMask) {
    const TalFea::feaTalRule rule = fullRule(6);
    Bytes expected = condition(6, 3);
    put(expected, 136, rule.macAddr, 6);
    put(expected, 142, rule.macMask, 6);
    EXPECT_EQ(expected, conditionBytes("41", rule));
}

TEST_F(EngineRecordTest, Type7CarriesBothWordsAsTheyStand) {
    TalFea::feaTalRule rule = fullRule(7);
    rule.ipAddr = 0x01020304;
    rule.ipMask = 0xFFFFFF00;
    Bytes expected = condition(7, 11);
    put32(expected, 136, 0x01020304);
    put32(expected, 140, 0xFFFFFF00);
    EXPECT_EQ(expected, conditionBytes("41", rule));
}

TEST_F(EngineRecordTest, Type8CarriesTheLow16Bits) {
    TalFea::feaTalRule rule = fullRule(8);
    rule.type8Value = 0x12340FFE;
    Bytes expected = condition(8, 6);
    put16(expected, 136, 0x0FFE);
    EXPECT_EQ(expected, conditionBytes("41", rule));
}

TEST_F(EngineRecordTest, Type9CarriesSequenceThenMask) {
    const TalFea::feaTalRule rule = fullRule(9);
    Bytes expected = condition(9, 34);
    put(expected, 136, rule.userPatternSequence, 128);
    put(expected, 264, rule.userPatternMask, 128);
    EXPECT_EQ(expected, conditionBytes("41", rule));
}

TEST_F(EngineRecordTest, TypesAboveNineGoWithNameAndTypeOnly) {
    for (const uint32_t type : {10u, 11u, 29u, 34u, 256u, 0xFFFFFFFFu}) {
        EXPECT_EQ(condition(type, 0), conditionBytes("41", fullRule(type))) << type;
    }
}

TEST_F(EngineRecordTest, ConditionDelPassesSelectorAndTypeOnly) {
    for (const uint32_t type : {0u, 9u, 10u, 0xFFFFFFFFu}) {
        TalFea::feaTalRule rule = fullRule(type);
        platform.forget();
        EXPECT_EQ(0u, fea.talConditionDel("41", &rule));
        EXPECT_TRUE(sameLines(platform.calls(),
                              {"ittalConditionDel(\"41\", " + std::to_string(type) + ")"}));
    }
}

TEST_F(EngineRecordTest, AddingAConditionLeavesTheRuleAlone) {
    TalFea::feaTalRule rule = fullRule(9);
    const TalFea::feaTalRule before = rule;
    EXPECT_EQ(0u, fea.talConditionAdd("41", &rule));
    EXPECT_EQ(0, memcmp(&before, &rule, sizeof(rule)));
}

TEST_F(EngineRecordTest, ActionCodeEqualsTheTypeUpToThree) {
    for (const uint32_t type : {0u, 1u, 2u, 3u, 4u, 5u, 0xFFFFFFFFu}) {
        platform.forget();
        EXPECT_EQ(0u, fea.talActionAdd("41", action(type)));
        Bytes expected(136, 0);
        put(expected, 0, "41", 2);
        put32(expected, 128, type);
        put32(expected, 132, type <= 3 ? type : 0);
        const std::vector<fake::Call> calls = platform.find("ittalActionAdd");
        ASSERT_EQ(1u, calls.size());
        EXPECT_EQ(expected, calls[0].record) << type;
    }
}

TEST_F(EngineRecordTest, NameOf127CharactersFitsWithItsTerminator) {
    const std::string name(127, 'n');
    TalFea::feaTalRule rule = fullRule(0);
    EXPECT_EQ(0u, fea.talConditionAdd(name.c_str(), &rule));
    EXPECT_EQ(0u, fea.talActionAdd(name.c_str(), action(2)));
    ASSERT_EQ(1u, platform.engine.conditions().size());
    ASSERT_EQ(1u, platform.engine.actions().size());
    EXPECT_STREQ(name.c_str(), platform.engine.conditions()[0].selector);
    EXPECT_STREQ(name.c_str(), platform.engine.actions()[0].list);
}

TEST_F(EngineRecordTest, EmptyNameFits) {
    TalFea::feaTalRule rule = fullRule(0);
    EXPECT_EQ(0u, fea.talConditionAdd("", &rule));
    EXPECT_STREQ("", platform.engine.conditions()[0].selector);
}

TEST_F(EngineRecordTest, NamesThatTravelWithoutARecordMayBeLonger) {
    const std::string name(200, 'n');
    EXPECT_EQ(0u, fea.talSelectorAdd(name.c_str()));
    EXPECT_TRUE(sameLines(platform.calls(), {"ittalSelectorAdd(\"" + name + "\")"}));
}

using EngineRecordDeathTest = EngineRecordTest;

TEST_F(EngineRecordDeathTest, NameOf128CharactersEndsTheProcess) {
    for (const size_t length : {128u, 129u, 4096u}) {
        const std::string name(length, 'n');
        TalFea::feaTalRule rule = fullRule(0);
        EXPECT_EXIT(fea.talConditionAdd(name.c_str(), &rule), testing::KilledBySignal(SIGABRT), "");
        EXPECT_EXIT(fea.talActionAdd(name.c_str(), action(2)), testing::KilledBySignal(SIGABRT),
                    "");
    }
}

TEST_F(EngineRecordTest, NullNamesAndRecordsAreRefusedWithoutACall) {
    TalFea::feaTalRule rule = fullRule(0);
    EXPECT_EQ(1u, fea.talSelectorAdd(nullptr));
    EXPECT_EQ(1u, fea.talSelectorDel(nullptr));
    EXPECT_EQ(1u, fea.talSelectorRename(nullptr, "t"));
    EXPECT_EQ(1u, fea.talSelectorRename("s", nullptr));
    EXPECT_EQ(1u, fea.talConditionAdd("s", nullptr));
    EXPECT_EQ(1u, fea.talConditionAdd(nullptr, &rule));
    EXPECT_EQ(1u, fea.talConditionDel("s", nullptr));
    EXPECT_EQ(1u, fea.talConditionDel(nullptr, &rule));
    EXPECT_EQ(1u, fea.talActionAdd(nullptr, action(2)));
    EXPECT_EQ(1u, fea.talActionDel(nullptr, action(2)));
    EXPECT_EQ(1u, fea.talActionListAdd(nullptr));
    EXPECT_EQ(1u, fea.talActionListDel(nullptr));
    EXPECT_EQ(1u, fea.talActionListRename(nullptr, "m"));
    EXPECT_EQ(1u, fea.talActionListRename("l", nullptr));
    EXPECT_EQ(1u, fea.talListSet(5, nullptr, "l", 1, 0));
    EXPECT_EQ(1u, fea.talListSet(5, "s", nullptr, 1, 0));
    EXPECT_TRUE(platform.calls().empty());
}

TEST_F(EngineRecordTest, NullOutputsAreRefusedWithoutACall) {
    EXPECT_EQ(1u, fea.feaTalAdminStateGet(nullptr));
    EXPECT_EQ(1u, fea.feaTalPortAdminStateGet(5, nullptr));
    EXPECT_EQ(1u, fea.feaTalPortAuthenAdminStateGet(5, nullptr));
    EXPECT_EQ(1u, fea.feaTalPortAuthorAdminStateGet(5, nullptr));
    EXPECT_EQ(1u, fea.feaTalPortAutoReqAdminStateGet(5, nullptr));
    EXPECT_EQ(1u, fea.feaTalPortTimeoutGet(5, nullptr));
    EXPECT_EQ(1u, fea.feaPortTalMaxQueueSizeGet(5, nullptr));
    EXPECT_EQ(1u, fea.feaTalPortAuthenOperStateGet(5, nullptr));
    EXPECT_EQ(1u, fea.feaTalPortAuthorOperStateGet(5, nullptr));
    for (size_t null = 0; null < 13; ++null) {
        unsigned* n[13];
        for (size_t i = 0; i < 13; ++i) {
            n[i] = i == null ? nullptr : &numbers[i];
        }
        EXPECT_EQ(1u, fea.feaTalPortStatisticsGet(5, n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7],
                                                  n[8], n[9], n[10], n[11], n[12]));
        if (null < 3) {
            EXPECT_EQ(1u, fea.feaTalPortStatesGet(5, n[0], n[1], n[2]));
        }
    }
    EXPECT_TRUE(platform.calls().empty());
}

}  // namespace
