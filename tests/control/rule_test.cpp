// Rules as management speaks of them: what they may say, and their way into the record and back.
#include "node/control/rule.h"

#include <gtest/gtest.h>

#include "node/control/rule_record.h"
#include "node/rules/rule_record.h"

namespace node::control {
namespace {

using namespace std::string_literals;

const std::string mac = "\x00\x11\x22\x00\x00\x00"s;
const std::string macMask = "\xff\xff\xff\x00\x00\x00"s;
const std::string net = "\xc0\x00\x02\x00"s;
const std::string netMask = "\xff\xff\xff\x00"s;

std::string frame(const std::string& start) {
    std::string bytes = start;
    bytes.resize(userPatternLength);
    return bytes;
}

Rule number(RuleKind kind, uint32_t value) {
    return {.kind = kind, .number = value};
}

Rule pattern(RuleKind kind, PatternFormat format, const std::string& value) {
    return {.kind = kind, .format = format, .value = value};
}

Rule masked(RuleKind kind, const std::string& value, const std::string& mask) {
    return {.kind = kind, .value = value, .mask = mask};
}

std::vector<Rule> goodRules() {
    return {
        number(RuleKind::etherType, 0x0600),
        number(RuleKind::etherType, 0xFFFF),
        number(RuleKind::dhcp, dhcpAny),
        number(RuleKind::dhcp, dhcpDiscover),
        pattern(RuleKind::vendorId, PatternFormat::text, ""),
        pattern(RuleKind::vendorId, PatternFormat::text, std::string(255, 'a')),
        pattern(RuleKind::remoteId, PatternFormat::mac, mac),
        pattern(RuleKind::clientId, PatternFormat::raw, std::string(255, '\0')),
        masked(RuleKind::mac, mac, macMask),
        masked(RuleKind::ip, net, netMask),
        number(RuleKind::vlan, 0),
        number(RuleKind::vlan, 4094),
        masked(RuleKind::userPattern, frame("\x01"), frame("\xff")),
        masked(RuleKind::userPattern, std::string(128, 'x'), std::string(128, 'y')),
    };
}

TEST(Rules, GoodOnesComeBackFromTheRecordAsTheyWent) {
    EXPECT_EQ("", problemOf({.kind = RuleKind::any}));
    for (const Rule& rule : goodRules()) {
        EXPECT_EQ("", problemOf(rule));
        rpcTalRule record = unsetRule(typeOf(rule.kind));
        EXPECT_EQ(std::vector<Rule>{}, rulesOf(record));
        fillSlot(rule, record);
        EXPECT_EQ(static_cast<int>(rule.kind), record.type);
        EXPECT_EQ(std::vector<Rule>{rule}, rulesOf(record)) << static_cast<int>(rule.kind);
    }
}

TEST(Rules, BadOnesAreRefusedWithASentence) {
    const std::string zeros(6, '\0');
    const Rule bad[] = {
        number(RuleKind::etherType, 0x05FF),
        number(RuleKind::etherType, 0x10000),
        number(RuleKind::etherType, 0x8100),
        number(RuleKind::etherType, 0x88A8),
        number(RuleKind::etherType, 0xFFFFFFFF),
        number(RuleKind::dhcp, 2),
        number(RuleKind::dhcp, 0xFFFFFFFF),
        pattern(RuleKind::vendorId, PatternFormat::text, std::string(256, 'a')),
        pattern(RuleKind::vendorId, PatternFormat::text, "a\0b"s),
        pattern(RuleKind::remoteId, PatternFormat::mac, "\x01\x02\x03\x04\x05"),
        pattern(RuleKind::clientId, PatternFormat::raw, std::string(256, 'a')),
        masked(RuleKind::mac, zeros, macMask),
        masked(RuleKind::mac, mac, zeros),
        masked(RuleKind::mac, mac, "\xff\xff\xff"),
        masked(RuleKind::mac, "", ""),
        masked(RuleKind::ip, net, std::string(4, '\0')),
        masked(RuleKind::ip, std::string(4, '\0'), netMask),
        masked(RuleKind::ip, "\x01", netMask),
        number(RuleKind::vlan, 4095),
        number(RuleKind::vlan, 0xFFFFFFFF),
        masked(RuleKind::userPattern, frame(""), frame("\xff")),
        masked(RuleKind::userPattern, frame("\x01"), frame("")),
        masked(RuleKind::userPattern, std::string(129, 'x'), std::string(129, 'x')),
        {.kind = static_cast<RuleKind>(10)},
    };
    for (const Rule& rule : bad) {
        EXPECT_NE("", problemOf(rule)) << static_cast<int>(rule.kind) << ' ' << rule.number;
    }
}

TEST(Rules, RecordHasTheModulesNumbers) {
    rpcTalRule record = unsetRule(ruleAny);
    fillSlot(masked(RuleKind::ip, net, netMask), record);
    fillSlot(masked(RuleKind::userPattern, frame("\x01\x02\x03\x04\x05"), frame("\xff")), record);
    fillSlot(pattern(RuleKind::remoteId, PatternFormat::raw, "abc"), record);
    EXPECT_EQ(0xC0000200u, record.ipValue);
    EXPECT_EQ(0x01020304u, record.userPatternSequence[0]);
    EXPECT_EQ(0x05000000u, record.userPatternSequence[1]);
    EXPECT_EQ(2u, record.pattern[1].format);
    EXPECT_EQ(3u, record.pattern[1].rawLength);
}

TEST(Rules, UnsetRecordDeletesWhateverItsType) {
    for (int kind = 0; kind < ruleKinds; ++kind) {
        const rpcTalRule record = unsetRule(static_cast<uint32_t>(kind));
        EXPECT_EQ(kind, record.type);
        EXPECT_EQ(std::vector<Rule>{}, rulesOf(record));
    }
}

TEST(Rules, HalfOfAMaskedPairInARecordIsNoRule) {
    rpcTalRule record = unsetRule(ruleAny);
    record.macAddr[0] = 1;
    record.ipMask = 0xFF;
    record.userPatternMask[3] = 1;
    EXPECT_EQ(std::vector<Rule>{}, rulesOf(record));
}

TEST(Rules, TextOfARecordThatDoesNotEndStopsAtItsField) {
    rpcTalRule record = unsetRule(ruleAny);
    record.pattern[0].format = 0;
    std::fill(std::begin(record.pattern[0].text), std::end(record.pattern[0].text), 'a');
    std::fill(std::begin(record.pattern[0].mac), std::end(record.pattern[0].mac), 'b');
    ASSERT_EQ(1u, rulesOf(record).size());
    EXPECT_EQ(std::string(256, 'a'), rulesOf(record)[0].value);
}

TEST(Bundles, NeedADhcpRuleAndOneOfEachKindAtMost) {
    const Rule dhcp = number(RuleKind::dhcp, dhcpDiscover);
    const Rule vlan = number(RuleKind::vlan, 100);
    EXPECT_EQ("", problemOfBundle({dhcp}));
    EXPECT_EQ("", problemOfBundle({vlan, dhcp, pattern(RuleKind::vendorId, {}, "")}));
    const std::vector<Rule> bad[] = {
        {},
        {vlan},
        {dhcp, vlan, vlan},
        {dhcp, number(RuleKind::vlan, 5000)},
        {dhcp, {.kind = RuleKind::any}},
        {dhcp, pattern(RuleKind::vendorId, PatternFormat::text, "acme")},
        {dhcp, pattern(RuleKind::clientId, PatternFormat::mac, mac)},
    };
    for (const std::vector<Rule>& rules : bad) {
        EXPECT_NE("", problemOfBundle(rules)) << rules.size();
    }
}

}  // namespace
}  // namespace node::control
