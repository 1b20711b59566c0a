#include "node/control/rule_record.h"

#include <algorithm>
#include <cstring>

namespace node::control {

namespace {

constexpr uint32_t recordText = 0;
constexpr uint32_t recordMac = 1;
constexpr uint32_t recordRaw = 2;
constexpr size_t wordBytes = 4;

uint32_t wordAt(const std::string& bytes, size_t offset) {
    uint32_t word = 0;
    for (size_t i = 0; i < wordBytes; ++i) {
        word = word << 8 | static_cast<unsigned char>(bytes[offset + i]);
    }
    return word;
}

void appendWord(uint32_t word, std::string& bytes) {
    for (const int shift : {24, 16, 8, 0}) {
        bytes += static_cast<char>(word >> shift & 0xFF);
    }
}

// The first byte of a frame stands in the top 8 bits of the first word.
void wordsFrom(const std::string& bytes, uint32_t (&words)[32]) {
    for (size_t i = 0; i < std::size(words); ++i) {
        words[i] = wordAt(bytes, wordBytes * i);
    }
}

std::string bytesFrom(const uint32_t (&words)[32]) {
    std::string bytes;
    for (const uint32_t word : words) {
        appendWord(word, bytes);
    }
    return bytes;
}

std::string bytesFrom(const unsigned char (&mac)[6]) {
    return std::string(std::begin(mac), std::end(mac));
}

std::string bytesFrom(uint32_t word) {
    std::string bytes;
    appendWord(word, bytes);
    return bytes;
}

template <class Field>
bool isSet(const Field& field) {
    return std::any_of(std::begin(field), std::end(field), [](auto part) { return part != 0; });
}

rpcTalRulePattern& patternOf(RuleKind kind, rpcTalRule& record) {
    return record.pattern[static_cast<int>(kind) - static_cast<int>(RuleKind::vendorId)];
}

void fillPattern(const Rule& rule, rpcTalRulePattern& slot) {
    switch (rule.format) {
        case PatternFormat::text:
            slot.format = recordText;
            std::copy(rule.value.begin(), rule.value.end(), slot.text);
            break;
        case PatternFormat::mac:
            slot.format = recordMac;
            std::memcpy(slot.mac, rule.value.data(), macLength);
            break;
        case PatternFormat::raw:
            slot.format = recordRaw;
            std::memcpy(slot.raw, rule.value.data(), rule.value.size());
            slot.rawLength = static_cast<uint32_t>(rule.value.size());
            break;
    }
}

Rule ruleOf(RuleKind kind, const rpcTalRulePattern& slot) {
    Rule rule{.kind = kind};
    if (slot.format == recordText) {
        rule.format = PatternFormat::text;
        rule.value.assign(slot.text, strnlen(slot.text, sizeof slot.text));
    } else if (slot.format == recordMac) {
        rule.format = PatternFormat::mac;
        rule.value = bytesFrom(slot.mac);
    } else {
        rule.format = PatternFormat::raw;
        rule.value.assign(std::begin(slot.raw),
                          std::begin(slot.raw) + std::min<size_t>(slot.rawLength, longestPattern));
    }
    return rule;
}

}  // namespace

rpcTalRule unsetRecord(RuleKind kind) {
    rpcTalRule record{};
    record.ethType = talUnset;
    record.type8Value = talUnset;
    record.type2Value = talUnset;
    for (rpcTalRulePattern& pattern : record.pattern) {
        pattern.format = talUnset;
    }
    record.type = static_cast<rpc_tal_rule_type>(kind);
    return record;
}

void fillSlot(const Rule& rule, rpcTalRule& record) {
    record.type = static_cast<rpc_tal_rule_type>(rule.kind);
    switch (rule.kind) {
        case RuleKind::any:
            break;
        case RuleKind::etherType:
            record.ethType = rule.number;
            break;
        case RuleKind::dhcp:
            record.type2Value = rule.number;
            break;
        case RuleKind::vendorId:
        case RuleKind::remoteId:
        case RuleKind::clientId:
            fillPattern(rule, patternOf(rule.kind, record));
            break;
        case RuleKind::mac:
            std::memcpy(record.macAddr, rule.value.data(), macLength);
            std::memcpy(record.macMask, rule.mask.data(), macLength);
            break;
        case RuleKind::ip:
            record.ipValue = wordAt(rule.value, 0);
            record.ipMask = wordAt(rule.mask, 0);
            break;
        case RuleKind::vlan:
            record.type8Value = rule.number;
            break;
        case RuleKind::userPattern:
            wordsFrom(rule.value, record.userPatternSequence);
            wordsFrom(rule.mask, record.userPatternMask);
            break;
    }
}

std::vector<Rule> rulesOf(const rpcTalRule& record) {
    std::vector<Rule> rules;
    const auto addNumber = [&](RuleKind kind, uint32_t number) {
        if (number != talUnset) {
            rules.push_back({.kind = kind, .number = number});
        }
    };
    const auto addMasked = [&](RuleKind kind, std::string value, std::string mask) {
        if (isSet(value) && isSet(mask)) {
            rules.push_back({.kind = kind, .value = std::move(value), .mask = std::move(mask)});
        }
    };
    addNumber(RuleKind::etherType, record.ethType);
    addNumber(RuleKind::dhcp, record.type2Value);
    const RuleKind patternKinds[] = {RuleKind::vendorId, RuleKind::remoteId, RuleKind::clientId};
    for (size_t i = 0; i < std::size(patternKinds); ++i) {
        if (record.pattern[i].format != talUnset) {
            rules.push_back(ruleOf(patternKinds[i], record.pattern[i]));
        }
    }
    addMasked(RuleKind::mac, bytesFrom(record.macAddr), bytesFrom(record.macMask));
    addMasked(RuleKind::ip, bytesFrom(record.ipValue), bytesFrom(record.ipMask));
    addNumber(RuleKind::vlan, record.type8Value);
    addMasked(RuleKind::userPattern, bytesFrom(record.userPatternSequence),
              bytesFrom(record.userPatternMask));
    return rules;
}

}  // namespace node::control
