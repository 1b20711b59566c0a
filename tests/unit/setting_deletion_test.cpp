// What a change of a setting deletes: stored logins and dynamic profiles, and when.
#include "tests/fake/module_test.h"

#include <functional>
#include <string>
#include <vector>

using fake::sameLines;
using fake::Service;
using Lines = std::vector<std::string>;

namespace {

class SettingDeletionTest : public ModuleTest {
protected:
    Lines engineCalls() const { return platform.calls({Service::engine}); }
    Lines profileCalls() const {
        return platform.calls({Service::profiles, Service::acl, Service::ports});
    }
    std::string refusedLock(const std::string& operation) const {
        return "log 1: Error obtaining exclusive lock in tal::" + operation + ".";
    }
    void addRule(unsigned id) {
        talRule rule{};
        module.setTalRuleDefault(&rule);
        rule.type = talRuleTypeAny;
        rule.type0Value = 1;
        ASSERT_EQ(talResOk, module.talRuleSet(id, &rule, talOperationAdd));
    }

    // Interfaces 5, 6 and 7 with stored logins, all six settings at their defaults.
    void startStored() {
        startWith({5, 6, 7});
        storeLogins({5, 6, 7});
        platform.forget();
    }
    // The same after a start that failed at its last engine call: it goes on for ever.
    void startForEver() {
        for (const unsigned id : {5u, 6u, 7u}) {
            addInterface(id);
        }
        platform.answers.always("ittalRequestState");
        ASSERT_FALSE(module.start());
        platform.answers.clear();
        storeLogins({5, 6, 7});
        platform.forget();
    }
    // The storage file is locked for the last time before the first profile goes.
    bool loginsWentBeforeProfiles() const {
        const std::vector<fake::Call> locks = platform.find("exclusiveLock");
        const std::vector<fake::Call> profiles = platform.find("serviceDynamicProfilesDelete");
        return locks.size() >= 2 && profiles.size() == 1 &&
               locks.back().order < profiles.front().order;
    }
    std::string stored() const {
        std::string ids;
        for (unsigned id = 0; id < 10; ++id) {
            ids += isStored(id) ? std::to_string(id) : "";
        }
        return ids;
    }
};

TEST_F(SettingDeletionTest, DisablingAnInterfaceDeletesItsLoginThenItsProfiles) {
    startStored();
    platform.board.type = 5;
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(6, true));
    EXPECT_EQ("567", stored()) << "enabling deletes nothing";
    EXPECT_TRUE(profileCalls().empty());
    platform.forget();
    EXPECT_EQ(talResOk, module.talIntfAdminStateSet(6, false));
    EXPECT_EQ("57", stored());
    EXPECT_TRUE(sameLines(platform.calls(), {
                                                "ittalPortAdminStateSet(6, false)",
                                                "serviceDynamicProfilesDelete(6)",
                                                "vlanDynamicProfilesDelete(6)",
                                                "getBoardType() = 5",
                                                "vdslPortDynamicProfilesDelete(6)",
                                                "saveDynamicProfiles(0)",
                                            }));
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(SettingDeletionTest, LoginsGoBeforeProfiles) {
    startStored();
    const std::function<unsigned(bool)> setters[] = {
        [this](bool state) { return module.talIntfAdminStateSet(6, state); },
        [this](bool state) { return module.talIntfAdminStateSet(0, state); },
        [this](bool state) { return module.talAdminStateSet(state); },
    };
    for (const auto& set : setters) {
        ASSERT_EQ(0u, set(true));
        platform.forget();
        ASSERT_EQ(0u, set(false));
        EXPECT_TRUE(loginsWentBeforeProfiles());
        EXPECT_FALSE(isStored(6));
        storeLogins({6});
    }
}

TEST_F(SettingDeletionTest, AdminStateDeletesNothingDuringTheStart) {
    startForEver();
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(0, true));
    EXPECT_EQ(talResOk, module.talIntfAdminStateSet(6, false));
    EXPECT_EQ(talResOk, module.talIntfAdminStateSet(0, false));
    EXPECT_EQ("567", stored());
    EXPECT_TRUE(profileCalls().empty());
}

