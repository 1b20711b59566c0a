// The adapter has no state: `bridgeName` is read at every call because a host may change it.
//
// Both engine records are zeroed before they are filled, so that fields which a rule type does
// not use never carry bytes of the stack to the engine. A name that does not fit its field ends
// the process instead of being cut: a cut name would address another line's objects. A null
// pointer is refused like anything else the bridge would refuse.
#include "talfea/talfea.h"

#include "platform/ittal.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

static_assert(sizeof(ittalCondition) == 400);
static_assert(offsetof(ittalCondition, type) == 128);
static_assert(offsetof(ittalCondition, code) == 132);
static_assert(offsetof(ittalCondition, u.match.subCode) == 136);
static_assert(offsetof(ittalCondition, u.match.pattern) == 140);
static_assert(offsetof(ittalCondition, u.match.length) == 395);
static_assert(offsetof(ittalCondition, u.match.selection) == 396);
static_assert(offsetof(ittalCondition, u.mac.mask) == 142);
static_assert(offsetof(ittalCondition, u.user.mask) == 264);
static_assert(sizeof(ittalAction) == 136);
static_assert(offsetof(ittalAction, type) == 128);

namespace {

// Match codes of the engine.
enum EngineCode : uint32_t {
    engineCodeAny = 0,
    engineCodeMac = 3,
    engineCodeEthType = 5,
    engineCodeValue8 = 6,
    engineCodeIp = 11,
    engineCodeMatch = 29,
    engineCodeUser = 34,
};

// Sub-codes of engineCodeMatch.
enum EngineSubCode : uint32_t {
    engineSubCodeSelection = 0,
    engineSubCodePattern1 = 1,
    engineSubCodePattern2 = 2,
    engineSubCodePattern3 = 4,
};

template <class... Pointer>
bool given(const Pointer*... pointers) {
    return (... && (pointers != nullptr));
}

unsigned folded(int bridgeResult) {
    return bridgeResult == 0 ? 0 : 1;
}

template <size_t size>
void copyName(char (&field)[size], const char* name) {
    const size_t length = strnlen(name, size);
    if (length == size)
        abort();
    memcpy(field, name, length + 1);
}

void setPattern(ittalCondition& condition, EngineSubCode subCode, const TalFea::feaTalRule& rule) {
    condition.code = engineCodeMatch;
    condition.u.match.subCode = subCode;
    memcpy(condition.u.match.pattern, rule.pattern, sizeof condition.u.match.pattern);
    condition.u.match.length = static_cast<unsigned char>(rule.patternLength);
}

// Leaves everything behind the type zero for a type above 9.
void setMatch(ittalCondition& condition, const TalFea::feaTalRule& rule) {
    switch (rule.type) {
        case 0:
            condition.code = engineCodeAny;
            break;
        case 1:
            condition.code = engineCodeEthType;
            condition.u.value = static_cast<uint16_t>(rule.ethType);
            break;
        case 2:
            condition.code = engineCodeMatch;
            condition.u.match.subCode = engineSubCodeSelection;
            if (rule.selection == 0)
                condition.u.match.selection = 1;
            else if (rule.selection == 1)
                condition.u.match.selection = 3;
            break;
        case 3:
            setPattern(condition, engineSubCodePattern1, rule);
            break;
        case 4:
            setPattern(condition, engineSubCodePattern2, rule);
            break;
        case 5:
            setPattern(condition, engineSubCodePattern3, rule);
            break;
        case 6:
            condition.code = engineCodeMac;
            memcpy(condition.u.mac.addr, rule.macAddr, sizeof rule.macAddr);
            memcpy(condition.u.mac.mask, rule.macMask, sizeof rule.macMask);
            break;
        case 7:
            condition.code = engineCodeIp;
            condition.u.ip.addr = rule.ipAddr;
            condition.u.ip.mask = rule.ipMask;
            break;
        case 8:
            condition.code = engineCodeValue8;
            condition.u.value = static_cast<uint16_t>(rule.type8Value);
            break;
        case 9:
            condition.code = engineCodeUser;
            memcpy(condition.u.user.sequence, rule.userPatternSequence,
                   sizeof rule.userPatternSequence);
            memcpy(condition.u.user.mask, rule.userPatternMask, sizeof rule.userPatternMask);
            break;
        default:
            break;
    }
}

}  // namespace

