// What the tests of the rule table share: a started module, rules in and out, stored logins.
#pragma once

#include "tests/fake/module_test.h"
#include "tests/unit/rule_builders.h"

#include <filesystem>
#include <string>
#include <vector>

class RuleTableFixture : public ModuleTest {
protected:
    // Rules go in and come out by value; the caller's record is not looked at again.
    talResultCode set(unsigned intf, talRule rule, talOperation op = rules::add) {
        return module.talRuleSet(intf, &rule, op);
    }
    talResultCode remove(unsigned intf, int type) {
        return set(intf, rules::blank(type), rules::remove);
    }
    talResultCode bundle(unsigned intf, talRule rule) {
        return module.talRuleBundleSet(intf, &rule);
    }
    talRule get(unsigned intf) {
        talRule rule = rules::blank(-1);
        EXPECT_EQ(talResOk, module.talRuleGet(intf, &rule));
        return rule;
    }
    bool exists(unsigned intf, int type) {
        return module.talRuleExistsByType(intf, static_cast<talRuleType>(type));
    }

    // Puts one rule of every type on the interface.
    void fill(unsigned intf) {
        for (const int type : rules::types) {
            ASSERT_EQ(talResOk, set(intf, rules::some(type)));
        }
    }

    std::vector<std::string> engine() const { return platform.calls({fake::Service::engine}); }

    // The calls for a condition of the interface; the codes are those of the engine.
    static std::string added(unsigned intf, int type) {
        const char* codes[] = {"0", "5", "29", "29", "29", "29", "3", "11", "6", "34"};
        return "ittalConditionAdd(\"" + std::to_string(intf - 1) + "\", " + std::to_string(type) +
               ", " + codes[type] + ")";
    }
    static std::string deleted(unsigned intf, int type) {
        return "ittalConditionDel(\"" + std::to_string(intf - 1) + "\", " + std::to_string(type) +
               ")";
    }

    void switchOn(unsigned intf) {
        ASSERT_EQ(0u, module.talAdminStateSet(true));
        ASSERT_EQ(talResOk, module.talIntfAdminStateSet(intf, true));
    }
    void storeLogin(unsigned intf) {
        rpcTalLoginBlockBll block;
        memset(static_cast<void*>(&block), 0, sizeof(block));
        block.interface = intf;
        ASSERT_EQ(0u, module.talStoreLoginData(intf, block));
        ASSERT_TRUE(loginStored(intf));
    }
    bool loginStored(unsigned intf) { return module.talIsLoginDataStored(intf); }

    // A directory in the file's place refuses every read.
    static void blockStorageFile() {
        std::filesystem::remove(talStorageFile);
        std::filesystem::create_directory(talStorageFile);
    }
};
