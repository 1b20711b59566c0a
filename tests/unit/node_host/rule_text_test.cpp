#include "node/rules/rule_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

namespace {

using testing::StartsWith;

std::string repeated(const std::string& text, size_t times) {
    std::string result;
    for (size_t i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

// The record that the text gives; the text must be good.
rpcTalRule rule(uint32_t type, const std::string& text) {
    rpcTalRule record = node::unsetRule(node::ruleAny);
    EXPECT_EQ(node::ruleFromText(type, text, record), "") << text;
    EXPECT_EQ(node::ruleType(record), type);
    for (uint32_t other = 1; other < node::ruleTypes; ++other) {
        EXPECT_EQ(node::isRuleSet(record, other), other == type) << text << ", slot " << other;
    }
    return record;
}

struct Good {
    uint32_t type;
    std::string text;
    std::string again;  // as ruleText writes it
};

void PrintTo(const Good& good, std::ostream* stream) {
    *stream << good.type << ' ' << good.text.substr(0, 40);
}

class GoodRule : public testing::TestWithParam<Good> {};

TEST_P(GoodRule, FillsItsSlotAloneAndIsWrittenBack) {
    const Good& good = GetParam();
    const rpcTalRule record = rule(good.type, good.text);
    EXPECT_EQ(node::ruleText(good.type, record), good.again);
    const rpcTalRule second = rule(good.type, node::ruleValueText(good.type, record));
    EXPECT_TRUE(node::isSameRule(record, second, good.type));
}

INSTANTIATE_TEST_SUITE_P(
    Table, GoodRule,
    testing::Values(
        Good{0, "", "any"}, Good{1, "0x0800", "ethertype 0x0800"},
        Good{1, "2054", "ethertype 0x0806"}, Good{1, "ipv4", "ethertype 0x0800"},
        Good{1, "arp", "ethertype 0x0806"}, Good{1, "ipv6", "ethertype 0x86dd"},
        Good{1, "0x0600", "ethertype 0x0600"}, Good{1, "0XFFFF", "ethertype 0xffff"},
        Good{2, "any", "dhcp any"}, Good{2, "discover", "dhcp discover"},
        Good{3, "udhcp*", "vendor-id udhcp*"}, Good{3, "udhcp", "vendor-id udhcp*"},
        Good{3, "*", "vendor-id *"}, Good{3, "a b/c", "vendor-id a b/c*"},
        Good{4, "line-007*", "remote-id line-007*"},
        Good{4, repeated("r", 255), "remote-id " + repeated("r", 255) + "*"},
        Good{5, "hex:01001a2b*", "client-id hex:01001a2b*"}, Good{5, "hex:", "client-id hex:*"},
        Good{5, "hex:" + repeated("7a", 255), "client-id hex:" + repeated("7a", 255) + "*"},
        Good{5, "mac:00:1a:2b:3c:4d:5e", "client-id mac:00:1a:2b:3c:4d:5e*"},
        Good{6, "00:11:22:00:00:00/ff:ff:ff:00:00:00", "mac 00:11:22:00:00:00/ff:ff:ff:00:00:00"},
        Good{6, "00-11-22-00-00-00/20", "mac 00:11:22:00:00:00/ff:ff:f0:00:00:00"},
        Good{6, "00:11:22:33:44:55", "mac 00:11:22:33:44:55/ff:ff:ff:ff:ff:ff"},
        Good{7, "192.0.2.0/24", "ip 192.0.2.0/24"}, Good{7, "192.0.2.1", "ip 192.0.2.1/32"},
        Good{7, "192.0.2.1/1", "ip 192.0.2.1/1"},
        Good{7, "192.0.2.0/255.255.255.0", "ip 192.0.2.0/24"},
        Good{7, "192.0.2.0/255.0.255.0", "ip 192.0.2.0/255.0.255.0"}, Good{8, "0", "vlan 0"},
        Good{8, "4094", "vlan 4094"}, Good{9, "00ff/00f0", "user-pattern 00ff/00f0"},
        Good{9, "ff", "user-pattern ff/ff"}, Good{9, "ff00/ff00", "user-pattern ff/ff"},
        Good{9, "000000000001/0000000000ff", "user-pattern 000000000001/0000000000ff"},
        Good{9, repeated("01", 128) + "/" + repeated("ff", 128),
             "user-pattern " + repeated("01", 128) + "/" + repeated("ff", 128)}));

struct Bad {
    uint32_t type;
    std::string text;
    const char* problem;  // its start
};

void PrintTo(const Bad& bad, std::ostream* stream) {
    *stream << bad.type << ' ' << bad.text.substr(0, 40);
}

class BadRule : public testing::TestWithParam<Bad> {};

TEST_P(BadRule, IsRefusedAndChangesNothing) {
    const Bad& bad = GetParam();
    rpcTalRule record = node::unsetRule(node::ruleTypes);
    const rpcTalRule before = record;
    EXPECT_THAT(node::ruleFromText(bad.type, bad.text, record), StartsWith(bad.problem));
    EXPECT_EQ(std::memcmp(&record, &before, sizeof record), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadRule,
    testing::Values(
        Bad{0, "true", "must be without a value"}, Bad{1, "", "must be an EtherType"},
        Bad{1, "0x05ff", "must be an EtherType"}, Bad{1, "0x10000", "must be an EtherType"},
        Bad{1, "0x", "must be an EtherType"}, Bad{1, "-1", "must be an EtherType"},
        Bad{1, "IPv4", "must be an EtherType"}, Bad{1, "0x8100", "must not be the type of a VLAN"},
        Bad{1, "0x88a8", "must not be"}, Bad{1, "0x9100", "must not be"},
        Bad{2, "", "must be \"any\" or"}, Bad{2, "request", "must be \"any\" or"},
        Bad{3, "u*p", "must have its star at the end"}, Bad{3, "up**", "must have its star"},
        Bad{3, repeated("r", 256), "must be at most 255 printable"},
        Bad{3, "a\nb", "must be at most 255 printable"},
        Bad{4, "hex:0", "must be at most 255 pairs of hex"},
        Bad{4, "hex:" + repeated("00", 256), "must be at most 255 pairs"},
        Bad{5, "00:1a:2b:3c:4d:5e", "must be written as \"mac:00:1a:2b:3c:4d:5e\""},
        Bad{5, "mac:00:1a:2b", "must be six pairs of hex digits"},
        Bad{6, "", "must be a MAC address"}, Bad{6, "00:11:22:33:44", "must be a MAC address"},
        Bad{6, "00:11:22:33:44:55/", "must be a MAC address"},
        Bad{6, "00:11:22:33:44:55/49", "must be a MAC address"},
        Bad{6, "00:11:22:33:44:55/0", "must have a bit set"},
        Bad{6, "00:00:00:00:00:00", "must have a bit set"},
        Bad{6, "00:11:22:33:44:55/00:00:00:00:00:00", "must have a bit set"},
        Bad{7, "192.0.2", "must be an IPv4 address"},
        Bad{7, "192.0.2.0/33", "must be an IPv4 address"},
        Bad{7, "192.0.2.0/", "must be an IPv4 address"}, Bad{7, "0.0.0.0/8", "must have a bit"},
        Bad{7, "192.0.2.0/0", "must have a bit"}, Bad{7, "192.0.2.0/0.0.0.0", "must have a bit"},
        Bad{8, "4095", "must be a VLAN id"}, Bad{8, "", "must be a VLAN id"},
        Bad{8, "-1", "must be a VLAN id"}, Bad{9, "", "must have a bit set"},
        Bad{9, "f", "must be at most 128 pairs"}, Bad{9, "ff/", "must be at most 128 pairs"},
        Bad{9, "ff/ffff", "must be at most 128 pairs"}, Bad{9, "00/ff", "must have a bit set"},
        Bad{9, "ff/00", "must have a bit set"},
        Bad{9, repeated("01", 129), "must be at most 128 pairs"},
        Bad{10, "", "must be of a known type"}));

TEST(RuleText, NamesAndTypesBelongTogether) {
    for (uint32_t type = 0; type < node::ruleTypes; ++type) {
        EXPECT_EQ(node::ruleTypeNamed(node::ruleName(type)), type);
    }
    EXPECT_EQ(node::ruleName(8), "vlan");
    EXPECT_EQ(node::ruleName(10), "");
    EXPECT_FALSE(node::ruleTypeNamed(""));
    EXPECT_FALSE(node::ruleTypeNamed("VLAN"));
}

TEST(RuleText, RecordHoldsWhatTheModuleWantsToSee) {
    EXPECT_EQ(rule(2, "any").type2Value, 0u);
    EXPECT_EQ(rule(2, "discover").type2Value, 1u);
    const rpcTalRule text = rule(3, "udhcp*");
    EXPECT_EQ(text.pattern[0].format, 0u);
    EXPECT_STREQ(text.pattern[0].text, "udhcp");
    const rpcTalRule mac = rule(5, "mac:00:1a:2b:3c:4d:5e");
    EXPECT_EQ(mac.pattern[2].format, 1u);
    EXPECT_EQ(mac.pattern[2].mac[5], 0x5e);
    const rpcTalRule raw = rule(4, "hex:0102*");
    EXPECT_EQ(raw.pattern[1].format, 2u);
    EXPECT_EQ(raw.pattern[1].rawLength, 2u);
    EXPECT_EQ(raw.pattern[1].raw[1], 2u);
    const rpcTalRule user = rule(9, "0102030405/ffffffffff");
    EXPECT_EQ(user.userPatternSequence[0], 0x01020304u);
    EXPECT_EQ(user.userPatternSequence[1], 0x05000000u);
    EXPECT_EQ(user.userPatternMask[1], 0xff000000u);
}

TEST(RuleText, PatternTextThatReadsAsSomethingElseIsWrittenInHex) {
    for (const char* text : {"hex:00", "mac:00:1a:2b:3c:4d:5e", "a*b", "00:1a:2b:3c:4d:5e", "\n"}) {
        rpcTalRule record = node::unsetRule(node::ruleVendorId);
        record.pattern[0].format = node::patternText;
        std::strcpy(record.pattern[0].text, text);
        const std::string value = node::ruleValueText(node::ruleVendorId, record);
        EXPECT_THAT(value, StartsWith("hex:"));
        const rpcTalRule again = rule(node::ruleVendorId, value);
        EXPECT_EQ(again.pattern[0].rawLength, std::strlen(text));
        EXPECT_EQ(std::memcmp(again.pattern[0].raw, text, std::strlen(text)), 0);
    }
}

TEST(RuleText, AnyBytesAreReadOrRefused) {
    uint32_t seed = 11;
    const auto random = [&seed] { return (seed = seed * 1664525u + 1013904223u) >> 8; };
    constexpr char letters[] = "0123456789abcdef:./*hexmac \x01\xff";
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (uint32_t i = random() % 24; i > 0; --i) {
            text += letters[random() % (sizeof letters - 1)];
        }
        const uint32_t type = random() % 11;
        rpcTalRule record = node::unsetRule(node::ruleAny);
        if (node::ruleFromText(type, text, record).empty() && type != node::ruleAny) {
            ASSERT_TRUE(node::isRuleSet(record, type)) << text;
            rpcTalRule again = node::unsetRule(node::ruleAny);
            ASSERT_EQ(node::ruleFromText(type, node::ruleValueText(type, record), again), "");
            ASSERT_TRUE(node::isSameRule(record, again, type)) << text;
        }
    }
}

}  // namespace
