// The rules of the interfaces and their mirror in the engine. An interface has one record with a
// slot per type; every set slot stands for one condition in the interface's selector.
//
// A change runs through three layers, each with the exclusive lock: talRuleSet chooses one
// interface or all, talRuleIntfSet checks the rule and writes the slot, talRuleEntrySet tells the
// engine and deletes the stored login that the change makes obsolete. The slot is written only
// after the engine accepted the change.
#include <syslog.h>

#include <algorithm>

#include "platform/bllmanager.h"
#include "tal/module_flags.h"
#include "tal/report.h"
#include "tal/rule_slots.h"
#include "tal/tal.h"

namespace {

// The order in which a bundle's types are applied.
constexpr talRuleType bundleOrder[] = {
    talRuleTypeAny,      talRuleTypeMac,         talRuleTypeIp,       talRuleTypeEthType,
    talRuleTypeValue8,   talRuleTypeFlag,        talRuleTypePattern1, talRuleTypePattern2,
    talRuleTypePattern3, talRuleTypeUserPattern,
};

// Whether a bundle adds this type. One non-zero half of a pair is enough, though the rule then
// does not count as existing.
bool bundleAdds(const talRule& bundle, talRuleType type) {
    switch (type) {
        case talRuleTypeMac:
            return !tal_rule::isMacNull(bundle.macAddr) || !tal_rule::isMacNull(bundle.macMask);
        case talRuleTypeIp:
            return bundle.ipValue != 0 || bundle.ipMask != 0;
        case talRuleTypeUserPattern:
            return !tal_rule::areWordsNull(bundle.userPatternSequence) ||
                   !tal_rule::areWordsNull(bundle.userPatternMask);
        default:
            return tal_rule::isSet(bundle, type);
    }
}

void fillFromBundle(talRule& bundle, talRule& working, talRuleType type) {
    talRulePattern* const from = tal_rule::patternSlot(bundle, type);
    if (from == nullptr) {
        tal_rule::copySlot(bundle, working, type);
        return;
    }
    talRulePattern* const to = tal_rule::patternSlot(working, type);
    to->format = from->format;
    // Kept: the data go the other way, into the caller's bundle, and the length is not copied,
    // so a bundle installs patterns without data.
    std::copy(std::begin(to->data), std::end(to->data), from->data);
}

}  // namespace

talRule tal::storedRule(unsigned intf) {
    return withIntf(intf, [](talIntf& entry) { return entry.rule; });
}

talResultCode tal::talRuleGet(unsigned intf, talRule* out) {
    const BLLManager::sharedLock_t lock;
    if (tal_report::refused(lock, "talRuleGet") || out == nullptr)
        return talResError;
    if (!talIsValidIntf(intf))
        return talResIntfInvalid;
    const talRule stored = storedRule(intf);
    for (const talRuleType type : tal_rule::allTypes)
        tal_rule::copySlot(stored, *out, type);
    return talResOk;
}

bool tal::talRuleExists(unsigned intf, talRule* rule) {
    const BLLManager::sharedLock_t lock;
    return !tal_report::refused(lock, "talRuleExists") && rule != nullptr && talIsValidIntf(intf) &&
           tal_rule::isSet(storedRule(intf), rule->type);
}

bool tal::talRuleExistsByType(unsigned intf, talRuleType type) {
    const BLLManager::sharedLock_t lock;
    if (tal_report::refused(lock, "talRuleExistsByType"))
        return false;
    talRule scratch{};
    scratch.type = type;
    return talRuleExists(intf, &scratch);
}

bool tal::talIsRuleModified(unsigned intf, talRule* rule) {
    return rule != nullptr && talIsValidIntf(intf) && talRuleExists(intf, rule) &&
           tal_rule::differs(*rule, storedRule(intf), rule->type);
}

