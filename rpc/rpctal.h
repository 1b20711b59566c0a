// The module's C service functions, the only way in for management and for ISA's answers,
// and the management rule record. Callable from any thread; each returns an rpc_tal_res
// (0 success, 1 failure, 2 rule incompatible, 3 interface not valid, 4 peer not notified),
// writes only storage of the caller and lets no exception out. C and C++.
#pragma once

#include <assert.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#include "tal/tal.h"
#else
// The module's enumerations as the numbers they are.
typedef int32_t rpc_tal_rule_type;  // 0 to 9
typedef uint32_t talOperation;
#define talOperationAdd 0U  // add or modify; any other value deletes
#define talOperationDelete 0xFFFFFFFFU
#define talUnset 0xFFFFFFFFU  // an unset 32-bit slot of a rule
typedef uint32_t talIntfFwdState;        // 0 to 2
typedef uint32_t talIntfAuthenFwdState;  // 0 to 4
typedef uint32_t talIntfAuthorFwdState;  // 0 to 4
typedef struct rpcTalRulePattern rpcTalRulePattern;
typedef struct rpcTalRule rpcTalRule;
#endif

struct rpcTalRulePattern {
    uint32_t format;       // 0 text, 1 MAC address, 2 raw, 0xFFFFFFFF unset
    char text[256];        // format 0
    unsigned char mac[6];  // format 1
    unsigned char raw[258];
    uint32_t rawLength;  // format 2, at most 255
};

struct rpcTalRule {
    unsigned char macAddr[6];
    unsigned char macMask[6];
    uint32_t ipValue;
    uint32_t ipMask;
    uint32_t ethType;
    uint32_t type8Value;
    uint32_t type2Value;
    rpcTalRulePattern pattern[3];  // types 3, 4, 5
    uint32_t userPatternSequence[32];
    uint32_t userPatternMask[32];
    rpc_tal_rule_type type;
};

static_assert(sizeof(rpcTalRulePattern) == 528, "as agreed with management");
static_assert(sizeof(rpcTalRule) == 1876, "as agreed with management");
static_assert(offsetof(rpcTalRule, type) == 1872, "as agreed with management");

#ifdef __cplusplus
extern "C" {
#endif

uint32_t rpcTalAdminStateSet(int state);  // any non-zero state means on
uint32_t rpcTalAdminStateGet(bool* state);
// Interface 0 addresses every interface in the setters.
uint32_t rpcTalIntfAdminStateSet(unsigned intf, int state);
uint32_t rpcTalIntfAdminStateGet(unsigned intf, bool* state);
uint32_t rpcTalIntfAuthenAdminStateSet(unsigned intf, int state);
uint32_t rpcTalIntfAuthenAdminStateGet(unsigned intf, bool* state);
uint32_t rpcTalIntfAuthorAdminStateSet(unsigned intf, int state);
uint32_t rpcTalIntfAuthorAdminStateGet(unsigned intf, bool* state);
uint32_t rpcTalIntfAutoReqAdminStateSet(unsigned intf, int state);
uint32_t rpcTalIntfAutoReqAdminStateGet(unsigned intf, bool* state);

uint32_t rpcTalIntfAuthenOperStateGet(unsigned intf, bool* state);
uint32_t rpcTalIntfAuthorOperStateGet(unsigned intf, bool* state);
uint32_t rpcTalIntfStatisticsGet(unsigned intf, uint32_t* c1, uint32_t* c2, uint32_t* c3,
                                 uint32_t* c4, uint32_t* c5, uint32_t* c6, uint32_t* c7,
                                 uint32_t* c8, uint32_t* c9, uint32_t* c10, uint32_t* c11,
                                 uint32_t* c12, uint32_t* c13);
// A state outside its enumeration leaves its output unwritten.
uint32_t rpcTalIntfStatesGet(unsigned intf, talIntfFwdState* forwarding,
                             talIntfAuthenFwdState* authentication,
                             talIntfAuthorFwdState* authorization);

// ISA's answer. Kind: 2 authentication, 3 authorization. Result: 0 accepted, -1 rejected,
// anything else switches the global request state on and never answers 0.
uint32_t rpcTalReply(unsigned interface, unsigned requestKind, int result);

uint32_t rpcTalRuleSet(unsigned intf, rpcTalRule* rule, talOperation op);
uint32_t rpcTalRuleBundleSet(unsigned intf, rpcTalRule* rule);
uint32_t rpcTalRuleGet(unsigned intf, rpcTalRule* rule);

uint32_t rpcTalConvertAllDynamicProfilesToStatic(void);
uint32_t clearIsaConfiguration(void);

#ifdef __cplusplus
}
#endif
