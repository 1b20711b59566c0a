// Rules as a person writes them.
#include "node/ctl/rule_option.h"

#include <gtest/gtest.h>

namespace node::ctl {
namespace {

using control::PatternFormat;
using control::Rule;
using control::RuleKind;
using namespace std::string_literals;

std::string frame(std::string start) {
    start.resize(control::userPatternLength);
    return start;
}

struct Good {
    RuleKind kind;
    std::string text;
    Rule rule;
    std::string written;  // as it is told again; empty: as it was said
};

const Good good[] = {
    {RuleKind::any, "", {.kind = RuleKind::any}, ""},
    {RuleKind::etherType, "0x0800", {.kind = RuleKind::etherType, .number = 0x0800}, ""},
    {RuleKind::etherType, "0X86dd", {.kind = RuleKind::etherType, .number = 0x86DD}, "0x86dd"},
    {RuleKind::etherType, "2054", {.kind = RuleKind::etherType, .number = 0x0806}, "0x0806"},
    {RuleKind::etherType, "ipv6", {.kind = RuleKind::etherType, .number = 0x86DD}, "0x86dd"},
    {RuleKind::dhcp, "any", {.kind = RuleKind::dhcp, .number = 0}, ""},
    {RuleKind::dhcp, "discover", {.kind = RuleKind::dhcp, .number = 1}, ""},
    {RuleKind::vendorId, "acme*", {.kind = RuleKind::vendorId, .value = "acme"}, ""},
    {RuleKind::vendorId, "acme", {.kind = RuleKind::vendorId, .value = "acme"}, "acme*"},
    {RuleKind::vendorId, "*", {.kind = RuleKind::vendorId, .value = ""}, ""},
    {RuleKind::remoteId, "a b/c*", {.kind = RuleKind::remoteId, .value = "a b/c"}, ""},
    {RuleKind::clientId,
     "hex:01fF00*",
     {.kind = RuleKind::clientId, .format = PatternFormat::raw, .value = "\x01\xff\0"s},
     "hex:01ff00*"},
    {RuleKind::clientId,
     "hex:01",
     {.kind = RuleKind::clientId, .format = PatternFormat::raw, .value = "\x01"s},
     "hex:01*"},
    {RuleKind::clientId,
     "mac:00:11:22:33:44:55*",
     {.kind = RuleKind::clientId,
      .format = PatternFormat::mac,
      .value = "\x00\x11\x22\x33\x44\x55"s},
     ""},
    {RuleKind::mac,
     "00:11:22:00:00:00/ff:ff:ff:00:00:00",
     {.kind = RuleKind::mac, .value = "\0\x11\x22\0\0\0"s, .mask = "\xff\xff\xff\0\0\0"s},
     ""},
    {RuleKind::mac,
     "00-11-22-33-44-55",
     {.kind = RuleKind::mac, .value = "\0\x11\x22\x33\x44\x55"s, .mask = std::string(6, '\xff')},
     "00:11:22:33:44:55/ff:ff:ff:ff:ff:ff"},
    {RuleKind::mac,
     "00:11:22:00:00:00/24",
     {.kind = RuleKind::mac, .value = "\0\x11\x22\0\0\0"s, .mask = "\xff\xff\xff\0\0\0"s},
     "00:11:22:00:00:00/ff:ff:ff:00:00:00"},
    {RuleKind::ip,
     "192.0.2.0/24",
     {.kind = RuleKind::ip, .value = "\xc0\0\2\0"s, .mask = "\xff\xff\xff\0"s},
     ""},
    {RuleKind::ip,
     "192.0.2.1",
     {.kind = RuleKind::ip, .value = "\xc0\0\2\1"s, .mask = std::string(4, '\xff')},
     "192.0.2.1/32"},
    {RuleKind::ip,
     "10.0.0.1/255.0.0.255",
     {.kind = RuleKind::ip, .value = "\x0a\0\0\1"s, .mask = "\xff\0\0\xff"s},
     ""},
    {RuleKind::ip,
     "128.0.0.0/1",
     {.kind = RuleKind::ip, .value = "\x80\0\0\0"s, .mask = "\x80\0\0\0"s},
     ""},
    {RuleKind::vlan, "0", {.kind = RuleKind::vlan, .number = 0}, ""},
    {RuleKind::vlan, "4094", {.kind = RuleKind::vlan, .number = 4094}, ""},
    {RuleKind::userPattern,
     "0102/ff0f",
     {.kind = RuleKind::userPattern, .value = frame("\1\2"), .mask = frame("\xff\x0f")},
     ""},
    {RuleKind::userPattern,
     "0102",
     {.kind = RuleKind::userPattern, .value = frame("\1\2"), .mask = frame("\xff\xff")},
     "0102/ffff"},
};

TEST(RuleOption, GoodTextsAreRulesAndAreToldAgain) {
    for (const Good& each : good) {
        const ParsedRule parsed = parseRule(each.kind, each.text);
        ASSERT_TRUE(parsed.rule) << each.text << ": " << parsed.problem;
        EXPECT_EQ(each.rule, *parsed.rule) << each.text;
        const std::string written = each.written.empty() ? each.text : each.written;
        EXPECT_EQ(written, valueText(*parsed.rule));
        EXPECT_EQ(each.rule, parseRule(each.kind, written).rule) << written;
    }
}

TEST(RuleOption, BadTextsAreRefusedWithASentence) {
    const std::pair<RuleKind, std::string> bad[] = {
        {RuleKind::any, "x"},
        {RuleKind::etherType, ""},
        {RuleKind::etherType, "0x"},
        {RuleKind::etherType, "0x10000"},
        {RuleKind::etherType, "0x05ff"},
        {RuleKind::etherType, "-1"},
        {RuleKind::etherType, "0800h"},
        {RuleKind::etherType, "ipx"},
        {RuleKind::etherType, "0x8100"},
        {RuleKind::dhcp, ""},
        {RuleKind::dhcp, "DISCOVER"},
        {RuleKind::dhcp, "offer"},
        {RuleKind::vendorId, "ac*me"},
        {RuleKind::vendorId, "ac*me*"},
        {RuleKind::vendorId, std::string(256, 'a') + "*"},
        {RuleKind::clientId, "hex:0*"},
        {RuleKind::clientId, "hex:0g*"},
        {RuleKind::clientId, "mac:00:11*"},
        {RuleKind::mac, ""},
        {RuleKind::mac, "00:11:22:33:44"},
        {RuleKind::mac, "00:11:22:33:44:55/"},
        {RuleKind::mac, "00:11:22:33:44:55/49"},
        {RuleKind::mac, "00:11:22:33:44:55/0"},
        {RuleKind::mac, "00:00:00:00:00:00"},
        {RuleKind::mac, "00:11:22:33:44:55/ff:ff"},
        {RuleKind::ip, ""},
        {RuleKind::ip, "192.0.2"},
        {RuleKind::ip, "192.0.2.0/33"},
        {RuleKind::ip, "192.0.2.0/0"},
        {RuleKind::ip, "192.0.2.0/"},
        {RuleKind::ip, "0.0.0.0/8"},
        {RuleKind::ip, "2001:db8::1"},
        {RuleKind::vlan, ""},
        {RuleKind::vlan, "4095"},
        {RuleKind::vlan, "4294967395"},
        {RuleKind::vlan, "0x64"},
        {RuleKind::vlan, "100 "},
        {RuleKind::userPattern, ""},
        {RuleKind::userPattern, "/ff"},
        {RuleKind::userPattern, "012"},
        {RuleKind::userPattern, "0102/ff"},
        {RuleKind::userPattern, "00/ff"},
        {RuleKind::userPattern, "01/00"},
        {RuleKind::userPattern, std::string(258, '1')},
    };
    for (const auto& [kind, text] : bad) {
        const ParsedRule parsed = parseRule(kind, text);
        EXPECT_FALSE(parsed.rule) << text;
        EXPECT_NE("", parsed.problem) << text;
    }
}

TEST(RuleOption, PatternThatCannotBeWrittenAsTextIsToldInHex) {
    for (const char* value : {"a\x01", "a*b", "hex:00", "mac:x"}) {
        const Rule rule{.kind = RuleKind::vendorId, .value = value};
        const std::string text = valueText(rule);
        EXPECT_TRUE(text.starts_with("hex:")) << text;
        EXPECT_EQ(value, parseRule(RuleKind::vendorId, text).rule->value);
    }
}

TEST(RuleOption, EveryKindHasAName) {
    for (int kind = 0; kind < control::ruleKinds; ++kind) {
        const auto known = static_cast<RuleKind>(kind);
        EXPECT_EQ(known, ruleOptions[static_cast<size_t>(kind)].kind);
        EXPECT_NE("", nameOf(known));
    }
}

}  // namespace
}  // namespace node::ctl
