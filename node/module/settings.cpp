// Rules are compared with what the module has, not with an earlier configuration, so that the
// outcome is the same whatever management did in between. They come before automatic requests,
// because the module forgets the stored login of a line without rules whenever those are
// switched on; for the same reason they are switched only when they are not as wanted.
#include "node/module/settings.h"

#include <stdexcept>

#include "node/rules/rule_changes.h"
#include "node/rules/rule_text.h"

namespace node {

namespace {

constexpr uint32_t ruleIncompatible = 2;

void require(uint32_t result, const std::string& what) {
    if (result != 0) {
        throw std::runtime_error(what + " was refused by the module (result " +
                                 std::to_string(result) + ")");
    }
}

void requireRule(uint32_t result, const std::string& what) {
    if (result == ruleIncompatible) {
        throw std::runtime_error(what +
                                 ": the module refuses it beside the other rules of the "
                                 "interface");
    }
    require(result, what + ": the rule");
}

// The place in the configuration, or the interface for a rule that is not in it any more.
std::string placeOf(const Config::Interface& interface, const RuleChange& change) {
    for (const Config::Rule& rule : interface.rules) {
        if (ruleType(rule.record) == change.type) {
            return rule.where;
        }
    }
    return interface.where + ".rule." + std::string(ruleName(change.type));
}

void applyChange(const Library& library, const Config::Interface& interface, RuleChange change,
                 EventLog& log) {
    const bool present = change.kind != RuleChange::Kind::remove;
    const uint32_t result = change.type == ruleAny
                                ? library.anyRuleSet(interface.id, present)
                                : library.ruleSet(interface.id, &change.record,
                                                  present ? talOperationAdd : talOperationDelete);
    requireRule(result, placeOf(interface, change));
    switch (change.kind) {
        case RuleChange::Kind::remove:
            log.line(interface.id, "rule", std::string(ruleName(change.type)) + " removed");
            break;
        case RuleChange::Kind::modify:
            log.line(interface.id, "rule", "changed to " + ruleText(change.type, change.record));
            break;
        case RuleChange::Kind::add:
            log.line(interface.id, "rule", ruleText(change.type, change.record) + " added");
            break;
    }
}

void applyRules(const Library& library, const Config::Interface& interface, EventLog& log) {
    rpcTalRule has = unsetRule(ruleAny);
    require(library.ruleGet(interface.id, &has),
            "reading the rules of interface " + interface.name);
    std::vector<rpcTalRule> wanted;
    for (const Config::Rule& rule : interface.rules) {
        wanted.push_back(rule.record);
    }
    for (const RuleChange& change : ruleChanges(wanted, has, library.anyRuleExists(interface.id))) {
        applyChange(library, interface, change, log);
    }
}

void applyInterface(const Library& library, const Config::Interface& interface, EventLog& log) {
    const unsigned id = interface.id;
    const std::string where = " of interface " + interface.name;
    require(library.timeoutSet(id, interface.timeout), "timeout" + where);
    require(library.maxQueueSizeSet(id, interface.maxQueueSize), "max-queue-size" + where);
    require(library.intfAuthenAdminStateSet(id, interface.authentication),
            "authentication" + where);
    require(library.intfAuthorAdminStateSet(id, interface.authorization), "authorization" + where);
    applyRules(library, interface, log);
    bool autoRequest = false;
    require(library.intfAutoReqAdminStateGet(id, &autoRequest), "reading auto-request" + where);
    if (autoRequest != interface.autoRequest) {
        require(library.intfAutoReqAdminStateSet(id, interface.autoRequest),
                "auto-request" + where);
    }
    require(library.intfAdminStateSet(id, interface.admin), "tal" + where);
}

}  // namespace

void applySettings(const Library& library, const Config& config, EventLog& log) {
    require(library.adminStateSet(config.node.tal), "tal of the node");
    for (const Config::Interface& interface : config.interfaces) {
        applyInterface(library, interface, log);
    }
}

}  // namespace node
