// The forwarding-engine adapter: one member per bridge function. Supplies the bridge's name,
// builds the engine's records and folds every non-zero answer into 1. Stateless; any thread;
// takes no lock and logs nothing.
#pragma once

#include <stdint.h>

class TalFea {
public:
    // The engine-side form of one rule; which fields count depends on `type`.
    struct feaTalRule {
        unsigned char macAddr[6];  // type 6
        unsigned char macMask[6];
        uint32_t ipAddr;  // type 7
        uint32_t ipMask;
        uint32_t ethType;     // type 1, low 16 bits
        uint32_t type8Value;  // type 8, low 16 bits
        uint32_t selection;   // type 2: 0 or 1
        char pattern[256];    // types 3, 4, 5
        uint32_t patternLength;
        uint32_t userPatternSequence[32];  // type 9
        uint32_t userPatternMask[32];
        uint32_t type;  // 0 to 9
    };

    // 2 and 3 are used, 0 to 3 defined.
    enum feaTalActionType : uint32_t {};

    // All members return 0 on success, 1 when the bridge refused. Names of 128 characters or
    // more end the process where they would have to fit an engine record.
    unsigned talSelectorAdd(const char* name);
    unsigned talSelectorDel(const char* name);
    unsigned talSelectorRename(const char* from, const char* to);
    unsigned talConditionAdd(const char* selector, feaTalRule* rule);
    unsigned talConditionDel(const char* selector, feaTalRule* rule);  // by the rule's type alone
    unsigned talActionAdd(const char* list, feaTalActionType type);
    unsigned talActionDel(const char* list, feaTalActionType type);
    unsigned talActionListAdd(const char* name);
    unsigned talActionListDel(const char* name);
    unsigned talActionListRename(const char* from, const char* to);
    unsigned talListSet(unsigned ifId, const char* selector, const char* actionList, int mode,
                        unsigned position);

    unsigned feaTalAdminStateSet(bool state);
    unsigned feaTalAdminStateGet(bool* state);
    unsigned feaTalPortAdminStateSet(unsigned ifId, bool state);
    unsigned feaTalPortAdminStateGet(unsigned ifId, bool* state);
    unsigned feaTalPortAuthenAdminStateSet(unsigned ifId, bool state);
    unsigned feaTalPortAuthenAdminStateGet(unsigned ifId, bool* state);
    unsigned feaTalPortAuthorAdminStateSet(unsigned ifId, bool state);
    unsigned feaTalPortAuthorAdminStateGet(unsigned ifId, bool* state);
    unsigned feaTalPortAutoReqAdminStateSet(unsigned ifId, bool state);
    unsigned feaTalPortAutoReqAdminStateGet(unsigned ifId, bool* state);
    unsigned feaTalPortTimeoutSet(unsigned ifId, unsigned timeout);
    unsigned feaTalPortTimeoutGet(unsigned ifId, unsigned* timeout);
    unsigned feaTalPortMaxQueueSizeSet(unsigned ifId, unsigned size);
    // Kept: the words of this name stand in the other order; callers know it so.
    unsigned feaPortTalMaxQueueSizeGet(unsigned ifId, unsigned* size);
    unsigned feaTalPortAuthenOperStateSet(unsigned ifId, unsigned state);
    unsigned feaTalPortAuthenOperStateGet(unsigned ifId, unsigned* state);
    unsigned feaTalPortAuthorOperStateSet(unsigned ifId, unsigned state);
    unsigned feaTalPortAuthorOperStateGet(unsigned ifId, unsigned* state);
    unsigned feaTalPortStatisticsGet(unsigned ifId, unsigned* c1, unsigned* c2, unsigned* c3,
                                     unsigned* c4, unsigned* c5, unsigned* c6, unsigned* c7,
                                     unsigned* c8, unsigned* c9, unsigned* c10, unsigned* c11,
                                     unsigned* c12, unsigned* c13);
    unsigned feaTalPortAuthenReply(unsigned ifId, bool accepted);
    unsigned feaTalPortAuthorReply(unsigned ifId, bool accepted);
    unsigned feaTalPortStatesGet(unsigned ifId, unsigned* forwarding, unsigned* authentication,
                                 unsigned* authorization);
    unsigned feaTalRequestState(bool state);
    // Makes the engine raise the stored request of the interface again.
    unsigned feaTalStoredReqSend(unsigned ifId);
};

static_assert(sizeof(TalFea::feaTalRule) == 552);
