// An event line becomes a login block and goes to ISA.
//
// Two digits of the line were meant to carry the AAA selector and the kind of the request, but
// the routine that cuts fields out of the line loses the last character of each, and these fields
// have only one. Both values therefore start at 0 and stay so. What the line cannot say, the
// module knows: after it has asked the engine to resend a stored request, the next line of the
// header alone on that interface is the replay. A line with traffic is a fresh login always.
//
// The block is kept after the call to ISA, as ISA saw and perhaps changed it. ISA is called
// without any lock held, so a slow ISA delays nobody but this line.
#include <syslog.h>

#include <algorithm>

#include "platform/isaradiusbll.h"
#include "tal/event_line.h"
#include "tal/tal.h"

namespace {

constexpr unsigned aaaSelectorStart = 0;

enum class RequestKind : unsigned {
    fresh = 0,
    stored = 2,
};

// Cuts the text to the field's 63 characters; true when there is any.
bool setText(char (&field)[64], std::string_view text) {
    text.copy(field, sizeof field - 1);
    return !text.empty();
}

void setIdentifiers(rpcTalLoginBlockBll& block, std::string_view circuitId,
                    const tal_text::EventFields& fields) {
    unsigned present = 0;
    if (setText(block.circuitId, circuitId))
        present |= talLoginIdCircuitId;
    if (setText(block.remoteId, fields.remoteId))
        present |= talLoginIdRemoteId;
    if (setText(block.vendorId, fields.vendorId))
        present |= talLoginIdVendorId;
    if (setText(block.clientId, fields.clientId))
        present |= talLoginIdClientId;
    if (std::any_of(std::begin(fields.sourceMac), std::end(fields.sourceMac),
                    [](unsigned char byte) { return byte != 0; })) {
        std::copy(std::begin(fields.sourceMac), std::end(fields.sourceMac), block.sourceMac);
        present |= talLoginIdSourceMac;
    }
    if (fields.sourceIp != 0) {
        block.sourceIP = fields.sourceIp;
        present |= talLoginIdSourceIp;
    }
    if (fields.patternPresent) {
        std::copy(std::begin(fields.pattern), std::end(fields.pattern), block.userPatternSequence);
        present |= talLoginIdUserPattern;
    }
    if (fields.vlanId != 0) {
        block.vlanId = fields.vlanId;
        present |= talLoginIdVlan;
    }
    block.loginIdType = static_cast<unsigned char>(present);
}

}  // namespace

void tal::talEvent(const char* event) {
    if (event == nullptr)
        return;
    try {
        eventHandle(event);
    } catch (...) {
        // The bridge calls back without expecting exceptions; the event is dropped.
    }
}

void tal::eventHandle(std::string_view line) {
    const std::optional<std::string_view> name = tal_text::eventLineInterface(line);
    if (!name)
        return;
    unsigned intf = 0;
    if (singleton<Interfaces>::instance().interfaceGetIdByLinuxname(std::string(*name), &intf) !=
            0 ||
        line.size() < tal_text::eventLineComplete)
        return;

    const bool headerOnly = line.size() < tal_text::eventLineHasTraffic;
    const RequestKind kind =
        headerOnly && takeStoredRequest(intf) ? RequestKind::stored : RequestKind::fresh;
    tal_text::EventFields fields;
    if (kind == RequestKind::fresh)
        fields = tal_text::decodeEventFields(line);

    std::string circuitId;
    if (talGenCircuitId(intf, circuitId) != 0)
        return;
    const std::optional<unsigned char> aaaType = tal_text::loginAaaType(aaaSelectorStart);
    if (!aaaType)
        return;

    rpcTalLoginBlockBll block{};
    block.interface = intf;
    block.LoginAAAtype = *aaaType;
    setIdentifiers(block, circuitId, fields);
    if (kind == RequestKind::stored)
        (void)talStoreLoginDataGet(intf, block);  // without stored data the block goes as it is

    rpcIsaBllLoginRes answer{};
    if (singleton<isaradiusbll>::instance().isaradiusbllLoginRequest(&block, &answer) != 0)
        syslog(LOG_ERR, "talEvent Unsuccessful call to ISA for interface %d.",
               static_cast<int>(intf));
    if (kind == RequestKind::fresh)
        withIntf(intf, [&block](talIntf& entry) {
            entry.loginBlock = block;
            entry.loginPending = true;
        });
}

// Says whether the interface waits for the replay of its stored request, and ends the wait.
bool tal::takeStoredRequest(unsigned intf) {
    const std::lock_guard<std::mutex> lock(intfTableMutex_);
    const auto found = intfTable_.find(intf);
    if (found == intfTable_.end() || !found->second.storedRequestPending)
        return false;
    found->second.storedRequestPending = false;
    return true;
}
