// The rule for any frame has no field in the record of the service functions, so that it is set
// and told by the node's view instead; all other rules take the functions' way.
//
// Tests: tests/control/service_test.cpp.
#include "node/control/module_calls.h"

#include <algorithm>
#include <utility>

#include "node/control/rule_record.h"
#include "node/control/service_functions.h"
#include "node/rules/rule_record.h"

namespace node::control {

namespace {

using IntfSet = uint32_t (*)(unsigned, int);
using IntfGet = uint32_t (*)(unsigned, bool*);

std::pair<IntfSet, IntfGet> functionsOf(const ServiceFunctions& functions, Setting setting) {
    switch (setting) {
        case Setting::admin:
            return {functions.intfAdminStateSet, functions.intfAdminStateGet};
        case Setting::authentication:
            return {functions.intfAuthenAdminStateSet, functions.intfAuthenAdminStateGet};
        case Setting::authorization:
            return {functions.intfAuthorAdminStateSet, functions.intfAuthorAdminStateGet};
        case Setting::autoRequest:
            break;
    }
    return {functions.intfAutoReqAdminStateSet, functions.intfAutoReqAdminStateGet};
}

std::optional<uint32_t> written(uint32_t state) {
    return state == talUnset ? std::nullopt : std::optional(state);
}

}  // namespace

std::string ModuleCalls::missing() const {
    std::string name;
    forEachFunction(functions_, [&](const auto& function, const char* cName) {
        if (function == nullptr) {
            name = cName;
        }
    });
    return name;
}

uint32_t ModuleCalls::adminSet(bool on) {
    return functions_.adminStateSet(on ? 1 : 0);
}

uint32_t ModuleCalls::adminGet(bool& on) {
    return functions_.adminStateGet(&on);
}

uint32_t ModuleCalls::settingSet(Setting setting, unsigned ifId, bool on) {
    return functionsOf(functions_, setting).first(ifId, on ? 1 : 0);
}

uint32_t ModuleCalls::settingGet(Setting setting, unsigned ifId, bool& on) {
    return functionsOf(functions_, setting).second(ifId, &on);
}

uint32_t ModuleCalls::operGet(OperState state, unsigned ifId, bool& up) {
    return state == OperState::authentication ? functions_.intfAuthenOperStateGet(ifId, &up)
                                              : functions_.intfAuthorOperStateGet(ifId, &up);
}

uint32_t ModuleCalls::statisticsGet(unsigned ifId, Statistics& c) {
    return functions_.intfStatisticsGet(ifId, &c[0], &c[1], &c[2], &c[3], &c[4], &c[5], &c[6],
                                        &c[7], &c[8], &c[9], &c[10], &c[11], &c[12]);
}

uint32_t ModuleCalls::statesGet(unsigned ifId, States& states) {
    // What the function leaves unwritten keeps this value, which no state has.
    talIntfFwdState forwarding{talUnset};
    talIntfAuthenFwdState authentication{talUnset};
    talIntfAuthorFwdState authorization{talUnset};
    const uint32_t result =
        functions_.intfStatesGet(ifId, &forwarding, &authentication, &authorization);
    if (result == talResOk) {
        states = {written(forwarding), written(authentication), written(authorization)};
    }
    return result;
}

uint32_t ModuleCalls::ruleAdd(unsigned ifId, const Rule& rule) {
    if (rule.kind == RuleKind::any) {
        return view_.anyRuleSet(ifId, true);
    }
    rpcTalRule record = unsetRule(typeOf(rule.kind));
    fillSlot(rule, record);
    return functions_.ruleSet(ifId, &record, talOperationAdd);
}

uint32_t ModuleCalls::ruleDelete(unsigned ifId, RuleKind kind) {
    if (kind == RuleKind::any) {
        return view_.anyRuleSet(ifId, false);
    }
    rpcTalRule record = unsetRule(typeOf(kind));
    return functions_.ruleSet(ifId, &record, talOperationDelete);
}

uint32_t ModuleCalls::bundleSet(unsigned ifId, const std::vector<Rule>& rules) {
    rpcTalRule record = unsetRule(ruleAny);
    for (const Rule& rule : rules) {
        fillSlot(rule, record);
    }
    return functions_.ruleBundleSet(ifId, &record);
}

uint32_t ModuleCalls::rulesGet(unsigned ifId, std::vector<Rule>& rules) {
    rpcTalRule record = unsetRule(ruleAny);
    const uint32_t result = functions_.ruleGet(ifId, &record);
    if (result != talResOk) {
        return result;
    }
    rules = rulesOf(record);
    const std::vector<InterfaceView> interfaces = view_.interfaces();
    if (std::any_of(interfaces.begin(), interfaces.end(),
                    [&](const auto& each) { return each.id == ifId && each.anyRule; })) {
        rules.insert(rules.begin(), Rule{.kind = RuleKind::any});
    }
    return result;
}

uint32_t ModuleCalls::convertProfiles() {
    return functions_.convertAllDynamicProfilesToStatic();
}

uint32_t ModuleCalls::clearIsa() {
    return functions_.clearIsaConfiguration();
}

}  // namespace node::control
