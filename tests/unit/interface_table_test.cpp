// The records of the interfaces: how they are made, checked and reached by events.
#include "tests/fake/module_test.h"

#include <functional>
#include <string>
#include <vector>

using fake::sameLines;
using fake::Service;
using Lines = std::vector<std::string>;

namespace {

constexpr int eventUp = 4;

class InterfaceTableTest : public ModuleTest {
protected:
    void switchOn(unsigned id) {
        ASSERT_EQ(0u, module.talAdminStateSet(true));
        ASSERT_EQ(talResOk, module.talIntfAdminStateSet(id, true));
    }
    // Started, switched on, first event taken: the next event 4 sets both states.
    void armed(unsigned id) {
        startWith({id});
        switchOn(id);
        module.talInterfaceStateChange(static_cast<int>(id), up());
        platform.forget();
    }
    // Started on a board with DSL lines, one of which is switched on; no event has come yet.
    void startWithDslLine7() {
        platform.board.type = 1;
        platform.interfaces.add(7, 1, "1/7", "dsl7");
        ASSERT_TRUE(module.start());
        switchOn(7);
    }
    static Interfaces::interfaceEvent_t event(int number) {
        return static_cast<Interfaces::interfaceEvent_t>(number);
    }
    static Interfaces::interfaceEvent_t up() { return event(eventUp); }
    Lines engineCalls() const { return platform.calls({Service::engine}); }
    void addRule(unsigned id) {
        talRule rule{};
        module.setTalRuleDefault(&rule);
        rule.type = talRuleTypeAny;
        rule.type0Value = 1;
        ASSERT_EQ(talResOk, module.talRuleSet(id, &rule, talOperationAdd));
    }
};

const Lines bothStates7 = {
    "ittalPortAuthenOperStateSet(7, 1)",
    "ittalPortAuthorOperStateSet(7, 1)",
};

// ---- kernel name

TEST_F(InterfaceTableTest, KernelNameIsTheDecimalOfTheIdMinusOne) {
    const struct {
        unsigned id;
        const char* name;
    } names[] = {
        {1, "0"},
        {2, "1"},
        {10, "9"},
        {42, "41"},
        {100, "99"},
        {1000, "999"},
        {4294967295U, "4294967294"},
        {0, "4294967295"},
    };
    for (const auto& name : names) {
        std::string text = "replaced";
        module.talKernelNameSet(text, name.id);
        EXPECT_EQ(name.name, text);
    }
    EXPECT_TRUE(platform.wholeLog().empty());
}

// ---- talIntfInit

TEST_F(InterfaceTableTest, InitMakesTheEngineObjectsThenTheDefaults) {
    addInterface(42);
    EXPECT_EQ(0u, module.talIntfInit(42));
    Lines calls = engineCalls();
    ASSERT_GE(calls.size(), 10u);
    calls.resize(10);
    EXPECT_TRUE(sameLines(calls, {
                                     R"(ittalSelectorAdd("41"))",
                                     R"(ittalActionListAdd("41"))",
                                     R"(ittalActionAdd("41", 2, 2))",
                                     R"(ittalActionAdd("41", 3, 3))",
                                     R"(ittalListSet(42, "41", "41", 1, 0))",
                                     "ittalPortAuthenAdminStateSet(42, true)",
                                     "ittalPortAuthorAdminStateSet(42, true)",
                                     "ittalPortAutoReqAdminStateSet(42, false)",
                                     "ittalPortTimeoutSet(42, 120)",
                                     "ittalPortMaxQueueSizeSet(42, 1)",
                                 }));
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(InterfaceTableTest, InitGivesTheRecordItsValues) {
    addInterface(7);
    ASSERT_EQ(0u, module.talIntfInit(7));
    bool state = true;
    EXPECT_EQ(talResOk, module.talIntfAdminStateGet(7, &state));
    EXPECT_FALSE(state);
    EXPECT_EQ(talResOk, module.talIntfAuthenAdminStateGet(7, &state));
    EXPECT_TRUE(state);
    EXPECT_EQ(talResOk, module.talIntfAuthorAdminStateGet(7, &state));
    EXPECT_TRUE(state);
    EXPECT_EQ(talResOk, module.talIntfAutoReqAdminStateGet(7, &state));
    EXPECT_FALSE(state);
    uint32_t value = 0;
    EXPECT_EQ(talResOk, module.talIntfTimeoutGet(7, &value));
    EXPECT_EQ(120u, value);
    EXPECT_EQ(talResOk, module.talIntfMaxQueueSizeGet(7, &value));
    EXPECT_EQ(1u, value);
    EXPECT_TRUE(module.talRuleEmpty(7));

    talRule rule{};
    talRule expected{};
    module.setTalRuleDefault(&expected);
    ASSERT_EQ(talResOk, module.talRuleGet(7, &rule));
    EXPECT_EQ(expected.type0Value, rule.type0Value);
    EXPECT_EQ(expected.ethType, rule.ethType);
    EXPECT_EQ(expected.type8Value, rule.type8Value);
    EXPECT_EQ(expected.type2Flag, rule.type2Flag);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(expected.pattern[i].format, rule.pattern[i].format);
    }
}

TEST_F(InterfaceTableTest, InitOfInterfaceZeroOrOfAnotherTypeMakesNothing) {
    platform.interfaces.add(5, 2, "1/5", "if5_");
    platform.interfaces.add(6, 0, "1/6", "if6_");
    platform.interfaces.add(8, 1, "1/8", "if8_");
    platform.answers.forIntf("interfaceGetTypeById", 8);
    for (const unsigned id : {0u, 5u, 6u, 8u, 9u}) {
        EXPECT_EQ(1u, module.talIntfInit(id)) << id;
    }
    for (const unsigned id : {5u, 6u, 8u, 9u}) {
        EXPECT_FALSE(module.talIsValidIntf(id)) << id;
    }
    EXPECT_TRUE(engineCalls().empty());
    EXPECT_EQ(4u, platform.count("interfaceGetTypeById")) << "interface 0 asks nobody";
    EXPECT_TRUE(platform.texts().empty());
    platform.forget();
    EXPECT_EQ(talResOk, module.talIntfTimeoutSet(0, 5));
    EXPECT_TRUE(engineCalls().empty()) << "no entry may have been made";
}

TEST_F(InterfaceTableTest, FirstRefusedEngineObjectEndsTheInitAndTheEntryStays) {
    const char* steps[] = {"ittalSelectorAdd", "ittalActionListAdd", "ittalActionAdd",
                           "ittalActionAdd", "ittalListSet"};
    addInterface(7);
    for (size_t step = 0; step < 5; ++step) {
        platform.forget();
        platform.answers.clear();
        platform.answers.nth(steps[step], step == 3 ? 2 : 1, -4);
        EXPECT_EQ(1u, module.talIntfInit(7));
        EXPECT_EQ(step + 1, engineCalls().size());
        EXPECT_TRUE(module.talIsValidIntf(7));
        EXPECT_TRUE(platform.texts().empty());
    }
}

TEST_F(InterfaceTableTest, RefusedSettingFailsTheInitAfterAllSettings) {
    addInterface(7);
    platform.answers.always("ittalPortAuthenAdminStateSet");
    EXPECT_EQ(1u, module.talIntfInit(7));
    EXPECT_EQ(1u, platform.count("ittalPortMaxQueueSizeSet"));
    EXPECT_TRUE(module.talIsValidIntf(7));
}

TEST_F(InterfaceTableTest, SecondInitReplacesTheRecord) {
    armed(7);
    ASSERT_EQ(talResOk, module.talIntfTimeoutSet(7, 9));
    raiseLogin(7);
    ASSERT_EQ(0u, module.talDslIntfDisabled(7));
    platform.forget();
    ASSERT_EQ(0u, module.talIntfInit(7));
    // From an all-zero record: the admin state is at its default already, the stages are not.
    EXPECT_EQ(0u, platform.count("ittalPortAdminStateSet"));
    EXPECT_EQ(1u, platform.count("ittalPortAuthenAdminStateSet"));
    EXPECT_EQ(1u, platform.count("ittalPortAuthorAdminStateSet"));
    platform.forget();

    bool state = true;
    EXPECT_EQ(talResOk, module.talIntfAdminStateGet(7, &state));
    EXPECT_FALSE(state);
    uint32_t timeout = 0;
    EXPECT_EQ(talResOk, module.talIntfTimeoutGet(7, &timeout));
    EXPECT_EQ(120u, timeout);
    EXPECT_EQ(talResOk, module.talReply(7, talRequestTypeAuthentication, talReplyAccepted));
    EXPECT_FALSE(isStored(7)) << "the pending login must be gone";
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(7, true));
    platform.forget();
    module.talInterfaceStateChange(7, up());
    EXPECT_TRUE(engineCalls().empty()) << "the first event must be swallowed again";
    module.talInterfaceStateChange(7, up());
    EXPECT_TRUE(sameLines(engineCalls(), bothStates7));
}

