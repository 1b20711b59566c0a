// Both records number the pattern formats in their own way. A text may fill its 256 bytes without
// an end; how long it is then is decided by what follows it in the record, and never by what
// follows the record. One of exactly 256 characters is the longest that passes.
#include "rpc/rule_record.h"

#include <string.h>

#include <algorithm>

namespace rpc_tal {

namespace {

enum RecordFormat : uint32_t {
    recordFormatText = 0,
    recordFormatMac = 1,
    recordFormatRaw = 2,
    recordFormatUnset = talUnset,
};

constexpr size_t longestText = 256;
constexpr size_t longestRaw = 255;
constexpr size_t macLength = 6;

template <class Record>
size_t textLength(const Record& record, const char* text) {
    const char* const begin = reinterpret_cast<const char*>(&record);
    return strnlen(text, sizeof record - static_cast<size_t>(text - begin));
}

// The bytes of a record from one of its members on.
template <class Record>
unsigned char* bytesFrom(Record& record, size_t offset) {
    return reinterpret_cast<unsigned char*>(&record) + offset;
}

bool patternFromRecord(const rpcTalRule& record, const rpcTalRulePattern& from,
                       talRulePattern& to) {
    switch (from.format) {
        case recordFormatText: {
            const size_t length = textLength(record, from.text);
            if (length > longestText)
                return false;
            to.format = talPatternFormatText;
            std::copy_n(from.text, length, to.data);
            break;
        }
        case recordFormatMac:
            to.format = talPatternFormatMac;
            memcpy(to.data, from.mac, macLength);
            break;
        case recordFormatRaw:
            to.format = talPatternFormatRaw;
            memcpy(to.data, from.raw, longestRaw);
            to.length = from.rawLength;
            break;
        case recordFormatUnset:
            to.format = talPatternFormatUnset;
            break;
        default:
            break;
    }
    return true;
}

bool patternToRecord(const talRulePattern& from, rpcTalRulePattern& to) {
    switch (from.format) {
        case talPatternFormatText: {
            const size_t length = textLength(from, from.data);
            if (length > longestText)
                return false;
            to.format = recordFormatText;
            // The end of a text of 256 characters falls on the byte behind the field.
            unsigned char* const text = bytesFrom(to, offsetof(rpcTalRulePattern, text));
            memcpy(text, from.data, length);
            text[length] = '\0';
            return true;
        }
        case talPatternFormatMac:
            to.format = recordFormatMac;
            memcpy(to.mac, from.data, macLength);
            return true;
        case talPatternFormatRaw:
            if (from.length > longestRaw)
                return false;
            to.format = recordFormatRaw;
            memcpy(to.raw, from.data, from.length);
            to.rawLength = from.length;
            return true;
        case talPatternFormatUnset:
            to.format = recordFormatUnset;
            return true;
        default:
            return false;
    }
}

bool isType2Value(uint32_t value) {
    return value == 0 || value == 1;
}

}  // namespace

bool ruleFromRecord(const rpcTalRule& record, Type2Value type2Value, talRule& rule) {
    std::copy(std::begin(record.macAddr), std::end(record.macAddr), rule.macAddr);
    std::copy(std::begin(record.macMask), std::end(record.macMask), rule.macMask);
    rule.ipValue = record.ipValue;
    rule.ipMask = record.ipMask;
    rule.ethType = record.ethType;
    rule.type8Value = record.type8Value;
    if (isType2Value(record.type2Value))
        rule.type2Flag = record.type2Value;
    else if (type2Value == Type2Value::required)
        return false;
    for (size_t i = 0; i < std::size(record.pattern); ++i) {
        if (!patternFromRecord(record, record.pattern[i], rule.pattern[i]))
            return false;
    }
    std::copy(std::begin(record.userPatternSequence), std::end(record.userPatternSequence),
              rule.userPatternSequence);
    std::copy(std::begin(record.userPatternMask), std::end(record.userPatternMask),
              rule.userPatternMask);
    return singleton<tal>::instance().talRuleTypeSet(record.type, &rule.type);
}

bool recordFromRule(const talRule& rule, rpcTalRule& record) {
    std::copy(std::begin(rule.macAddr), std::end(rule.macAddr), record.macAddr);
    std::copy(std::begin(rule.macMask), std::end(rule.macMask), record.macMask);
    record.ipValue = rule.ipValue;
    record.ipMask = rule.ipMask;
    record.ethType = rule.ethType;
    record.type8Value = rule.type8Value;
    if (isType2Value(rule.type2Flag) || rule.type2Flag == talUnset)
        record.type2Value = rule.type2Flag;
    for (size_t i = 0; i < std::size(rule.pattern); ++i) {
        if (!patternToRecord(rule.pattern[i], record.pattern[i]))
            return false;
    }
    std::copy(std::begin(rule.userPatternSequence), std::end(rule.userPatternSequence),
              record.userPatternSequence);
    std::copy(std::begin(rule.userPatternMask), std::end(rule.userPatternMask),
              record.userPatternMask);
    return true;
}

}  // namespace rpc_tal