TEST_F(SettingDeletionTest, AutomaticRequestDeletesNothingDuringTheStart) {
    startForEver();
    EXPECT_EQ(talResOk, module.talIntfAutoReqAdminStateSet(6, true));
    EXPECT_EQ(talResOk, module.talIntfAutoReqAdminStateSet(0, true));
    EXPECT_EQ("567", stored());
}

TEST_F(SettingDeletionTest, RefusedDisablingDeletesNothing) {
    startStored();
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(6, true));
    platform.answers.always("ittalPortAdminStateSet");
    EXPECT_EQ(talResError, module.talIntfAdminStateSet(6, false));
    EXPECT_EQ("567", stored());
    EXPECT_TRUE(profileCalls().empty());
}

TEST_F(SettingDeletionTest, ProfilesGoThoughTheStoredLoginCannotBeDeleted) {
    startStored();
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(6, true));
    platform.forget();
    platform.answers.nth("exclusiveLock", 2);
    EXPECT_EQ(talResOk, module.talIntfAdminStateSet(6, false));
    EXPECT_EQ("567", stored());
    EXPECT_EQ(1u, platform.count("serviceDynamicProfilesDelete"));
    EXPECT_EQ(1u, platform.count("saveDynamicProfiles"));
    EXPECT_TRUE(sameLines(
        platform.texts(),
        {
            refusedLock("talReadStorageFile"),
            "warning: talIntfAdminStateSet Error deleting TAL stored login data on interface 6.",
        }));
}

TEST_F(SettingDeletionTest, DisablingAllDeletesEverythingOnceAfterTheWalk) {
    startStored();
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(0, true));
    platform.forget();
    EXPECT_EQ(talResOk, module.talIntfAdminStateSet(0, false));
    EXPECT_EQ("", storedFile());
    const Lines calls = platform.calls();
    ASSERT_LE(5u, calls.size());
    EXPECT_EQ("ittalPortAdminStateSet(7, false)", calls[2]);
    EXPECT_EQ("serviceDynamicProfilesDelete(0)", calls[3]);
    EXPECT_EQ("saveDynamicProfiles(0)", calls.back());
    EXPECT_EQ(1u, platform.count("serviceDynamicProfilesDelete"));
    EXPECT_EQ(1u, platform.count("qosFlowDynamicProfilesDeleteAll"));
}

TEST_F(SettingDeletionTest, KeepsDisablingAllDeletingThoughAllAreDisabledAlready) {
    startStored();
    EXPECT_EQ(talResOk, module.talIntfAdminStateSet(0, false));
    EXPECT_EQ("", storedFile());
    EXPECT_TRUE(engineCalls().empty());
    EXPECT_EQ(1u, platform.count("saveDynamicProfiles"));
}

TEST_F(SettingDeletionTest, DisablingAllOnAnEmptyTableDeletesToo) {
    writeStoredFile("rest");
    EXPECT_EQ(talResOk, module.talIntfAdminStateSet(0, false));
    EXPECT_EQ("", storedFile());
    EXPECT_EQ(1u, platform.count("saveDynamicProfiles"));
}

TEST_F(SettingDeletionTest, EnablingAllDeletesNothing) {
    startStored();
    EXPECT_EQ(talResOk, module.talIntfAdminStateSet(0, true));
    EXPECT_EQ("567", stored());
    EXPECT_TRUE(profileCalls().empty());
}

TEST_F(SettingDeletionTest, DisablingAllThatFailsPartWayDeletesNothing) {
    startStored();
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(0, true));
    platform.forget();
    platform.answers.forIntf("ittalPortAdminStateSet", 7);
    EXPECT_EQ(talResError, module.talIntfAdminStateSet(0, false));
    EXPECT_EQ("567", stored());
    EXPECT_TRUE(profileCalls().empty());
}

TEST_F(SettingDeletionTest, DisablingAllReportsLoginsThatCannotBeDeleted) {
    startStored();
    platform.answers.nth("exclusiveLock", 2);
    EXPECT_EQ(talResOk, module.talIntfAdminStateSet(0, false));
    EXPECT_EQ("567", stored());
    EXPECT_EQ(1u, platform.count("saveDynamicProfiles"));
    EXPECT_TRUE(
        sameLines(platform.texts(),
                  {
                      refusedLock("talWriteStorageFile"),
                      "warning: talIntfAdminStateSet Error deleting all TAL stored login data.",
                  }));
}