TEST_F(InterfaceTableTest, SweptInitReportsEveryRefusal) {
    addInterface(7);
    ASSERT_TRUE(module.start());
    unsigned result = 0;
    fake::sweepFaults(
        platform, [] {}, [&] { result = module.talIntfInit(7); },
        [&](const fake::FaultRun& run) {
            // Behind the settings comes the rule, whose checks read a refused lock as "no rule".
            const bool settingsDone = platform.count("ittalPortMaxQueueSizeSet") == 1;
            if (settingsDone && run.refused.name == "sharedLock") {
                EXPECT_EQ(1u, platform.texts().size());
            } else {
                EXPECT_EQ(run.faulted ? 1u : 0u, result);
            }
            EXPECT_TRUE(module.talIsValidIntf(7));
        });
}

// ---- talIntfDefaultSet

TEST_F(InterfaceTableTest, DefaultsAreAllSixSettingsThenTheRule) {
    startWith({7});
    switchOn(7);
    ASSERT_EQ(talResOk, module.talIntfAuthenAdminStateSet(7, false));
    ASSERT_EQ(talResOk, module.talIntfAuthorAdminStateSet(7, false));
    addRule(7);
    platform.forget();
    EXPECT_EQ(0u, module.talIntfDefaultSet(7));
    EXPECT_TRUE(sameLines(engineCalls(), {
                                             "ittalPortAdminStateSet(7, false)",
                                             "ittalPortAuthenAdminStateSet(7, true)",
                                             "ittalPortAuthorAdminStateSet(7, true)",
                                             "ittalPortAutoReqAdminStateSet(7, false)",
                                             "ittalPortTimeoutSet(7, 120)",
                                             "ittalPortMaxQueueSizeSet(7, 1)",
                                             "ittalConditionDel(\"6\", 0)",
                                         }));
    EXPECT_TRUE(module.talRuleEmpty(7));
}

