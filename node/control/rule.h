// A rule as management speaks of it, free of the module's record and of the protocol, and what
// a rule may not say. Pure; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace node::control {

enum class RuleKind {  // in the module's numbers
    any = 0,
    etherType = 1,
    dhcp = 2,
    vendorId = 3,
    remoteId = 4,
    clientId = 5,
    mac = 6,
    ip = 7,
    vlan = 8,
    userPattern = 9,
};
constexpr int ruleKinds = 10;

constexpr uint32_t typeOf(RuleKind kind) {
    return static_cast<uint32_t>(kind);
}

enum class PatternFormat { text, mac, raw };

constexpr uint32_t dhcpAny = 0;
constexpr uint32_t dhcpDiscover = 1;
constexpr size_t macLength = 6;
constexpr size_t ipLength = 4;
constexpr size_t longestPattern = 255;
constexpr size_t userPatternLength = 128;

struct Rule {
    RuleKind kind = RuleKind::any;
    uint32_t number = 0;                         // etherType, dhcp, vlan
    PatternFormat format = PatternFormat::text;  // vendorId, remoteId, clientId
    std::string value{};  // bytes: a pattern, or what is compared under the mask
    std::string mask{};   // bytes: mac, ip, userPattern

    bool operator==(const Rule&) const = default;
};

// What is wrong with it, as a sentence without a full stop; empty when nothing is.
std::string problemOf(const Rule& rule);
std::string problemOfBundle(const std::vector<Rule>& rules);

}  // namespace node::control
