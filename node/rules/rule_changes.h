// What has to be done so that an interface has the rules that are wanted. Pure; any thread.
#pragma once

#include <vector>

#include "node/rules/rule_record.h"

namespace node {

struct RuleChange {
    enum class Kind { remove, modify, add };
    Kind kind;
    uint32_t type;
    rpcTalRule record;  // what the service functions are given: a removal carries unset slots

    bool operator==(const RuleChange& other) const {
        return kind == other.kind && type == other.type && isSameRule(record, other.record, type);
    }
};

// `wanted`: records of one rule each, ascending types. `has`: all the interface has, but for the
// rule for any frame. In an order in which no rule meets one it is incompatible with.
std::vector<RuleChange> ruleChanges(const std::vector<rpcTalRule>& wanted, const rpcTalRule& has,
                                    bool hasAny);

}  // namespace node