TEST_F(InterfaceTableTest, EachFailingDefaultIsRememberedAndTheOthersAreSet) {
    const char* names[] = {"ittalPortAdminStateSet",
                           "ittalPortAuthenAdminStateSet",
                           "ittalPortAuthorAdminStateSet",
                           "ittalPortAutoReqAdminStateSet",
                           "ittalPortTimeoutSet",
                           "ittalPortMaxQueueSizeSet",
                           "ittalConditionDel"};
    startWith({7});
    for (const char* name : names) {
        platform.answers.clear();
        ASSERT_EQ(talResOk, module.talIntfAdminStateSet(7, true));
        ASSERT_EQ(talResOk, module.talIntfAuthenAdminStateSet(7, false));
        ASSERT_EQ(talResOk, module.talIntfAuthorAdminStateSet(7, false));
        addRule(7);
        platform.forget();
        platform.answers.always(name, 2);
        EXPECT_EQ(1u, module.talIntfDefaultSet(7)) << name;
        for (const char* each : names) {
            EXPECT_EQ(1u, platform.count(each)) << each << " while " << name << " fails";
        }
    }
}

TEST_F(InterfaceTableTest, DefaultsOfAnUnknownInterfaceFail) {
    startWith({7});
    platform.forget();
    EXPECT_EQ(1u, module.talIntfDefaultSet(9));
    EXPECT_TRUE(engineCalls().empty());
}

