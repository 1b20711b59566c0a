// Loading, starting and configuring the module.
#include "tests/fake/module_test.h"

#include <fcntl.h>
#include <link.h>
#include <unistd.h>

#include <list>
#include <memory>
#include <type_traits>

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

// The engine calls of talIntfInit() during a start.
Lines initCalls(unsigned id) {
    const std::string number = std::to_string(id);
    const std::string name = "\"" + std::to_string(id - 1) + "\"";
    return {
        "ittalSelectorAdd(" + name + ")",
        "ittalActionListAdd(" + name + ")",
        "ittalActionAdd(" + name + ", 2, 2)",
        "ittalActionAdd(" + name + ", 3, 3)",
        "ittalListSet(" + number + ", " + name + ", " + name + ", 1, 0)",
        "ittalPortAuthenAdminStateSet(" + number + ", true)",
        "ittalPortAuthorAdminStateSet(" + number + ", true)",
        "ittalPortAutoReqAdminStateSet(" + number + ", false)",
        "ittalPortTimeoutSet(" + number + ", 120)",
        "ittalPortMaxQueueSizeSet(" + number + ", 1)",
    };
}

// The engine calls of talIntfDefaultSet() on an interface that already has its defaults.
Lines defaultCalls(unsigned id) {
    const std::string number = std::to_string(id);
    return {
        "ittalPortAutoReqAdminStateSet(" + number + ", false)",
        "ittalPortTimeoutSet(" + number + ", 120)",
        "ittalPortMaxQueueSizeSet(" + number + ", 1)",
    };
}

size_t callbacksRegistered() {
    BLLManager& manager = singleton<BLLManager>::instance();
    return manager.configurationApplyStartCallbacks.size() +
           manager.configurationApplyStopCallbacks.size() +
           singleton<Interfaces>::instance().interfaceEventCallbacks.size() +
           singleton<itbridge>::instance().talEventCallbacks.size();
}

class LifecycleTest : public ModuleTest {
protected:
    bool adminState() {
        bool state = false;
        EXPECT_EQ(0u, module.talAdminStateGet(&state));
        return state;
    }
    talRule typeZeroRule() {
        talRule rule{};
        module.setTalRuleDefault(&rule);
        rule.type = talRuleTypeAny;
        rule.type0Value = 1;
        return rule;
    }
};

// ---- load

TEST_F(LifecycleTest, OneEntityNamedTalIsRegisteredAtLoad) {
    ASSERT_EQ(1u, fake::Manager::entities().size());
    EXPECT_EQ(&module, fake::Manager::entities()[0]);
    EXPECT_EQ("tal", module.getName());
    EXPECT_EQ(&module, &singleton<tal>::instance());
}

TEST_F(LifecycleTest, ModuleIsAnEntityAndAStorageItem) {
    static_assert(std::is_base_of_v<BLEntity, tal>);
    static_assert(std::is_base_of_v<Storage::StorageItem, tal>);
    static_assert(std::is_base_of_v<singleton<tal>, tal>);
    static_assert(std::has_virtual_destructor_v<tal>);
    EXPECT_EQ("default_config.xml", Storage::defaultConfigFileName);
    EXPECT_EQ("saved_config.xml", Storage::savedConfigFileName);
}

TEST_F(LifecycleTest, AfterLoadTheAdminStateIsOffAndTheTableEmpty) {
    EXPECT_FALSE(adminState());
    platform.forget();
    EXPECT_EQ(0u, module.talIntfTimeoutSet(0, 5));
    EXPECT_TRUE(sameLines(platform.calls(), {}));
    EXPECT_FALSE(module.talIsValidIntf(1));
}

TEST_F(LifecycleTest, LoadAloneCallsNothing) {
    EXPECT_TRUE(sameLines(platform.calls(), {}));
}

