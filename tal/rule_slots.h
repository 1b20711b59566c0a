// The slots of a rule record, one per type: whether one is set, differs or is copied, and which
// types can only stand beside IPv4. Pure; any thread.
#pragma once

#include "tal/tal.h"

namespace tal_rule {

constexpr uint32_t ethTypeIpv4 = 0x0800;

// The ten types in ascending order.
constexpr talRuleType allTypes[] = {
    talRuleTypeAny,      talRuleTypeEthType,     talRuleTypeFlag, talRuleTypePattern1,
    talRuleTypePattern2, talRuleTypePattern3,    talRuleTypeMac,  talRuleTypeIp,
    talRuleTypeValue8,   talRuleTypeUserPattern,
};

bool isType(int32_t type);  // 0 to 9

// Types that look into IPv4: 2, 3, 4, 5 and 7.
bool needsIpv4(talRuleType type);

bool isMacNull(const unsigned char mac[6]);
bool areWordsNull(const uint32_t words[32]);

// The pattern slot of types 3, 4 and 5; null for any other type.
talRulePattern* patternSlot(talRule& rule, talRuleType type);
const talRulePattern* patternSlot(const talRule& rule, talRuleType type);

void setDefault(talRule& rule);

// Whether the slot of the type holds a rule; false for a type outside 0 to 9.
bool isSet(const talRule& rule, talRuleType type);

// Whether the slots of the type differ in a way that the engine has to know.
bool differs(const talRule& wanted, const talRule& stored, talRuleType type);

// Copies the slot of the type, and nothing else.
void copySlot(const talRule& from, talRule& to, talRuleType type);

}  // namespace tal_rule
