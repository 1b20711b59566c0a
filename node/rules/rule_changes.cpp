// Removals come first, then ascending types: an EtherType rule on its way to IPv4 is there before
// the rules that look into IPv4, and those that have to go are gone before it leaves IPv4.
#include "node/rules/rule_changes.h"

#include <algorithm>

namespace node {

std::vector<RuleChange> ruleChanges(const std::vector<rpcTalRule>& wanted, const rpcTalRule& has,
                                    bool hasAny) {
    const auto exists = [&](uint32_t type) {
        return type == ruleAny ? hasAny : isRuleSet(has, type);
    };
    std::vector<RuleChange> changes;
    for (uint32_t type = 0; type < ruleTypes; ++type) {
        const bool kept = std::any_of(wanted.begin(), wanted.end(), [type](const auto& record) {
            return ruleType(record) == type;
        });
        if (exists(type) && !kept) {
            changes.push_back({RuleChange::Kind::remove, type, unsetRule(type)});
        }
    }
    for (const rpcTalRule& record : wanted) {
        const uint32_t type = ruleType(record);
        if (!exists(type)) {
            changes.push_back({RuleChange::Kind::add, type, record});
        } else if (!isSameRule(record, has, type)) {
            changes.push_back({RuleChange::Kind::modify, type, record});
        }
    }
    return changes;
}

}  // namespace node
