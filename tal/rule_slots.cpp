// A record has a slot for each of the ten types. The 32-bit slots are unset by talUnset, so that
// 0 can be a rule; the paired slots (MAC address, address word, user pattern) are unset when
// either half is all zero. That asymmetry is part of the record as hosts fill it.
#include "tal/rule_slots.h"

#include <string.h>

#include <algorithm>

namespace tal_rule {

namespace {

template <class Array>
bool sameBytes(const Array& a, const Array& b) {
    return memcmp(&a, &b, sizeof a) == 0;
}

bool patternDiffers(const talRulePattern& wanted, const talRulePattern& stored) {
    return !sameBytes(wanted.data, stored.data) || wanted.format != stored.format ||
           (wanted.format == talPatternFormatRaw && wanted.length != stored.length);
}

}  // namespace

bool isType(int32_t type) {
    return type >= talRuleTypeAny && type <= talRuleTypeUserPattern;
}

bool needsIpv4(talRuleType type) {
    return type == talRuleTypeFlag || type == talRuleTypePattern1 || type == talRuleTypePattern2 ||
           type == talRuleTypePattern3 || type == talRuleTypeIp;
}

bool isMacNull(const unsigned char mac[6]) {
    return std::all_of(mac, mac + 6, [](unsigned char byte) { return byte == 0; });
}

bool areWordsNull(const uint32_t words[32]) {
    return std::all_of(words, words + 32, [](uint32_t word) { return word == 0; });
}

const talRulePattern* patternSlot(const talRule& rule, talRuleType type) {
    switch (type) {
        case talRuleTypePattern1:
            return &rule.pattern[0];
        case talRuleTypePattern2:
            return &rule.pattern[1];
        case talRuleTypePattern3:
            return &rule.pattern[2];
        default:
            return nullptr;
    }
}

talRulePattern* patternSlot(talRule& rule, talRuleType type) {
    return const_cast<talRulePattern*>(patternSlot(static_cast<const talRule&>(rule), type));
}

void setDefault(talRule& rule) {
    rule.type0Value = talUnset;
    std::fill(std::begin(rule.macAddr), std::end(rule.macAddr), 0);
    std::fill(std::begin(rule.macMask), std::end(rule.macMask), 0);
    rule.ipValue = 0;
    rule.ipMask = 0;
    rule.ethType = talUnset;
    rule.type8Value = talUnset;
    rule.type2Flag = talUnset;
    for (talRulePattern& pattern : rule.pattern) {
        pattern.format = talPatternFormatUnset;
        // Kept: the other bytes and the length stay; callers reuse one working record.
        pattern.data[0] = '\0';
    }
    std::fill(std::begin(rule.userPatternSequence), std::end(rule.userPatternSequence), 0);
    std::fill(std::begin(rule.userPatternMask), std::end(rule.userPatternMask), 0);
    rule.type = talRuleTypeUnset;
}

bool isSet(const talRule& rule, talRuleType type) {
    switch (type) {
        case talRuleTypeAny:
            return rule.type0Value != talUnset;
        case talRuleTypeEthType:
            return rule.ethType != talUnset;
        case talRuleTypeFlag:
            return rule.type2Flag != talUnset;
        case talRuleTypePattern1:
        case talRuleTypePattern2:
        case talRuleTypePattern3:
            return patternSlot(rule, type)->format != talPatternFormatUnset;
        case talRuleTypeMac:
            return !isMacNull(rule.macAddr) && !isMacNull(rule.macMask);
        case talRuleTypeIp:
            return rule.ipValue != 0 && rule.ipMask != 0;
        case talRuleTypeValue8:
            return rule.type8Value != talUnset;
        case talRuleTypeUserPattern:
            return !areWordsNull(rule.userPatternSequence) && !areWordsNull(rule.userPatternMask);
        default:
            return false;
    }
}

bool differs(const talRule& wanted, const talRule& stored, talRuleType type) {
    switch (type) {
        case talRuleTypeEthType:
            return wanted.ethType != stored.ethType;
        case talRuleTypeFlag:
            return wanted.type2Flag != stored.type2Flag;
        case talRuleTypePattern1:
        case talRuleTypePattern2:
        case talRuleTypePattern3:
            return patternDiffers(*patternSlot(wanted, type), *patternSlot(stored, type));
        case talRuleTypeMac:
            return !sameBytes(wanted.macAddr, stored.macAddr) ||
                   !sameBytes(wanted.macMask, stored.macMask);
        case talRuleTypeIp:
            return wanted.ipValue != stored.ipValue || wanted.ipMask != stored.ipMask;
        case talRuleTypeValue8:
            return wanted.type8Value != stored.type8Value;
        case talRuleTypeUserPattern:
            return !sameBytes(wanted.userPatternSequence, stored.userPatternSequence) ||
                   !sameBytes(wanted.userPatternMask, stored.userPatternMask);
        default:
            // Kept: a changed type-0 value counts as unchanged; the engine never learns it.
            return false;
    }
}

void copySlot(const talRule& from, talRule& to, talRuleType type) {
    switch (type) {
        case talRuleTypeAny:
            to.type0Value = from.type0Value;
            break;
        case talRuleTypeEthType:
            to.ethType = from.ethType;
            break;
        case talRuleTypeFlag:
            to.type2Flag = from.type2Flag;
            break;
        case talRuleTypePattern1:
        case talRuleTypePattern2:
        case talRuleTypePattern3:
            *patternSlot(to, type) = *patternSlot(from, type);
            break;
        case talRuleTypeMac:
            std::copy(std::begin(from.macAddr), std::end(from.macAddr), to.macAddr);
            std::copy(std::begin(from.macMask), std::end(from.macMask), to.macMask);
            break;
        case talRuleTypeIp:
            to.ipValue = from.ipValue;
            to.ipMask = from.ipMask;
            break;
        case talRuleTypeValue8:
            to.type8Value = from.type8Value;
            break;
        case talRuleTypeUserPattern:
            std::copy(std::begin(from.userPatternSequence), std::end(from.userPatternSequence),
                      to.userPatternSequence);
            std::copy(std::begin(from.userPatternMask), std::end(from.userPatternMask),
                      to.userPatternMask);
            break;
        default:
            break;
    }
}

}  // namespace tal_rule
