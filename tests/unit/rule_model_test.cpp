// The rule record, its types, result codes and compatibility checks.
#include "tests/fake/module_test.h"
#include "tests/unit/rule_builders.h"

#include <limits.h>
#include <stddef.h>

#include <type_traits>

namespace {

using fake::sameLines;
using fake::Service;

static_assert(offsetof(talRule, type0Value) == 0);
static_assert(offsetof(talRule, macAddr) == 4);
static_assert(offsetof(talRule, macMask) == 10);
static_assert(offsetof(talRule, ipValue) == 16);
static_assert(offsetof(talRule, ipMask) == 20);
static_assert(offsetof(talRule, ethType) == 24);
static_assert(offsetof(talRule, type8Value) == 28);
static_assert(offsetof(talRule, type2Flag) == 32);
static_assert(offsetof(talRule, pattern) == 36);
static_assert(offsetof(talRule, userPatternSequence) == 828);
static_assert(offsetof(talRule, userPatternMask) == 956);
static_assert(offsetof(talRule, type) == 1084);
static_assert(offsetof(talRulePattern, data) == 4);
static_assert(offsetof(talRulePattern, length) == 260);
static_assert(std::is_same_v<std::underlying_type_t<talRuleType>, int32_t>);
static_assert(std::is_same_v<std::underlying_type_t<rpc_tal_rule_type>, int32_t>);
static_assert(std::is_same_v<std::underlying_type_t<talPatternFormat>, uint32_t>);
static_assert(std::is_same_v<std::underlying_type_t<talOperation>, uint32_t>);
static_assert(std::is_same_v<std::underlying_type_t<talResultCode>, uint32_t>);
static_assert(std::is_same_v<std::underlying_type_t<rpc_tal_res>, uint32_t>);
static_assert(talResOk == 0 && talResError == 1 && talResRuleInvalid == 2 &&
              talResIntfInvalid == 3 && talResCode4 == 4);

const std::vector<std::string> lockLog(const std::string& name) {
    return {"setMsgLevel(1)", "write(\"Error obtaining exclusive lock in \")",
            "write(\"" + name + ".\\n\")"};
}

class RuleModelTest : public ModuleTest {
protected:
    void put(unsigned intf, const talRule& rule) {
        talRule copy = rule;
        ASSERT_EQ(talResOk, module.talRuleSet(intf, &copy, rules::add));
    }
    bool compatible(unsigned intf, talRule rule) {
        return module.talArpEthTypeCompatCheck(intf, &rule);
    }
    talResultCode valid(unsigned intf, talRule rule) { return module.talRuleIsValid(intf, &rule); }
    talResultCode bundleValid(talRule bundle) { return module.talRuleBundleIsValid(&bundle); }
};

TEST_F(RuleModelTest, DefaultWritesTheUnsetMarkersAndClearsThePairs) {
    talRule rule;
    memset(static_cast<void*>(&rule), 0xAB, sizeof(rule));
    module.setTalRuleDefault(&rule);
    EXPECT_EQ(rules::unset, rule.type0Value);
    EXPECT_EQ(rules::unset, rule.ethType);
    EXPECT_EQ(rules::unset, rule.type8Value);
    EXPECT_EQ(rules::unset, rule.type2Flag);
    EXPECT_EQ(0u, rule.ipValue);
    EXPECT_EQ(0u, rule.ipMask);
    EXPECT_EQ(std::string(12, '\0'), rules::slot(rule, 6));
    EXPECT_EQ(std::string(256, '\0'), rules::slot(rule, 9));
    EXPECT_EQ(-1, static_cast<int>(rule.type));
    for (const talRulePattern& pattern : rule.pattern) {
        EXPECT_EQ(rules::unset, static_cast<uint32_t>(pattern.format));
        EXPECT_EQ(0, pattern.data[0]);
    }
    EXPECT_TRUE(platform.calls({Service::lock}).empty());
}

TEST_F(RuleModelTest, KeepsPatternDataBehindTheFirstByteAndTheLength) {
    talRule rule;
    memset(static_cast<void*>(&rule), 0xAB, sizeof(rule));
    module.setTalRuleDefault(&rule);
    for (const talRulePattern& pattern : rule.pattern) {
        EXPECT_EQ(std::string(255, '\xAB'), std::string(pattern.data + 1, 255));
        EXPECT_EQ(0xABABABABu, pattern.length);
    }
}

TEST_F(RuleModelTest, RuleTypesZeroToNineTranslateToThemselvesBothWays) {
    for (const int type : rules::types) {
        auto inside = static_cast<talRuleType>(-7);
        EXPECT_TRUE(module.talRuleTypeSet(static_cast<rpc_tal_rule_type>(type), &inside));
        EXPECT_EQ(type, static_cast<int>(inside));
        auto outside = static_cast<rpc_tal_rule_type>(-7);
        EXPECT_TRUE(module.rpcTalRuleTypeSet(static_cast<talRuleType>(type), &outside));
        EXPECT_EQ(type, static_cast<int>(outside));
    }
}

TEST_F(RuleModelTest, OtherRuleTypesAreRefusedAndLeaveTheOutputAlone) {
    for (const int type : {10, 11, 12, -1, -2, 0x10000, INT_MAX, INT_MIN}) {
        auto inside = static_cast<talRuleType>(4711);
        EXPECT_FALSE(module.talRuleTypeSet(static_cast<rpc_tal_rule_type>(type), &inside)) << type;
        EXPECT_EQ(4711, static_cast<int>(inside));
        auto outside = static_cast<rpc_tal_rule_type>(4712);
        EXPECT_FALSE(module.rpcTalRuleTypeSet(static_cast<talRuleType>(type), &outside)) << type;
        EXPECT_EQ(4712, static_cast<int>(outside));
    }
}

TEST_F(RuleModelTest, ResultCodesZeroToFourAreWrittenUnchanged) {
    for (unsigned code = 0; code <= 4; ++code) {
        auto out = static_cast<rpc_tal_res>(99);
        EXPECT_TRUE(module.talResTypeSet(static_cast<talResultCode>(code), &out));
        EXPECT_EQ(code, static_cast<unsigned>(out));
    }
}

TEST_F(RuleModelTest, KeepsTheOutputForResultCodesFromFiveOnAndStillAnswersTrue) {
    for (const unsigned code : {5u, 6u, 7u, 255u, 0x80000000u, 0xFFFFFFFFu}) {
        auto out = static_cast<rpc_tal_res>(99);
        EXPECT_TRUE(module.talResTypeSet(static_cast<talResultCode>(code), &out)) << code;
        EXPECT_EQ(99u, static_cast<unsigned>(out));
    }
}

TEST_F(RuleModelTest, MacIsNullOnlyWhenAllSixBytesAreZero) {
    unsigned char mac[8] = {0, 0, 0, 0, 0, 0, 1, 1};
    EXPECT_TRUE(module.talIsMacNull(mac));
    for (unsigned i = 0; i < 6; ++i) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            mac[i] = static_cast<unsigned char>(1u << bit);
            EXPECT_FALSE(module.talIsMacNull(mac)) << i << " " << bit;
        }
        mac[i] = 0;
    }
}