talResultCode tal::talRuleEntrySet(unsigned intf, talRule* rule, talOperation op) {
    const BLLManager::exclusiveLock_t lock;
    if (tal_report::refused(lock, "talRuleEntrySet") || rule == nullptr)
        return talResError;
    if (!talIsValidIntf(intf))
        return talResIntfInvalid;
    std::string selector;
    talKernelNameSet(selector, intf);
    const char* const name = selector.c_str();
    const bool modified = talIsRuleModified(intf, rule);
    const bool exists = talRuleExists(intf, rule);
    TalFea::feaTalRule fea{};
    if (talFeaRuleSet(rule, &fea) != 0)
        return talResError;

    const bool add = op == talOperationAdd;
    if (add ? exists && !modified : !exists)
        return talResOk;
    // A modified rule was there when it was compared, whatever was found afterwards.
    const bool isNew = add && !modified;
    if (!isNew && fea_.talConditionDel(name, &fea) != 0)
        return talResError;
    if (add && fea_.talConditionAdd(name, &fea) != 0)
        return talResError;

    // Kept: while a configuration is applied a new rule leaves the stored login alone, a modified
    // or deleted one does not.
    const bool spared =
        tal_flags::startInProgress || (isNew && tal_flags::configurationApplyInProgress);
    if (!spared && adminState_ && withIntf(intf, [](talIntf& entry) { return entry.adminState; }) &&
        talDeleteStoredLoginData(intf) != 0)
        syslog(LOG_WARNING, "talRuleEntrySet Error deleting TAL stored login data on interface %d.",
               static_cast<int>(intf));
    return talResOk;
}

talResultCode tal::talRuleIntfSet(unsigned intf, talRule* rule, talOperation op) {
    const BLLManager::exclusiveLock_t lock;
    // Kept: reports under the name of its caller.
    if (tal_report::refused(lock, "talRuleSet"))
        return talResError;
    if (!talIsValidIntf(intf))
        return talResIntfInvalid;
    if (rule == nullptr)
        return talResError;
    if (op == talOperationAdd) {
        const talResultCode valid = talRuleIsValid(intf, rule);
        if (valid != talResOk)
            return valid == talResRuleInvalid ? talResRuleInvalid : talResError;
    }
    const talResultCode set = talRuleEntrySet(intf, rule, op);
    if (set != talResOk)
        return set;
    // Kept: a delete stores the caller's slot too; it empties the slot only when that is unset.
    withIntf(intf, [rule](talIntf& entry) { tal_rule::copySlot(*rule, entry.rule, rule->type); });
    return talResOk;
}

talResultCode tal::talRuleIntfAllSet(unsigned, talRule* rule, talOperation op) {
    const BLLManager::exclusiveLock_t lock;
    if (tal_report::refused(lock, "talRuleIntfAllSet"))
        return talResError;
    bool failed = false;
    for (std::optional<unsigned> id; nextIntf(id);)
        failed |= talRuleIntfSet(*id, rule, op) != talResOk;
    return failed ? talResError : talResOk;
}

talResultCode tal::talRuleSet(unsigned intf, talRule* rule, talOperation op) {
    const BLLManager::exclusiveLock_t lock;
    if (tal_report::refused(lock, "talRuleSet"))
        return talResError;
    if (!talIsValidIntf(intf))
        return talResIntfInvalid;
    return intf != 0 ? talRuleIntfSet(intf, rule, op) : talRuleIntfAllSet(intf, rule, op);
}

talResultCode tal::talRuleBundleSet(unsigned intf, talRule* bundle) {
    const BLLManager::exclusiveLock_t lock;
    if (tal_report::refused(lock, "talRuleBundleSet") || bundle == nullptr)
        return talResError;
    const talResultCode valid = talRuleBundleIsValid(bundle);
    if (valid != talResOk)
        return valid;
    talRule working{};
    for (const talRuleType type : bundleOrder) {
        tal_rule::setDefault(working);
        working.type = type;
        const bool add = bundleAdds(*bundle, type);
        if (add)
            fillFromBundle(*bundle, working, type);
        const talResultCode set =
            talRuleSet(intf, &working, add ? talOperationAdd : talOperationDelete);
        if (set != talResOk)
            return set;
    }
    return talResOk;
}

bool tal::talRuleEmpty(unsigned intf) {
    const BLLManager::sharedLock_t lock;
    return !tal_report::refused(lock, "talRuleEmpty") &&
           std::none_of(std::begin(tal_rule::allTypes), std::end(tal_rule::allTypes),
                        [this, intf](talRuleType type) { return talRuleExistsByType(intf, type); });
}
