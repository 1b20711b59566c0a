#include "node/control/rule_record.h"

#include <algorithm>
#include <cstring>

#include "node/rules/rule_record.h"

namespace node::control {

namespace {

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

void fillPattern(const Rule& rule, rpcTalRulePattern& slot) {
    switch (rule.format) {
        case PatternFormat::text:
            slot.format = patternText;
            std::copy(rule.value.begin(), rule.value.end(), slot.text);
            break;
        case PatternFormat::mac:
            slot.format = patternMac;
            std::memcpy(slot.mac, rule.value.data(), macLength);
            break;
        case PatternFormat::raw:
            slot.format = patternRaw;
            std::memcpy(slot.raw, rule.value.data(), rule.value.size());
            slot.rawLength = static_cast<uint32_t>(rule.value.size());
            break;
    }
}

Rule ruleOf(RuleKind kind, const rpcTalRulePattern& slot) {
    Rule rule{.kind = kind};
    if (slot.format == patternText) {
        rule.format = PatternFormat::text;
        rule.value.assign(slot.text, strnlen(slot.text, sizeof slot.text));
    } else if (slot.format == patternMac) {
        rule.format = PatternFormat::mac;
        rule.value = bytesFrom(slot.mac);
    } else {
        rule.format = PatternFormat::raw;
        rule.value.assign(std::begin(slot.raw),
                          std::begin(slot.raw) + std::min<size_t>(slot.rawLength, longestPattern));
    }
    return rule;
}

Rule ruleInSlot(RuleKind kind, const rpcTalRule& record) {
    switch (kind) {
        case RuleKind::any:
            break;
        case RuleKind::etherType:
            return {.kind = kind, .number = record.ethType};
        case RuleKind::dhcp:
            return {.kind = kind, .number = record.type2Value};
        case RuleKind::vendorId:
        case RuleKind::remoteId:
        case RuleKind::clientId:
            return ruleOf(kind, *patternSlot(record, typeOf(kind)));
        case RuleKind::mac:
            return {.kind = kind,
                    .value = bytesFrom(record.macAddr),
                    .mask = bytesFrom(record.macMask)};
        case RuleKind::ip:
            return {
                .kind = kind, .value = bytesFrom(record.ipValue), .mask = bytesFrom(record.ipMask)};
        case RuleKind::vlan:
            return {.kind = kind, .number = record.type8Value};
        case RuleKind::userPattern:
            return {.kind = kind,
                    .value = bytesFrom(record.userPatternSequence),
                    .mask = bytesFrom(record.userPatternMask)};
    }
    return {};
}

}  // namespace

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
            fillPattern(rule, *patternSlot(record, typeOf(rule.kind)));
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
    for (uint32_t type = ruleEtherType; type < ruleTypes; ++type) {
        if (isRuleSet(record, type)) {
            rules.push_back(ruleInSlot(static_cast<RuleKind>(type), record));
        }
    }
    return rules;
}

}  // namespace node::control