TEST_F(RuleModelTest, UserMaskIsNullOnlyWhenAllThirtyTwoWordsAreZero) {
    uint32_t words[33] = {};
    words[32] = 1;
    EXPECT_TRUE(module.talIsUserMaskNull(words));
    for (unsigned i = 0; i < 32; ++i) {
        for (const uint32_t word : {1u, 0x100u, 0x10000u, 0x80000000u}) {
            words[i] = word;
            EXPECT_FALSE(module.talIsUserMaskNull(words)) << i;
        }
        words[i] = 0;
    }
}

TEST_F(RuleModelTest, EtherTypeIpv4IsCompatibleWithEveryRule) {
    startWith({1});
    for (const int type : rules::types) {
        put(1, rules::some(type));
    }
    EXPECT_TRUE(compatible(1, rules::value(1, rules::ipv4)));
}

TEST_F(RuleModelTest, OtherEtherTypeIsRefusedBesideEachIpv4LayerRule) {
    startWith({1, 2});
    for (const int type : {2, 3, 4, 5, 7}) {
        talRule rule = rules::some(type);
        put(1, rule);
        for (const uint32_t ethType : {0x86DDu, rules::arp, 0u, 0xFFFFFFFEu, rules::unset}) {
            EXPECT_FALSE(compatible(1, rules::value(1, ethType))) << type << " " << ethType;
            EXPECT_EQ(talResRuleInvalid, valid(1, rules::value(1, ethType)));
            EXPECT_TRUE(compatible(2, rules::value(1, ethType))) << "the other interface is free";
        }
        talRule none = rules::blank(type);
        ASSERT_EQ(talResOk, module.talRuleSet(1, &none, rules::remove));
        EXPECT_TRUE(compatible(1, rules::value(1, 0x86DD))) << type;
    }
}

