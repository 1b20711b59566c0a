// The words themselves are read and written by node/rules, which the configuration uses too;
// here they become the rules of the protocol.
//
// Tests: tests/control/rule_option_test.cpp.
#include "node/ctl/rule_option.h"

#include "node/control/rule_record.h"
#include "node/rules/rule_text.h"

namespace node::ctl {

using namespace control;

const std::array<RuleOption, ruleKinds> ruleOptions{{
    {RuleKind::any, "", "any frame"},
    {RuleKind::etherType, "TYPE", "EtherType: 0x0800, ipv4, ipv6, arp"},
    {RuleKind::dhcp, "any|discover", "DHCP messages of a client"},
    {RuleKind::vendorId, "TEXT[*]", "DHCP option 60 begins with; also hex:00ff"},
    {RuleKind::remoteId, "TEXT[*]", "the relay's remote id begins with"},
    {RuleKind::clientId, "TEXT[*]", "DHCP option 61 begins with"},
    {RuleKind::mac, "MAC[/MASK]", "source: 00:11:22:00:00:00/ff:ff:ff:00:00:00"},
    {RuleKind::ip, "IP[/BITS]", "IPv4 source: 192.0.2.0/24"},
    {RuleKind::vlan, "ID", "outer VLAN id, 0 to 4094"},
    {RuleKind::userPattern, "HEX[/HEX]", "first bytes of the frame, under a mask"},
}};

std::string_view nameOf(RuleKind kind) {
    return ruleName(typeOf(kind));
}

ParsedRule parseRule(RuleKind kind, std::string_view text) {
    rpcTalRule record = unsetRule(typeOf(kind));
    std::string problem = ruleFromText(typeOf(kind), text, record);
    if (!problem.empty()) {
        return {std::nullopt, problem};
    }
    return {kind == RuleKind::any ? Rule{.kind = kind} : rulesOf(record).front(), ""};
}

std::string valueText(const Rule& rule) {
    rpcTalRule record = unsetRule(typeOf(rule.kind));
    fillSlot(rule, record);
    return ruleValueText(typeOf(rule.kind), record);
}

}  // namespace node::ctl