// ---- checks

TEST_F(InterfaceTableTest, InterfaceZeroIsValidAndOthersWhenInTheTable) {
    EXPECT_TRUE(module.talIsValidIntf(0));
    EXPECT_FALSE(module.talIsValidIntf(1));
    startWith({1, 7});
    EXPECT_TRUE(module.talIsValidIntf(0));
    EXPECT_TRUE(module.talIsValidIntf(1));
    EXPECT_TRUE(module.talIsValidIntf(7));
    EXPECT_FALSE(module.talIsValidIntf(2));
    EXPECT_FALSE(module.talIsValidIntf(4294967295U));
    platform.forget();
    module.talIsValidIntf(7);
    EXPECT_TRUE(sameLines(platform.calls({Service::lock}), {"sharedLock()", "sharedUnlock()"}));
    EXPECT_TRUE(platform.calls().empty());
}

TEST_F(InterfaceTableTest, KeepsAnEntryMadeByALookupAloneNotValidButVisited) {
    platform.interfaces.add(9, 2, "1/9", "if9_");
    startWith({7});
    raiseLogin(9);
    EXPECT_FALSE(module.talIsValidIntf(9));
    platform.forget();
    EXPECT_EQ(talResOk, module.talIntfTimeoutSet(0, 5));
    EXPECT_TRUE(
        sameLines(engineCalls(), {"ittalPortTimeoutSet(7, 5)", "ittalPortTimeoutSet(9, 5)"}));
}