TEST_F(RuleModelTest, OtherEtherTypeIsAcceptedBesideRulesThatNeedNoIpv4) {
    startWith({1});
    for (const int type : {0, 6, 8, 9}) {
        put(1, rules::some(type));
    }
    EXPECT_TRUE(compatible(1, rules::value(1, 0x86DD)));
    EXPECT_EQ(talResOk, valid(1, rules::value(1, 0x86DD)));
}

TEST_F(RuleModelTest, OtherEtherTypeIsCompatibleWithAStoredEtherType) {
    startWith({1});
    put(1, rules::value(1, rules::arp));
    EXPECT_TRUE(compatible(1, rules::value(1, 0x86DD)));
    EXPECT_TRUE(compatible(1, rules::value(1, rules::arp)));
}

TEST_F(RuleModelTest, Ipv4LayerRuleStandsOnlyBesideEtherTypeIpv4OrNone) {
    startWith({1, 2, 3});
    put(2, rules::value(1, rules::ipv4));
    put(3, rules::value(1, rules::arp));
    for (const int type : {2, 3, 4, 5, 7}) {
        EXPECT_TRUE(compatible(1, rules::some(type))) << type;
        EXPECT_TRUE(compatible(2, rules::some(type))) << type;
        EXPECT_FALSE(compatible(3, rules::some(type))) << type;
        EXPECT_EQ(talResOk, valid(2, rules::some(type)));
        EXPECT_EQ(talResRuleInvalid, valid(3, rules::some(type)));
    }
}

TEST_F(RuleModelTest, EtherTypeZeroIsARuleAndNotIpv4) {
    startWith({1});
    put(1, rules::value(1, 0));
    EXPECT_FALSE(compatible(1, rules::some(7)));
}

TEST_F(RuleModelTest, RulesThatNeedNoIpv4AndUnknownTypesAreAlwaysCompatible) {
    startWith({1});
    put(1, rules::value(1, rules::arp));
    for (const int type : {0, 6, 8, 9, 10, -1, INT_MAX, INT_MIN}) {
        talRule rule = rules::blank(type);
        EXPECT_TRUE(module.talArpEthTypeCompatCheck(1, &rule)) << type;
        EXPECT_EQ(talResOk, module.talRuleIsValid(1, &rule)) << type;
    }
}

TEST_F(RuleModelTest, CompatibilityLooksAtTheTypeAndNotAtTheSlots) {
    startWith({1});
    put(1, rules::value(1, rules::arp));
    talRule rule = rules::some(8);
    rule.pattern[0] = rules::some(3).pattern[0];
    EXPECT_TRUE(module.talArpEthTypeCompatCheck(1, &rule));
    rule.type = static_cast<talRuleType>(3);
    EXPECT_FALSE(module.talArpEthTypeCompatCheck(1, &rule));
}

TEST_F(RuleModelTest, HalfSetPairsDoNotStandInTheWayOfAnEtherType) {
    startWith({1});
    put(1, rules::ip(0, 0xFFFFFFFF));
    EXPECT_TRUE(compatible(1, rules::value(1, rules::arp)));
    put(1, rules::ip(0x0A000001, 0));
    EXPECT_TRUE(compatible(1, rules::value(1, rules::arp)));
}

TEST_F(RuleModelTest, ChecksRefuseAnUnknownInterface) {
    startWith({1});
    for (const unsigned intf : {2u, 100u, 0xFFFFFFFFu}) {
        EXPECT_FALSE(compatible(intf, rules::some(6)));
        EXPECT_EQ(talResIntfInvalid, valid(intf, rules::some(6)));
    }
    EXPECT_TRUE(compatible(0, rules::some(6)));
    EXPECT_EQ(talResOk, valid(0, rules::some(6)));
}

TEST_F(RuleModelTest, CompatibilityCheckHoldsTheSharedLock) {
    startWith({1});
    platform.forget();
    EXPECT_TRUE(compatible(1, rules::some(3)));
    const std::vector<std::string> locks = platform.calls({Service::lock});
    ASSERT_FALSE(locks.empty());
    EXPECT_EQ("sharedLock()", locks.front());
    EXPECT_EQ("sharedUnlock()", locks.back());
    EXPECT_EQ(0u, platform.count("exclusiveLock"));
}

