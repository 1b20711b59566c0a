// What the engine says about an interface, asked anew at each call. The table is not touched;
// interface 0 is handed to the engine as it is. After a refusal the outputs hold what the engine
// left in them; they are never read, and never written unless the engine wrote something.
#include <syslog.h>

#include "platform/bllmanager.h"
#include "tal/report.h"
#include "tal/tal.h"

namespace {

// Where the engine is to put a number, some that none reports: still there, it wrote nothing.
constexpr unsigned notWritten = 0xA5C35A3C;

template <class Output>
void handOver(unsigned value, Output* output) {
    if (value != notWritten)
        *output = static_cast<Output>(value);
}

}  // namespace

template <class AskEngine>
talResultCode tal::statusGet(unsigned intf, bool outputsGiven, const char* operation,
                             const char* engineRefused, AskEngine askEngine) {
    const BLLManager::sharedLock_t lock;
    if (tal_report::refused(lock, operation))
        return talResError;
    if (!talIsValidIntf(intf))
        return talResIntfInvalid;
    if (!outputsGiven)
        return talResError;
    if (askEngine() != 0) {
        syslog(LOG_WARNING, engineRefused, static_cast<int>(intf));
        return talResError;
    }
    return talResOk;
}

talResultCode tal::operStateGet(unsigned intf, bool* state, const char* operation,
                                unsigned (TalFea::*engineGet)(unsigned, unsigned*),
                                const char* engineRefused) {
    unsigned value = notWritten;
    const talResultCode result = statusGet(intf, state != nullptr, operation, engineRefused,
                                           [&] { return (fea_.*engineGet)(intf, &value); });
    handOver(value, state);
    return result;
}

talResultCode tal::talIntfAuthenOperStateGet(unsigned intf, bool* state) {
    return operStateGet(
        intf, state, "talIntfAuthenOperStateGet", &TalFea::feaTalPortAuthenOperStateGet,
        "talIntfAuthenOperStateGet Error getting TAL authentication operational state on "
        "interface %d.");
}

talResultCode tal::talIntfAuthorOperStateGet(unsigned intf, bool* state) {
    return operStateGet(
        intf, state, "talIntfAuthorOperStateGet", &TalFea::feaTalPortAuthorOperStateGet,
        "talIntfAuthorOperStateGet Error getting TAL authorization operational state on "
        "interface %d.");
}

talResultCode tal::talIntfStatisticsGet(unsigned intf, uint32_t* c1, uint32_t* c2, uint32_t* c3,
                                        uint32_t* c4, uint32_t* c5, uint32_t* c6, uint32_t* c7,
                                        uint32_t* c8, uint32_t* c9, uint32_t* c10, uint32_t* c11,
                                        uint32_t* c12, uint32_t* c13) {
    const uint32_t* const outputs[] = {c1, c2, c3, c4, c5, c6, c7, c8, c9, c10, c11, c12, c13};
    bool outputsGiven = true;
    for (const uint32_t* output : outputs)
        outputsGiven &= output != nullptr;
    return statusGet(intf, outputsGiven, "talIntfStatisticsGet",
                     "talIntfStatisticsGet Error getting TAL statistics on interface %d.", [&] {
                         return fea_.feaTalPortStatisticsGet(intf, c1, c2, c3, c4, c5, c6, c7, c8,
                                                             c9, c10, c11, c12, c13);
                     });
}

talResultCode tal::talIntfStatesGet(unsigned intf, talIntfFwdState* forwarding,
                                    talIntfAuthenFwdState* authentication,
                                    talIntfAuthorFwdState* authorization) {
    const bool outputsGiven =
        forwarding != nullptr && authentication != nullptr && authorization != nullptr;
    unsigned states[3] = {notWritten, notWritten, notWritten};
    const talResultCode result = statusGet(
        intf, outputsGiven, "talIntfStatesGet",
        "talIntfStatesGet Error getting TAL interface states on interface %d.",
        [&] { return fea_.feaTalPortStatesGet(intf, &states[0], &states[1], &states[2]); });
    handOver(states[0], forwarding);
    handOver(states[1], authentication);
    handOver(states[2], authorization);
    return result;
}
