// Two kinds of unset, as the record has them: a number is unset by ruleSlotUnset, so that 0 can
// be a rule; a value with a mask is unset when either half is all zero. The node never asks for
// such a half: the engine would get a condition that the module's table denies to have.
#include "node/rules/rule_record.h"

#include <algorithm>
#include <cstring>

namespace node {

namespace {

template <class Array>
bool anyBit(const Array& array) {
    return std::any_of(std::begin(array), std::end(array), [](auto part) { return part != 0; });
}

template <class Array>
bool same(const Array& a, const Array& b) {
    return std::equal(std::begin(a), std::end(a), std::begin(b));
}

bool samePattern(const rpcTalRulePattern& a, const rpcTalRulePattern& b) {
    if (a.format != b.format) {
        return false;
    }
    switch (a.format) {
        case patternText:
            return std::strncmp(a.text, b.text, sizeof a.text) == 0;
        case patternMac:
            return same(a.mac, b.mac);
        case patternRaw:
            return a.rawLength == b.rawLength && a.rawLength <= sizeof a.raw &&
                   std::equal(a.raw, a.raw + a.rawLength, b.raw);
        default:
            return true;
    }
}

}  // namespace

rpcTalRule unsetRule(uint32_t type) {
    rpcTalRule record{};
    record.ethType = ruleSlotUnset;
    record.type8Value = ruleSlotUnset;
    record.type2Value = ruleSlotUnset;
    for (rpcTalRulePattern& pattern : record.pattern) {
        pattern.format = ruleSlotUnset;
    }
    record.type = static_cast<rpc_tal_rule_type>(type);
    return record;
}

const rpcTalRulePattern* patternSlot(const rpcTalRule& record, uint32_t type) {
    return type >= ruleVendorId && type <= ruleClientId ? &record.pattern[type - ruleVendorId]
                                                        : nullptr;
}

rpcTalRulePattern* patternSlot(rpcTalRule& record, uint32_t type) {
    return const_cast<rpcTalRulePattern*>(patternSlot(std::as_const(record), type));
}

bool isRuleSet(const rpcTalRule& record, uint32_t type) {
    switch (type) {
        case ruleEtherType:
            return record.ethType != ruleSlotUnset;
        case ruleDhcp:
            return record.type2Value != ruleSlotUnset;
        case ruleVendorId:
        case ruleRemoteId:
        case ruleClientId:
            return patternSlot(record, type)->format != ruleSlotUnset;
        case ruleMac:
            return anyBit(record.macAddr) && anyBit(record.macMask);
        case ruleIp:
            return record.ipValue != 0 && record.ipMask != 0;
        case ruleVlan:
            return record.type8Value != ruleSlotUnset;
        case ruleUserPattern:
            return anyBit(record.userPatternSequence) && anyBit(record.userPatternMask);
        default:
            return false;
    }
}

bool isSameRule(const rpcTalRule& a, const rpcTalRule& b, uint32_t type) {
    switch (type) {
        case ruleEtherType:
            return a.ethType == b.ethType;
        case ruleDhcp:
            return a.type2Value == b.type2Value;
        case ruleVendorId:
        case ruleRemoteId:
        case ruleClientId:
            return samePattern(*patternSlot(a, type), *patternSlot(b, type));
        case ruleMac:
            return same(a.macAddr, b.macAddr) && same(a.macMask, b.macMask);
        case ruleIp:
            return a.ipValue == b.ipValue && a.ipMask == b.ipMask;
        case ruleVlan:
            return a.type8Value == b.type8Value;
        case ruleUserPattern:
            return same(a.userPatternSequence, b.userPatternSequence) &&
                   same(a.userPatternMask, b.userPatternMask);
        default:
            return true;
    }
}

bool looksIntoIpv4(uint32_t type) {
    return (type >= ruleDhcp && type <= ruleClientId) || type == ruleIp;
}

}  // namespace node
