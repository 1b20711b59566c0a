// The forwarding engine's C interface: selectors, conditions, actions, port settings and
// states. All calls return 0 on success; they may be made from any thread and call nothing
// back. Records and strings belong to the caller and are valid only during the call.
#pragma once

#include <stdint.h>

extern "C" {

extern const char* bridgeName;

struct ittalCondition  // 400 bytes
{
    char selector[128];  //   0
    uint32_t type;       // 128
    uint32_t code;       // 132
    union                // 136
    {
        struct {
            uint32_t subCode;         // 136
            char pattern[255];        // 140
            unsigned char length;     // 395
            unsigned char selection;  // 396
        } match;                      // code 29
        uint16_t value;               // codes 5 and 6
        struct {
            unsigned char addr[6];  // 136
            unsigned char mask[6];  // 142
        } mac;                      // code 3
        struct {
            uint32_t addr;  // 136
            uint32_t mask;  // 140
        } ip;               // code 11
        struct {
            uint32_t sequence[32];  // 136
            uint32_t mask[32];      // 264
        } user;                     // code 34
    } u;
};

struct ittalAction  // 136 bytes
{
    char list[128];  //   0
    uint32_t type;   // 128
    uint32_t code;   // 132
};

int ittalSelectorAdd(const char* bridge, const char* name);
int ittalSelectorDel(const char* bridge, const char* name);
int itqosSelectorRename(const char* bridge, const char* from, const char* to);
int ittalConditionAdd(const char* bridge, struct ittalCondition* condition);
int ittalConditionDel(const char* bridge, const char* selector, unsigned type);
int ittalActionAdd(const char* bridge, struct ittalAction* action);
int ittalActionDel(const char* bridge, const char* list, unsigned type);
int ittalActionListAdd(const char* bridge, const char* name);
int ittalActionListDel(const char* bridge, const char* name);
int ittalActionListRename(const char* bridge, const char* from, const char* to);
int ittalListSet(const char* bridge, unsigned ifId, const char* selector, const char* actionList,
                 int mode, unsigned position);

int ittalAdminStateSet(const char* bridge, bool state);
int ittalAdminStateGet(const char* bridge, bool* state);
int ittalPortAdminStateSet(const char* bridge, unsigned ifId, bool state);
int ittalPortAdminStateGet(const char* bridge, unsigned ifId, bool* state);
int ittalPortAuthenAdminStateSet(const char* bridge, unsigned ifId, bool state);
int ittalPortAuthenAdminStateGet(const char* bridge, unsigned ifId, bool* state);
int ittalPortAuthorAdminStateSet(const char* bridge, unsigned ifId, bool state);
int ittalPortAuthorAdminStateGet(const char* bridge, unsigned ifId, bool* state);
int ittalPortAutoReqAdminStateSet(const char* bridge, unsigned ifId, bool state);
int ittalPortAutoReqAdminStateGet(const char* bridge, unsigned ifId, bool* state);
int ittalPortTimeoutSet(const char* bridge, unsigned ifId, unsigned timeout);
int ittalPortTimeoutGet(const char* bridge, unsigned ifId, unsigned* timeout);
int ittalPortMaxQueueSizeSet(const char* bridge, unsigned ifId, unsigned size);
int ittalPortMaxQueueSizeGet(const char* bridge, unsigned ifId, unsigned* size);
int ittalPortAuthenOperStateSet(const char* bridge, unsigned ifId, unsigned state);
int ittalPortAuthenOperStateGet(const char* bridge, unsigned ifId, unsigned* state);
int ittalPortAuthorOperStateSet(const char* bridge, unsigned ifId, unsigned state);
int ittalPortAuthorOperStateGet(const char* bridge, unsigned ifId, unsigned* state);
int ittalPortStatisticsGet(const char* bridge, unsigned ifId, unsigned* c1, unsigned* c2,
                           unsigned* c3, unsigned* c4, unsigned* c5, unsigned* c6, unsigned* c7,
                           unsigned* c8, unsigned* c9, unsigned* c10, unsigned* c11, unsigned* c12,
                           unsigned* c13);
int ittalPortAuthenReply(const char* bridge, unsigned ifId, bool accepted);
int ittalPortAuthorReply(const char* bridge, unsigned ifId, bool accepted);
int ittalPortStatesGet(const char* bridge, unsigned ifId, unsigned* forwarding,
                       unsigned* authentication, unsigned* authorization);
int ittalRequestState(const char* bridge, bool state);
int ittalStoredReqSend(const char* bridge, unsigned ifId);
}
