#include "tests/oracle/rule_table_model.h"

#include <stddef.h>
#include <stdio.h>
#include <string.h>

namespace oracle {

namespace {

const uint32_t kUnset = 0xFFFFFFFF;
const uint32_t kIpv4 = 0x0800;

// Every slot is one run of bytes in the record.
struct Run {
    size_t offset;
    size_t size;
};

const Run kSlots[10] = {
    {0, 4},      // 0: a value
    {24, 4},     // 1: EtherType
    {32, 4},     // 2: a flag
    {36, 264},   // 3: format, 256 data bytes, length
    {300, 264},  // 4
    {564, 264},  // 5
    {4, 12},     // 6: address, mask
    {16, 8},     // 7: address word, mask word
    {28, 4},     // 8: a value
    {828, 256},  // 9: sequence, mask
};

std::string bytesOf(const talRule& rule) {
    std::string bytes(sizeof(rule), '\0');
    memcpy(bytes.data(), &rule, sizeof(rule));
    return bytes;
}

bool allZero(const std::string& bytes) {
    return bytes.find_first_not_of('\0') == std::string::npos;
}

bool bothHalvesSet(const std::string& bytes) {
    const size_t half = bytes.size() / 2;
    return !allZero(bytes.substr(0, half)) && !allZero(bytes.substr(half));
}

uint32_t word(const std::string& bytes, size_t offset) {
    uint32_t value = 0;
    memcpy(&value, bytes.data() + offset, sizeof(value));
    return value;
}

void copySlot(const talRule& from, talRule& to, int type) {
    const std::string source = bytesOf(from);
    std::string target = bytesOf(to);
    const Run run = kSlots[type];
    target.replace(run.offset, run.size, source, run.offset, run.size);
    memcpy(static_cast<void*>(&to), target.data(), sizeof(to));
}

void put(std::string& record, size_t offset, const std::string& bytes) {
    record.replace(offset, bytes.size(), bytes);
}

void putWord(std::string& record, size_t offset, uint32_t value) {
    std::string bytes(4, '\0');
    memcpy(bytes.data(), &value, 4);
    put(record, offset, bytes);
}

// The 400 bytes the engine is handed for a rule of type 0 to 9.
std::string conditionBytes(const std::string& selector, const talRule& rule) {
    const std::string bytes = bytesOf(rule);
    std::string record(400, '\0');
    put(record, 0, selector);
    putWord(record, 128, static_cast<uint32_t>(rule.type));
    switch (static_cast<int>(rule.type)) {
        case 0:
            putWord(record, 132, 0);
            break;
        case 1:
            putWord(record, 132, 5);
            put(record, 136, bytes.substr(24, 2));
            break;
        case 2:
            putWord(record, 132, 29);
            putWord(record, 136, 0);
            // A flag that is neither 0 nor 1 leaves the selection at the 0 it started with.
            record[396] = static_cast<char>(rule.type2Flag == 1 ? 3 : 1);
            break;
        case 3:
        case 4:
        case 5: {
            putWord(record, 132, 29);
            putWord(record, 136, rule.type == 3 ? 1 : rule.type == 4 ? 2 : 4);
            // The last slot that is set wins, whatever the type.
            for (int slot = 2; slot >= 0; --slot) {
                const talRulePattern& pattern = rule.pattern[slot];
                const uint32_t format = pattern.format;
                if (format > 2) {
                    continue;
                }
                size_t length = pattern.length;
                if (format == 1) {
                    length = strnlen(pattern.data, sizeof(pattern.data));
                } else if (format == 2) {
                    length = 6;
                }
                put(record, 140, std::string(pattern.data, 255));
                record[395] = static_cast<char>(length & 0xFF);
                break;
            }
            break;
        }
        case 6:
            putWord(record, 132, 3);
            put(record, 136, bytes.substr(4, 12));
            break;
        case 7:
            putWord(record, 132, 11);
            put(record, 136, bytes.substr(16, 8));
            break;
        case 8:
            putWord(record, 132, 6);
            put(record, 136, bytes.substr(28, 2));
            break;
        case 9:
            putWord(record, 132, 34);
            put(record, 136, bytes.substr(828, 256));
            break;
        default:
            break;
    }
    return record;
}

}  // namespace

std::string text(const ConditionCall& call) {
    std::string out =
        (call.add ? "add " : "delete ") + call.selector + " type " + std::to_string(call.type);
    char digits[4];
    for (size_t at = 128; at < call.condition.size(); ++at) {
        if (call.condition[at] != '\0') {
            snprintf(digits, sizeof(digits), "%02x",
                     static_cast<unsigned>(static_cast<unsigned char>(call.condition[at])));
            out += " " + std::to_string(at) + ":" + digits;
        }
    }
    return out;
}

talRule unsetRule() {
    talRule rule;
    memset(static_cast<void*>(&rule), 0, sizeof(rule));
    rule.type0Value = kUnset;
    rule.ethType = kUnset;
    rule.type8Value = kUnset;
    rule.type2Flag = kUnset;
    for (talRulePattern& pattern : rule.pattern) {
        pattern.format = static_cast<talPatternFormat>(kUnset);
    }
    rule.type = static_cast<talRuleType>(-1);
    return rule;
}

std::string slotBytes(const talRule& rule, int type) {
    return bytesOf(rule).substr(kSlots[type].offset, kSlots[type].size);
}

bool isSet(const talRule& rule, int type) {
    const std::string slot = slotBytes(rule, type);
    if (type == 6 || type == 7 || type == 9) {
        return bothHalvesSet(slot);
    }
    return word(slot, 0) != kUnset;
}

void RuleTableModel::addInterface(unsigned id) {
    interfaces[id] = Interface{unsetRule(), false, false};
}

void RuleTableModel::addZeroEntry() {
    Interface& entry = interfaces[0];
    memset(static_cast<void*>(&entry.rule), 0, sizeof(entry.rule));
    entry.adminState = false;
    entry.loginStored = false;
}

bool RuleTableModel::valid(unsigned id) const {
    return id == 0 || interfaces.count(id) != 0;
}

bool RuleTableModel::call(const ConditionCall& call) {
    trace.push_back(call);
    unsigned& left = call.add ? refuseAdd : refuseDelete;
    if (left == 0) {
        return true;
    }
    --left;
    return left != 0;
}

void RuleTableModel::switchNode(bool on) {
    if (globalAdminState && !on) {
        for (auto& entry : interfaces) {
            entry.second.loginStored = false;
        }
    }
    globalAdminState = on;
}

unsigned RuleTableModel::switchInterface(unsigned id, bool on) {
    if (!valid(id)) {
        return 3;
    }
    for (auto& entry : interfaces) {
        if (id != 0 && entry.first != id) {
            continue;
        }
        // One interface that is off already keeps its login; all at once lose theirs anyway.
        const bool purge = !on && !starting && (id == 0 || entry.second.adminState);
        entry.second.adminState = on;
        if (purge) {
            entry.second.loginStored = false;
        }
    }
    return 0;
}

unsigned RuleTableModel::setDefaults(unsigned id) {
    unsigned result = switchInterface(id, false);
    if (!starting) {
        talRule none = unsetRule();
        result |= setBundle(id, none);
    }
    return result == 0 ? 0 : 1;
}

void RuleTableModel::startAgain() {
    for (auto& entry : interfaces) {
        entry.second.adminState = false;
        if (entry.first != 0) {
            entry.second.rule = unsetRule();
        }
    }
    switchNode(false);
    starting = false;
}

bool RuleTableModel::exists(unsigned id, int type) {
    if (!valid(id) || type < 0 || type > 9) {
        return false;
    }
    if (interfaces.count(id) == 0) {
        addZeroEntry();
    }
    return isSet(interfaces[id].rule, type);
}

bool RuleTableModel::empty(unsigned id) {
    for (int type = 0; type <= 9; ++type) {
        if (exists(id, type)) {
            return false;
        }
    }
    return true;
}

bool RuleTableModel::compatible(unsigned id, const talRule& rule) {
    switch (static_cast<int>(rule.type)) {
        case 1:
            if (rule.ethType == kIpv4) {
                return true;
            }
            for (int type : {7, 2, 3, 4, 5}) {
                if (exists(id, type)) {
                    return false;
                }
            }
            return true;
        case 2:
        case 3:
        case 4:
        case 5:
        case 7:
            return !exists(id, 1) || interfaces[id].rule.ethType == kIpv4;
        default:
            return true;
    }
}

bool RuleTableModel::modified(unsigned id, const talRule& rule) {
    const int type = rule.type;
    if (!exists(id, type) || type == 0) {
        return false;
    }
    const talRule& stored = interfaces[id].rule;
    const std::string mine = slotBytes(rule, type);
    const std::string theirs = slotBytes(stored, type);
    if (type < 3 || type > 5) {
        return mine != theirs;
    }
    // Format and data; the length counts for raw patterns only.
    if (mine.substr(0, 260) != theirs.substr(0, 260)) {
        return true;
    }
    return word(mine, 0) == 0 && word(mine, 260) != word(theirs, 260);
}

unsigned RuleTableModel::setInEngine(unsigned id, const talRule& rule, bool add) {
    const int type = rule.type;
    const bool present = exists(id, type);
    const bool changed = modified(id, rule);
    if (type < 0 || type > 9) {
        return 1;
    }
    const std::string name = std::to_string(static_cast<uint32_t>(id - 1));
    const ConditionCall deletion{false, name, static_cast<uint32_t>(type), ""};
    const ConditionCall addition{true, name, static_cast<uint32_t>(type),
                                 conditionBytes(name, rule)};
    if (add && present && !changed) {
        return 0;
    }
    if (!add && !present) {
        return 0;
    }
    if (present && !call(deletion)) {
        return 1;
    }
    if (add && !call(addition)) {
        return 1;
    }
    const bool purge = !starting && !(add && !present && applying);
    if (purge && globalAdminState && interfaces[id].adminState) {
        purges += interfaces[id].loginStored ? 1 : 0;
        interfaces[id].loginStored = false;
    }
    return 0;
}

unsigned RuleTableModel::setOne(unsigned id, const talRule& rule, bool add) {
    if (!valid(id)) {
        return 3;
    }
    if (add && !compatible(id, rule)) {
        return 2;
    }
    const unsigned result = setInEngine(id, rule, add);
    if (result != 0) {
        return result;
    }
    if (interfaces.count(id) == 0) {
        addZeroEntry();
    }
    copySlot(rule, interfaces[id].rule, rule.type);
    return 0;
}

unsigned RuleTableModel::set(unsigned id, const talRule& rule, uint32_t op) {
    if (!valid(id)) {
        return 3;
    }
    if (id != 0) {
        return setOne(id, rule, op == 0);
    }
    std::vector<unsigned> ids;
    for (const auto& entry : interfaces) {
        ids.push_back(entry.first);
    }
    unsigned result = 0;
    for (unsigned each : ids) {
        if (setOne(each, rule, op == 0) != 0) {
            result = 1;
        }
    }
    return result;
}

unsigned RuleTableModel::setBundle(unsigned id, talRule& bundle) {
    if (bundle.ethType != kIpv4 && bundle.ethType != kUnset) {
        for (int type : {7, 2, 3, 4, 5}) {
            if (isSet(bundle, type)) {
                return 2;
            }
        }
    }
    for (int type : {0, 6, 7, 1, 8, 2, 3, 4, 5, 9}) {
        talRule one = unsetRule();
        one.type = static_cast<talRuleType>(type);
        const std::string slot = slotBytes(bundle, type);
        bool add = false;
        if (type == 6 || type == 7 || type == 9) {
            add = !allZero(slot);  // one half is enough
        } else {
            add = word(slot, 0) != kUnset;
        }
        if (add && type >= 3 && type <= 5) {
            // Only the format travels; the caller's data is overwritten instead.
            one.pattern[type - 3].format = bundle.pattern[type - 3].format;
            memset(bundle.pattern[type - 3].data, 0, sizeof(bundle.pattern[type - 3].data));
        } else if (add) {
            copySlot(bundle, one, type);
        }
        const unsigned result = set(id, one, add ? 0 : kUnset);
        if (result != 0) {
            return result;
        }
    }
    return 0;
}

unsigned RuleTableModel::get(unsigned id, talRule& out) {
    if (!valid(id)) {
        return 3;
    }
    if (interfaces.count(id) == 0) {
        addZeroEntry();
    }
    for (int type = 0; type <= 9; ++type) {
        copySlot(interfaces[id].rule, out, type);
    }
    return 0;
}

}  // namespace oracle