// The bytes of the program that the loader put into memory, its variables included.
std::string loadedBytes() {
    std::string bytes;
    const auto collect = [](dl_phdr_info* program, size_t, void* into) {
        const int memory = open("/proc/self/mem", O_RDONLY);
        for (unsigned i = 0; i < program->dlpi_phnum; ++i) {
            const ElfW(Phdr)& part = program->dlpi_phdr[i];
            if (part.p_type != PT_LOAD)
                continue;
            std::string chunk(part.p_memsz, '\0');
            const auto from = static_cast<off_t>(program->dlpi_addr + part.p_vaddr);
            EXPECT_LT(0, pread(memory, chunk.data(), chunk.size(), from));
            *static_cast<std::string*>(into) += chunk;
        }
        close(memory);
        return 1;  // the program itself comes first; the libraries are not looked at
    };
    dl_iterate_phdr(collect, &bytes);
    return bytes;
}

TEST_F(LifecycleTest, KeepsTwoNamesInMemoryThatNothingRefersTo) {
    const std::string bytes = loadedBytes();
    for (const char* stage : {"AUTHEN", "AUTHOR"}) {
        // Put together here, so that this test does not contain what it looks for.
        const std::string name = std::string("TAL_") + stage;
        EXPECT_NE(std::string::npos, bytes.find(name)) << name;
    }
    EXPECT_EQ(std::string::npos, bytes.find(std::string("TAL_") + "NOBODY"));
}

TEST_F(LifecycleTest, ConfigurationTreeIsNeitherReadNorWritten) {
    BLEntity& entity = module;
    entity.applyConfiguration(boost::shared_ptr<Storage::Setting>());
    entity.saveConfiguration(boost::shared_ptr<Storage::Setting>());
    EXPECT_TRUE(platform.wholeLog().empty());
}

TEST_F(LifecycleTest, DependenciesAreTheRegistryThenTheBridgeUnderTheirOwnNames) {
    std::list<std::string> dependencies = {"left over"};
    module.getDependencies(dependencies);
    EXPECT_EQ((std::list<std::string>{singleton<Interfaces>::instance().getName(),
                                      singleton<itbridge>::instance().getName()}),
              dependencies);
    EXPECT_TRUE(platform.wholeLog().empty());
}

TEST_F(LifecycleTest, StopReturnsTrueAndDoesNothingElse) {
    startWith({1});
    platform.forget();
    const size_t callbacks = callbacksRegistered();
    EXPECT_TRUE(module.stop());
    EXPECT_TRUE(platform.wholeLog().empty());
    EXPECT_EQ(callbacks, callbacksRegistered());
    EXPECT_TRUE(module.talIsValidIntf(1));
}

// ---- start

TEST_F(LifecycleTest, StartInitialisesEachInterfaceInListOrderThenAppliesTheDefaults) {
    startWith({42, 7});
    EXPECT_TRUE(sameLines(platform.calls({Service::engine}), joined({initCalls(42),
                                                                     initCalls(7),
                                                                     {"ittalRequestState(true)"},
                                                                     defaultCalls(7),
                                                                     defaultCalls(42)})));
    EXPECT_TRUE(
        sameLines(platform.calls({Service::interfaces}), {
                                                             "interfaceListGet() -> 42, 7",
                                                             "interfaceGetTypeById(42) -> 1",
                                                             "interfaceGetTypeById(42) -> 1",
                                                             "interfaceGetTypeById(7) -> 1",
                                                             "interfaceGetTypeById(7) -> 1",
                                                         }));
    EXPECT_TRUE(platform.texts().empty());
    EXPECT_EQ("(none)", storedFile());
}

TEST_F(LifecycleTest, StartSkipsInterfacesOfOtherTypesAndThoseThatCannotSay) {
    for (unsigned id = 1; id <= 4; ++id) {
        platform.interfaces.add(id, id == 3 ? 1 : id, "1/1", "x");
    }
    platform.answers.forIntf("interfaceGetTypeById", 1);
    EXPECT_TRUE(module.start());
    EXPECT_FALSE(module.talIsValidIntf(1));
    EXPECT_FALSE(module.talIsValidIntf(2));
    EXPECT_TRUE(module.talIsValidIntf(3));
    EXPECT_FALSE(module.talIsValidIntf(4));
    EXPECT_TRUE(platform.texts().empty());
}

