// Conversions and checks of rules. The checks keep an EtherType rule other than IPv4 and the rules
// that look into IPv4 (types 2, 3, 4, 5 and 7) from standing on one interface.
#include <algorithm>

#include "platform/bllmanager.h"
#include "tal/report.h"
#include "tal/rule_slots.h"
#include "tal/tal.h"

void tal::setTalRuleDefault(talRule* rule) {
    if (rule != nullptr)
        tal_rule::setDefault(*rule);
}

bool tal::talRuleTypeSet(rpc_tal_rule_type in, talRuleType* out) {
    if (out == nullptr || !tal_rule::isType(in))
        return false;
    *out = static_cast<talRuleType>(in);
    return true;
}

bool tal::rpcTalRuleTypeSet(talRuleType in, rpc_tal_rule_type* out) {
    if (out == nullptr || !tal_rule::isType(in))
        return false;
    *out = static_cast<rpc_tal_rule_type>(in);
    return true;
}

bool tal::talResTypeSet(talResultCode in, rpc_tal_res* out) {
    // Kept: an unknown code leaves the output alone and still counts as translated.
    if (out != nullptr && in <= talResCode4)
        *out = static_cast<rpc_tal_res>(in);
    return true;
}

bool tal::talIsMacNull(const unsigned char* mac) {
    return mac == nullptr || tal_rule::isMacNull(mac);
}

bool tal::talIsUserMaskNull(const uint32_t* words) {
    return words == nullptr || tal_rule::areWordsNull(words);
}

bool tal::talArpEthTypeCompatCheck(unsigned intf, talRule* rule) {
    const BLLManager::sharedLock_t lock;
    if (tal_report::refused(lock, "talArpEthTypeCompatCheck") || rule == nullptr ||
        !talIsValidIntf(intf))
        return false;
    if (rule->type == talRuleTypeEthType) {
        if (rule->ethType == tal_rule::ethTypeIpv4)
            return true;
        constexpr talRuleType testOrder[] = {talRuleTypeIp, talRuleTypeFlag, talRuleTypePattern1,
                                             talRuleTypePattern2, talRuleTypePattern3};
        return std::none_of(std::begin(testOrder), std::end(testOrder),
                            [&](talRuleType type) { return talRuleExistsByType(intf, type); });
    }
    if (!tal_rule::needsIpv4(rule->type) || !talRuleExistsByType(intf, talRuleTypeEthType))
        return true;
    return withIntf(intf, [](talIntf& entry) { return entry.rule.ethType; }) ==
           tal_rule::ethTypeIpv4;
}

talResultCode tal::talRuleIsValid(unsigned intf, talRule* rule) {
    if (!talIsValidIntf(intf))
        return talResIntfInvalid;
    return talArpEthTypeCompatCheck(intf, rule) ? talResOk : talResRuleInvalid;
}

talResultCode tal::talRuleBundleIsValid(talRule* bundle) {
    const BLLManager::sharedLock_t lock;
    if (tal_report::refused(lock, "talRuleBundleIsValid") || bundle == nullptr)
        return talResError;
    if (bundle->ethType == tal_rule::ethTypeIpv4 || bundle->ethType == talUnset)
        return talResOk;
    const bool needsIpv4 = std::any_of(
        std::begin(tal_rule::allTypes), std::end(tal_rule::allTypes), [bundle](talRuleType type) {
            return tal_rule::needsIpv4(type) && tal_rule::isSet(*bundle, type);
        });
    return needsIpv4 ? talResRuleInvalid : talResOk;
}
