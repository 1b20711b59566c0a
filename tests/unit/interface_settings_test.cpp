// The six settings of an interface: one table says how they are alike and where they differ,
// and every rule of the frame is tested for each of them.
#include "tests/fake/module_test.h"

#include <functional>
#include <ostream>
#include <string>
#include <vector>

using fake::sameLines;
using fake::Service;
using Lines = std::vector<std::string>;

namespace {

enum class Held { skipped, endsWalk, setAgain };

struct Setting {
    std::string name;     // of the members: talIntf<name>Set
    std::string subject;  // in the texts: "TAL<subject>"
    bool isBool;
    uint32_t defaultValue;
    uint32_t other;  // a permitted value that is not the default
    Held held;
    std::function<unsigned(tal&, unsigned, uint32_t)> set;
    std::function<unsigned(tal&, unsigned, uint32_t*)> get;
    std::function<unsigned(tal&, unsigned)> defaultSet;
    std::function<unsigned(tal&, unsigned, uint32_t*)> defaultGet;

    std::string engineCall() const { return "ittalPort" + name + "Set"; }
    std::string engineLine(unsigned id, uint32_t value) const {
        return engineCall() + "(" + std::to_string(id) + ", " +
               (isBool ? fake::shown(value != 0) : fake::shown(value)) + ")";
    }
    std::string refusedText(unsigned id, uint32_t value, bool walk) const {
        const bool errorMissing = walk && name == "MaxQueueSize";
        return "warning: talIntf" + name + "Set " + (errorMissing ? "" : "Error ") + "setting TAL" +
               subject + " to " + std::to_string(value) + " on interface " + std::to_string(id) +
               ".";
    }
};

void PrintTo(const Setting& setting, std::ostream* out) {
    *out << setting.name;
}

using BoolSet = talResultCode (tal::*)(unsigned, bool);
using BoolGet = talResultCode (tal::*)(unsigned, bool*);
using NumberSet = talResultCode (tal::*)(unsigned, uint32_t);
using NumberGet = talResultCode (tal::*)(unsigned, uint32_t*);
using DefaultSet = unsigned (tal::*)(unsigned);

std::function<unsigned(tal&, unsigned, uint32_t*)> boolGetter(BoolGet get) {
    return [get](tal& module, unsigned id, uint32_t* value) -> unsigned {
        if (value == nullptr) {
            return (module.*get)(id, nullptr);
        }
        bool state = *value != 0;
        const unsigned result = (module.*get)(id, &state);
        *value = state ? 1 : 0;
        return result;
    };
}

Setting boolSetting(const std::string& name, const std::string& subject, bool defaultValue,
                    Held held, BoolSet set, BoolGet get, DefaultSet defaultSet,
                    BoolGet defaultGet) {
    return {
        name,
        subject,
        true,
        defaultValue,
        !defaultValue,
        held,
        [set](tal& module, unsigned id, uint32_t value) -> unsigned {
            return (module.*set)(id, value != 0);
        },
        boolGetter(get),
        [defaultSet](tal& module, unsigned id) { return (module.*defaultSet)(id); },
        boolGetter(defaultGet),
    };
}

Setting numberSetting(const std::string& name, const std::string& subject, uint32_t defaultValue,
                      uint32_t other, NumberSet set, NumberGet get, DefaultSet defaultSet,
                      NumberGet defaultGet) {
    const auto getter = [](NumberGet member) {
        return [member](tal& module, unsigned id, uint32_t* value) -> unsigned {
            return (module.*member)(id, value);
        };
    };
    return {
        name,
        subject,
        false,
        defaultValue,
        other,
        Held::setAgain,
        [set](tal& module, unsigned id, uint32_t value) -> unsigned {
            return (module.*set)(id, value);
        },
        getter(get),
        [defaultSet](tal& module, unsigned id) { return (module.*defaultSet)(id); },
        getter(defaultGet),
    };
}

std::vector<Setting> allSettings() {
    return {
        boolSetting("AdminState", "", false, Held::skipped, &tal::talIntfAdminStateSet,
                    &tal::talIntfAdminStateGet, &tal::talIntfAdminStateDefaultSet,
                    &tal::talIntfAdminStateDefaultGet),
        boolSetting("AuthenAdminState", " authentication", true, Held::endsWalk,
                    &tal::talIntfAuthenAdminStateSet, &tal::talIntfAuthenAdminStateGet,
                    &tal::talIntfAuthenAdminStateDefaultSet,
                    &tal::talIntfAuthenAdminStateDefaultGet),
        boolSetting("AuthorAdminState", " authorization", true, Held::endsWalk,
                    &tal::talIntfAuthorAdminStateSet, &tal::talIntfAuthorAdminStateGet,
                    &tal::talIntfAuthorAdminStateDefaultSet,
                    &tal::talIntfAuthorAdminStateDefaultGet),
        boolSetting("AutoReqAdminState", " automatic request", false, Held::setAgain,
                    &tal::talIntfAutoReqAdminStateSet, &tal::talIntfAutoReqAdminStateGet,
                    &tal::talIntfAutoReqAdminStateDefaultSet,
                    &tal::talIntfAutoReqAdminStateDefaultGet),
        numberSetting("Timeout", " timeout", 120, 77, &tal::talIntfTimeoutSet,
                      &tal::talIntfTimeoutGet, &tal::talIntfTimeoutDefaultSet,
                      &tal::talIntfTimeoutDefaultGet),
        numberSetting("MaxQueueSize", " max queue size", 1, 9, &tal::talIntfMaxQueueSizeSet,
                      &tal::talIntfMaxQueueSizeGet, &tal::talIntfMaxQueueSizeDefaultSet,
                      &tal::talIntfMaxQueueSizeDefaultGet),
    };
}

class InterfaceSettingsFixture : public ModuleTest {
protected:
    Lines engineCalls() const { return platform.calls({Service::engine}); }
    Lines profileCalls() const {
        return platform.calls({Service::profiles, Service::acl, Service::ports});
    }
    std::string refusedLock(const std::string& operation) const {
        return "log 1: Error obtaining exclusive lock in tal::" + operation + ".";
    }
};

class EverySettingTest : public InterfaceSettingsFixture,
                         public testing::WithParamInterface<Setting> {
protected:
    const Setting& setting = GetParam();

    uint32_t value(unsigned id) {
        uint32_t read = 4711;
        EXPECT_EQ(0u, setting.get(module, id, &read));
        return read;
    }
    unsigned set(unsigned id, uint32_t to) { return setting.set(module, id, to); }
};

INSTANTIATE_TEST_SUITE_P(Settings, EverySettingTest, testing::ValuesIn(allSettings()),
                         [](const auto& setting) { return setting.param.name; });

// ---- one interface

TEST_P(EverySettingTest, ValueReachesTheEngineThenTheTable) {
    startWith({5, 7});
    platform.forget();
    EXPECT_EQ(0u, set(7, setting.other));
    EXPECT_TRUE(sameLines(engineCalls(), {setting.engineLine(7, setting.other)}));
    EXPECT_EQ(setting.other, value(7));
    EXPECT_EQ(setting.defaultValue, value(5));
    EXPECT_TRUE(platform.texts().empty());
}

TEST_P(EverySettingTest, RefusedValueIsReportedAndNeverInTheTable) {
    startWith({7});
    platform.forget();
    platform.answers.always(setting.engineCall(), -7);
    EXPECT_EQ(1u, set(7, setting.other));
    EXPECT_EQ(setting.defaultValue, value(7));
    EXPECT_TRUE(sameLines(platform.texts(), {setting.refusedText(7, setting.other, false)}));
    EXPECT_TRUE(profileCalls().empty());
}

TEST_P(EverySettingTest, RefusedDefaultIsReportedWithItsValue) {
    startWith({7});
    ASSERT_EQ(0u, set(7, setting.other));
    platform.forget();
    platform.answers.always(setting.engineCall());
    EXPECT_EQ(1u, set(7, setting.defaultValue));
    EXPECT_EQ(setting.other, value(7));
    EXPECT_TRUE(sameLines(platform.texts(), {setting.refusedText(7, setting.defaultValue, false)}));
}

TEST_P(EverySettingTest, HeldValueIsSetAgainOnlyWhereNothingIsCompared) {
    startWith({7});
    ASSERT_EQ(0u, set(7, setting.other));
    storeLogins({7});
    platform.forget();
    EXPECT_EQ(0u, set(7, setting.other));
    const Lines again = {setting.engineLine(7, setting.other)};
    EXPECT_TRUE(sameLines(engineCalls(), setting.held == Held::setAgain ? again : Lines()));
    EXPECT_TRUE(profileCalls().empty());
    EXPECT_TRUE(platform.texts().empty());
}

TEST_P(EverySettingTest, HeldDefaultDeletesNothing) {
    startWith({7});
    storeLogins({7});
    platform.forget();
    EXPECT_EQ(0u, set(7, setting.defaultValue));
    EXPECT_TRUE(isStored(7));
    EXPECT_TRUE(profileCalls().empty());
}

TEST_P(EverySettingTest, UnknownInterfaceIsThreeAndSilent) {
    startWith({7});
    platform.forget();
    EXPECT_EQ(3u, set(8, setting.other));
    uint32_t read = 4711;
    EXPECT_EQ(3u, setting.get(module, 8, &read));
    EXPECT_EQ(3u, setting.get(module, 8, nullptr));
    EXPECT_EQ(1u, setting.defaultSet(module, 8));
    EXPECT_TRUE(platform.calls().empty());
    EXPECT_TRUE(platform.texts().empty());
    platform.forget();
    EXPECT_EQ(0u, set(0, setting.other));
    EXPECT_EQ(1u, engineCalls().size()) << "no entry may have been made";
}

// ---- getters and defaults

TEST_P(EverySettingTest, GetterReadsTheTableUnderTheSharedLockWithoutTheEngine) {
    startWith({7});
    platform.forget();
    EXPECT_EQ(setting.defaultValue, value(7));
    EXPECT_TRUE(platform.calls().empty());
    EXPECT_EQ("sharedLock()", platform.calls({Service::lock}).front());
    EXPECT_EQ("sharedUnlock()", platform.calls({Service::lock}).back());
    EXPECT_EQ(0u, platform.count("exclusiveLock"));
    EXPECT_EQ(1u, setting.get(module, 7, nullptr));
    EXPECT_TRUE(platform.texts().empty());
}

TEST_P(EverySettingTest, DefaultGetterTakesNoLock) {
    startWith({7});
    platform.forget();
    uint32_t read = setting.other;
    EXPECT_EQ(0u, setting.defaultGet(module, 7, &read));
    EXPECT_EQ(setting.defaultValue, read);
    read = setting.other;
    EXPECT_EQ(0u, setting.defaultGet(module, 0, &read));
    EXPECT_EQ(setting.defaultValue, read);
    EXPECT_EQ(3u, setting.defaultGet(module, 8, &read));
    EXPECT_EQ(3u, setting.defaultGet(module, 8, nullptr));
    EXPECT_EQ(1u, setting.defaultGet(module, 7, nullptr));
    EXPECT_TRUE(platform.wholeLog().empty());
}

TEST_P(EverySettingTest, DefaultSetterSetsTheDefault) {
    startWith({7});
    ASSERT_EQ(0u, set(7, setting.other));
    platform.forget();
    EXPECT_EQ(0u, setting.defaultSet(module, 7));
    EXPECT_TRUE(sameLines(engineCalls(), {setting.engineLine(7, setting.defaultValue)}));
    EXPECT_EQ(setting.defaultValue, value(7));
}

TEST_P(EverySettingTest, DefaultSetterFailsAsOneWhateverTheSetterSaid) {
    startWith({7});
    ASSERT_EQ(0u, set(7, setting.other));
    platform.answers.always(setting.engineCall(), 9);
    EXPECT_EQ(1u, setting.defaultSet(module, 7));
    EXPECT_EQ(1u, setting.defaultSet(module, 8));
    platform.answers.always("exclusiveLock");
    EXPECT_EQ(1u, setting.defaultSet(module, 7));
}

TEST_P(EverySettingTest, DefaultSetterForZeroCoversAllInterfaces) {
    startWith({5, 7});
    ASSERT_EQ(0u, set(5, setting.other));
    ASSERT_EQ(0u, set(7, setting.other));
    EXPECT_EQ(0u, setting.defaultSet(module, 0));
    EXPECT_EQ(setting.defaultValue, value(5));
    EXPECT_EQ(setting.defaultValue, value(7));
}

// ---- locks

TEST_P(EverySettingTest, SetterHoldsTheExclusiveLockAcrossTheEngineCall) {
    startWith({7});
    platform.forget();
    ASSERT_EQ(0u, set(7, setting.other));
    ASSERT_EQ(0u, set(0, setting.defaultValue));
    for (const fake::Call& call : platform.find(setting.engineCall())) {
        EXPECT_EQ(1, call.exclusiveHeld);
    }
    EXPECT_EQ("exclusiveLock()", platform.calls({Service::lock}).front());
    EXPECT_EQ("exclusiveUnlock()", platform.calls({Service::lock}).back());
}

TEST_P(EverySettingTest, RefusedLockIsReportedByNameAndDoesNothing) {
    startWith({7});
    platform.forget();
    platform.answers.nth("exclusiveLock", 1);
    platform.answers.nth("sharedLock", 1);
    EXPECT_EQ(1u, set(7, setting.other));
    EXPECT_TRUE(sameLines(platform.texts(), {refusedLock("talIntf" + setting.name + "Set")}));
    uint32_t read = 4711;
    platform.forget();
    EXPECT_EQ(1u, setting.get(module, 7, &read));
    EXPECT_TRUE(sameLines(platform.texts(), {refusedLock("talIntf" + setting.name + "Get")}));
    EXPECT_TRUE(platform.calls().empty());
    EXPECT_EQ(setting.defaultValue, value(7));
}

TEST_P(EverySettingTest, RefusedLockOfTheCheckReadsAsUnknownInterface) {
    startWith({7});
    platform.forget();
    platform.answers.nth("sharedLock", 1);
    EXPECT_EQ(3u, set(7, setting.other));
    platform.answers.nth("sharedLock", 2);
    uint32_t read = 4711;
    EXPECT_EQ(3u, setting.get(module, 7, &read));
    EXPECT_TRUE(platform.calls().empty());
    EXPECT_TRUE(sameLines(platform.texts(),
                          {refusedLock("talIsValidIntf"), refusedLock("talIsValidIntf")}));
}

// ---- all interfaces

TEST_P(EverySettingTest, ZeroSetsEveryInterfaceInAscendingOrder) {
    startWith({42, 5, 7});
    platform.forget();
    EXPECT_EQ(0u, set(0, setting.other));
    EXPECT_TRUE(sameLines(
        engineCalls(), {setting.engineLine(5, setting.other), setting.engineLine(7, setting.other),
                        setting.engineLine(42, setting.other)}));
    for (const unsigned id : {5u, 7u, 42u}) {
        EXPECT_EQ(setting.other, value(id));
    }
    EXPECT_TRUE(platform.texts().empty());
}

TEST_P(EverySettingTest, ZeroOnAnEmptyTableSucceeds) {
    EXPECT_EQ(0u, set(0, setting.other));
    EXPECT_TRUE(engineCalls().empty());
}

TEST_P(EverySettingTest, WalkMeetsAHeldValue) {
    startWith({5, 6, 7});
    ASSERT_EQ(0u, set(6, setting.other));
    platform.forget();
    EXPECT_EQ(0u, set(0, setting.other));
    Lines expected = {setting.engineLine(5, setting.other)};
    if (setting.held == Held::setAgain) {
        expected.push_back(setting.engineLine(6, setting.other));
    }
    if (setting.held != Held::endsWalk) {
        expected.push_back(setting.engineLine(7, setting.other));
    }
    EXPECT_TRUE(sameLines(engineCalls(), expected));
    EXPECT_EQ(setting.held == Held::endsWalk ? setting.defaultValue : setting.other, value(7));
}

TEST_P(EverySettingTest, WalkEndsAtTheFirstRefusalWithoutTakingBack) {
    startWith({5, 6, 7});
    platform.forget();
    platform.answers.forIntf(setting.engineCall(), 6, -1);
    EXPECT_EQ(1u, set(0, setting.other));
    EXPECT_EQ(setting.other, value(5));
    EXPECT_EQ(setting.defaultValue, value(6));
    EXPECT_EQ(setting.defaultValue, value(7));
    EXPECT_EQ(2u, engineCalls().size());
    EXPECT_TRUE(sameLines(platform.texts(), {setting.refusedText(6, setting.other, true)}));
    EXPECT_TRUE(profileCalls().empty());
}

TEST_P(EverySettingTest, KeepsAnEntryForInterfaceZeroAfterReadingIt) {
    startWith({7});
    EXPECT_EQ(0u, value(0)) << "an all-zero entry";
    platform.forget();
    const uint32_t nonZero = setting.isBool ? 1 : setting.other;
    ASSERT_EQ(0u, set(7, nonZero == setting.defaultValue ? 0 : setting.defaultValue));
    platform.forget();
    EXPECT_EQ(0u, set(0, nonZero));
    EXPECT_EQ(setting.engineLine(0, nonZero), engineCalls().front());
    EXPECT_EQ(nonZero, value(0));
}

TEST_P(EverySettingTest, NullOutputForZeroLeavesNoEntryBehind) {
    startWith({7});
    EXPECT_EQ(1u, setting.get(module, 0, nullptr));
    platform.forget();
    EXPECT_EQ(0u, set(0, setting.other));
    EXPECT_TRUE(sameLines(engineCalls(), {setting.engineLine(7, setting.other)}));
}

// ---- refusals, one after the other

TEST_P(EverySettingTest, SweptSetterKeepsTableAndResultTogether) {
    startWith({5, 7});
    for (const unsigned target : {7u, 0u}) {
        unsigned result = 0;
        fake::sweepFaults(
            platform,
            [&] {
                ASSERT_EQ(0u, set(5, setting.defaultValue));
                ASSERT_EQ(0u, set(7, setting.defaultValue));
            },
            [&] { result = set(target, setting.other); },
            [&](const fake::FaultRun& run) {
                const size_t texts = platform.texts().size();
                const bool engine = run.refused.name == setting.engineCall();
                const bool check = run.refused.name == "sharedLock" && run.number == 2;
                const unsigned expected = run.faulted && (run.number == 1 || engine) ? 1
                                          : check                                    ? 3
                                                                                     : 0;
                EXPECT_EQ(expected, result);
                if (engine) {
                    EXPECT_EQ(1u, texts);
                }
                EXPECT_EQ(result == 0 ? setting.other : setting.defaultValue, value(7));
                const bool walked = target == 0 && (result == 0 || (engine && run.number > 3));
                EXPECT_EQ(walked ? setting.other : setting.defaultValue, value(5));
            });
    }
}

// ---- ranges

struct Range {
    const char* name;
    uint32_t value;
    bool permitted;
};

TEST(RangeTable, LimitsAreInside) {
    FakePlatform platform;
    tal& module = singleton<tal>::instance();
    platform.interfaces.add(7, 1, "1/7", "if7_");
    ASSERT_TRUE(module.start());
    const std::vector<Setting> settings = allSettings();
    const Range ranges[] = {
        {"Timeout", 0, false},          {"Timeout", 1, true},
        {"Timeout", 2, true},           {"Timeout", 299, true},
        {"Timeout", 300, true},         {"Timeout", 301, false},
        {"Timeout", 0x80000000, false}, {"Timeout", 0xFFFFFFFF, false},
        {"MaxQueueSize", 0, false},     {"MaxQueueSize", 1, true},
        {"MaxQueueSize", 2, true},      {"MaxQueueSize", 99, true},
        {"MaxQueueSize", 100, true},    {"MaxQueueSize", 101, false},
        {"MaxQueueSize", 300, false},   {"MaxQueueSize", 0xFFFFFFFF, false},
    };
    for (const Range& range : ranges) {
        const Setting& setting = settings[range.name == std::string("Timeout") ? 4 : 5];
        for (const unsigned id : {7u, 0u}) {
            uint32_t before = 0;
            ASSERT_EQ(0u, setting.get(module, 7, &before));
            platform.forget();
            EXPECT_EQ(range.permitted ? 0u : 1u, setting.set(module, id, range.value))
                << range.name << " " << range.value << " on " << id;
            EXPECT_EQ(range.permitted ? 1u : 0u, platform.calls().size());
            EXPECT_TRUE(platform.texts().empty());
            uint32_t after = 0;
            ASSERT_EQ(0u, setting.get(module, 7, &after));
            EXPECT_EQ(range.permitted ? range.value : before, after);
        }
        EXPECT_EQ(3u, setting.set(module, 8, range.value)) << "the interface is checked first";
    }
}

}  // namespace