// Authentication and authorization are mirror images of each other.
struct Stage {
    const char* name;
    const char* engineCall;
    talResultCode (tal::*set)(unsigned, bool);
    talResultCode (tal::*setOther)(unsigned, bool);
};
const Stage stages[] = {
    {"talIntfAuthenAdminStateSet", "ittalPortAuthenAdminStateSet", &tal::talIntfAuthenAdminStateSet,
     &tal::talIntfAuthorAdminStateSet},
    {"talIntfAuthorAdminStateSet", "ittalPortAuthorAdminStateSet", &tal::talIntfAuthorAdminStateSet,
     &tal::talIntfAuthenAdminStateSet},
};

class StageDeletionTest : public SettingDeletionTest, public testing::WithParamInterface<Stage> {
protected:
    talResultCode set(unsigned id, bool state) { return (module.*GetParam().set)(id, state); }
    talResultCode setOther(unsigned id, bool state) {
        return (module.*GetParam().setOther)(id, state);
    }
    std::string refusedText(unsigned id) const {
        return std::string("warning: ") + GetParam().name +
               " Error deleting TAL stored login data on interface " + std::to_string(id) + ".";
    }
};

INSTANTIATE_TEST_SUITE_P(Stages, StageDeletionTest, testing::ValuesIn(stages),
                         [](const auto& stage) { return stage.param.name; });