TEST_F(RuleModelTest, RefusedLockMakesTheCompatibilityCheckSayNo) {
    startWith({1});
    platform.forget();
    platform.answers.nth("sharedLock", 1);
    EXPECT_FALSE(compatible(1, rules::some(6)));
    EXPECT_TRUE(
        sameLines(platform.calls({Service::log}), lockLog("tal::talArpEthTypeCompatCheck")));
    EXPECT_EQ(1u, platform.count("sharedLock")) << "nothing more after the refused lock";
}

TEST_F(RuleModelTest, RefusedLockOfTheInterfaceCheckReadsAsInvalid) {
    startWith({1});
    platform.forget();
    platform.answers.nth("sharedLock", 1);
    EXPECT_EQ(talResIntfInvalid, valid(1, rules::some(6)));
    EXPECT_TRUE(sameLines(platform.calls({Service::log}), lockLog("tal::talIsValidIntf")));
}

TEST_F(RuleModelTest, RefusedLockOfTheCompatibilityCheckReadsAsIncompatible) {
    startWith({1});
    platform.forget();
    platform.answers.nth("sharedLock", 2);
    EXPECT_EQ(talResRuleInvalid, valid(1, rules::some(6)));
    EXPECT_TRUE(sameLines(platform.texts(), {"log 1: Error obtaining exclusive lock in "
                                             "tal::talArpEthTypeCompatCheck."}));
}

TEST_F(RuleModelTest, NullRuleIsNeverValid) {
    startWith({1});
    EXPECT_FALSE(module.talArpEthTypeCompatCheck(1, nullptr));
    EXPECT_NE(talResOk, module.talRuleIsValid(1, nullptr));
}

TEST_F(RuleModelTest, BundleWithIpv4OrWithoutEtherTypeIsValidWhateverElseItHolds) {
    for (const uint32_t ethType : {rules::ipv4, rules::unset}) {
        talRule bundle;
        memset(static_cast<void*>(&bundle), 0x55, sizeof(bundle));
        bundle.ethType = ethType;
        EXPECT_EQ(talResOk, bundleValid(bundle));
        bundle = rules::blank(-1);
        bundle.ethType = ethType;
        EXPECT_EQ(talResOk, bundleValid(bundle));
    }
}

TEST_F(RuleModelTest, BundleWithAnotherEtherTypeAllowsOnlyWhatNeedsNoIpv4) {
    talRule bundle = rules::blank(-1);
    bundle.ethType = rules::arp;
    EXPECT_EQ(talResOk, bundleValid(bundle));
    bundle.type0Value = 1;
    bundle.type8Value = 1;
    memset(bundle.macAddr, 1, 6);
    memset(bundle.macMask, 1, 6);
    bundle.userPatternSequence[0] = 1;
    bundle.userPatternMask[0] = 1;
    EXPECT_EQ(talResOk, bundleValid(bundle));
}

TEST_F(RuleModelTest, BundleWithAnotherEtherTypeIsInvalidBesideEachIpv4LayerSlot) {
    for (const uint32_t ethType : {rules::arp, 0x86DDu, 0u, 1u, 0x10800u, 0xFFFFFFFEu}) {
        talRule plain = rules::blank(-1);
        plain.ethType = ethType;

        talRule bundle = plain;
        bundle.ipValue = 1;
        EXPECT_EQ(talResOk, bundleValid(bundle)) << "one half of the pair is not enough";
        bundle.ipMask = 1;
        EXPECT_EQ(talResRuleInvalid, bundleValid(bundle));
        bundle.ipValue = 0;
        EXPECT_EQ(talResOk, bundleValid(bundle));

        for (const uint32_t flag : {0u, 1u, 2u, 0xFFFFFFFEu}) {
            bundle = plain;
            bundle.type2Flag = flag;
            EXPECT_EQ(talResRuleInvalid, bundleValid(bundle)) << flag;
        }
        for (int slot = 0; slot < 3; ++slot) {
            for (const uint32_t format : {0u, 1u, 2u, 3u, 0xFFFFFFFEu}) {
                bundle = plain;
                bundle.pattern[slot].format = static_cast<talPatternFormat>(format);
                EXPECT_EQ(talResRuleInvalid, bundleValid(bundle)) << slot << " " << format;
            }
            bundle = plain;
            memset(bundle.pattern[slot].data, 'x', 256);
            bundle.pattern[slot].length = 5;
            EXPECT_EQ(talResOk, bundleValid(bundle)) << "data without a format is unset";
        }
    }
}

TEST_F(RuleModelTest, BundleCheckLooksOnlyAtTheBundle) {
    startWith({1});
    put(1, rules::some(7));
    talRule bundle = rules::blank(-1);
    bundle.ethType = rules::arp;
    platform.forget();
    EXPECT_EQ(talResOk, bundleValid(bundle));
    EXPECT_TRUE(sameLines(platform.calls({Service::lock}), {"sharedLock()", "sharedUnlock()"}));
}