TEST_F(LifecycleTest, StartWithoutInterfacesStillAppliesGlobalDefaultsAndRegisters) {
    EXPECT_TRUE(module.start());
    EXPECT_TRUE(sameLines(platform.calls(), {
                                                "interfaceListGet() -> none",
                                                "ittalRequestState(true)",
                                            }));
    EXPECT_EQ(4u, callbacksRegistered());
}

TEST_F(LifecycleTest, StartRegistersOneCallbackOfEachKind) {
    startWith({1});
    EXPECT_EQ(1u, singleton<Interfaces>::instance().interfaceEventCallbacks.size());
    EXPECT_EQ(1u, singleton<itbridge>::instance().talEventCallbacks.size());
    EXPECT_EQ(1u, singleton<BLLManager>::instance().configurationApplyStartCallbacks.size());
    EXPECT_EQ(1u, singleton<BLLManager>::instance().configurationApplyStopCallbacks.size());
}

TEST_F(LifecycleTest, RegisteredCallbacksReachTheModule) {
    startWith({1});
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(1, true));
    platform.forget();
    raiseLogin(1);
    EXPECT_EQ(1u, platform.isa.requests().size());
    platform.interfaces.fireEvent(1, 4);
    platform.interfaces.fireEvent(1, 4);
    EXPECT_EQ(1u, platform.count("ittalPortAuthenOperStateSet"));
}

TEST_F(LifecycleTest, SecondStartRegistersOnceMore) {
    startWith({1});
    EXPECT_TRUE(module.start());
    EXPECT_EQ(8u, callbacksRegistered());
}

TEST_F(LifecycleTest, InterfaceThatCannotBeInitialisedEndsTheStart) {
    for (const unsigned id : {1u, 2u, 3u}) {
        addInterface(id);
    }
    platform.answers.forIntf("ittalListSet", 2);
    EXPECT_FALSE(module.start());
    EXPECT_TRUE(module.talIsValidIntf(1));
    EXPECT_TRUE(module.talIsValidIntf(2));
    EXPECT_FALSE(module.talIsValidIntf(3));
    EXPECT_EQ(0u, platform.count("ittalRequestState"));
    EXPECT_EQ(0u, callbacksRegistered());
}

TEST_F(LifecycleTest, DefaultsThatCannotBeAppliedEndTheStartWithoutCallbacks) {
    addInterface(1);
    platform.answers.always("ittalRequestState");
    EXPECT_FALSE(module.start());
    EXPECT_EQ(0u, callbacksRegistered());
    EXPECT_TRUE(sameLines(platform.texts(),
                          {"warning: talRequestStateSet Error setting TAL request state to 1."}));
}

class Overriding : public tal {
public:
    bool defaults = true;
    int applied = 0;
    int starts = 0;
    int stops = 0;
    bool applyDefaultSettings() override {
        ++applied;
        return defaults;
    }
    void configurationApplyStart() override { ++starts; }
    void configurationApplyStop() override { ++stops; }
};

TEST_F(LifecycleTest, StartCallsTheOverriddenDefaultsAndRegistersOverriddenCallbacks) {
    Overriding own;
    EXPECT_TRUE(own.start());
    EXPECT_EQ(1, own.applied);
    EXPECT_EQ(0u, platform.count("ittalRequestState"));
    platform.manager.applyStart();
    platform.manager.applyStop();
    EXPECT_EQ(1, own.starts);
    EXPECT_EQ(1, own.stops);

    Overriding failing;
    failing.defaults = false;
    const size_t before = callbacksRegistered();
    EXPECT_FALSE(failing.start());
    EXPECT_EQ(before, callbacksRegistered());
}

