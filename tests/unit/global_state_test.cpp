// The two states of the whole node: TAL on or off, and the request state.
#include "tests/fake/module_test.h"

#include <functional>

using fake::sameLines;
using fake::Service;
using Lines = std::vector<std::string>;

namespace {

Lines joined(std::initializer_list<Lines> lists) {
    Lines all;
    for (const Lines& list : lists) {
        all.insert(all.end(), list.begin(), list.end());
    }
    return all;
}

const Lines deleteAllProfiles = {
    "serviceDynamicProfilesDelete(0)",
    "vlanDynamicProfilesDelete(0)",
    "qosFlowDynamicProfilesDeleteAll()",
    "mcastDynamicProfilesDeleteAll()",
    "securityDynamicProfilesDeleteAll()",
    "l2cpDynamicProfilesDeleteAll()",
    "accessListDynamicDeleteAll()",
    "getBoardType() = 0",
    "saveDynamicProfiles(0)",
};

class GlobalStateTest : public ModuleTest {
protected:
    bool adminState() {
        bool state = false;
        EXPECT_EQ(0u, module.talAdminStateGet(&state));
        return state;
    }
};

// ---- global admin state

TEST_F(GlobalStateTest, AdminStateOnTellsTheEngineThenIsa) {
    EXPECT_EQ(0u, module.talAdminStateSet(true));
    EXPECT_TRUE(sameLines(platform.calls(), {
                                                "ittalAdminStateSet(true)",
                                                "isaradiusbllTalMode(1)",
                                            }));
    EXPECT_TRUE(adminState());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(GlobalStateTest, AdminStateHeldAlreadyCallsNobody) {
    EXPECT_EQ(0u, module.talAdminStateSet(false));
    EXPECT_TRUE(sameLines(platform.calls(), {}));
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    platform.forget();
    EXPECT_EQ(0u, module.talAdminStateSet(true));
    EXPECT_TRUE(sameLines(platform.calls(), {}));
}

TEST_F(GlobalStateTest, AdminStateTheEngineRefusesStaysAsItWas) {
    platform.answers.always("ittalAdminStateSet", -5);
    EXPECT_EQ(1u, module.talAdminStateSet(true));
    EXPECT_FALSE(adminState());
    EXPECT_EQ(0u, platform.count("isaradiusbllTalMode"));
    EXPECT_TRUE(sameLines(platform.texts(), {"warning: talAdminStateSet Error setting TAL to 1."}));

    platform.answers.clear();
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    storeLogins({1});
    platform.forget();
    platform.answers.always("ittalAdminStateSet");
    EXPECT_EQ(1u, module.talAdminStateSet(false));
    EXPECT_TRUE(adminState());
    EXPECT_TRUE(isStored(1));
    EXPECT_TRUE(sameLines(platform.calls(), {"ittalAdminStateSet(false) = 1"}));
    EXPECT_TRUE(sameLines(platform.texts(), {"warning: talAdminStateSet Error setting TAL to 0."}));
}

TEST_F(GlobalStateTest, KeepsTheStateOffThoughTheEngineIsOnWhenIsaRefuses) {
    platform.answers.always("isaradiusbllTalMode", 9);
    EXPECT_EQ(4u, module.talAdminStateSet(true));
    EXPECT_FALSE(adminState());
    EXPECT_TRUE(sameLines(platform.texts(), {"err: talAdminStateSet Unable to notify ISA about TAL "
                                             "admin state change: 1."}));
    EXPECT_EQ(4u, module.talAdminStateSet(true));
    EXPECT_EQ(2u, platform.count("ittalAdminStateSet"));
    EXPECT_EQ(0u, module.talAdminStateSet(false));
    EXPECT_EQ(2u, platform.count("ittalAdminStateSet"));
}

TEST_F(GlobalStateTest, AdminStateOffDeletesStoredLoginsAndAllDynamicProfiles) {
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    storeLogins({1, 2});
    platform.forget();
    EXPECT_EQ(0u, module.talAdminStateSet(false));
    EXPECT_EQ("", storedFile());
    EXPECT_TRUE(
        sameLines(platform.calls(), joined({{"ittalAdminStateSet(false)"}, deleteAllProfiles})));
    EXPECT_FALSE(adminState());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(GlobalStateTest, AdminStateOffGoesOnThoughStoredLoginsCannotBeDeleted) {
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    storeLogins({1});
    platform.forget();
    platform.answers.nth("exclusiveLock", 2);
    EXPECT_EQ(0u, module.talAdminStateSet(false));
    EXPECT_TRUE(isStored(1));
    EXPECT_FALSE(adminState());
    EXPECT_EQ(1u, platform.count("saveDynamicProfiles"));
    EXPECT_TRUE(sameLines(platform.texts(),
                          {
                              "log 1: Error obtaining exclusive lock in tal::talWriteStorageFile.",
                              "warning: talAdminStateSet Error deleting all TAL stored login data.",
                          }));
}

TEST_F(GlobalStateTest, AdminStateOffIgnoresWhatTheProfileServicesAnswer) {
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    for (const char* name : {"serviceDynamicProfilesDelete", "qosFlowDynamicProfilesDeleteAll",
                             "saveDynamicProfiles", "accessListDynamicDeleteAll"}) {
        platform.answers.always(name);
    }
    EXPECT_EQ(0u, module.talAdminStateSet(false));
    EXPECT_FALSE(adminState());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(GlobalStateTest, AdminStateIsReadUnderTheSharedLock) {
    bool state = true;
    EXPECT_EQ(0u, module.talAdminStateGet(&state));
    EXPECT_FALSE(state);
    EXPECT_EQ(1u, module.talAdminStateGet(nullptr));
    EXPECT_TRUE(sameLines(platform.calls({Service::lock}), {
                                                               "sharedLock()",
                                                               "sharedUnlock()",
                                                               "sharedLock()",
                                                               "sharedUnlock()",
                                                           }));
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(GlobalStateTest, AdminStateDefaultIsOffAndReadWithoutALock) {
    bool state = true;
    EXPECT_EQ(0u, module.talAdminStateDefaultGet(&state));
    EXPECT_FALSE(state);
    EXPECT_EQ(1u, module.talAdminStateDefaultGet(nullptr));
    EXPECT_TRUE(platform.wholeLog().empty());
}

TEST_F(GlobalStateTest, AdminStateDefaultSetSwitchesOff) {
    EXPECT_EQ(0u, module.talAdminStateDefaultSet());
    EXPECT_TRUE(sameLines(platform.calls(), {}));
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    EXPECT_EQ(0u, module.talAdminStateDefaultSet());
    EXPECT_FALSE(adminState());
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    platform.answers.always("ittalAdminStateSet", 7);
    EXPECT_EQ(1u, module.talAdminStateDefaultSet());
}

// ---- global request state

TEST_F(GlobalStateTest, RequestStateReachesTheEngineEvenWhenUnchanged) {
    for (const bool state : {true, true, false, false}) {
        EXPECT_EQ(0u, module.talRequestStateSet(state));
    }
    EXPECT_TRUE(sameLines(platform.calls(), {
                                                "ittalRequestState(true)",
                                                "ittalRequestState(true)",
                                                "ittalRequestState(false)",
                                                "ittalRequestState(false)",
                                            }));
}

TEST_F(GlobalStateTest, RequestStateTheEngineRefusesIsReportedWithItsValue) {
    platform.answers.always("ittalRequestState", -1);
    EXPECT_EQ(1u, module.talRequestStateSet(false));
    EXPECT_EQ(1u, module.talRequestStateSet(true));
    EXPECT_TRUE(sameLines(platform.texts(),
                          {
                              "warning: talRequestStateSet Error setting TAL request state to 0.",
                              "warning: talRequestStateSet Error setting TAL request state to 1.",
                          }));
}

TEST_F(GlobalStateTest, RequestStateDefaultIsOn) {
    EXPECT_EQ(0u, module.talRequestStateDefaultSet());
    EXPECT_TRUE(sameLines(platform.calls(), {"ittalRequestState(true)"}));
    platform.answers.always("ittalRequestState", 3);
    EXPECT_EQ(1u, module.talRequestStateDefaultSet());
}

TEST_F(GlobalStateTest, GlobalDefaultsAreAdminOffThenRequestOn) {
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    platform.forget();
    EXPECT_EQ(0u, module.talGlobalDefaultSet());
    EXPECT_TRUE(sameLines(platform.calls({Service::engine}), {
                                                                 "ittalAdminStateSet(false)",
                                                                 "ittalRequestState(true)",
                                                             }));
    platform.answers.always("ittalRequestState");
    EXPECT_EQ(1u, module.talGlobalDefaultSet());
}

TEST_F(GlobalStateTest, GlobalDefaultsLeaveTheRequestStateWhenAdminOffFails) {
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    platform.forget();
    platform.answers.always("ittalAdminStateSet");
    EXPECT_EQ(1u, module.talGlobalDefaultSet());
    EXPECT_EQ(0u, platform.count("ittalRequestState"));
}

// ---- locks

TEST_F(GlobalStateTest, SettersHoldTheExclusiveLockAcrossEngineIsaAndDeletions) {
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    ASSERT_EQ(0u, module.talAdminStateSet(false));
    ASSERT_EQ(0u, module.talRequestStateSet(true));
    for (const char* name :
         {"ittalAdminStateSet", "isaradiusbllTalMode", "serviceDynamicProfilesDelete",
          "saveDynamicProfiles", "ittalRequestState"}) {
        const std::vector<fake::Call> calls = platform.find(name);
        ASSERT_FALSE(calls.empty()) << name;
        for (const fake::Call& call : calls) {
            EXPECT_EQ(1, call.exclusiveHeld) << name;
        }
    }
}

TEST_F(GlobalStateTest, RefusedLocksAreReportedByNameAndDoNothing) {
    bool state = true;
    const struct {
        const char* lock;
        const char* text;
        std::function<unsigned()> call;
    } operations[] = {
        {"exclusiveLock", "tal::talAdminStateSet.", [&] { return module.talAdminStateSet(true); }},
        {"sharedLock", "tal::talAdminStateGet.", [&] { return module.talAdminStateGet(&state); }},
        {"exclusiveLock", "tal::talRequestStateSet.",
         [&] { return module.talRequestStateSet(true); }},
        {"exclusiveLock", "tal::talAdminStateSet.",
         [&] { return module.talAdminStateDefaultSet(); }},
        {"exclusiveLock", "tal::talRequestStateSet.",
         [&] { return module.talRequestStateDefaultSet(); }},
        {"exclusiveLock", "tal::talAdminStateSet.", [&] { return module.talGlobalDefaultSet(); }},
    };
    for (const auto& operation : operations) {
        platform.forget();
        platform.answers.clear();
        platform.answers.always(operation.lock);
        EXPECT_EQ(1u, operation.call()) << operation.text;
        EXPECT_TRUE(sameLines(platform.calls(), {}));
        EXPECT_TRUE(
            sameLines(platform.texts(),
                      {std::string("log 1: Error obtaining exclusive lock in ") + operation.text}));
    }
    EXPECT_TRUE(state);
}

TEST_F(GlobalStateTest, SweptSwitchingOnAndOffKeepsStateAndResultTogether) {
    for (const bool target : {true, false}) {
        unsigned result = 0;
        fake::sweepFaults(
            platform,
            [&] {
                ASSERT_EQ(0u, module.talAdminStateSet(!target));
                storeLogins({1});
            },
            [&] { result = module.talAdminStateSet(target); },
            [&](const fake::FaultRun& run) {
                const std::string& name = run.refused.name;
                const bool first = run.faulted && run.number == 1;
                const unsigned expected = name == "isaradiusbllTalMode"           ? 4
                                          : first || name == "ittalAdminStateSet" ? 1
                                                                                  : 0;
                EXPECT_EQ(expected, result);
                const bool texted = expected != 0 || name == "exclusiveLock";
                EXPECT_EQ(texted, !platform.texts().empty());
                EXPECT_EQ(result == 0 ? target : !target, adminState());
                const bool kept = target || result != 0 || name == "exclusiveLock";
                EXPECT_EQ(kept, isStored(1));
            });
    }
}

}  // namespace
