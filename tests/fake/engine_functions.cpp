// The forwarding engine's C functions, forwarded to the current FakePlatform.
#include "tests/fake/fake_platform.h"

using fake::shownList;

extern "C" {

const char* bridgeName = "bridge0";

int ittalSelectorAdd(const char* bridge, const char* name) {
    return FakePlatform::current().engine.call(__func__, bridge, shownList(name));
}
int ittalSelectorDel(const char* bridge, const char* name) {
    return FakePlatform::current().engine.call(__func__, bridge, shownList(name));
}
int itqosSelectorRename(const char* bridge, const char* from, const char* to) {
    return FakePlatform::current().engine.call(__func__, bridge, shownList(from, to));
}
int ittalConditionAdd(const char* bridge, struct ittalCondition* condition) {
    return FakePlatform::current().engine.conditionAdd(bridge, condition);
}
int ittalConditionDel(const char* bridge, const char* selector, unsigned type) {
    return FakePlatform::current().engine.call(__func__, bridge, shownList(selector, type));
}
int ittalActionAdd(const char* bridge, struct ittalAction* action) {
    return FakePlatform::current().engine.actionAdd(bridge, action);
}
int ittalActionDel(const char* bridge, const char* list, unsigned type) {
    return FakePlatform::current().engine.call(__func__, bridge, shownList(list, type));
}
int ittalActionListAdd(const char* bridge, const char* name) {
    return FakePlatform::current().engine.call(__func__, bridge, shownList(name));
}
int ittalActionListDel(const char* bridge, const char* name) {
    return FakePlatform::current().engine.call(__func__, bridge, shownList(name));
}
int ittalActionListRename(const char* bridge, const char* from, const char* to) {
    return FakePlatform::current().engine.call(__func__, bridge, shownList(from, to));
}
int ittalListSet(const char* bridge, unsigned ifId, const char* selector, const char* actionList,
                 int mode, unsigned position) {
    return FakePlatform::current().engine.call(
        __func__, bridge, ifId, shownList(ifId, selector, actionList, mode, position));
}

int ittalAdminStateSet(const char* bridge, bool state) {
    return FakePlatform::current().engine.call(__func__, bridge, shownList(state));
}
int ittalAdminStateGet(const char* bridge, bool* state) {
    return FakePlatform::current().engine.get(__func__, bridge, {state});
}
int ittalRequestState(const char* bridge, bool state) {
    return FakePlatform::current().engine.call(__func__, bridge, shownList(state));
}
int ittalStoredReqSend(const char* bridge, unsigned ifId) {
    return FakePlatform::current().engine.call(__func__, bridge, ifId, shownList(ifId));
}

// The settings and states of a port come in pairs of the same shape.
#define PORT_PAIR(setting, Value)                                                   \
    int ittalPort##setting##Set(const char* bridge, unsigned ifId, Value value) {   \
        return FakePlatform::current().engine.call(__func__, bridge, ifId,          \
                                                   shownList(ifId, value));         \
    }                                                                               \
    int ittalPort##setting##Get(const char* bridge, unsigned ifId, Value* value) {  \
        return FakePlatform::current().engine.get(__func__, bridge, ifId, {value}); \
    }
PORT_PAIR(AdminState, bool)
PORT_PAIR(AuthenAdminState, bool)
PORT_PAIR(AuthorAdminState, bool)
PORT_PAIR(AutoReqAdminState, bool)
PORT_PAIR(Timeout, unsigned)
PORT_PAIR(MaxQueueSize, unsigned)
PORT_PAIR(AuthenOperState, unsigned)
PORT_PAIR(AuthorOperState, unsigned)
#undef PORT_PAIR

int ittalPortAuthenReply(const char* bridge, unsigned ifId, bool accepted) {
    return FakePlatform::current().engine.call(__func__, bridge, ifId, shownList(ifId, accepted));
}
int ittalPortAuthorReply(const char* bridge, unsigned ifId, bool accepted) {
    return FakePlatform::current().engine.call(__func__, bridge, ifId, shownList(ifId, accepted));
}
int ittalPortStatisticsGet(const char* bridge, unsigned ifId, unsigned* c1, unsigned* c2,
                           unsigned* c3, unsigned* c4, unsigned* c5, unsigned* c6, unsigned* c7,
                           unsigned* c8, unsigned* c9, unsigned* c10, unsigned* c11, unsigned* c12,
                           unsigned* c13) {
    return FakePlatform::current().engine.get(
        __func__, bridge, ifId, {c1, c2, c3, c4, c5, c6, c7, c8, c9, c10, c11, c12, c13});
}
int ittalPortStatesGet(const char* bridge, unsigned ifId, unsigned* forwarding,
                       unsigned* authentication, unsigned* authorization) {
    return FakePlatform::current().engine.get(__func__, bridge, ifId,
                                              {forwarding, authentication, authorization});
}
}