TEST_F(LifecycleTest, NothingIsDeletedDuringStart) {
    storeLogins({1});
    const std::string before = storedFile();
    platform.forget();
    startWith({1});
    EXPECT_EQ(before, storedFile());
    EXPECT_TRUE(sameLines(platform.calls({Service::profiles, Service::acl, Service::ports}), {}));
    EXPECT_EQ(0u, platform.count("ittalConditionAdd"));
    EXPECT_EQ(0u, platform.count("ittalConditionDel"));
}

TEST_F(LifecycleTest, KeepsStartInProgressAfterAStartThatFailed) {
    addInterface(1);
    platform.answers.nth("ittalRequestState", 1);
    ASSERT_FALSE(module.start());
    storeLogins({1});
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(1, true));
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(1, false));
    EXPECT_TRUE(isStored(1));
    EXPECT_EQ(0u, platform.count("saveDynamicProfiles"));

    ASSERT_TRUE(module.start());
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(1, true));
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(1, false));
    EXPECT_FALSE(isStored(1));
    EXPECT_EQ(1u, platform.count("saveDynamicProfiles"));
}

TEST_F(LifecycleTest, SweptStartFailsCleanlyOrSkipsTheInterface) {
    for (const unsigned id : {1u, 2u}) {
        addInterface(id);
    }
    std::unique_ptr<tal> fresh;
    bool started = false;
    size_t callbacksBefore = 0;
    const unsigned runs = fake::sweepFaults(
        platform,
        [&] {
            fresh = std::make_unique<tal>();
            callbacksBefore = callbacksRegistered();
        },
        [&] { started = fresh->start(); },
        [&](const fake::FaultRun& run) {
            const Lines texts = platform.texts();
            EXPECT_EQ(started ? callbacksBefore + 4 : callbacksBefore, callbacksRegistered());
            const std::string& name = run.refused.name;
            if (!run.faulted) {
                EXPECT_TRUE(started);
                EXPECT_TRUE(texts.empty());
            } else if (name == "interfaceListGet") {
                EXPECT_EQ(0u, platform.count("ittalSelectorAdd"));
            } else if (name == "interfaceGetTypeById") {
                // Asked twice per interface: the first refusal skips it, the second ends all.
                const unsigned id = static_cast<unsigned>(std::stoul(run.refused.key));
                size_t asked = 0;
                for (const fake::Call& query : platform.find(name)) {
                    asked += query.key == run.refused.key ? 1 : 0;
                }
                EXPECT_EQ(asked == 1, started);
                EXPECT_FALSE(fresh->talIsValidIntf(id));
                EXPECT_TRUE(texts.empty());
            } else {
                EXPECT_FALSE(started);
                const bool silent = name == "ittalSelectorAdd" || name == "ittalActionListAdd" ||
                                    name == "ittalActionAdd" || name == "ittalListSet";
                EXPECT_EQ(silent ? 0u : 1u, texts.size());
                const bool lock = run.refused.service == Service::lock;
                if (lock && texts.size() == 1) {
                    EXPECT_EQ(0u,
                              texts[0].find("log 1: Error obtaining exclusive lock in tal::tal"));
                }
            }
        });
    // 1 list, 2 x 2 type queries, 5 object calls and 6 settings (2 locks each, 5 engine calls)
    // per interface; then 2 global setters, 1 engine call, 6 settings per interface with 3
    // engine calls; and the clean run.
    EXPECT_EQ(1u + 4 + 2 * (5 + 12 + 5) + 3 + 2 * (12 + 3) + 1, runs);
}

// ---- defaults