unsigned TalFea::talSelectorAdd(const char* name) {
    if (!given(name))
        return 1;
    return folded(ittalSelectorAdd(bridgeName, name));
}

unsigned TalFea::talSelectorDel(const char* name) {
    if (!given(name))
        return 1;
    return folded(ittalSelectorDel(bridgeName, name));
}

unsigned TalFea::talSelectorRename(const char* from, const char* to) {
    if (!given(from, to))
        return 1;
    // Kept: the bridge renames every selector with its QoS function; there is none for TAL.
    return folded(itqosSelectorRename(bridgeName, from, to));
}

unsigned TalFea::talConditionAdd(const char* selector, feaTalRule* rule) {
    if (!given(selector, rule))
        return 1;
    ittalCondition condition{};
    copyName(condition.selector, selector);
    condition.type = rule->type;
    setMatch(condition, *rule);
    return folded(ittalConditionAdd(bridgeName, &condition));
}

unsigned TalFea::talConditionDel(const char* selector, feaTalRule* rule) {
    if (!given(selector, rule))
        return 1;
    return folded(ittalConditionDel(bridgeName, selector, rule->type));
}

unsigned TalFea::talActionAdd(const char* list, feaTalActionType type) {
    if (!given(list))
        return 1;
    ittalAction action{};
    copyName(action.list, list);
    if (type <= 3)
        action.code = type;
    action.type = type;
    return folded(ittalActionAdd(bridgeName, &action));
}

unsigned TalFea::talActionDel(const char* list, feaTalActionType type) {
    if (!given(list))
        return 1;
    return folded(ittalActionDel(bridgeName, list, type));
}

unsigned TalFea::talActionListAdd(const char* name) {
    if (!given(name))
        return 1;
    return folded(ittalActionListAdd(bridgeName, name));
}

unsigned TalFea::talActionListDel(const char* name) {
    if (!given(name))
        return 1;
    return folded(ittalActionListDel(bridgeName, name));
}

unsigned TalFea::talActionListRename(const char* from, const char* to) {
    if (!given(from, to))
        return 1;
    return folded(ittalActionListRename(bridgeName, from, to));
}

unsigned TalFea::talListSet(unsigned ifId, const char* selector, const char* actionList, int mode,
                            unsigned position) {
    if (!given(selector, actionList))
        return 1;
    return folded(ittalListSet(bridgeName, ifId, selector, actionList, mode, position));
}

unsigned TalFea::feaTalAdminStateSet(bool state) {
    return folded(ittalAdminStateSet(bridgeName, state));
}

unsigned TalFea::feaTalAdminStateGet(bool* state) {
    if (!given(state))
        return 1;
    return folded(ittalAdminStateGet(bridgeName, state));
}

unsigned TalFea::feaTalPortAdminStateSet(unsigned ifId, bool state) {
    return folded(ittalPortAdminStateSet(bridgeName, ifId, state));
}

unsigned TalFea::feaTalPortAdminStateGet(unsigned ifId, bool* state) {
    if (!given(state))
        return 1;
    return folded(ittalPortAdminStateGet(bridgeName, ifId, state));
}

unsigned TalFea::feaTalPortAuthenAdminStateSet(unsigned ifId, bool state) {
    return folded(ittalPortAuthenAdminStateSet(bridgeName, ifId, state));
}

unsigned TalFea::feaTalPortAuthenAdminStateGet(unsigned ifId, bool* state) {
    if (!given(state))
        return 1;
    return folded(ittalPortAuthenAdminStateGet(bridgeName, ifId, state));
}

unsigned TalFea::feaTalPortAuthorAdminStateSet(unsigned ifId, bool state) {
    return folded(ittalPortAuthorAdminStateSet(bridgeName, ifId, state));
}

