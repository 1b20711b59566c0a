// Rule records for the tests of the rule concerns, built by hand so that no test rests on
// the module's own defaults. Pure; any thread.
#pragma once

#include "tal/tal.h"

#include <string.h>

#include <string>
#include <vector>

namespace rules {

constexpr uint32_t unset = 0xFFFFFFFF;
constexpr uint32_t ipv4 = 0x0800;
constexpr uint32_t arp = 0x0806;
constexpr talOperation add = static_cast<talOperation>(0);
constexpr talOperation remove = static_cast<talOperation>(0xFFFFFFFF);
constexpr int types[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};

enum Format : uint32_t { raw = 0, text = 1, mac = 2 };

// Every slot unset, every other byte zero, addressing this type.
inline talRule blank(int type) {
    talRule rule;
    memset(static_cast<void*>(&rule), 0, sizeof(rule));
    rule.type0Value = unset;
    rule.ethType = unset;
    rule.type8Value = unset;
    rule.type2Flag = unset;
    for (talRulePattern& pattern : rule.pattern) {
        pattern.format = static_cast<talPatternFormat>(unset);
    }
    rule.type = static_cast<talRuleType>(type);
    return rule;
}

// Types 0, 1, 2 and 8.
inline talRule value(int type, uint32_t value) {
    talRule rule = blank(type);
    (type == 0   ? rule.type0Value
     : type == 1 ? rule.ethType
     : type == 2 ? rule.type2Flag
                 : rule.type8Value) = value;
    return rule;
}

// Types 3, 4 and 5. The data is filled up with zeros.
inline talRule pattern(int type, uint32_t format, const std::string& data, uint32_t length = 0) {
    talRule rule = blank(type);
    talRulePattern& slot = rule.pattern[type - 3];
    slot.format = static_cast<talPatternFormat>(format);
    memcpy(slot.data, data.data(), data.size() < 256 ? data.size() : 256);
    slot.length = length;
    return rule;
}

// Type 6: every byte of the address and of the mask, counted up from these.
inline talRule macRule(unsigned char firstOfAddress, unsigned char firstOfMask) {
    talRule rule = blank(6);
    for (unsigned i = 0; i < 6; ++i) {
        rule.macAddr[i] = static_cast<unsigned char>(firstOfAddress + i);
        rule.macMask[i] = static_cast<unsigned char>(firstOfMask + i);
    }
    return rule;
}

inline talRule ip(uint32_t address, uint32_t mask) {
    talRule rule = blank(7);
    rule.ipValue = address;
    rule.ipMask = mask;
    return rule;
}

// Type 9: word i of the sequence is sequence + i, of the mask mask - i.
inline talRule user(uint32_t sequence, uint32_t mask) {
    talRule rule = blank(9);
    for (uint32_t i = 0; i < 32; ++i) {
        rule.userPatternSequence[i] = sequence + i;
        rule.userPatternMask[i] = mask - i;
    }
    return rule;
}

// One rule of each type; they may all stand on one interface.
inline talRule some(int type) {
    switch (type) {
        case 0:
            return value(0, 7);
        case 1:
            return value(1, ipv4);
        case 2:
            return value(2, 1);
        case 3:
            return pattern(3, text, "vendor");
        case 4:
            return pattern(4, mac, std::string("\x02\x00\x5e\x10\x20\x30", 6));
        case 5:
            return pattern(5, raw, std::string("\x00\xff\x80", 3), 3);
        case 6:
            return macRule(0x10, 0xF0);
        case 7:
            return ip(0x0A000001, 0xFFFFFF00);
        case 8:
            return value(8, 100);
        default:
            return user(0xCAFE0000, 0xFFFFFFFF);
    }
}

// Another rule of the type, different in its slot and as compatible.
inline talRule other(int type) {
    switch (type) {
        case 0:
            return value(0, 8);
        case 1:
            return value(1, ipv4);  // the only one that goes with every other type
        case 2:
            return value(2, 0);
        case 3:
            return pattern(3, text, "vendor2");
        case 4:
            return pattern(4, mac, std::string("\x02\x00\x5e\x10\x20\x31", 6));
        case 5:
            return pattern(5, raw, std::string("\x00\xff\x81", 3), 3);
        case 6:
            return macRule(0x11, 0xF0);
        case 7:
            return ip(0x0A000002, 0xFFFFFF00);
        case 8:
            return value(8, 101);
        default:
            return user(0xCAFE0001, 0xFFFFFFFF);
    }
}

// The bytes of a type's slot, told field by field.
inline std::string slot(const talRule& rule, int type) {
    std::string bytes;
    const auto append = [&bytes](const void* from, size_t size) {
        bytes.append(static_cast<const char*>(from), size);
    };
    switch (type) {
        case 0:
            append(&rule.type0Value, 4);
            break;
        case 1:
            append(&rule.ethType, 4);
            break;
        case 2:
            append(&rule.type2Flag, 4);
            break;
        case 3:
        case 4:
        case 5:
            append(&rule.pattern[type - 3].format, 4);
            append(rule.pattern[type - 3].data, 256);
            append(&rule.pattern[type - 3].length, 4);
            break;
        case 6:
            append(rule.macAddr, 6);
            append(rule.macMask, 6);
            break;
        case 7:
            append(&rule.ipValue, 4);
            append(&rule.ipMask, 4);
            break;
        case 8:
            append(&rule.type8Value, 4);
            break;
        default:
            append(rule.userPatternSequence, 128);
            append(rule.userPatternMask, 128);
            break;
    }
    return bytes;
}

// Copies one type's slot.
inline void copySlot(const talRule& from, talRule& to, int type) {
    switch (type) {
        case 0:
            to.type0Value = from.type0Value;
            break;
        case 1:
            to.ethType = from.ethType;
            break;
        case 2:
            to.type2Flag = from.type2Flag;
            break;
        case 3:
        case 4:
        case 5:
            to.pattern[type - 3] = from.pattern[type - 3];
            break;
        case 6:
            memcpy(to.macAddr, from.macAddr, 6);
            memcpy(to.macMask, from.macMask, 6);
            break;
        case 7:
            to.ipValue = from.ipValue;
            to.ipMask = from.ipMask;
            break;
        case 8:
            to.type8Value = from.type8Value;
            break;
        default:
            memcpy(to.userPatternSequence, from.userPatternSequence, 128);
            memcpy(to.userPatternMask, from.userPatternMask, 128);
            break;
    }
}

// The types whose slots differ.
inline std::vector<int> differing(const talRule& one, const talRule& two) {
    std::vector<int> found;
    for (const int type : types) {
        if (slot(one, type) != slot(two, type)) {
            found.push_back(type);
        }
    }
    return found;
}

}  // namespace rules
