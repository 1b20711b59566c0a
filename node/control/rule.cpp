// The module's record takes more than makes sense, and some of it does harm: half a MAC rule, or
// an address without a mask, becomes a condition of the engine that the module's table then
// denies to have, so that nothing can delete it; a bundle drops the contents of its patterns and
// would install one that begins everything. Such rules are refused here.
//
// Tests: tests/control/rule_test.cpp.
#include "node/control/rule.h"

#include <algorithm>
#include <set>

#include "node/rules/rule_record.h"

namespace node::control {

namespace {

constexpr uint32_t lowestEtherType = 0x0600;  // what is below is a length
constexpr uint32_t highestEtherType = 0xFFFF;
constexpr uint32_t highestVlan = 4094;

bool allZero(const std::string& bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](char byte) { return byte == 0; });
}

bool isPattern(RuleKind kind) {
    return kind == RuleKind::vendorId || kind == RuleKind::remoteId || kind == RuleKind::clientId;
}

std::string problemOfEtherType(uint32_t number) {
    if (number < lowestEtherType || number > highestEtherType) {
        return "an EtherType is between 0x0600 and 0xFFFF";
    }
    return isTagType(number) ? "the type behind all VLAN tags is compared, so never that of a tag"
                             : "";
}

std::string problemOfPattern(const Rule& rule) {
    if (rule.format == PatternFormat::mac && rule.value.size() != macLength) {
        return "the MAC address of a pattern has 6 bytes";
    }
    if (rule.value.size() > longestPattern) {
        return "a pattern has at most 255 bytes";
    }
    if (rule.format == PatternFormat::text && rule.value.find('\0') != std::string::npos) {
        return "a text pattern cannot hold a NUL, raw bytes can";
    }
    return {};
}

std::string problemOfMasked(const Rule& rule, const std::string& name, size_t length) {
    if (rule.value.size() != length || rule.mask.size() != length) {
        return "the value and the mask of " + name + " have " + std::to_string(length) + " bytes";
    }
    if (allZero(rule.value) || allZero(rule.mask)) {
        return "neither the value nor the mask of " + name + " can be all zero";
    }
    return {};
}

}  // namespace

std::string problemOf(const Rule& rule) {
    switch (rule.kind) {
        case RuleKind::any:
            return {};
        case RuleKind::etherType:
            return problemOfEtherType(rule.number);
        case RuleKind::dhcp:
            return rule.number <= dhcpDiscover ? ""
                                               : "a DHCP rule is for any message or for DISCOVER";
        case RuleKind::vendorId:
        case RuleKind::remoteId:
        case RuleKind::clientId:
            return problemOfPattern(rule);
        case RuleKind::mac:
            return problemOfMasked(rule, "a MAC rule", macLength);
        case RuleKind::ip:
            return problemOfMasked(rule, "an IP rule", ipLength);
        case RuleKind::vlan:
            return rule.number <= highestVlan ? "" : "a VLAN id is between 0 and 4094";
        case RuleKind::userPattern:
            return problemOfMasked(rule, "a user pattern", userPatternLength);
    }
    return "the rule says nothing";
}

std::string problemOfBundle(const std::vector<Rule>& rules) {
    std::set<RuleKind> kinds;
    for (const Rule& rule : rules) {
        if (std::string problem = problemOf(rule); !problem.empty()) {
            return problem;
        }
        if (rule.kind == RuleKind::any) {
            return "a bundle cannot hold the rule for any frame; add it afterwards";
        }
        if (isPattern(rule.kind) && !rule.value.empty()) {
            return "a bundle does not carry what a pattern holds; add that rule afterwards";
        }
        if (!kinds.insert(rule.kind).second) {
            return "a bundle holds at most one rule of each kind";
        }
    }
    return kinds.count(RuleKind::dhcp) != 0
               ? ""
               : "a bundle always holds a DHCP rule: for any message or for DISCOVER";
}

}  // namespace node::control
