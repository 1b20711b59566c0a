// The forwarding engine of the null platform: it accepts everything and keeps nothing, and what
// is asked of it is off or 0.
#include "platform/ittal.h"

extern "C" {

const char* bridgeName = "bridge";

int ittalSelectorAdd(const char*, const char*) {
    return 0;
}
int ittalSelectorDel(const char*, const char*) {
    return 0;
}
int itqosSelectorRename(const char*, const char*, const char*) {
    return 0;
}
int ittalConditionAdd(const char*, ittalCondition*) {
    return 0;
}
int ittalConditionDel(const char*, const char*, unsigned) {
    return 0;
}
int ittalActionAdd(const char*, ittalAction*) {
    return 0;
}
int ittalActionDel(const char*, const char*, unsigned) {
    return 0;
}
int ittalActionListAdd(const char*, const char*) {
    return 0;
}
int ittalActionListDel(const char*, const char*) {
    return 0;
}
int ittalActionListRename(const char*, const char*, const char*) {
    return 0;
}
int ittalListSet(const char*, unsigned, const char*, const char*, int, unsigned) {
    return 0;
}

int ittalAdminStateSet(const char*, bool) {
    return 0;
}
int ittalAdminStateGet(const char*, bool* state) {
    *state = false;
    return 0;
}
int ittalPortAdminStateSet(const char*, unsigned, bool) {
    return 0;
}
int ittalPortAdminStateGet(const char*, unsigned, bool* state) {
    *state = false;
    return 0;
}
int ittalPortAuthenAdminStateSet(const char*, unsigned, bool) {
    return 0;
}
int ittalPortAuthenAdminStateGet(const char*, unsigned, bool* state) {
    *state = false;
    return 0;
}
int ittalPortAuthorAdminStateSet(const char*, unsigned, bool) {
    return 0;
}
int ittalPortAuthorAdminStateGet(const char*, unsigned, bool* state) {
    *state = false;
    return 0;
}
int ittalPortAutoReqAdminStateSet(const char*, unsigned, bool) {
    return 0;
}
int ittalPortAutoReqAdminStateGet(const char*, unsigned, bool* state) {
    *state = false;
    return 0;
}
int ittalPortTimeoutSet(const char*, unsigned, unsigned) {
    return 0;
}
int ittalPortTimeoutGet(const char*, unsigned, unsigned* timeout) {
    *timeout = 0;
    return 0;
}
int ittalPortMaxQueueSizeSet(const char*, unsigned, unsigned) {
    return 0;
}
int ittalPortMaxQueueSizeGet(const char*, unsigned, unsigned* size) {
    *size = 0;
    return 0;
}
int ittalPortAuthenOperStateSet(const char*, unsigned, unsigned) {
    return 0;
}
int ittalPortAuthenOperStateGet(const char*, unsigned, unsigned* state) {
    *state = 0;
    return 0;
}
int ittalPortAuthorOperStateSet(const char*, unsigned, unsigned) {
    return 0;
}
int ittalPortAuthorOperStateGet(const char*, unsigned, unsigned* state) {
    *state = 0;
    return 0;
}
int ittalPortStatisticsGet(const char*, unsigned, unsigned* c1, unsigned* c2, unsigned* c3,
                           unsigned* c4, unsigned* c5, unsigned* c6, unsigned* c7, unsigned* c8,
                           unsigned* c9, unsigned* c10, unsigned* c11, unsigned* c12,
                           unsigned* c13) {
    unsigned* const counters[] = {c1, c2, c3, c4, c5, c6, c7, c8, c9, c10, c11, c12, c13};
    for (unsigned* const counter : counters)
        *counter = 0;
    return 0;
}
int ittalPortAuthenReply(const char*, unsigned, bool) {
    return 0;
}
int ittalPortAuthorReply(const char*, unsigned, bool) {
    return 0;
}
int ittalPortStatesGet(const char*, unsigned, unsigned* forwarding, unsigned* authentication,
                       unsigned* authorization) {
    *forwarding = 0;
    *authentication = 0;
    *authorization = 0;
    return 0;
}
int ittalRequestState(const char*, bool) {
    return 0;
}
int ittalStoredReqSend(const char*, unsigned) {
    return 0;
}
}
