// The rules of single interfaces: read, tested, compared, added, modified, deleted.
#include "tests/unit/rule_table_fixture.h"

#include <limits.h>

namespace {

using fake::sameLines;
using fake::Service;

class RuleTableTest : public RuleTableFixture {
protected:
    void SetUp() override {
        startWith({1, 5, 42});
        platform.forget();
    }
};

std::string lockText(const std::string& name) {
    return "log 1: Error obtaining exclusive lock in tal::" + name + ".";
}

// ---- reading

TEST_F(RuleTableTest, GetCopiesEverySlotAndLeavesTheTypeAlone) {
    fill(5);
    talRule out;
    memset(static_cast<void*>(&out), 0x33, sizeof(out));
    out.type = static_cast<talRuleType>(77);
    EXPECT_EQ(talResOk, module.talRuleGet(5, &out));
    for (const int type : rules::types) {
        EXPECT_EQ(rules::slot(rules::some(type), type), rules::slot(out, type)) << type;
    }
    EXPECT_EQ(77, static_cast<int>(out.type));
}

TEST_F(RuleTableTest, FreshInterfaceHoldsTheUnsetRule) {
    EXPECT_EQ(std::vector<int>(), rules::differing(rules::blank(-1), get(5)));
    EXPECT_TRUE(module.talRuleEmpty(5));
}

TEST_F(RuleTableTest, GetAnswersOneForNullBeforeThreeForAnUnknownInterface) {
    EXPECT_EQ(talResError, module.talRuleGet(5, nullptr));
    EXPECT_EQ(talResError, module.talRuleGet(6, nullptr));
    talRule out = rules::blank(-1);
    EXPECT_EQ(talResIntfInvalid, module.talRuleGet(6, &out));
    EXPECT_EQ(std::vector<int>(), rules::differing(rules::blank(-1), out));
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(RuleTableTest, ReadersHoldOnlyTheSharedLock) {
    talRule rule = rules::blank(3);
    const std::vector<std::pair<const char*, std::function<void()>>> readers = {
        {"talRuleGet", [&] { module.talRuleGet(5, &rule); }},
        {"talRuleExists", [&] { module.talRuleExists(5, &rule); }},
        {"talRuleExistsByType", [&] { exists(5, 3); }},
        {"talRuleEmpty", [&] { module.talRuleEmpty(5); }},
    };
    for (const auto& [name, read] : readers) {
        SCOPED_TRACE(name);
        platform.forget();
        read();
        const std::vector<std::string> locks = platform.calls({Service::lock});
        ASSERT_FALSE(locks.empty());
        EXPECT_EQ("sharedLock()", locks.front());
        EXPECT_EQ("sharedUnlock()", locks.back());
        EXPECT_EQ(0u, platform.count("exclusiveLock"));
    }
}

TEST_F(RuleTableTest, ExistsReadsOnlyTheTypeOfTheRule) {
    ASSERT_EQ(talResOk, set(5, rules::some(7)));
    talRule asked = rules::blank(7);
    EXPECT_TRUE(module.talRuleExists(5, &asked));
    asked = rules::some(8);
    EXPECT_FALSE(module.talRuleExists(5, &asked));
    EXPECT_FALSE(module.talRuleExists(1, &asked));
}

TEST_F(RuleTableTest, NothingExistsForNullUnknownInterfacesAndUnknownTypes) {
    fill(5);
    EXPECT_FALSE(module.talRuleExists(5, nullptr));
    for (const int type : rules::types) {
        talRule asked = rules::blank(type);
        EXPECT_FALSE(module.talRuleExists(6, &asked));
        EXPECT_FALSE(exists(6, type));
    }
    for (const int type : {10, -1, INT_MAX, INT_MIN, 256}) {
        talRule asked = rules::some(0);
        asked.type = static_cast<talRuleType>(type);
        EXPECT_FALSE(module.talRuleExists(5, &asked)) << type;
        EXPECT_FALSE(exists(5, type)) << type;
    }
}

TEST_F(RuleTableTest, EmptyUntilOneTypeExists) {
    for (const int type : rules::types) {
        EXPECT_TRUE(module.talRuleEmpty(5));
        ASSERT_EQ(talResOk, set(5, rules::some(type)));
        EXPECT_FALSE(module.talRuleEmpty(5)) << type;
        EXPECT_TRUE(module.talRuleEmpty(1));
        ASSERT_EQ(talResOk, remove(5, type));
    }
}

// ---- comparing

TEST_F(RuleTableTest, NothingIsModifiedThatIsNullUnknownOrNotThere) {
    EXPECT_FALSE(module.talIsRuleModified(5, nullptr));
    for (const int type : rules::types) {
        talRule rule = rules::some(type);
        EXPECT_FALSE(module.talIsRuleModified(6, &rule)) << type;
        EXPECT_FALSE(module.talIsRuleModified(5, &rule)) << type;
    }
    fill(5);
    for (const int type : {10, -1}) {
        talRule rule = rules::blank(type);
        EXPECT_FALSE(module.talIsRuleModified(5, &rule)) << type;
    }
}

TEST_F(RuleTableTest, TheStoredRuleItselfIsNotModified) {
    fill(5);
    for (const int type : rules::types) {
        talRule rule = rules::some(type);
        EXPECT_FALSE(module.talIsRuleModified(5, &rule)) << type;
    }
}

TEST_F(RuleTableTest, EveryBitOfTheSlotCounts) {
    fill(5);
    const size_t offsets[] = {0, 24, 32, 40, 304, 568, 4, 16, 28, 828};
    const size_t sizes[] = {0, 4, 4, 256, 256, 256, 12, 8, 4, 256};
    for (const int type : rules::types) {
        for (size_t i = 0; i < sizes[type]; ++i) {
            for (unsigned bit = 0; bit < 8; ++bit) {
                talRule rule = rules::some(type);
                reinterpret_cast<unsigned char*>(&rule)[offsets[type] + i] ^=
                    static_cast<unsigned char>(1u << bit);
                ASSERT_TRUE(module.talIsRuleModified(5, &rule)) << type << " " << i << " " << bit;
            }
        }
    }
}

TEST_F(RuleTableTest, OtherSlotsDoNotCount) {
    fill(5);
    for (const int type : rules::types) {
        talRule rule;
        memset(static_cast<void*>(&rule), 0x5C, sizeof(rule));
        rules::copySlot(rules::some(type), rule, type);
        rule.type = static_cast<talRuleType>(type);
        EXPECT_FALSE(module.talIsRuleModified(5, &rule)) << type;
    }
}

TEST_F(RuleTableTest, PatternFormatCountsAndLengthOnlyForTheCallersRawFormat) {
    for (const int type : {3, 4, 5}) {
        ASSERT_EQ(talResOk, set(5, rules::pattern(type, rules::text, "abcdef", 1)));
        talRule rule = rules::pattern(type, rules::text, "abcdef", 2);
        EXPECT_FALSE(module.talIsRuleModified(5, &rule)) << "the length of a text";
        rule = rules::pattern(type, rules::mac, "abcdef", 1);
        EXPECT_TRUE(module.talIsRuleModified(5, &rule));
        rule = rules::pattern(type, rules::raw, "abcdef", 1);
        EXPECT_TRUE(module.talIsRuleModified(5, &rule));
        rule = rules::pattern(type, rules::unset, "abcdef", 1);
        EXPECT_TRUE(module.talIsRuleModified(5, &rule));

        ASSERT_EQ(talResOk, set(5, rules::pattern(type, rules::mac, "abcdef", 1)));
        rule = rules::pattern(type, rules::mac, "abcdef", 2);
        EXPECT_FALSE(module.talIsRuleModified(5, &rule)) << "the length of a MAC address";

        ASSERT_EQ(talResOk, set(5, rules::pattern(type, rules::raw, "abcdef", 1)));
        rule = rules::pattern(type, rules::raw, "abcdef", 2);
        EXPECT_TRUE(module.talIsRuleModified(5, &rule)) << "the length of raw bytes";
        rule = rules::pattern(type, rules::raw, "abcdef", 1);
        EXPECT_FALSE(module.talIsRuleModified(5, &rule));
    }
}

TEST_F(RuleTableTest, KeepsTypeZeroUnmodifiedWhateverItsValue) {
    ASSERT_EQ(talResOk, set(5, rules::value(0, 7)));
    platform.forget();
    talRule rule = rules::value(0, 8);
    EXPECT_FALSE(module.talIsRuleModified(5, &rule));
    EXPECT_EQ(talResOk, set(5, rule));
    EXPECT_TRUE(engine().empty());
    EXPECT_EQ(8u, get(5).type0Value) << "the value is stored all the same";
}

// ---- one rule in the engine

TEST_F(RuleTableTest, EntrySetAnswersOneForNullBeforeThreeForAnUnknownInterface) {
    talRule rule = rules::some(6);
    EXPECT_EQ(talResError, module.talRuleEntrySet(5, nullptr, rules::add));
    EXPECT_EQ(talResError, module.talRuleEntrySet(6, nullptr, rules::remove));
    EXPECT_EQ(talResIntfInvalid, module.talRuleEntrySet(6, &rule, rules::add));
    EXPECT_TRUE(engine().empty());
}

TEST_F(RuleTableTest, EntrySetChangesTheEngineAndNotTheTable) {
    for (const int type : rules::types) {
        talRule rule = rules::some(type);
        platform.forget();
        EXPECT_EQ(talResOk, module.talRuleEntrySet(5, &rule, rules::add));
        EXPECT_TRUE(sameLines(engine(), {added(5, type)}));
        EXPECT_FALSE(exists(5, type));
    }
}

TEST_F(RuleTableTest, EntrySetLooksAtNoCompatibility) {
    ASSERT_EQ(talResOk, set(5, rules::some(7)));
    talRule rule = rules::value(1, rules::arp);
    EXPECT_EQ(talResOk, module.talRuleEntrySet(5, &rule, rules::add));
}

TEST_F(RuleTableTest, NewRuleAddsOneCondition) {
    for (const int type : rules::types) {
        platform.forget();
        EXPECT_EQ(talResOk, set(5, rules::some(type)));
        EXPECT_TRUE(sameLines(engine(), {added(5, type)}));
        EXPECT_EQ(rules::slot(rules::some(type), type), rules::slot(get(5), type));
    }
    EXPECT_EQ(std::vector<int>(), rules::differing(rules::blank(-1), get(1)));
    EXPECT_EQ(std::vector<int>(), rules::differing(rules::blank(-1), get(42)));
}

TEST_F(RuleTableTest, SameRuleTwiceCallsNoEngineAndPurgesNothing) {
    switchOn(5);
    fill(5);
    storeLogin(5);
    platform.forget();
    fill(5);
    EXPECT_TRUE(engine().empty());
    EXPECT_TRUE(loginStored(5));
}

TEST_F(RuleTableTest, ModifiedRuleIsDeletedAndAddedAgain) {
    fill(5);
    for (const int type : {2, 3, 4, 5, 6, 7, 8, 9}) {
        platform.forget();
        EXPECT_EQ(talResOk, set(5, rules::other(type)));
        EXPECT_TRUE(sameLines(engine(), {deleted(5, type), added(5, type)}));
        EXPECT_EQ(rules::slot(rules::other(type), type), rules::slot(get(5), type));
    }
    ASSERT_EQ(talResOk, set(1, rules::value(1, rules::arp)));
    platform.forget();
    EXPECT_EQ(talResOk, set(1, rules::value(1, 0x86DD)));
    EXPECT_TRUE(sameLines(engine(), {deleted(1, 1), added(1, 1)}));
}

TEST_F(RuleTableTest, DeletedRuleLosesItsCondition) {
    fill(5);
    for (const int type : rules::types) {
        platform.forget();
        EXPECT_EQ(talResOk, remove(5, type));
        EXPECT_TRUE(sameLines(engine(), {deleted(5, type)}));
        EXPECT_FALSE(exists(5, type));
        EXPECT_EQ(rules::slot(rules::blank(-1), type), rules::slot(get(5), type));
    }
}

TEST_F(RuleTableTest, MissingRuleIsDeletedWithoutTheEngine) {
    for (const int type : rules::types) {
        EXPECT_EQ(talResOk, remove(5, type));
    }
    EXPECT_TRUE(engine().empty());
}

TEST_F(RuleTableTest, EveryOperationButZeroDeletes) {
    for (const uint32_t op : {1u, 2u, 0x100u, 0x10000u, 0x80000000u, 0xFFFFFFFFu}) {
        ASSERT_EQ(talResOk, set(5, rules::some(6)));
        platform.forget();
        EXPECT_EQ(talResOk, set(5, rules::blank(6), static_cast<talOperation>(op)));
        EXPECT_TRUE(sameLines(engine(), {deleted(5, 6)})) << op;
    }
}

TEST_F(RuleTableTest, KeepsTheCallersSlotOnADelete) {
    for (const int type : {0, 2, 3, 4, 5, 6, 7, 8, 9}) {
        ASSERT_EQ(talResOk, set(5, rules::some(type)));
        platform.forget();
        EXPECT_EQ(talResOk, set(5, rules::other(type), rules::remove));
        EXPECT_TRUE(sameLines(engine(), {deleted(5, type)}));
        EXPECT_TRUE(exists(5, type)) << "stands in the table, no longer in the engine";
        EXPECT_EQ(rules::slot(rules::other(type), type), rules::slot(get(5), type));
    }
}

TEST_F(RuleTableTest, KeepsTheCallersSlotOnADeleteOfAMissingRule) {
    EXPECT_EQ(talResOk, set(5, rules::some(6), rules::remove));
    EXPECT_TRUE(engine().empty());
    EXPECT_TRUE(exists(5, 6));
}

TEST_F(RuleTableTest, ChangeWritesOnlyTheSlotOfItsType) {
    fill(5);
    for (const int type : rules::types) {
        const talRule before = get(5);
        talRule rule;
        memset(static_cast<void*>(&rule), 0x61, sizeof(rule));
        rule.ethType = rules::ipv4;
        rule.type = static_cast<talRuleType>(type);
        EXPECT_EQ(talResOk, set(5, rule));
        for (const int changed : rules::differing(before, get(5))) {
            EXPECT_EQ(type, changed);
        }
        EXPECT_EQ(rules::slot(rule, type), rules::slot(get(5), type));
    }
}

TEST_F(RuleTableTest, HalfAPairIsStoredAndStaysNewForEver) {
    const talRule half = rules::ip(0x0A000001, 0);
    for (int i = 0; i < 2; ++i) {
        platform.forget();
        EXPECT_EQ(talResOk, set(5, half));
        EXPECT_TRUE(sameLines(engine(), {added(5, 7)}));
        EXPECT_FALSE(exists(5, 7));
        EXPECT_EQ(0x0A000001u, get(5).ipValue);
    }
}

TEST_F(RuleTableTest, IncompatibleRuleIsRefusedBeforeAnyChange) {
    ASSERT_EQ(talResOk, set(5, rules::value(1, rules::arp)));
    platform.forget();
    for (const int type : {2, 3, 4, 5, 7}) {
        EXPECT_EQ(talResRuleInvalid, set(5, rules::some(type)));
        talRule rule = rules::some(type);
        EXPECT_EQ(talResRuleInvalid, module.talRuleIntfSet(5, &rule, rules::add));
        EXPECT_FALSE(exists(5, type));
    }
    EXPECT_TRUE(engine().empty());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(RuleTableTest, DeleteAsksForNoCompatibility) {
    ASSERT_EQ(talResOk, set(5, rules::value(1, rules::arp)));
    for (const int type : {2, 3, 4, 5, 7}) {
        EXPECT_EQ(talResOk, remove(5, type)) << type;
    }
    ASSERT_EQ(talResOk, set(1, rules::some(7)));
    EXPECT_EQ(talResOk, set(1, rules::value(1, rules::arp), rules::remove));
}

TEST_F(RuleTableTest, UnknownInterfaceIsThreeForEverySetter) {
    talRule rule = rules::some(6);
    for (const unsigned intf : {2u, 43u, 0xFFFFFFFFu}) {
        for (const talOperation op : {rules::add, rules::remove}) {
            EXPECT_EQ(talResIntfInvalid, module.talRuleSet(intf, &rule, op));
            EXPECT_EQ(talResIntfInvalid, module.talRuleIntfSet(intf, &rule, op));
            EXPECT_EQ(talResIntfInvalid, module.talRuleEntrySet(intf, &rule, op));
        }
    }
    EXPECT_TRUE(engine().empty());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(RuleTableTest, NullRuleIsOneForEverySetter) {
    for (const talOperation op : {rules::add, rules::remove}) {
        EXPECT_EQ(talResError, module.talRuleSet(5, nullptr, op));
        EXPECT_EQ(talResError, module.talRuleSet(0, nullptr, op));
        EXPECT_EQ(talResError, module.talRuleIntfSet(5, nullptr, op));
        EXPECT_EQ(talResError, module.talRuleIntfAllSet(5, nullptr, op));
    }
    EXPECT_TRUE(engine().empty());
}

TEST_F(RuleTableTest, EngineIsCalledUnderTheExclusiveLock) {
    fill(5);
    ASSERT_EQ(talResOk, set(5, rules::other(6)));
    for (const char* name : {"ittalConditionAdd", "ittalConditionDel"}) {
        ASSERT_NE(0u, platform.count(name));
        for (const fake::Call& call : platform.find(name)) {
            EXPECT_GE(call.exclusiveHeld, 1) << call.text;
        }
    }
}

// ---- refusals

TEST_F(RuleTableTest, RefusedAddLeavesTheTable) {
    platform.answers.always("ittalConditionAdd", -5);
    for (const int type : rules::types) {
        EXPECT_EQ(talResError, set(5, rules::some(type))) << type;
    }
    EXPECT_EQ(std::vector<int>(), rules::differing(rules::blank(-1), get(5)));
    EXPECT_TRUE(platform.texts().empty()) << "the engine's refusal is reported by result only";
}

TEST_F(RuleTableTest, RefusedDeleteOfAModifiedRuleStopsBeforeTheAdd) {
    fill(5);
    platform.answers.always("ittalConditionDel");
    for (const int type : {2, 3, 4, 5, 6, 7, 8, 9}) {
        platform.forget();
        EXPECT_EQ(talResError, set(5, rules::other(type)));
        EXPECT_TRUE(sameLines(engine(), {deleted(5, type) + " = 1"}));
        EXPECT_EQ(rules::slot(rules::some(type), type), rules::slot(get(5), type));
    }
}

TEST_F(RuleTableTest, RefusedAddOfAModifiedRuleLeavesTheOldRuleInTheTable) {
    fill(5);
    platform.answers.always("ittalConditionAdd", 2);
    for (const int type : {2, 3, 4, 5, 6, 7, 8, 9}) {
        platform.forget();
        EXPECT_EQ(talResError, set(5, rules::other(type)));
        EXPECT_TRUE(sameLines(engine(), {deleted(5, type), added(5, type) + " = 2"}));
        EXPECT_EQ(rules::slot(rules::some(type), type), rules::slot(get(5), type));
    }
}

TEST_F(RuleTableTest, RefusedDeleteLeavesTheTable) {
    fill(5);
    platform.answers.always("ittalConditionDel", INT_MIN);
    for (const int type : rules::types) {
        EXPECT_EQ(talResError, remove(5, type));
        EXPECT_TRUE(exists(5, type));
    }
}

TEST_F(RuleTableTest, EveryRefusedFirstLockIsNamedAndAnsweredByFailure) {
    talRule rule = rules::some(6);
    struct Operation {
        const char* lock;
        const char* name;
        unsigned result;
        std::function<unsigned()> run;
    };
    const Operation operations[] = {
        {"sharedLock", "talRuleGet", 1, [&] { return module.talRuleGet(5, &rule); }},
        {"sharedLock", "talRuleExists", 0, [&] { return module.talRuleExists(5, &rule); }},
        {"sharedLock", "talRuleExistsByType", 0, [&] { return exists(5, 6); }},
        {"sharedLock", "talRuleEmpty", 0, [&] { return module.talRuleEmpty(1); }},
        {"exclusiveLock", "talRuleEntrySet", 1,
         [&] { return module.talRuleEntrySet(5, &rule, rules::add); }},
        {"exclusiveLock", "talRuleSet", 1,  // not a slip: the name it has always reported
         [&] { return module.talRuleIntfSet(5, &rule, rules::add); }},
        {"exclusiveLock", "talRuleIntfAllSet", 1,
         [&] { return module.talRuleIntfAllSet(0, &rule, rules::add); }},
        {"exclusiveLock", "talRuleSet", 1, [&] { return module.talRuleSet(5, &rule, rules::add); }},
        {"exclusiveLock", "talRuleBundleSet", 1, [&] { return module.talRuleBundleSet(5, &rule); }},
    };
    ASSERT_EQ(talResOk, set(5, rule));
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.name);
        platform.forget();
        platform.answers.clear();
        platform.answers.always(operation.lock);
        EXPECT_EQ(operation.result, operation.run());
        EXPECT_TRUE(sameLines(platform.texts(), {lockText(operation.name)}));
        EXPECT_EQ(1u, platform.count(operation.lock)) << "nothing is tried behind a refused lock";
        EXPECT_TRUE(platform.calls().empty());
    }
}

TEST_F(RuleTableTest, LockRefusedFurtherInEndsTheChange) {
    const char* names[] = {"talRuleSet", "talRuleSet", "talRuleEntrySet"};
    for (unsigned n = 1; n <= 3; ++n) {
        platform.forget();
        platform.answers.clear();
        platform.answers.nth("exclusiveLock", n);
        EXPECT_EQ(talResError, set(5, rules::some(6)));
        EXPECT_TRUE(sameLines(platform.texts(), {lockText(names[n - 1])}));
        EXPECT_TRUE(engine().empty());
        EXPECT_TRUE(module.talRuleEmpty(5));
    }
    platform.answers.clear();
    platform.answers.nth("exclusiveLock", 2);
    platform.forget();
    EXPECT_EQ(talResError, set(0, rules::some(6)));
    EXPECT_TRUE(sameLines(platform.texts(), {lockText("talRuleIntfAllSet")}));
}

TEST_F(RuleTableTest, RefusedLockOfTheInterfaceCheckReadsAsUnknownInterface) {
    talRule rule = rules::blank(6);
    platform.answers.nth("sharedLock", 2);
    EXPECT_EQ(talResIntfInvalid, module.talRuleGet(5, &rule));
    EXPECT_EQ(std::vector<int>(), rules::differing(rules::blank(6), rule));
    platform.answers.clear();
    platform.answers.nth("sharedLock", 1);
    rule = rules::some(6);
    EXPECT_EQ(talResIntfInvalid, module.talRuleEntrySet(5, &rule, rules::add));
    EXPECT_TRUE(
        sameLines(platform.texts(), {lockText("talIsValidIntf"), lockText("talIsValidIntf")}));
    EXPECT_TRUE(engine().empty());
}

// The rule's own check then takes the interface for unknown, but this one has found it.
TEST_F(RuleTableTest, InterfaceThatGoesUnknownWhileTheRuleIsCheckedIsOne) {
    talRule rule = rules::some(6);
    platform.answers.nth("sharedLock", 2);
    EXPECT_EQ(talResError, module.talRuleIntfSet(5, &rule, rules::add));
    EXPECT_TRUE(sameLines(platform.texts(), {lockText("talIsValidIntf")}));
    EXPECT_TRUE(engine().empty());
    EXPECT_TRUE(module.talRuleEmpty(5));
}

TEST_F(RuleTableTest, EveryRefusedCallLeavesOldOrNewAndSaysSo) {
    for (const bool deleting : {false, true}) {
        talResultCode result = talResOk;
        const unsigned runs = fake::sweepFaults(
            platform,
            [&] {
                switchOn(5);
                ASSERT_EQ(talResOk, remove(5, 3));
                ASSERT_EQ(talResOk, set(5, rules::some(3)));
                storeLogin(5);
            },
            [&] { result = deleting ? remove(5, 3) : set(5, rules::other(3)); },
            [&](const fake::FaultRun& run) {
                const std::string before = rules::slot(rules::some(3), 3);
                const std::string after =
                    rules::slot(deleting ? rules::blank(3) : rules::other(3), 3);
                EXPECT_EQ(result == talResOk ? after : before, rules::slot(get(5), 3));
                if (!run.faulted) {
                    EXPECT_EQ(talResOk, result);
                    EXPECT_TRUE(platform.texts().empty());
                    EXPECT_FALSE(loginStored(5));
                } else if (run.refused.service == Service::engine) {
                    EXPECT_EQ(talResError, result);
                    EXPECT_TRUE(platform.texts().empty());
                    EXPECT_TRUE(loginStored(5));
                } else {
                    EXPECT_FALSE(platform.texts().empty()) << "a refused lock is never silent";
                }
            });
        EXPECT_GT(runs, 8u);
    }
}

}  // namespace
