// The management record of rules as a set of slots: which are set, which say the same.
// Pure; any thread.
#pragma once

#include "rpc/rpctal.h"

namespace node {

// In the module's numbers.
enum RuleType : uint32_t {
    ruleAny = 0,  // has no slot in the record: its type alone says it
    ruleEtherType = 1,
    ruleDhcp = 2,
    ruleVendorId = 3,
    ruleRemoteId = 4,
    ruleClientId = 5,
    ruleMac = 6,
    ruleIp = 7,
    ruleVlan = 8,
    ruleUserPattern = 9,
};
constexpr uint32_t ruleTypes = 10;

constexpr uint32_t ruleSlotUnset = 0xFFFFFFFF;
constexpr uint32_t etherTypeIpv4 = 0x0800;
constexpr uint32_t dhcpAnyMessage = 0;
constexpr uint32_t dhcpDiscoverOnly = 1;
enum RulePatternFormat : uint32_t { patternText = 0, patternMac = 1, patternRaw = 2 };

// A record without any rule that speaks of `type`: what deletes the rule of that type.
rpcTalRule unsetRule(uint32_t type);

inline uint32_t ruleType(const rpcTalRule& record) {
    return static_cast<uint32_t>(record.type);
}

// Of the slot of a type from 1 to 9. The pattern slot is null for any other type than 3 to 5.
bool isRuleSet(const rpcTalRule& record, uint32_t type);
bool isSameRule(const rpcTalRule& a, const rpcTalRule& b, uint32_t type);
rpcTalRulePattern* patternSlot(rpcTalRule& record, uint32_t type);
const rpcTalRulePattern* patternSlot(const rpcTalRule& record, uint32_t type);

// Such a type stands in front of the one that is compared, so a rule for it matches nothing.
constexpr bool isTagType(uint32_t etherType) {
    return etherType == 0x8100 || etherType == 0x88a8 || etherType == 0x9100;
}

// The module refuses these beside an EtherType rule for anything but IPv4.
bool looksIntoIpv4(uint32_t type);

}  // namespace node
