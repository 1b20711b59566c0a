// A condition does not say how its pattern was given, so one that reads as text is shown as text.
#include "node/engine/trap_text.h"

#include <algorithm>
#include <cstdio>

#include "node/engine/match_rules.h"
#include "node/rules/rule_text.h"
#include "node/text/bytes.h"

namespace node {

namespace {

void fillPattern(const ittalCondition& condition, rpcTalRulePattern& slot) {
    const auto& match = condition.u.match;
    const bool text =
        std::all_of(match.pattern, match.pattern + match.length, [](char c) { return c != '\0'; });
    slot.format = text ? patternText : patternRaw;
    std::copy_n(match.pattern, match.length, slot.text);
    std::copy_n(match.pattern, match.length, slot.raw);
    slot.rawLength = match.length;
}

rpcTalRule ruleOf(const ittalCondition& condition) {
    rpcTalRule rule = unsetRule(condition.type);
    switch (condition.type) {
        case ruleEtherType:
            rule.ethType = condition.u.value;
            break;
        case ruleDhcp:
            rule.type2Value = condition.u.match.selection == MATCH_SELECT_DISCOVER
                                  ? dhcpDiscoverOnly
                                  : dhcpAnyMessage;
            break;
        case ruleVendorId:
        case ruleRemoteId:
        case ruleClientId:
            fillPattern(condition, *patternSlot(rule, condition.type));
            break;
        case ruleMac:
            std::copy(std::begin(condition.u.mac.addr), std::end(condition.u.mac.addr),
                      rule.macAddr);
            std::copy(std::begin(condition.u.mac.mask), std::end(condition.u.mac.mask),
                      rule.macMask);
            break;
        case ruleIp:
            rule.ipValue = condition.u.ip.addr;
            rule.ipMask = condition.u.ip.mask;
            break;
        case ruleVlan:
            rule.type8Value = condition.u.value;
            break;
        case ruleUserPattern:
            std::copy(std::begin(condition.u.user.sequence), std::end(condition.u.user.sequence),
                      rule.userPatternSequence);
            std::copy(std::begin(condition.u.user.mask), std::end(condition.u.user.mask),
                      rule.userPatternMask);
            break;
        default:
            break;
    }
    return rule;
}

std::string_view messageName(uint8_t type) {
    constexpr std::string_view names[] = {"BOOTP", "DISCOVER", "OFFER",   "REQUEST", "DECLINE",
                                          "ACK",   "NAK",      "RELEASE", "INFORM"};
    return type < std::size(names) ? names[type] : "message";
}

}  // namespace

std::string conditionText(const ittalCondition& condition) {
    return condition.type < ruleTypes ? ruleText(condition.type, ruleOf(condition))
                                      : "type " + std::to_string(condition.type);
}

std::string frameText(const Frame& frame) {
    if (frame.dhcp) {
        return "DHCP " + std::string(messageName(frame.dhcp->messageType));
    }
    if (frame.etherType == MATCH_TYPE_ARP) {
        return "ARP";
    }
    if (frame.etherType == MATCH_TYPE_IPV4) {
        return "IPv4";
    }
    constexpr uint16_t lowestType = 0x0600;  // what is below is a length
    if (frame.etherType < lowestType) {
        return "802.3 frame";
    }
    char text[24];
    std::snprintf(text, sizeof text, "EtherType 0x%04x", frame.etherType);
    return text;
}

std::string trapText(const Frame& frame, std::string_view rule) {
    std::string text = frameText(frame);
    text.append(" (rule: ").append(rule).append(") from ").append(macText(frame.sourceMac));
    if (frame.outerVlan) {
        text += ", VLAN " + std::to_string(*frame.outerVlan);
    }
    return text;
}

}  // namespace node
