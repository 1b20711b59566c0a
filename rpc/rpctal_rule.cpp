// The rule calls: the frame of all service functions around the conversion of the rule record. A
// record that cannot be converted is refused before the table is touched.
#include "rpc/rpctal.h"
#include "rpc/rule_record.h"
#include "rpc/service_frame.h"

using rpc_tal::serve;
using rpc_tal::Type2Value;

namespace {

// Converts the record and hands the rule to `set`.
template <class Set>
uint32_t serveRule(const rpcTalRule* record, Type2Value type2Value, Set set) {
    return serve([=](tal& module) {
        talRule rule{};
        module.setTalRuleDefault(&rule);
        if (record == nullptr || !rpc_tal::ruleFromRecord(*record, type2Value, rule))
            return talResError;
        return set(module, rule);
    });
}

}  // namespace

uint32_t rpcTalRuleSet(unsigned intf, rpcTalRule* rule, talOperation op) {
    return serveRule(rule, Type2Value::unsetAllowed, [=](tal& module, talRule& converted) {
        return module.talRuleSet(intf, &converted, op);
    });
}

uint32_t rpcTalRuleBundleSet(unsigned intf, rpcTalRule* rule) {
    // Kept: a record cannot leave the type-2 rule out, so a bundle always installs one.
    return serveRule(rule, Type2Value::required, [=](tal& module, talRule& converted) {
        return module.talRuleBundleSet(intf, &converted);
    });
}

uint32_t rpcTalRuleGet(unsigned intf, rpcTalRule* rule) {
    return serve([=](tal& module) {
        if (rule == nullptr)
            return talResError;
        talRule stored{};
        stored.ethType = talUnset;
        stored.type8Value = talUnset;
        stored.type2Flag = talUnset;
        const talResultCode got = module.talRuleGet(intf, &stored);
        if (got != talResOk)
            return got;
        talRuleType asked{};
        if (!module.talRuleTypeSet(rule->type, &asked) || !rpc_tal::recordFromRule(stored, *rule))
            return talResError;
        return talResOk;
    });
}