TEST_P(StageDeletionTest, LoginGoesWithTheSecondOfTheTwoStages) {
    startStored();
    ASSERT_EQ(talResOk, setOther(6, false));
    EXPECT_EQ("567", stored()) << "this stage is still enabled";
    EXPECT_EQ(talResOk, set(6, false));
    EXPECT_EQ("57", stored());
    EXPECT_TRUE(profileCalls().empty());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_P(StageDeletionTest, NothingIsDeletedDuringTheStart) {
    startForEver();
    ASSERT_EQ(talResOk, setOther(0, false));
    EXPECT_EQ(talResOk, set(7, false));
    EXPECT_EQ(talResOk, set(0, false));
    EXPECT_EQ("567", stored());
}

TEST_P(StageDeletionTest, RefusedDisablingDeletesNothing) {
    startStored();
    ASSERT_EQ(talResOk, setOther(0, false));
    platform.answers.always(GetParam().engineCall);
    EXPECT_EQ(talResError, set(6, false));
    EXPECT_EQ(talResError, set(0, false));
    EXPECT_EQ("567", stored());
    EXPECT_TRUE(profileCalls().empty());
}

TEST_P(StageDeletionTest, EnablingDeletesNothing) {
    startStored();
    ASSERT_EQ(talResOk, setOther(6, false));
    ASSERT_EQ(talResOk, set(6, false));
    storeLogins({6});
    EXPECT_EQ(talResOk, set(6, true));
    EXPECT_EQ("567", stored());
}

TEST_P(StageDeletionTest, WalkDeletesWhereTheOtherStageIsDisabled) {
    startStored();
    ASSERT_EQ(talResOk, setOther(5, false));
    ASSERT_EQ(talResOk, setOther(7, false));
    EXPECT_EQ(talResOk, set(0, false));
    EXPECT_EQ("6", stored());
    EXPECT_TRUE(profileCalls().empty());
}

TEST_P(StageDeletionTest, KeepsLaterInterfacesUntouchedBehindOneThatHoldsTheValue) {
    startStored();
    ASSERT_EQ(talResOk, setOther(0, false));
    ASSERT_EQ(talResOk, set(5, false));
    platform.forget();
    EXPECT_EQ(talResOk, set(0, false));
    EXPECT_TRUE(engineCalls().empty());
    EXPECT_EQ("67", stored());
}

TEST_P(StageDeletionTest, FailedDeletionIsReportedAndTheStateSet) {
    startStored();
    ASSERT_EQ(talResOk, setOther(0, false));
    platform.forget();
    platform.answers.nth("exclusiveLock", 2);
    EXPECT_EQ(talResOk, set(6, false));
    EXPECT_EQ("567", stored());
    EXPECT_TRUE(sameLines(platform.texts(), {refusedLock("talReadStorageFile"), refusedText(6)}));
}

TEST_P(StageDeletionTest, FailedDeletionInAWalkIsReportedAndTheWalkGoesOn) {
    startStored();
    ASSERT_EQ(talResOk, setOther(0, false));
    platform.forget();
    platform.answers.nth("exclusiveLock", 2);
    EXPECT_EQ(talResOk, set(0, false));
    EXPECT_EQ("5", stored());
    EXPECT_TRUE(sameLines(platform.texts(), {refusedLock("talReadStorageFile"), refusedText(5)}));
}

TEST_F(SettingDeletionTest, KeepsAutomaticRequestDeletingWhenSwitchedOnWithoutRules) {
    startStored();
    addRule(7);
    EXPECT_EQ(talResOk, module.talIntfAutoReqAdminStateSet(6, true));
    EXPECT_EQ("57", stored());
    EXPECT_EQ(talResOk, module.talIntfAutoReqAdminStateSet(7, true));
    EXPECT_EQ("57", stored()) << "interface 7 has a rule";
    EXPECT_TRUE(profileCalls().empty());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(SettingDeletionTest, AutomaticRequestSwitchedOffDeletesNothing) {
    startStored();
    EXPECT_EQ(talResOk, module.talIntfAutoReqAdminStateSet(6, false));
    EXPECT_EQ(talResOk, module.talIntfAutoReqAdminStateSet(0, false));
    EXPECT_EQ("567", stored());
}

TEST_F(SettingDeletionTest, AutomaticRequestSwitchedOnAgainDeletesAgain) {
    startStored();
    ASSERT_EQ(talResOk, module.talIntfAutoReqAdminStateSet(6, true));
    storeLogins({6});
    EXPECT_EQ(talResOk, module.talIntfAutoReqAdminStateSet(6, true));
    EXPECT_EQ("57", stored());
}

TEST_F(SettingDeletionTest, AutomaticRequestForAllDeletesWhereThereIsNoRule) {
    startStored();
    addRule(6);
    EXPECT_EQ(talResOk, module.talIntfAutoReqAdminStateSet(0, true));
    EXPECT_EQ("6", stored());
}

TEST_F(SettingDeletionTest, AutomaticRequestReportsLoginsThatCannotBeDeleted) {
    startStored();
    const std::string text =
        "warning: talIntfAutoReqAdminStateSet Error deleting TAL stored login data on interface ";
    platform.answers.nth("exclusiveLock", 2);
    EXPECT_EQ(talResOk, module.talIntfAutoReqAdminStateSet(6, true));
    EXPECT_TRUE(sameLines(platform.texts(), {refusedLock("talReadStorageFile"), text + "6."}));
    platform.forget();
    platform.answers.nth("exclusiveLock", 2);
    EXPECT_EQ(talResOk, module.talIntfAutoReqAdminStateSet(0, true));
    EXPECT_TRUE(sameLines(platform.texts(), {refusedLock("talReadStorageFile"), text + "5."}));
    EXPECT_EQ("5", stored());
}

TEST_F(SettingDeletionTest, TimeoutAndQueueSizeDeleteNothing) {
    startStored();
    EXPECT_EQ(talResOk, module.talIntfTimeoutSet(6, 5));
    EXPECT_EQ(talResOk, module.talIntfTimeoutSet(0, 5));
    EXPECT_EQ(talResOk, module.talIntfMaxQueueSizeSet(6, 5));
    EXPECT_EQ(talResOk, module.talIntfMaxQueueSizeSet(0, 5));
    EXPECT_EQ("567", stored());
    EXPECT_TRUE(profileCalls().empty());
}

TEST_F(SettingDeletionTest, DeletionsRunUnderTheSettersLock) {
    startStored();
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(6, true));
    platform.forget();
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(6, false));
    for (const char* name : {"serviceDynamicProfilesDelete", "saveDynamicProfiles"}) {
        ASSERT_EQ(1u, platform.count(name));
        EXPECT_EQ(1, platform.find(name)[0].exclusiveHeld);
    }
    const std::vector<fake::Call> locks = platform.find("exclusiveLock");
    ASSERT_LE(2u, locks.size());
    EXPECT_EQ(1, locks[1].exclusiveHeld) << "the file is read inside the setter's lock";
}

}  // namespace
