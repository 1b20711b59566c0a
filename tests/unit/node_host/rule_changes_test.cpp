#include "node/rules/rule_changes.h"

#include <gtest/gtest.h>

#include "node/rules/rule_text.h"

namespace {

struct Said {
    uint32_t type;
    const char* text;
};

std::vector<rpcTalRule> records(const std::vector<Said>& rules) {
    std::vector<rpcTalRule> result;
    for (const Said& rule : rules) {
        result.push_back(node::unsetRule(rule.type));
        EXPECT_EQ(node::ruleFromText(rule.type, rule.text, result.back()), "");
    }
    return result;
}

// The record of an interface that has all these rules.
rpcTalRule together(const std::vector<Said>& rules) {
    rpcTalRule record = node::unsetRule(node::ruleAny);
    for (const Said& rule : rules) {
        EXPECT_EQ(node::ruleFromText(rule.type, rule.text, record), "");
    }
    return record;
}

// "-" removed, "~" modified, "+" added.
std::string changes(const std::vector<Said>& wanted, const std::vector<Said>& has,
                    bool hasAny = false) {
    std::string text;
    for (const node::RuleChange& change :
         node::ruleChanges(records(wanted), together(has), hasAny)) {
        const bool removal = change.kind == node::RuleChange::Kind::remove;
        EXPECT_EQ(node::ruleType(change.record), change.type);
        if (change.type != node::ruleAny) {
            EXPECT_NE(node::isRuleSet(change.record, change.type), removal)
                << "a removal carries the unset slot, everything else a rule";
        }
        text += removal ? "-" : change.kind == node::RuleChange::Kind::modify ? "~" : "+";
        text += removal ? std::string(node::ruleName(change.type))
                        : node::ruleText(change.type, change.record);
        text += "; ";
    }
    return text;
}

TEST(RuleChanges, WhatIsWantedAndMissingIsAdded) {
    EXPECT_EQ(changes({{2, "any"}, {8, "100"}}, {}), "+dhcp any; +vlan 100; ");
}

TEST(RuleChanges, WhatIsThereAlreadyIsNotTouched) {
    const std::vector<Said> all = {{1, "ipv4"},         {2, "discover"},
                                   {3, "udhcp*"},       {4, "mac:00:1a:2b:3c:4d:5e"},
                                   {5, "hex:01ff*"},    {6, "00:11:22:00:00:00/ff:ff:ff:00:00:00"},
                                   {7, "192.0.2.0/24"}, {8, "100"},
                                   {9, "ff/ff"}};
    EXPECT_EQ(changes(all, all), "");
}

TEST(RuleChanges, AnotherValueIsAModification) {
    EXPECT_EQ(changes({{3, "udhcp*"}}, {{3, "udhc*"}}), "~vendor-id udhcp*; ");
    EXPECT_EQ(changes({{3, "a*"}}, {{3, "hex:61*"}}), "~vendor-id a*; ");
    EXPECT_EQ(changes({{3, "hex:6100*"}}, {{3, "hex:61*"}}), "~vendor-id hex:6100*; ");
    EXPECT_EQ(changes({{6, "00:11:22:33:44:55"}}, {{6, "00:11:22:33:44:55/ff:ff:ff:00:00:00"}}),
              "~mac 00:11:22:33:44:55/ff:ff:ff:ff:ff:ff; ");
    EXPECT_EQ(changes({{7, "192.0.2.0/24"}}, {{7, "192.0.2.0/25"}}), "~ip 192.0.2.0/24; ");
    EXPECT_EQ(changes({{9, "ff/ff"}}, {{9, "ff/7f"}}), "~user-pattern ff/ff; ");
}

TEST(RuleChanges, WhatIsNotWantedIsRemovedFirst) {
    EXPECT_EQ(changes({{1, "arp"}}, {{1, "ipv4"}, {2, "any"}, {7, "192.0.2.1"}}),
              "-dhcp; -ip; ~ethertype 0x0806; ");
    EXPECT_EQ(changes({}, {{8, "1"}}), "-vlan; ");
}

TEST(RuleChanges, EtherTypeComesBeforeTheRulesThatNeedIpv4) {
    EXPECT_EQ(changes({{1, "ipv4"}, {5, "*"}}, {{1, "arp"}}), "~ethertype 0x0800; +client-id *; ");
}

TEST(RuleChanges, RuleForAnyFrameIsToldByItsExistenceAlone) {
    const std::vector<Said> any = {{0, ""}};
    EXPECT_EQ(changes(any, {}, false), "+any; ");
    EXPECT_EQ(changes(any, {}, true), "");
    EXPECT_EQ(changes({}, {}, true), "-any; ");
}

}  // namespace
