// Settings, status, replies and profiles for management and ISA. The functions keep no state and
// take no lock; the members do.
#include "rpc/rpctal.h"
#include "rpc/service_frame.h"

using rpc_tal::serve;
using rpc_tal::serveBool;

namespace {

constexpr uint32_t highestFwdState = 2;
constexpr uint32_t highestStageState = 4;

// A value outside its enumeration leaves the caller's output alone.
template <class State>
void forward(State value, uint32_t highest, State* output) {
    if (output != nullptr && value <= highest)
        *output = value;
}

}  // namespace

uint32_t rpcTalAdminStateSet(int state) {
    return serve([=](tal& module) { return module.talAdminStateSet(state != 0); });
}

uint32_t rpcTalAdminStateGet(bool* state) {
    return serve([=](tal& module) { return module.talAdminStateGet(state); });
}

uint32_t rpcTalIntfAdminStateSet(unsigned intf, int state) {
    return serve([=](tal& module) { return module.talIntfAdminStateSet(intf, state != 0); });
}

uint32_t rpcTalIntfAdminStateGet(unsigned intf, bool* state) {
    return serve([=](tal& module) { return module.talIntfAdminStateGet(intf, state); });
}

uint32_t rpcTalIntfAuthenAdminStateSet(unsigned intf, int state) {
    return serve([=](tal& module) { return module.talIntfAuthenAdminStateSet(intf, state != 0); });
}

uint32_t rpcTalIntfAuthenAdminStateGet(unsigned intf, bool* state) {
    return serve([=](tal& module) { return module.talIntfAuthenAdminStateGet(intf, state); });
}

uint32_t rpcTalIntfAuthorAdminStateSet(unsigned intf, int state) {
    return serve([=](tal& module) { return module.talIntfAuthorAdminStateSet(intf, state != 0); });
}

uint32_t rpcTalIntfAuthorAdminStateGet(unsigned intf, bool* state) {
    return serve([=](tal& module) { return module.talIntfAuthorAdminStateGet(intf, state); });
}

uint32_t rpcTalIntfAutoReqAdminStateSet(unsigned intf, int state) {
    return serve([=](tal& module) { return module.talIntfAutoReqAdminStateSet(intf, state != 0); });
}

uint32_t rpcTalIntfAutoReqAdminStateGet(unsigned intf, bool* state) {
    return serve([=](tal& module) { return module.talIntfAutoReqAdminStateGet(intf, state); });
}

uint32_t rpcTalIntfAuthenOperStateGet(unsigned intf, bool* state) {
    return serve([=](tal& module) { return module.talIntfAuthenOperStateGet(intf, state); });
}

uint32_t rpcTalIntfAuthorOperStateGet(unsigned intf, bool* state) {
    return serve([=](tal& module) { return module.talIntfAuthorOperStateGet(intf, state); });
}

uint32_t rpcTalIntfStatisticsGet(unsigned intf, uint32_t* c1, uint32_t* c2, uint32_t* c3,
                                 uint32_t* c4, uint32_t* c5, uint32_t* c6, uint32_t* c7,
                                 uint32_t* c8, uint32_t* c9, uint32_t* c10, uint32_t* c11,
                                 uint32_t* c12, uint32_t* c13) {
    return serve([=](tal& module) {
        return module.talIntfStatisticsGet(intf, c1, c2, c3, c4, c5, c6, c7, c8, c9, c10, c11, c12,
                                           c13);
    });
}

uint32_t rpcTalIntfStatesGet(unsigned intf, talIntfFwdState* forwarding,
                             talIntfAuthenFwdState* authentication,
                             talIntfAuthorFwdState* authorization) {
    talIntfFwdState forwardingNow{};
    talIntfAuthenFwdState authenticationNow{};
    talIntfAuthorFwdState authorizationNow{};
    bool answered = false;
    const uint32_t result = serve([&](tal& module) {
        // A null output must reach the member, which refuses it.
        const talResultCode code =
            module.talIntfStatesGet(intf, forwarding != nullptr ? &forwardingNow : nullptr,
                                    authentication != nullptr ? &authenticationNow : nullptr,
                                    authorization != nullptr ? &authorizationNow : nullptr);
        answered = true;
        return code;
    });
    if (!answered)
        return result;  // an exception: there is nothing to translate
    // Kept: written after a failure too; the outputs mean nothing unless the result is 0.
    forward(forwardingNow, highestFwdState, forwarding);
    forward(authenticationNow, highestStageState, authentication);
    forward(authorizationNow, highestStageState, authorization);
    return result;
}

uint32_t rpcTalReply(unsigned interface, unsigned requestKind, int result) {
    constexpr unsigned kindAuthentication = 2;
    constexpr unsigned kindAuthorization = 3;
    if (requestKind != kindAuthentication && requestKind != kindAuthorization)
        return 1;
    const talRequestType type = requestKind == kindAuthentication ? talRequestTypeAuthentication
                                                                  : talRequestTypeAuthorization;
    talReplyResultCode code = talReplyRequestStateOn;
    if (result == 0)
        code = talReplyAccepted;
    else if (result == -1)
        code = talReplyRejected;
    return serve([=](tal& module) { return module.talReply(interface, type, code); });
}

uint32_t rpcTalConvertAllDynamicProfilesToStatic() {
    return serveBool([](tal& module) { return module.talConvertAllDynamicProfilesToStatic(); });
}

uint32_t clearIsaConfiguration() {
    return serveBool([](tal& module) { return module.clearIsaConfiguration(); });
}
