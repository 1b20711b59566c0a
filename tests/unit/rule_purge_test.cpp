// When a rule change takes the stored logins of its interface with it.
#include "tests/unit/rule_table_fixture.h"

namespace {

using fake::sameLines;

enum class Change { added, modified, deleted };

class RulePurgeTest : public RuleTableFixture {
protected:
    // Brings interface 5 to where the change can happen, with a login stored.
    void prepare(Change change) {
        remove(5, 6);
        if (change != Change::added) {
            ASSERT_EQ(talResOk, set(5, rules::some(6)));
        }
        storeLogin(1);
        storeLogin(5);
        platform.forget();
    }
    talResultCode make(Change change) {
        switch (change) {
            case Change::added:
                return set(5, rules::some(6));
            case Change::modified:
                return set(5, rules::other(6));
            case Change::deleted:
                break;
        }
        return remove(5, 6);
    }
    void adminStates(bool global, bool interface) {
        ASSERT_EQ(0u, module.talAdminStateSet(global));
        ASSERT_EQ(talResOk, module.talIntfAdminStateSet(5, interface));
    }
    // A start that fails at its last engine call: the table is filled, the start goes on.
    void startForEver() {
        for (const unsigned id : {1u, 5u}) {
            addInterface(id);
        }
        platform.answers.always("ittalRequestState");
        ASSERT_FALSE(module.start());
        platform.answers.clear();
    }

