// Rule changes for every interface at once, and what interface number 0 is on its own.
#include "tests/unit/rule_table_fixture.h"

namespace {

using fake::sameLines;
using fake::Service;

const std::string zeroName = "4294967295";  // of the entry under key 0

class RuleTableAllTest : public RuleTableFixture {
protected:
    talResultCode setAll(talRule rule, talOperation op = rules::add) {
        return module.talRuleIntfAllSet(0, &rule, op);
    }
};

TEST_F(RuleTableAllTest, EmptyTableSucceeds) {
    EXPECT_EQ(talResOk, set(0, rules::some(6)));
    EXPECT_EQ(talResOk, remove(0, 6));
    EXPECT_EQ(talResOk, setAll(rules::some(6)));
    EXPECT_EQ(talResOk, bundle(0, rules::some(6)));
    EXPECT_EQ(talResOk, set(0, rules::blank(10))) << "no interface, nobody to refuse the type";
    EXPECT_TRUE(engine().empty());
}

TEST_F(RuleTableAllTest, EveryInterfaceIsVisitedInAscendingOrder) {
    startWith({42, 5, 100, 1});
    platform.forget();
    EXPECT_EQ(talResOk, set(0, rules::some(6)));
    EXPECT_TRUE(sameLines(engine(), {added(1, 6), added(5, 6), added(42, 6), added(100, 6)}));
    platform.forget();
    EXPECT_EQ(talResOk, remove(0, 6));
    EXPECT_TRUE(
        sameLines(engine(), {deleted(1, 6), deleted(5, 6), deleted(42, 6), deleted(100, 6)}));
}

TEST_F(RuleTableAllTest, TheInterfaceNumberOfAllSetIsIgnored) {
    startWith({1, 5});
    talRule rule = rules::some(6);
    for (const unsigned intf : {0u, 5u, 999u}) {
        platform.forget();
        EXPECT_EQ(talResOk, module.talRuleIntfAllSet(intf, &rule, rules::add));
        EXPECT_TRUE(sameLines(engine(), {added(1, 6), added(5, 6)}));
        EXPECT_EQ(talResOk, remove(0, 6));
    }
}

TEST_F(RuleTableAllTest, EachInterfaceGetsWhatItNeeds) {
    startWith({1, 5, 42});
    ASSERT_EQ(talResOk, set(1, rules::some(6)));
    ASSERT_EQ(talResOk, set(5, rules::other(6)));
    platform.forget();
    EXPECT_EQ(talResOk, set(0, rules::some(6)));
    EXPECT_TRUE(sameLines(engine(), {deleted(5, 6), added(5, 6), added(42, 6)}));
}

TEST_F(RuleTableAllTest, FailureOfOneInterfaceDoesNotStopTheOthers) {
    startWith({1, 5, 42});
    for (const unsigned failing : {1u, 2u, 3u}) {
        platform.forget();
        platform.answers.clear();
        platform.answers.nth("ittalConditionAdd", failing);
        EXPECT_EQ(talResError, set(0, rules::some(6)));
        EXPECT_EQ(3u, platform.count("ittalConditionAdd"));
        EXPECT_EQ(failing != 1, exists(1, 6));
        EXPECT_EQ(failing != 2, exists(5, 6));
        EXPECT_EQ(failing != 3, exists(42, 6));
        ASSERT_EQ(talResOk, remove(0, 6));
    }
}

TEST_F(RuleTableAllTest, IncompatibilityOnOneInterfaceReadsAsPlainFailure) {
    startWith({1, 5, 42});
    ASSERT_EQ(talResOk, set(42, rules::value(1, rules::arp)));
    EXPECT_EQ(talResError, set(0, rules::some(7)));
    EXPECT_TRUE(exists(1, 7));
    EXPECT_TRUE(exists(5, 7));
    EXPECT_FALSE(exists(42, 7));
}

TEST_F(RuleTableAllTest, RefusedLockOfOneInterfaceDoesNotStopTheOthers) {
    startWith({1, 5, 42});
    platform.forget();
    // Whole, all, one, entry: the third lock is that of interface 1.
    platform.answers.nth("exclusiveLock", 3);
    EXPECT_EQ(talResError, set(0, rules::some(6)));
    EXPECT_TRUE(
        sameLines(platform.texts(), {"log 1: Error obtaining exclusive lock in tal::talRuleSet."}));
    EXPECT_TRUE(sameLines(engine(), {added(5, 6), added(42, 6)}));
}

TEST_F(RuleTableAllTest, OneLockCoversTheWholeWalk) {
    startWith({1, 5});
    platform.forget();
    EXPECT_EQ(talResOk, set(0, rules::some(6)));
    const std::vector<std::string> locks = platform.calls({Service::lock});
    EXPECT_EQ("exclusiveLock()", locks.front());
    EXPECT_EQ("exclusiveUnlock()", locks.back());
    int depth = 0;
    for (size_t i = 0; i + 1 < locks.size(); ++i) {
        depth += locks[i].find("Unlock") == std::string::npos ? 1 : -1;
        EXPECT_GT(depth, 0);
    }
}

TEST_F(RuleTableAllTest, ReadingInterfaceZeroMakesAnAllZeroEntry) {
    startWith({5});
    talRule out = rules::some(6);
    EXPECT_EQ(talResOk, module.talRuleGet(0, &out));
    talRule zero;
    memset(static_cast<void*>(&zero), 0, sizeof(zero));
    EXPECT_EQ(std::vector<int>(), rules::differing(zero, out));
    platform.forget();
    EXPECT_EQ(talResOk, set(0, rules::some(6)));
    EXPECT_TRUE(
        sameLines(engine(), {"ittalConditionAdd(\"" + zeroName + "\", 6, 3)", added(5, 6)}));
}

TEST_F(RuleTableAllTest, KeepsTheEntryUnderKeyZeroAsOneMoreInterface) {
    startWith({5});
    uint32_t timeout = 0;
    ASSERT_EQ(talResOk, module.talIntfTimeoutGet(0, &timeout));
    // All zero means: values, EtherType, flag and pattern formats count as set.
    for (const int type : {0, 1, 2, 3, 4, 5, 8}) {
        EXPECT_TRUE(exists(0, type)) << type;
    }
    for (const int type : {6, 7, 9}) {
        EXPECT_FALSE(exists(0, type)) << type;
    }
    platform.forget();
    EXPECT_EQ(talResOk, set(0, rules::value(8, 0)));
    EXPECT_TRUE(sameLines(engine(), {added(5, 8)})) << "unchanged on 0, new on 5";
    platform.forget();
    EXPECT_EQ(talResOk, set(0, rules::value(8, 9)));
    EXPECT_TRUE(sameLines(
        engine(), {"ittalConditionDel(\"" + zeroName + "\", 8)",
                   "ittalConditionAdd(\"" + zeroName + "\", 8, 6)", deleted(5, 8), added(5, 8)}));
    platform.forget();
    EXPECT_EQ(talResError, set(0, rules::some(7))) << "EtherType 0 stands on 0";
    EXPECT_TRUE(sameLines(engine(), {added(5, 7)}));
}

TEST_F(RuleTableAllTest, SettingEveryInterfaceMakesNoEntryUnderKeyZero) {
    startWith({5});
    for (int round = 0; round < 2; ++round) {
        platform.forget();
        EXPECT_EQ(talResOk, set(0, rules::some(6)));
        EXPECT_EQ(talResOk, remove(0, 6));
        EXPECT_TRUE(sameLines(engine(), {added(5, 6), deleted(5, 6)}));
    }
}

}  // namespace
