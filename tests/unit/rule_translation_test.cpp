// A rule on its way to the engine: the adapter's record and, byte for byte, the condition.
#include "tests/fake/module_test.h"
#include "tests/unit/rule_builders.h"

#include <limits.h>

namespace {

using fake::sameLines;
using fake::Service;

std::string bytesOf(const TalFea::feaTalRule& fea) {
    return std::string(reinterpret_cast<const char*>(&fea), sizeof(fea));
}

TalFea::feaTalRule filled(int byte) {
    TalFea::feaTalRule fea;
    memset(static_cast<void*>(&fea), byte, sizeof(fea));
    return fea;
}

// Fails with the place of the first difference.
testing::AssertionResult sameBytes(const std::string& actual, const std::string& expected) {
    if (actual.size() != expected.size()) {
        return testing::AssertionFailure() << actual.size() << " bytes, not " << expected.size();
    }
    for (size_t i = 0; i < actual.size(); ++i) {
        if (actual[i] != expected[i]) {
            return testing::AssertionFailure()
                   << "byte " << i << " is " << int(static_cast<unsigned char>(actual[i]))
                   << " and not " << int(static_cast<unsigned char>(expected[i]));
        }
    }
    return testing::AssertionSuccess();
}

// 400 zero bytes with what is put at the offsets of the engine's record.
class ExpectedCondition {
public:
    ExpectedCondition(const std::string& selector, uint32_t type, uint32_t code)
        : bytes_(400, '\0') {
        at(0, selector).number(128, type).number(132, code);
    }
    ExpectedCondition& at(size_t offset, const std::string& bytes) {
        bytes_.replace(offset, bytes.size(), bytes);
        return *this;
    }
    ExpectedCondition& number(size_t offset, uint32_t value) {
        return at(offset, std::string(reinterpret_cast<const char*>(&value), 4));
    }
    ExpectedCondition& byte(size_t offset, unsigned value) {
        bytes_[offset] = static_cast<char>(value);
        return *this;
    }
    const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_;
};

class RuleTranslationTest : public ModuleTest {
protected:
    void SetUp() override {
        startWith({42});
        platform.forget();
    }
    // The record of the one condition that adding this rule gives the engine.
    std::string conditionOf(talRule rule) {
        platform.forget();
        EXPECT_EQ(talResOk, module.talRuleSet(42, &rule, rules::add));
        const std::vector<fake::Call> adds = platform.find("ittalConditionAdd");
        if (adds.size() != 1) {
            ADD_FAILURE() << adds.size() << " conditions";
            return "";
        }
        return std::string(adds[0].record.begin(), adds[0].record.end());
    }
    // What reaches the adapter's record from this rule, starting from zeros.
    TalFea::feaTalRule translated(talRule rule) {
        TalFea::feaTalRule fea = filled(0);
        EXPECT_EQ(0u, module.talFeaRuleSet(&rule, &fea));
        return fea;
    }
};

// ---- the adapter's record

TEST_F(RuleTranslationTest, NullPointersAreNotTranslated) {
    talRule rule = rules::some(6);
    TalFea::feaTalRule fea = filled(0x5A);
    EXPECT_EQ(1u, module.talFeaRuleSet(nullptr, &fea));
    EXPECT_EQ(1u, module.talFeaRuleSet(&rule, nullptr));
    EXPECT_EQ(1u, module.talFeaRuleSet(nullptr, nullptr));
    EXPECT_EQ(bytesOf(filled(0x5A)), bytesOf(fea));
}

TEST_F(RuleTranslationTest, PlainSlotsAreCopiedWhateverTheType) {
    for (const int type : rules::types) {
        talRule rule = rules::blank(type);
        for (unsigned i = 0; i < 6; ++i) {
            rule.macAddr[i] = static_cast<unsigned char>(0x10 + i);
            rule.macMask[i] = static_cast<unsigned char>(0x20 + i);
        }
        rule.ipValue = 0x01020304;
        rule.ipMask = 0xF1F2F3F4;
        rule.ethType = 0x12345678;
        rule.type8Value = 0x9ABCDEF0;
        for (uint32_t i = 0; i < 32; ++i) {
            rule.userPatternSequence[i] = 0xA0000000 + i;
            rule.userPatternMask[i] = 0xB0000000 + i;
        }
        TalFea::feaTalRule fea = filled(0x5A);
        EXPECT_EQ(0u, module.talFeaRuleSet(&rule, &fea));
        EXPECT_EQ(0, memcmp(rule.macAddr, fea.macAddr, 6));
        EXPECT_EQ(0, memcmp(rule.macMask, fea.macMask, 6));
        EXPECT_EQ(0x01020304u, fea.ipAddr);
        EXPECT_EQ(0xF1F2F3F4u, fea.ipMask);
        EXPECT_EQ(0x12345678u, fea.ethType);
        EXPECT_EQ(0x9ABCDEF0u, fea.type8Value);
        EXPECT_EQ(0, memcmp(rule.userPatternSequence, fea.userPatternSequence, 128));
        EXPECT_EQ(0, memcmp(rule.userPatternMask, fea.userPatternMask, 128));
        EXPECT_EQ(static_cast<uint32_t>(type), fea.type);
        // The unset slots are not written.
        EXPECT_EQ(0x5A5A5A5Au, fea.selection);
        EXPECT_EQ(0x5A5A5A5Au, fea.patternLength);
        EXPECT_EQ(std::string(256, '\x5A'), std::string(fea.pattern, 256));
    }
}

TEST_F(RuleTranslationTest, TheValueOfTypeZeroIsNotCarried) {
    EXPECT_EQ(bytesOf(translated(rules::value(0, 1))), bytesOf(translated(rules::value(0, 2))));
}

TEST_F(RuleTranslationTest, SelectionIsWrittenForZeroAndOneOnly) {
    for (const uint32_t flag : {0u, 1u}) {
        talRule rule = rules::value(2, flag);
        TalFea::feaTalRule fea = filled(0x5A);
        EXPECT_EQ(0u, module.talFeaRuleSet(&rule, &fea));
        EXPECT_EQ(flag, fea.selection);
    }
    for (const uint32_t flag : {2u, 3u, 0x100u, 0xFFFFFFFEu, rules::unset}) {
        talRule rule = rules::value(2, flag);
        TalFea::feaTalRule fea = filled(0x5A);
        EXPECT_EQ(0u, module.talFeaRuleSet(&rule, &fea)) << flag;
        EXPECT_EQ(0x5A5A5A5Au, fea.selection) << flag;
    }
}

TEST_F(RuleTranslationTest, SelectionIsCopiedForEveryRuleType) {
    talRule rule = rules::value(8, 5);
    rule.type2Flag = 1;
    EXPECT_EQ(1u, translated(rule).selection);
}

TEST_F(RuleTranslationTest, PatternLengthFollowsTheFormat) {
    struct Case {
        uint32_t format;
        std::string data;
        uint32_t length;
        uint32_t expected;
    };
    const Case cases[] = {
        {1, "abc", 0, 3},
        {1, "abc", 200, 3},
        {1, "", 9, 0},
        {1, std::string("ab\0cd", 5), 5, 2},
        {1, std::string(255, 'x'), 0, 255},
        {2, "abc", 0, 6},
        {2, "", 17, 6},
        {2, std::string(256, 'x'), 256, 6},
        {0, "abc", 0, 0},
        {0, "abc", 2, 2},
        {0, "", 255, 255},
        {0, "abc", 300, 300},
        {0, "abc", 0xFFFFFFFF, 0xFFFFFFFF},
    };
    for (const int type : {3, 4, 5}) {
        for (const Case& one : cases) {
            const talRule rule = rules::pattern(type, one.format, one.data, one.length);
            const TalFea::feaTalRule fea = translated(rule);
            EXPECT_EQ(one.expected, fea.patternLength) << one.format << " " << one.data;
            EXPECT_EQ(0, memcmp(rule.pattern[type - 3].data, fea.pattern, 256));
            EXPECT_EQ(static_cast<uint32_t>(type), fea.type);
        }
    }
}

TEST_F(RuleTranslationTest, TextWithoutTerminatorIsMeasuredInsideItsSlot) {
    talRule rule = rules::pattern(3, rules::text, std::string(256, 'x'), 0x41414141);
    EXPECT_EQ(256u, translated(rule).patternLength);
}

TEST_F(RuleTranslationTest, UnsetAndUnknownFormatsLeaveThePatternAsItIs) {
    for (const uint32_t format : {3u, 4u, 0x100u, 0xFFFFFFFEu, rules::unset}) {
        talRule rule = rules::pattern(4, format, "abc", 3);
        TalFea::feaTalRule fea = filled(0x5A);
        EXPECT_EQ(0u, module.talFeaRuleSet(&rule, &fea));
        EXPECT_EQ(0x5A5A5A5Au, fea.patternLength) << format;
        EXPECT_EQ(std::string(256, '\x5A'), std::string(fea.pattern, 256)) << format;
    }
}

TEST_F(RuleTranslationTest, TheLastSetPatternSlotWins) {
    const uint32_t formats[] = {0, 1, 2, 3, rules::unset};
    const std::string data[] = {"first one", "second", "3rd"};
    for (const uint32_t first : formats) {
        for (const uint32_t second : formats) {
            for (const uint32_t third : formats) {
                talRule rule = rules::blank(3);
                const uint32_t format[] = {first, second, third};
                int winner = -1;
                for (int i = 0; i < 3; ++i) {
                    rule.pattern[i] = rules::pattern(3, format[i], data[i], 40).pattern[0];
                    winner = format[i] <= 2 ? i : winner;
                }
                const TalFea::feaTalRule fea = translated(rule);
                std::string pattern(256, '\0');
                uint32_t length = 0;
                if (winner >= 0) {
                    pattern.replace(0, data[winner].size(), data[winner]);
                    const auto size = static_cast<uint32_t>(data[winner].size());
                    length = format[winner] == 0 ? 40 : format[winner] == 1 ? size : 6;
                }
                EXPECT_EQ(pattern, std::string(fea.pattern, 256));
                EXPECT_EQ(length, fea.patternLength);
            }
        }
    }
}

TEST_F(RuleTranslationTest, OtherTypesAreNotTranslated) {
    for (const int type : {10, 11, -1, 0x100, INT_MAX, INT_MIN}) {
        talRule rule = rules::some(6);
        rule.type = static_cast<talRuleType>(type);
        TalFea::feaTalRule fea = filled(0x5A);
        EXPECT_EQ(1u, module.talFeaRuleSet(&rule, &fea)) << type;
        EXPECT_EQ(0x5A5A5A5Au, fea.type) << type;
    }
}

TEST_F(RuleTranslationTest, TranslationTakesNoLockAndCallsNobody) {
    translated(rules::some(3));
    EXPECT_TRUE(platform.calls().empty());
    EXPECT_TRUE(platform.calls({Service::lock, Service::log, Service::syslog}).empty());
}

TEST_F(RuleTranslationTest, UntranslatableRuleReachesNoEngine) {
    for (const int type : {10, -1}) {
        talRule rule = rules::blank(type);
        EXPECT_EQ(talResError, module.talRuleSet(42, &rule, rules::add));
        EXPECT_EQ(talResError, module.talRuleSet(42, &rule, rules::remove));
    }
    EXPECT_TRUE(platform.calls({Service::engine}).empty());
}

// ---- the engine's record

TEST_F(RuleTranslationTest, ConditionOfTypeZeroIsKnownByItsTypeAlone) {
    EXPECT_TRUE(
        sameBytes(conditionOf(rules::value(0, 0x1234)), ExpectedCondition("41", 0, 0).bytes()));
}

TEST_F(RuleTranslationTest, ConditionOfTypeOneCarriesSixteenBits) {
    EXPECT_TRUE(sameBytes(conditionOf(rules::value(1, 0x12340800)),
                          ExpectedCondition("41", 1, 5).number(136, 0x0800).bytes()));
}

TEST_F(RuleTranslationTest, ConditionOfTypeTwoSelectsOneOrThree) {
    EXPECT_TRUE(sameBytes(conditionOf(rules::value(2, 0)),
                          ExpectedCondition("41", 2, 29).byte(396, 1).bytes()));
    EXPECT_TRUE(sameBytes(conditionOf(rules::value(2, 1)),
                          ExpectedCondition("41", 2, 29).byte(396, 3).bytes()));
}

TEST_F(RuleTranslationTest, ConditionOfAnUnknownFlagStartsFromZeros) {
    EXPECT_TRUE(sameBytes(conditionOf(rules::value(2, 2)),
                          ExpectedCondition("41", 2, 29).byte(396, 1).bytes()));
}

TEST_F(RuleTranslationTest, ConditionsOfThePatternTypesCarryTextAndLength) {
    const uint32_t subCodes[] = {1, 2, 4};
    for (const int type : {3, 4, 5}) {
        const uint32_t subCode = subCodes[type - 3];
        const auto number = static_cast<uint32_t>(type);
        EXPECT_TRUE(sameBytes(conditionOf(rules::pattern(type, rules::text, "abc", 99)),
                              ExpectedCondition("41", number, 29)
                                  .number(136, subCode)
                                  .at(140, "abc")
                                  .byte(395, 3)
                                  .bytes()));
        EXPECT_TRUE(sameBytes(conditionOf(rules::pattern(type, rules::mac, "\x01\x02\x03\x04")),
                              ExpectedCondition("41", number, 29)
                                  .number(136, subCode)
                                  .at(140, "\x01\x02\x03\x04")
                                  .byte(395, 6)
                                  .bytes()));
        const std::string whole(256, '\xEE');
        EXPECT_TRUE(sameBytes(conditionOf(rules::pattern(type, rules::raw, whole, 255)),
                              ExpectedCondition("41", number, 29)
                                  .number(136, subCode)
                                  .at(140, whole.substr(0, 255))
                                  .byte(395, 255)
                                  .bytes()));
        EXPECT_TRUE(sameBytes(conditionOf(rules::pattern(type, rules::raw, "long", 300)),
                              ExpectedCondition("41", number, 29)
                                  .number(136, subCode)
                                  .at(140, "long")
                                  .byte(395, 300 % 256)
                                  .bytes()));
        EXPECT_TRUE(sameBytes(conditionOf(rules::pattern(type, rules::text, whole)),
                              ExpectedCondition("41", number, 29)
                                  .number(136, subCode)
                                  .at(140, whole.substr(0, 255))
                                  .byte(395, 0)
                                  .bytes()))
            << "the low byte of 256";
    }
}

TEST_F(RuleTranslationTest, ConditionOfTypeSixCarriesAddressThenMask) {
    EXPECT_TRUE(sameBytes(conditionOf(rules::macRule(0x10, 0xF0)),
                          ExpectedCondition("41", 6, 3)
                              .at(136, "\x10\x11\x12\x13\x14\x15\xF0\xF1\xF2\xF3\xF4\xF5")
                              .bytes()));
}

TEST_F(RuleTranslationTest, ConditionOfTypeSevenCarriesTheWordsAsTheyStand) {
    EXPECT_TRUE(sameBytes(
        conditionOf(rules::ip(0x0A0B0C0D, 0xFFFF0001)),
        ExpectedCondition("41", 7, 11).number(136, 0x0A0B0C0D).number(140, 0xFFFF0001).bytes()));
}

TEST_F(RuleTranslationTest, ConditionOfTypeEightCarriesSixteenBits) {
    EXPECT_TRUE(sameBytes(conditionOf(rules::value(8, 0xFFFF0FFF)),
                          ExpectedCondition("41", 8, 6).number(136, 0x0FFF).bytes()));
}

TEST_F(RuleTranslationTest, ConditionOfTypeNineCarriesSequenceThenMask) {
    ExpectedCondition expected("41", 9, 34);
    for (uint32_t i = 0; i < 32; ++i) {
        expected.number(136 + 4 * i, 0x01020300 + i).number(264 + 4 * i, 0xFFFFFFFF - i);
    }
    EXPECT_TRUE(sameBytes(conditionOf(rules::user(0x01020300, 0xFFFFFFFF)), expected.bytes()));
}

TEST_F(RuleTranslationTest, OnlyTheSlotOfTheTypeReachesTheCondition) {
    talRule everything = rules::blank(8);
    memset(static_cast<void*>(&everything), 0x77, sizeof(everything));
    everything.type8Value = 100;
    everything.type = static_cast<talRuleType>(8);
    EXPECT_TRUE(
        sameBytes(conditionOf(everything), ExpectedCondition("41", 8, 6).number(136, 100).bytes()));
}

TEST_F(RuleTranslationTest, KeepsTheLastSetPatternSlotOfARuleWithSeveral) {
    talRule rule = rules::pattern(3, rules::text, "mine");
    rule.pattern[2] = rules::pattern(5, rules::text, "another").pattern[2];
    EXPECT_TRUE(sameBytes(
        conditionOf(rule),
        ExpectedCondition("41", 3, 29).number(136, 1).at(140, "another").byte(395, 7).bytes()));
    talRule stored = rules::blank(-1);
    ASSERT_EQ(talResOk, module.talRuleGet(42, &stored));
    EXPECT_EQ(rules::slot(rule, 3), rules::slot(stored, 3)) << "the table keeps the type's own";
    EXPECT_EQ(rules::slot(rules::blank(-1), 5), rules::slot(stored, 5));
}

// ---- the adapter by itself

TEST_F(RuleTranslationTest, AdapterSendsTypesAboveNineWithNameAndTypeOnly) {
    TalFea fea;
    TalFea::feaTalRule rule = filled(0x77);
    for (const uint32_t type : {10u, 0x80000000u, 0xFFFFFFFFu}) {
        rule.type = type;
        platform.forget();
        EXPECT_EQ(0u, fea.talConditionAdd("sel", &rule));
        const std::vector<fake::Call> adds = platform.find("ittalConditionAdd");
        ASSERT_EQ(1u, adds.size());
        EXPECT_TRUE(sameBytes(std::string(adds[0].record.begin(), adds[0].record.end()),
                              ExpectedCondition("sel", type, 0).bytes()));
    }
}

TEST_F(RuleTranslationTest, AdapterLeavesAnUnknownSelectionUnset) {
    TalFea fea;
    TalFea::feaTalRule rule = filled(0x77);
    rule.type = 2;
    EXPECT_EQ(0u, fea.talConditionAdd("sel", &rule));
    const std::vector<fake::Call> adds = platform.find("ittalConditionAdd");
    ASSERT_EQ(1u, adds.size());
    EXPECT_TRUE(sameBytes(std::string(adds[0].record.begin(), adds[0].record.end()),
                          ExpectedCondition("sel", 2, 29).bytes()));
}

TEST_F(RuleTranslationTest, AdapterDeletesBySelectorAndTypeAlone) {
    TalFea fea;
    TalFea::feaTalRule rule = filled(0x77);
    rule.type = 5;
    EXPECT_EQ(0u, fea.talConditionDel("sel", &rule));
    EXPECT_TRUE(sameLines(platform.calls(), {"ittalConditionDel(\"sel\", 5)"}));
}

TEST_F(RuleTranslationTest, AdapterTurnsEveryRefusalIntoOne) {
    TalFea fea;
    TalFea::feaTalRule rule = filled(0);
    for (const int refusal : {1, -1, 2, 255, 256, INT_MAX, INT_MIN}) {
        platform.answers.clear();
        platform.answers.always("ittalConditionAdd", refusal);
        platform.answers.always("ittalConditionDel", refusal);
        EXPECT_EQ(1u, fea.talConditionAdd("sel", &rule)) << refusal;
        EXPECT_EQ(1u, fea.talConditionDel("sel", &rule)) << refusal;
    }
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(RuleTranslationTest, SelectorNameOf127CharactersFits) {
    TalFea fea;
    TalFea::feaTalRule rule = filled(0);
    const std::string name(127, 's');
    EXPECT_EQ(0u, fea.talConditionAdd(name.c_str(), &rule));
    const std::vector<fake::Call> adds = platform.find("ittalConditionAdd");
    ASSERT_EQ(1u, adds.size());
    EXPECT_TRUE(sameBytes(std::string(adds[0].record.begin(), adds[0].record.end()),
                          ExpectedCondition(name, 0, 0).bytes()));
}

TEST_F(RuleTranslationTest, SelectorNameOf128CharactersIsFatal) {
    TalFea fea;
    TalFea::feaTalRule rule = filled(0);
    const std::string name(128, 's');
    EXPECT_DEATH(fea.talConditionAdd(name.c_str(), &rule), "");
}

}  // namespace