TEST_F(RuleModelTest, NullBundleFailsAndRefusedLockIsLogged) {
    EXPECT_EQ(talResError, module.talRuleBundleIsValid(nullptr));
    EXPECT_TRUE(platform.texts().empty());
    EXPECT_EQ(1u, platform.count("sharedLock"));
    platform.answers.always("sharedLock");
    EXPECT_EQ(talResError, bundleValid(rules::blank(-1)));
    EXPECT_TRUE(sameLines(platform.calls({Service::log}), lockLog("tal::talRuleBundleIsValid")));
}

// ---- when a type exists

struct ExistenceCase {
    const char* what;
    int type;
    talRule rule;
    bool exists;
};

talRule halfMac(bool address) {
    talRule rule = rules::macRule(1, 1);
    memset(address ? rule.macMask : rule.macAddr, 0, 6);
    return rule;
}

talRule halfUser(bool sequence) {
    talRule rule = rules::user(1, 0xFFFFFFFF);
    memset(sequence ? rule.userPatternMask : rule.userPatternSequence, 0, 128);
    return rule;
}

talRule lastBytesOnly() {
    talRule rule = rules::blank(6);
    rule.macAddr[5] = 1;
    rule.macMask[5] = 1;
    return rule;
}

talRule lastWordsOnly() {
    talRule rule = rules::blank(9);
    rule.userPatternSequence[31] = 1;
    rule.userPatternMask[31] = 1;
    return rule;
}

TEST_F(RuleModelTest, ATypeExistsByItsOwnTest) {
    startWith({1});
    const ExistenceCase cases[] = {
        {"value 0", 0, rules::value(0, 0), true},
        {"value all but unset", 0, rules::value(0, 0xFFFFFFFE), true},
        {"unset value", 0, rules::value(0, rules::unset), false},
        {"EtherType 0", 1, rules::value(1, 0), true},
        {"unset EtherType", 1, rules::value(1, rules::unset), false},
        {"flag 0", 2, rules::value(2, 0), true},
        {"flag 2", 2, rules::value(2, 2), true},
        {"unset flag", 2, rules::value(2, rules::unset), false},
        {"raw pattern without data", 3, rules::pattern(3, 0, "", 0), true},
        {"unknown format", 3, rules::pattern(3, 17, ""), true},
        {"unset format with data", 3, rules::pattern(3, rules::unset, "data", 4), false},
        {"text pattern", 4, rules::pattern(4, 1, ""), true},
        {"unset format", 4, rules::pattern(4, rules::unset, "data", 4), false},
        {"MAC pattern", 5, rules::pattern(5, 2, ""), true},
        {"unset format", 5, rules::pattern(5, rules::unset, "data", 4), false},
        {"address and mask", 6, rules::macRule(1, 1), true},
        {"last bytes only", 6, lastBytesOnly(), true},
        {"address without mask", 6, halfMac(true), false},
        {"mask without address", 6, halfMac(false), false},
        {"word and mask", 7, rules::ip(1, 1), true},
        {"word without mask", 7, rules::ip(1, 0), false},
        {"mask without word", 7, rules::ip(0, 1), false},
        {"all-ones words", 7, rules::ip(rules::unset, rules::unset), true},
        {"value 0", 8, rules::value(8, 0), true},
        {"unset value", 8, rules::value(8, rules::unset), false},
        {"sequence and mask", 9, rules::user(1, 0xFFFFFFFF), true},
        {"last words only", 9, lastWordsOnly(), true},
        {"sequence without mask", 9, halfUser(true), false},
        {"mask without sequence", 9, halfUser(false), false},
    };
    for (const ExistenceCase& one : cases) {
        SCOPED_TRACE(std::to_string(one.type) + " " + one.what);
        put(1, one.rule);
        talRule asked = rules::blank(one.type);
        EXPECT_EQ(one.exists, module.talRuleExists(1, &asked));
        EXPECT_EQ(one.exists, module.talRuleExistsByType(1, static_cast<talRuleType>(one.type)));
        EXPECT_EQ(!one.exists, module.talRuleEmpty(1));
        talRule none = rules::blank(one.type);
        ASSERT_EQ(talResOk, module.talRuleSet(1, &none, rules::remove));
        EXPECT_TRUE(module.talRuleEmpty(1));
    }
}

}  // namespace
