// A whole record of rules applied at once.
#include "tests/unit/rule_table_fixture.h"

namespace {

using fake::sameLines;
using fake::Service;

constexpr int order[] = {0, 6, 7, 1, 8, 2, 3, 4, 5, 9};

// One rule of every type side by side.
talRule everyRule() {
    talRule rule = rules::blank(-1);
    for (const int type : rules::types) {
        rules::copySlot(rules::some(type), rule, type);
    }
    return rule;
}

// What the table holds after a bundle: patterns arrive with their format alone.
talRule arrived(const talRule& bundle) {
    talRule rule = bundle;
    for (talRulePattern& pattern : rule.pattern) {
        memset(pattern.data, 0, sizeof(pattern.data));
        pattern.length = 0;
    }
    return rule;
}

class RuleBundleTest : public RuleTableFixture {
protected:
    void SetUp() override {
        startWith({1, 5});
        platform.forget();
    }
    static std::vector<std::string> addedInOrder(unsigned intf) {
        std::vector<std::string> lines;
        for (const int type : order) {
            lines.push_back(added(intf, type));
        }
        return lines;
    }
    static std::vector<std::string> deletedInOrder(unsigned intf) {
        std::vector<std::string> lines;
        for (const int type : order) {
            lines.push_back(deleted(intf, type));
        }
        return lines;
    }
};

TEST_F(RuleBundleTest, TypesAreAddedInTheFixedOrder) {
    EXPECT_EQ(talResOk, bundle(5, everyRule()));
    EXPECT_TRUE(sameLines(engine(), addedInOrder(5)));
    EXPECT_EQ(std::vector<int>(), rules::differing(arrived(everyRule()), get(5)));
    EXPECT_TRUE(module.talRuleEmpty(1));
}

TEST_F(RuleBundleTest, UnsetBundleDeletesEveryTypeInTheFixedOrder) {
    fill(5);
    platform.forget();
    EXPECT_EQ(talResOk, bundle(5, rules::blank(-1)));
    EXPECT_TRUE(sameLines(engine(), deletedInOrder(5)));
    EXPECT_TRUE(module.talRuleEmpty(5));
    EXPECT_EQ(std::vector<int>(), rules::differing(rules::blank(-1), get(5)));
}

TEST_F(RuleBundleTest, UnsetBundleOnAnEmptyInterfaceCallsNoEngine) {
    EXPECT_EQ(talResOk, bundle(5, rules::blank(-1)));
    EXPECT_TRUE(engine().empty());
}

TEST_F(RuleBundleTest, SameBundleTwiceChangesNothingTheSecondTime) {
    ASSERT_EQ(talResOk, bundle(5, everyRule()));
    platform.forget();
    EXPECT_EQ(talResOk, bundle(5, everyRule()));
    EXPECT_TRUE(engine().empty());
}

TEST_F(RuleBundleTest, EachSlotAloneIsAddedAndTheRestDeleted) {
    for (const int type : rules::types) {
        fill(1);
        platform.forget();
        talRule rule = rules::some(type);
        EXPECT_EQ(talResOk, bundle(1, rule));
        std::vector<std::string> expected;
        for (const int step : order) {
            const bool pattern = type >= 3 && type <= 5;  // its data is lost, so it is modified
            if (step != type) {
                expected.push_back(deleted(1, step));
            } else if (pattern) {
                expected.push_back(deleted(1, step));
                expected.push_back(added(1, step));
            }
        }
        EXPECT_TRUE(sameLines(engine(), expected)) << type;
        EXPECT_EQ(std::vector<int>(), rules::differing(arrived(rule), get(1))) << type;
    }
}

TEST_F(RuleBundleTest, TheTypeOfTheBundleIsNotLookedAt) {
    for (const int type : {-1, 0, 5, 10, 4711}) {
        talRule rule = rules::some(6);
        rule.type = static_cast<talRuleType>(type);
        EXPECT_EQ(talResOk, module.talRuleBundleSet(5, &rule));
        EXPECT_EQ(type, static_cast<int>(rule.type));
    }
}

TEST_F(RuleBundleTest, KeepsPatternDataTravellingTheWrongWay) {
    talRule rule = everyRule();
    EXPECT_EQ(talResOk, module.talRuleBundleSet(5, &rule));
    talRule expected = everyRule();
    for (talRulePattern& pattern : expected.pattern) {
        memset(pattern.data, 0, sizeof(pattern.data));
    }
    EXPECT_EQ(0, memcmp(&expected, &rule, sizeof(rule))) << "the caller's data, and nothing else";
    // The engine gets the format's length and no data.
    const unsigned char lengths[] = {0, 6, 0};  // text, MAC address, raw
    int found = 0;
    for (const ittalCondition& condition : platform.engine.conditions()) {
        if (condition.type >= 3 && condition.type <= 5) {
            ++found;
            EXPECT_EQ(std::string(255, '\0'), std::string(condition.u.match.pattern, 255));
            EXPECT_EQ(lengths[condition.type - 3], condition.u.match.length);
        }
    }
    EXPECT_EQ(3, found);
    for (const talRulePattern& pattern : get(5).pattern) {
        EXPECT_EQ(0u, pattern.length);
    }
}

TEST_F(RuleBundleTest, DataOfAnUnsetPatternStaysWithTheCaller) {
    talRule rule = rules::blank(-1);
    for (talRulePattern& pattern : rule.pattern) {
        memset(pattern.data, 'd', sizeof(pattern.data));
        pattern.length = 3;
    }
    const talRule before = rule;
    EXPECT_EQ(talResOk, module.talRuleBundleSet(5, &rule));
    EXPECT_EQ(0, memcmp(&before, &rule, sizeof(rule)));
    EXPECT_TRUE(engine().empty());
}

TEST_F(RuleBundleTest, UnknownPatternFormatsAreAddedWithoutData) {
    talRule rule = rules::pattern(4, 17, "abc", 3);
    EXPECT_EQ(talResOk, bundle(5, rule));
    EXPECT_TRUE(sameLines(engine(), {added(5, 4)}));
    EXPECT_EQ(17u, static_cast<uint32_t>(get(5).pattern[1].format));
}

TEST_F(RuleBundleTest, OneHalfOfAPairIsEnoughToAdd) {
    talRule halves[6] = {rules::blank(-1), rules::blank(-1), rules::blank(-1),
                         rules::blank(-1), rules::blank(-1), rules::blank(-1)};
    halves[0].macAddr[5] = 1;
    halves[1].macMask[5] = 1;
    halves[2].ipValue = 1;
    halves[3].ipMask = 1;
    halves[4].userPatternSequence[31] = 1;
    halves[5].userPatternMask[31] = 1;
    const int types[] = {6, 6, 7, 7, 9, 9};
    for (int i = 0; i < 6; ++i) {
        platform.forget();
        EXPECT_EQ(talResOk, bundle(5, halves[i]));
        EXPECT_TRUE(sameLines(engine(), {added(5, types[i])}));
        EXPECT_FALSE(exists(5, types[i]));
        EXPECT_EQ(rules::slot(halves[i], types[i]), rules::slot(get(5), types[i]));
        ASSERT_EQ(talResOk, bundle(5, rules::blank(-1)));
        EXPECT_EQ(std::vector<int>(), rules::differing(rules::blank(-1), get(5)));
    }
}

TEST_F(RuleBundleTest, NullBundleIsRefusedUnderTheLock) {
    EXPECT_EQ(talResError, module.talRuleBundleSet(5, nullptr));
    EXPECT_EQ(talResError, module.talRuleBundleSet(99, nullptr));
    EXPECT_EQ(2u, platform.count("exclusiveLock"));
    EXPECT_TRUE(engine().empty());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(RuleBundleTest, UnknownInterfaceIsThreeAndTheBundleIsLeftAlone) {
    talRule rule = everyRule();
    EXPECT_EQ(talResIntfInvalid, module.talRuleBundleSet(6, &rule));
    const talRule before = everyRule();
    EXPECT_EQ(0, memcmp(&before, &rule, sizeof(rule)));
    EXPECT_TRUE(engine().empty());
}

TEST_F(RuleBundleTest, IncompatibleBundleIsRefusedBeforeAnyChange) {
    fill(5);
    for (const int type : {2, 3, 4, 5, 7}) {
        talRule rule = rules::some(type);
        rule.ethType = rules::arp;
        const talRule before = rule;
        platform.forget();
        EXPECT_EQ(talResRuleInvalid, module.talRuleBundleSet(5, &rule));
        EXPECT_EQ(talResRuleInvalid, module.talRuleBundleSet(99, &rule))
            << "the bundle is looked at before the interface";
        EXPECT_TRUE(engine().empty());
        EXPECT_EQ(0, memcmp(&before, &rule, sizeof(rule)));
    }
    for (const int type : rules::types) {
        EXPECT_TRUE(exists(5, type));
    }
}

TEST_F(RuleBundleTest, KeepsTheEtherTypeRefusedBesideARuleThatTheSameBundleWouldRemoveLater) {
    ASSERT_EQ(talResOk, set(5, rules::some(2)));
    ASSERT_EQ(talResOk, set(5, rules::some(6)));
    talRule rule = rules::value(1, rules::arp);
    platform.forget();
    EXPECT_EQ(talResRuleInvalid, module.talRuleBundleSet(5, &rule));
    EXPECT_TRUE(sameLines(engine(), {deleted(5, 6)})) << "what came before stays done";
    EXPECT_TRUE(exists(5, 2));
    EXPECT_FALSE(exists(5, 1));
}

TEST_F(RuleBundleTest, TheAddressRuleIsRemovedBeforeTheEtherTypeComes) {
    ASSERT_EQ(talResOk, set(5, rules::some(7)));
    platform.forget();
    EXPECT_EQ(talResOk, bundle(5, rules::value(1, rules::arp)));
    EXPECT_TRUE(sameLines(engine(), {deleted(5, 7), added(5, 1)}));
}

TEST_F(RuleBundleTest, TheEtherTypeIsRemovedAfterTheAddressRuleWasRefused) {
    ASSERT_EQ(talResOk, set(5, rules::value(1, rules::arp)));
    platform.forget();
    EXPECT_EQ(talResRuleInvalid, bundle(5, rules::some(7)));
    EXPECT_TRUE(engine().empty());
    EXPECT_EQ(talResOk, bundle(5, rules::some(2)));
    EXPECT_TRUE(sameLines(engine(), {deleted(5, 1), added(5, 2)}));
}

TEST_F(RuleBundleTest, FirstFailureEndsTheBundleAndLeavesTheRest) {
    for (unsigned failing = 1; failing <= 10; ++failing) {
        ASSERT_EQ(talResOk, bundle(5, rules::blank(-1)));
        platform.forget();
        platform.answers.clear();
        platform.answers.nth("ittalConditionAdd", failing);
        talRule rule = everyRule();
        EXPECT_EQ(talResError, module.talRuleBundleSet(5, &rule));
        EXPECT_EQ(failing, platform.count("ittalConditionAdd"));
        for (unsigned i = 0; i < 10; ++i) {
            EXPECT_EQ(i + 1 < failing, exists(5, order[i])) << failing << " " << i;
        }
        // Patterns behind the failure keep their data.
        for (unsigned i = 6; i < 9; ++i) {
            const int type = order[i];
            EXPECT_EQ(i < failing, rules::slot(rule, type) != rules::slot(everyRule(), type))
                << failing << " " << i;
        }
        platform.answers.clear();
    }
}

TEST_F(RuleBundleTest, FirstRefusedDeleteEndsTheBundle) {
    for (unsigned failing = 1; failing <= 10; ++failing) {
        fill(5);
        platform.forget();
        platform.answers.clear();
        platform.answers.nth("ittalConditionDel", failing);
        EXPECT_EQ(talResError, bundle(5, rules::blank(-1)));
        EXPECT_EQ(failing, platform.count("ittalConditionDel"));
        for (unsigned i = 0; i < 10; ++i) {
            EXPECT_EQ(i + 1 >= failing, exists(5, order[i])) << failing << " " << i;
        }
        platform.answers.clear();
    }
}

TEST_F(RuleBundleTest, EveryInterfaceGetsTheBundleTypeByType) {
    EXPECT_EQ(talResOk, bundle(0, everyRule()));
    std::vector<std::string> expected;
    for (const int type : order) {
        expected.push_back(added(1, type));
        expected.push_back(added(5, type));
    }
    EXPECT_TRUE(sameLines(engine(), expected));
}

TEST_F(RuleBundleTest, BundleForEveryInterfaceStopsAfterTheTypeThatFailedSomewhere) {
    platform.answers.nthForIntf("ittalConditionAdd", 0, 2);  // selector "0": interface 1
    EXPECT_EQ(talResError, bundle(0, everyRule()));
    EXPECT_TRUE(sameLines(engine(), {added(1, 0), added(5, 0), added(1, 6) + " = 1", added(5, 6)}));
}

TEST_F(RuleBundleTest, BundleHoldsTheExclusiveLockThroughout) {
    EXPECT_EQ(talResOk, bundle(5, everyRule()));
    const std::vector<std::string> locks = platform.calls({Service::lock});
    EXPECT_EQ("exclusiveLock()", locks.front());
    EXPECT_EQ("exclusiveUnlock()", locks.back());
    for (const fake::Call& call : platform.find("ittalConditionAdd")) {
        EXPECT_GE(call.exclusiveHeld, 1);
    }
}

TEST_F(RuleBundleTest, DefaultsOfAnInterfaceRemoveItsRulesAsAnUnsetBundleDoes) {
    fill(5);
    platform.forget();
    EXPECT_EQ(0u, module.talIntfDefaultSet(5));
    std::vector<std::string> deletions;
    for (const std::string& line : engine()) {
        if (line.find("ittalConditionDel") == 0) {
            deletions.push_back(line);
        }
    }
    EXPECT_TRUE(sameLines(deletions, deletedInOrder(5)));
    EXPECT_TRUE(module.talRuleEmpty(5));
}

TEST_F(RuleBundleTest, RefusedDeleteFailsTheDefaults) {
    fill(5);
    platform.answers.nth("ittalConditionDel", 4);
    EXPECT_EQ(1u, module.talIntfDefaultSet(5));
}

TEST_F(RuleBundleTest, StartPutsNoRuleIntoTheEngineASecondTime) {
    fill(5);
    platform.forget();
    ASSERT_TRUE(module.start());
    EXPECT_EQ(0u, platform.count("ittalConditionAdd"));
    EXPECT_EQ(0u, platform.count("ittalConditionDel"));
    EXPECT_EQ(std::vector<int>(), rules::differing(rules::blank(-1), get(5)));
}

TEST_F(RuleBundleTest, BundlePurgesStoredLoginsWithItsFirstChange) {
    switchOn(5);
    storeLogin(5);
    EXPECT_EQ(talResOk, bundle(5, rules::blank(-1)));
    EXPECT_TRUE(loginStored(5));
    EXPECT_EQ(talResOk, bundle(5, rules::some(9)));
    EXPECT_FALSE(loginStored(5));
}

}  // namespace