unsigned TalFea::feaTalPortAuthorAdminStateGet(unsigned ifId, bool* state) {
    if (!given(state))
        return 1;
    return folded(ittalPortAuthorAdminStateGet(bridgeName, ifId, state));
}

unsigned TalFea::feaTalPortAutoReqAdminStateSet(unsigned ifId, bool state) {
    return folded(ittalPortAutoReqAdminStateSet(bridgeName, ifId, state));
}

unsigned TalFea::feaTalPortAutoReqAdminStateGet(unsigned ifId, bool* state) {
    if (!given(state))
        return 1;
    return folded(ittalPortAutoReqAdminStateGet(bridgeName, ifId, state));
}

unsigned TalFea::feaTalPortTimeoutSet(unsigned ifId, unsigned timeout) {
    return folded(ittalPortTimeoutSet(bridgeName, ifId, timeout));
}

unsigned TalFea::feaTalPortTimeoutGet(unsigned ifId, unsigned* timeout) {
    if (!given(timeout))
        return 1;
    return folded(ittalPortTimeoutGet(bridgeName, ifId, timeout));
}

unsigned TalFea::feaTalPortMaxQueueSizeSet(unsigned ifId, unsigned size) {
    return folded(ittalPortMaxQueueSizeSet(bridgeName, ifId, size));
}

unsigned TalFea::feaPortTalMaxQueueSizeGet(unsigned ifId, unsigned* size) {
    if (!given(size))
        return 1;
    return folded(ittalPortMaxQueueSizeGet(bridgeName, ifId, size));
}

unsigned TalFea::feaTalPortAuthenOperStateSet(unsigned ifId, unsigned state) {
    return folded(ittalPortAuthenOperStateSet(bridgeName, ifId, state));
}

unsigned TalFea::feaTalPortAuthenOperStateGet(unsigned ifId, unsigned* state) {
    if (!given(state))
        return 1;
    return folded(ittalPortAuthenOperStateGet(bridgeName, ifId, state));
}

unsigned TalFea::feaTalPortAuthorOperStateSet(unsigned ifId, unsigned state) {
    return folded(ittalPortAuthorOperStateSet(bridgeName, ifId, state));
}

unsigned TalFea::feaTalPortAuthorOperStateGet(unsigned ifId, unsigned* state) {
    if (!given(state))
        return 1;
    return folded(ittalPortAuthorOperStateGet(bridgeName, ifId, state));
}

unsigned TalFea::feaTalPortStatisticsGet(unsigned ifId, unsigned* c1, unsigned* c2, unsigned* c3,
                                         unsigned* c4, unsigned* c5, unsigned* c6, unsigned* c7,
                                         unsigned* c8, unsigned* c9, unsigned* c10, unsigned* c11,
                                         unsigned* c12, unsigned* c13) {
    if (!given(c1, c2, c3, c4, c5, c6, c7, c8, c9, c10, c11, c12, c13))
        return 1;
    return folded(ittalPortStatisticsGet(bridgeName, ifId, c1, c2, c3, c4, c5, c6, c7, c8, c9, c10,
                                         c11, c12, c13));
}

unsigned TalFea::feaTalPortAuthenReply(unsigned ifId, bool accepted) {
    return folded(ittalPortAuthenReply(bridgeName, ifId, accepted));
}

unsigned TalFea::feaTalPortAuthorReply(unsigned ifId, bool accepted) {
    return folded(ittalPortAuthorReply(bridgeName, ifId, accepted));
}

unsigned TalFea::feaTalPortStatesGet(unsigned ifId, unsigned* forwarding, unsigned* authentication,
                                     unsigned* authorization) {
    if (!given(forwarding, authentication, authorization))
        return 1;
    return folded(ittalPortStatesGet(bridgeName, ifId, forwarding, authentication, authorization));
}

unsigned TalFea::feaTalRequestState(bool state) {
    return folded(ittalRequestState(bridgeName, state));
}

unsigned TalFea::feaTalStoredReqSend(unsigned ifId) {
    return folded(ittalStoredReqSend(bridgeName, ifId));
}