TEST_F(LifecycleTest, DefaultsVisitAllInterfacesThoughOneFails) {
    startWith({1, 2, 3});
    platform.forget();
    platform.answers.forIntf("ittalPortTimeoutSet", 2);
    EXPECT_FALSE(module.applyDefaultSettings());
    EXPECT_TRUE(
        sameLines(platform.calls({Service::engine}),
                  joined({{"ittalRequestState(true)"},
                          defaultCalls(1),
                          {"ittalPortAutoReqAdminStateSet(2, false)",
                           "ittalPortTimeoutSet(2, 120) = 1", "ittalPortMaxQueueSizeSet(2, 1)"},
                          defaultCalls(3)})));
}

TEST_F(LifecycleTest, DefaultsVisitTheInterfacesThoughTheGlobalOnesFail) {
    startWith({1});
    platform.forget();
    platform.answers.always("ittalRequestState");
    EXPECT_FALSE(module.applyDefaultSettings());
    EXPECT_TRUE(sameLines(platform.calls({Service::engine}),
                          joined({{"ittalRequestState(true) = 1"}, defaultCalls(1)})));
}

TEST_F(LifecycleTest, DefaultsBringEveryGlobalAndInterfaceSettingBack) {
    startWith({1});
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(1, true));
    ASSERT_EQ(talResOk, module.talIntfTimeoutSet(1, 7));
    EXPECT_TRUE(module.applyDefaultSettings());
    EXPECT_FALSE(adminState());
    bool state = true;
    uint32_t timeout = 0;
    EXPECT_EQ(talResOk, module.talIntfAdminStateGet(1, &state));
    EXPECT_FALSE(state);
    EXPECT_EQ(talResOk, module.talIntfTimeoutGet(1, &timeout));
    EXPECT_EQ(120u, timeout);
}

// ---- configuration apply

TEST_F(LifecycleTest, FirstApplyStopReplaysStoredLoginsAndLaterOnesNever) {
    startWith({1, 2});
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(0, true));
    storeLogins({2});
    platform.forget();
    platform.manager.applyStart();
    EXPECT_TRUE(sameLines(platform.calls(), {}));
    platform.manager.applyStop(7);
    EXPECT_TRUE(sameLines(platform.calls(), {"ittalStoredReqSend(2)"}));
    for (int i = 0; i < 3; ++i) {
        platform.manager.applyStart();
        platform.manager.applyStop(0);
    }
    EXPECT_EQ(1u, platform.count("ittalStoredReqSend"));
    EXPECT_TRUE(isStored(2));
}

TEST_F(LifecycleTest, ReplayThatFailsIsNotRepeated) {
    startWith({1});
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(1, true));
    storeLogins({1});
    platform.answers.always("ittalStoredReqSend");
    platform.manager.applyStop();
    platform.manager.applyStop();
    EXPECT_EQ(1u, platform.count("ittalStoredReqSend"));
    EXPECT_TRUE(sameLines(platform.texts(),
                          {"warning: talApplyStoredData Error sending stored request signal to "
                           "kernel for interface 1."}));
}

TEST_F(LifecycleTest, FirstApplyStopWithTalOffEmptiesTheStorageFile) {
    startWith({1});
    storeLogins({1});
    platform.forget();
    platform.manager.applyStop();
    EXPECT_EQ("", storedFile());
    EXPECT_TRUE(sameLines(platform.calls(), {}));
    storeLogins({1});
    platform.manager.applyStop();
    EXPECT_TRUE(isStored(1));
}

TEST_F(LifecycleTest, NewRulePurgesStoredLoginsOnlyOutsideAConfigurationApply) {
    startWith({1});
    ASSERT_EQ(0u, module.talAdminStateSet(true));
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(1, true));
    talRule rule = typeZeroRule();

    storeLogins({1});
    platform.manager.applyStart();
    ASSERT_EQ(talResOk, module.talRuleSet(1, &rule, talOperationAdd));
    EXPECT_TRUE(isStored(1));
    platform.manager.applyStop();

    rule.type = talRuleTypeValue8;
    rule.type8Value = 5;
    ASSERT_EQ(talResOk, module.talRuleSet(1, &rule, talOperationAdd));
    EXPECT_FALSE(isStored(1));
}

}  // namespace