    static constexpr Change changes[] = {Change::added, Change::modified, Change::deleted};
    static constexpr const char* failure =
        "warning: talRuleEntrySet Error deleting TAL stored login data on interface 5.";
};

TEST_F(RulePurgeTest, ChangePurgesOnlyWithBothAdminStatesOn) {
    startWith({1, 5});
    for (const Change change : changes) {
        for (const bool global : {false, true}) {
            for (const bool interface : {false, true}) {
                SCOPED_TRACE(testing::Message() << int(change) << global << interface);
                adminStates(global, interface);
                prepare(change);
                EXPECT_EQ(talResOk, make(change));
                EXPECT_EQ(!(global && interface), loginStored(5));
                EXPECT_TRUE(loginStored(1)) << "another interface's login";
                EXPECT_TRUE(platform.texts().empty());
            }
        }
    }
}

TEST_F(RulePurgeTest, KeepsOnlyTheNewRuleFromPurgingWhileAConfigurationIsApplied) {
    startWith({1, 5});
    adminStates(true, true);
    for (const Change change : changes) {
        prepare(change);
        module.configurationApplyStart();
        EXPECT_EQ(talResOk, make(change));
        EXPECT_EQ(change == Change::added, loginStored(5)) << int(change);
        module.configurationApplyStop();
    }
    prepare(Change::added);
    EXPECT_EQ(talResOk, make(Change::added));
    EXPECT_FALSE(loginStored(5)) << "the configuration is applied";
}

// The comparison has found the rule; the second look at it is refused its lock.
TEST_F(RulePurgeTest, RuleFoundModifiedIsNotNewThoughItIsNotFoundAgain) {
    startWith({1, 5});
    adminStates(true, true);
    prepare(Change::modified);
    module.configurationApplyStart();
    talRule rule = rules::other(6);
    // One lock of the change's own check and three of the comparison come before.
    platform.answers.nth("sharedLock", 5);
    platform.forget();
    EXPECT_EQ(talResOk, module.talRuleEntrySet(5, &rule, rules::add));
    platform.answers.clear();
    EXPECT_TRUE(sameLines(platform.texts(),
                          {"log 1: Error obtaining exclusive lock in tal::talRuleExists."}));
    EXPECT_TRUE(sameLines(engine(), {deleted(5, 6), added(5, 6)}));
    EXPECT_FALSE(loginStored(5)) << "only a new rule spares it";
}

TEST_F(RulePurgeTest, NothingIsPurgedDuringTheStart) {
    startForEver();
    adminStates(true, true);
    for (const Change change : changes) {
        for (const bool applying : {false, true}) {
            prepare(change);
            if (applying) {
                module.configurationApplyStart();
            }
            EXPECT_EQ(talResOk, make(change));
            EXPECT_TRUE(loginStored(5)) << int(change);
            module.configurationApplyStop();
        }
    }
}

TEST_F(RulePurgeTest, ALaterStartThatSucceedsLetsRulesPurgeAgain) {
    startForEver();
    ASSERT_TRUE(module.start());
    adminStates(true, true);
    prepare(Change::modified);
    EXPECT_EQ(talResOk, make(Change::modified));
    EXPECT_FALSE(loginStored(5));
}

TEST_F(RulePurgeTest, RefusedChangePurgesNothing) {
    startWith({1, 5});
    adminStates(true, true);
    for (const Change change : changes) {
        prepare(change);
        platform.answers.always("ittalConditionAdd");
        platform.answers.always("ittalConditionDel");
        EXPECT_EQ(talResError, make(change));
        platform.answers.clear();
        EXPECT_TRUE(loginStored(5)) << int(change);
    }
    prepare(Change::modified);
    platform.answers.always("ittalConditionAdd");
    EXPECT_EQ(talResError, make(Change::modified));
    platform.answers.clear();
    EXPECT_TRUE(loginStored(5)) << "only the delete of the two calls was accepted";
}

TEST_F(RulePurgeTest, ChangeThatChangesNothingPurgesNothing) {
    startWith({1, 5});
    adminStates(true, true);
    ASSERT_EQ(talResOk, set(5, rules::value(0, 1)));
    prepare(Change::modified);
    EXPECT_EQ(talResOk, set(5, rules::some(6)));
    EXPECT_EQ(talResOk, remove(5, 9));
    EXPECT_EQ(talResOk, set(5, rules::value(0, 2)));
    EXPECT_TRUE(loginStored(5));
}

TEST_F(RulePurgeTest, EntrySetPurgesToo) {
    startWith({1, 5});
    adminStates(true, true);
    prepare(Change::added);
    talRule rule = rules::some(6);
    EXPECT_EQ(talResOk, module.talRuleEntrySet(5, &rule, rules::add));
    EXPECT_FALSE(loginStored(5));
}

TEST_F(RulePurgeTest, FailedPurgeIsLoggedAndTheRuleStands) {
    startWith({1, 5});
    adminStates(true, true);
    for (const Change change : changes) {
        std::filesystem::remove(talStorageFile);
        prepare(change);
        blockStorageFile();
        platform.forget();
        EXPECT_EQ(talResOk, make(change));
        EXPECT_TRUE(sameLines(platform.texts(), {failure}));
        EXPECT_EQ(change != Change::deleted, exists(5, 6));
    }
}

TEST_F(RulePurgeTest, FailedPurgeOfAnUnchangedRuleIsNotEvenTried) {
    startWith({1, 5});
    adminStates(true, true);
    ASSERT_EQ(talResOk, set(5, rules::some(6)));
    blockStorageFile();
    platform.forget();
    EXPECT_EQ(talResOk, set(5, rules::some(6)));
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(RulePurgeTest, InterfaceNumbersAreReportedAsSignedNumbers) {
    startWith({0xFFFFFFFF});
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(0xFFFFFFFF, true));
    blockStorageFile();
    platform.forget();
    EXPECT_EQ(talResOk, set(0xFFFFFFFF, rules::some(6)));
    EXPECT_TRUE(sameLines(engine(), {"ittalConditionAdd(\"4294967294\", 6, 3)"}));
    EXPECT_TRUE(sameLines(
        platform.texts(),
        {"warning: talRuleEntrySet Error deleting TAL stored login data on interface -1."}));
}

TEST_F(RulePurgeTest, AllInterfacesPurgeOneByOne) {
    startWith({1, 5, 7});
    adminStates(true, true);
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(7, true));
    ASSERT_EQ(talResOk, set(7, rules::some(6)));
    for (const unsigned intf : {1u, 5u, 7u}) {
        storeLogin(intf);
    }
    EXPECT_EQ(talResOk, set(0, rules::some(6)));
    EXPECT_TRUE(loginStored(1)) << "its admin state is off";
    EXPECT_FALSE(loginStored(5));
    EXPECT_TRUE(loginStored(7)) << "it had the rule already";
}

}  // namespace