TEST_F(InterfaceTableTest, AccessInterfaceIsWhatTheRegistrySaysNotTheTable) {
    addInterface(7);
    platform.interfaces.add(8, 2, "1/8", "if8_");
    EXPECT_TRUE(module.talIsAccessIntf(7));
    EXPECT_FALSE(module.talIsAccessIntf(8));
    EXPECT_FALSE(module.talIsAccessIntf(9));
    platform.answers.forIntf("interfaceGetTypeById", 7);
    EXPECT_FALSE(module.talIsAccessIntf(7));
    platform.forget();
    EXPECT_FALSE(module.talIsAccessIntf(0));
    EXPECT_TRUE(platform.calls().empty());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(InterfaceTableTest, AccessInterfaceIsAskedUnderTheSharedLock) {
    addInterface(7);
    EXPECT_TRUE(module.talIsAccessIntf(7));
    ASSERT_EQ(1u, platform.count("interfaceGetTypeById"));
    EXPECT_EQ(1, platform.find("interfaceGetTypeById")[0].sharedHeld);
}

TEST_F(InterfaceTableTest, DslInterfaceNeedsBoardTypeOneAndDslInTheLinuxName) {
    const struct {
        const char* linuxName;
        bool dsl;
    } names[] = {{"dsl1", true},  {"xdsl", true},  {"a-dsl-b", true}, {"DSL1", false},
                 {"dSl1", false}, {"ds l", false}, {"", false},       {"eth0", false}};
    unsigned id = 1;
    for (const auto& name : names) {
        platform.interfaces.add(id++, 1, "1/1", name.linuxName);
    }
    ASSERT_TRUE(module.start());
    for (int board = 0; board <= 8; ++board) {
        platform.board.type = board;
        id = 1;
        for (const auto& name : names) {
            EXPECT_EQ(name.dsl && board == 1, module.talIsDslInterface(id++))
                << name.linuxName << " on board " << board;
        }
    }
    platform.board.type = 1;
    platform.answers.forIntf("interfaceGetLinuxnameById", 1);
    EXPECT_FALSE(module.talIsDslInterface(1));
    EXPECT_FALSE(module.talIsDslInterface(99));
}

TEST_F(InterfaceTableTest, DslInterfaceAsksNobodyForAnInterfaceThatIsNotValid) {
    platform.board.type = 1;
    platform.interfaces.add(5, 1, "1/5", "dsl5");
    EXPECT_FALSE(module.talIsDslInterface(5));
    EXPECT_TRUE(platform.calls().empty());
}

TEST_F(InterfaceTableTest, RefusedLocksOfTheChecksReadAsNo) {
    startWith({7});
    platform.forget();
    platform.answers.always("sharedLock");
    EXPECT_FALSE(module.talIsValidIntf(7));
    EXPECT_FALSE(module.talIsValidIntf(0));
    EXPECT_FALSE(module.talIsAccessIntf(7));
    EXPECT_FALSE(module.talIsAccessIntf(0));
    EXPECT_FALSE(module.talIsDslInterface(7));
    EXPECT_EQ(3u, module.talDslIntfDisabled(7));
    EXPECT_TRUE(platform.calls().empty());
    const std::string valid = "log 1: Error obtaining exclusive lock in tal::talIsValidIntf.";
    const std::string access = "log 1: Error obtaining exclusive lock in tal::talIsAccessIntf.";
    EXPECT_TRUE(sameLines(platform.texts(), {valid, valid, access, access, valid, valid}));
}

// ---- talDslIntfDisabled

TEST_F(InterfaceTableTest, DisablingDslOfAnUnknownInterfaceIsRefused) {
    EXPECT_EQ(3u, module.talDslIntfDisabled(7));
    platform.forget();
    EXPECT_EQ(talResOk, module.talIntfTimeoutSet(0, 5));
    EXPECT_TRUE(engineCalls().empty()) << "no entry may have been made";
}

TEST_F(InterfaceTableTest, KeepsAnEntryForInterfaceZeroAfterDisablingDslOnAll) {
    startWith({7});
    EXPECT_EQ(0u, module.talDslIntfDisabled(0));
    uint32_t timeout = 77;
    EXPECT_EQ(talResOk, module.talIntfTimeoutGet(0, &timeout));
    EXPECT_EQ(0u, timeout);
    platform.forget();
    EXPECT_EQ(talResOk, module.talIntfTimeoutSet(0, 5));
    EXPECT_TRUE(
        sameLines(engineCalls(), {"ittalPortTimeoutSet(0, 5)", "ittalPortTimeoutSet(7, 5)"}));
}

TEST_F(InterfaceTableTest, DisabledDslLineSwallowsTheNextEventOnly) {
    startWithDslLine7();
    module.talInterfaceStateChange(7, up());
    ASSERT_EQ(0u, module.talDslIntfDisabled(7));
    platform.forget();
    module.talInterfaceStateChange(7, up());
    EXPECT_TRUE(engineCalls().empty());
    module.talInterfaceStateChange(7, up());
    EXPECT_TRUE(sameLines(engineCalls(), bothStates7));
}

TEST_F(InterfaceTableTest, DisabledDslMarkIsLeftWhereTheInterfaceIsNoDslLine) {
    platform.interfaces.add(7, 1, "1/7", "dsl7");
    ASSERT_TRUE(module.start());
    switchOn(7);
    module.talInterfaceStateChange(7, up());
    ASSERT_EQ(0u, module.talDslIntfDisabled(7));
    platform.forget();
    platform.board.type = 5;
    module.talInterfaceStateChange(7, up());
    EXPECT_TRUE(sameLines(engineCalls(), bothStates7));
    platform.forget();
    platform.board.type = 1;
    module.talInterfaceStateChange(7, up());
    EXPECT_TRUE(engineCalls().empty()) << "the mark must still have been set";
}

TEST_F(InterfaceTableTest, DisabledDslMarkIsLeftWhileTheEventEndsEarlier) {
    startWithDslLine7();
    module.talInterfaceStateChange(7, up());
    ASSERT_EQ(0u, module.talDslIntfDisabled(7));
    platform.forget();
    ASSERT_EQ(talResOk, module.talIntfAutoReqAdminStateSet(7, true));
    module.talInterfaceStateChange(7, up());  // ends at the empty rule
    ASSERT_EQ(talResOk, module.talIntfAutoReqAdminStateSet(7, false));
    platform.forget();
    module.talInterfaceStateChange(7, up());  // ends at the mark
    EXPECT_TRUE(engineCalls().empty());
    module.talInterfaceStateChange(7, up());
    EXPECT_TRUE(sameLines(engineCalls(), bothStates7));
}

TEST_F(InterfaceTableTest, FirstEventLeavesADisabledDslMark) {
    startWithDslLine7();
    ASSERT_EQ(0u, module.talDslIntfDisabled(7));
    platform.forget();
    module.talInterfaceStateChange(7, up());  // arms
    module.talInterfaceStateChange(7, up());  // ends at the mark
    EXPECT_TRUE(engineCalls().empty());
    module.talInterfaceStateChange(7, up());
    EXPECT_TRUE(sameLines(engineCalls(), bothStates7));
}

TEST_F(InterfaceTableTest, EventsOtherThanFourLeaveADisabledDslMark) {
    startWithDslLine7();
    module.talInterfaceStateChange(7, up());
    ASSERT_EQ(0u, module.talDslIntfDisabled(7));
    platform.forget();
    for (const int number : {-1, 0, 1, 2, 3, 5, 6, 260}) {
        module.talInterfaceStateChange(7, event(number));
    }
    module.talInterfaceStateChange(7, up());
    EXPECT_TRUE(engineCalls().empty()) << "the mark must still have been set";
    module.talInterfaceStateChange(7, up());
    EXPECT_TRUE(sameLines(engineCalls(), bothStates7));
}

// ---- interface events

TEST_F(InterfaceTableTest, FirstEventOnlyArmsTheEntryTheSecondSetsBothStates) {
    startWith({7});
    switchOn(7);
    platform.forget();
    platform.interfaces.fireEvent(7, eventUp);
    EXPECT_TRUE(engineCalls().empty());
    platform.interfaces.fireEvent(7, eventUp);
    EXPECT_TRUE(sameLines(engineCalls(), bothStates7));
    platform.interfaces.fireEvent(7, eventUp);
    EXPECT_EQ(4u, engineCalls().size());
}

TEST_F(InterfaceTableTest, FirstEventIsTakenEvenWhileTalIsOff) {
    startWith({7});
    module.talInterfaceStateChange(7, up());
    switchOn(7);
    platform.forget();
    module.talInterfaceStateChange(7, up());
    EXPECT_TRUE(sameLines(engineCalls(), bothStates7));
}

TEST_F(InterfaceTableTest, EventsOtherThanFourChangeNothing) {
    startWith({7});
    switchOn(7);
    platform.forget();
    for (const int number : {-1, 0, 1, 2, 3, 5, 6, 260, 2147483647}) {
        module.talInterfaceStateChange(7, event(number));
    }
    EXPECT_TRUE(engineCalls().empty());
    module.talInterfaceStateChange(7, up());
    EXPECT_TRUE(engineCalls().empty()) << "the first event 4 must still be swallowed";
    module.talInterfaceStateChange(7, up());
    EXPECT_TRUE(sameLines(engineCalls(), bothStates7));
}

// Its entry comes from a lookup: all zero, so it has no first event to swallow.
TEST_F(InterfaceTableTest, EventOfInterfaceZeroFollowsTheEntryUnderKeyZero) {
    startWith({7});
    switchOn(7);
    platform.forget();
    platform.interfaces.fireEvent(0, eventUp);
    EXPECT_TRUE(engineCalls().empty()) << "all its states are off";
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(0, true));
    ASSERT_EQ(talResOk, module.talIntfAuthenAdminStateSet(0, true));
    platform.forget();
    platform.interfaces.fireEvent(0, eventUp);
    EXPECT_TRUE(sameLines(engineCalls(), {"ittalPortAuthenOperStateSet(0, 1)"}));
    ASSERT_EQ(talResOk, module.talIntfAuthorAdminStateSet(0, true));
    platform.forget();
    platform.interfaces.fireEvent(0, eventUp);
    EXPECT_TRUE(sameLines(
        engineCalls(), {"ittalPortAuthenOperStateSet(0, 1)", "ittalPortAuthorOperStateSet(0, 1)"}));
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(InterfaceTableTest, EventOfAnUnknownInterfaceIsDropped) {
    armed(7);
    for (const int id : {-1, 6, 8, 2147483647}) {
        module.talInterfaceStateChange(id, up());
        module.talInterfaceStateChange(id, up());
    }
    EXPECT_TRUE(engineCalls().empty());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(InterfaceTableTest, StatesFollowTheAdminStates) {
    const struct {
        bool global, admin, authen, author;
        Lines expected;
    } cases[] = {
        {true, true, true, true, bothStates7},
        {true, true, true, false, {bothStates7[0]}},
        {true, true, false, true, {bothStates7[1]}},
        {true, true, false, false, {}},
        {false, true, true, true, {}},
        {true, false, true, true, {}},
        {false, false, true, true, {}},
    };
    startWith({7});
    module.talInterfaceStateChange(7, up());
    for (const auto& c : cases) {
        ASSERT_EQ(0u, module.talAdminStateSet(c.global));
        ASSERT_EQ(talResOk, module.talIntfAdminStateSet(7, c.admin));
        ASSERT_EQ(talResOk, module.talIntfAuthenAdminStateSet(7, c.authen));
        ASSERT_EQ(talResOk, module.talIntfAuthorAdminStateSet(7, c.author));
        platform.forget();
        module.talInterfaceStateChange(7, up());
        EXPECT_TRUE(sameLines(engineCalls(), c.expected));
    }
}

TEST_F(InterfaceTableTest, AutomaticRequestNeedsARule) {
    armed(7);
    ASSERT_EQ(talResOk, module.talIntfAutoReqAdminStateSet(7, true));
    platform.forget();
    module.talInterfaceStateChange(7, up());
    EXPECT_TRUE(engineCalls().empty());
    addRule(7);
    platform.forget();
    module.talInterfaceStateChange(7, up());
    EXPECT_TRUE(sameLines(engineCalls(), bothStates7));
}

TEST_F(InterfaceTableTest, RefusedStatesAreNeitherReportedNorStopTheSecond) {
    armed(7);
    platform.answers.always("ittalPortAuthenOperStateSet");
    platform.answers.always("ittalPortAuthorOperStateSet");
    module.talInterfaceStateChange(7, up());
    EXPECT_EQ(2u, engineCalls().size());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(InterfaceTableTest, EventHoldsNoLockAcrossItsSteps) {
    startWithDslLine7();
    module.talInterfaceStateChange(7, up());
    platform.forget();
    module.talInterfaceStateChange(7, up());
    for (const char* name : {"ittalPortAuthenOperStateSet", "ittalPortAuthorOperStateSet",
                             "getBoardType", "interfaceGetLinuxnameById"}) {
        ASSERT_EQ(1u, platform.count(name)) << name;
        EXPECT_EQ(0, platform.find(name)[0].sharedHeld) << name;
        EXPECT_EQ(0, platform.find(name)[0].exclusiveHeld) << name;
    }
    EXPECT_EQ(0u, platform.count("exclusiveLock"));
}

TEST_F(InterfaceTableTest, UnreadableStateDropsTheEventAndLeavesTheFirstPending) {
    startWith({7});
    switchOn(7);
    unsigned dropped = 0;
    fake::sweepFaults(
        platform, [] {}, [&] { module.talInterfaceStateChange(7, up()); },
        [&](const fake::FaultRun& run) {
            EXPECT_TRUE(engineCalls().empty());
            if (!run.faulted) {
                return;  // the clean run takes the first event
            }
            EXPECT_EQ("sharedLock", run.refused.name);
            EXPECT_EQ(1u, platform.texts().size());
            ++dropped;
        });
    // The interface check, the four getters, and the check inside the three per interface.
    EXPECT_EQ(8u, dropped);
    module.talInterfaceStateChange(7, up());
    EXPECT_TRUE(sameLines(engineCalls(), bothStates7));
}

}  // namespace
