// ISA's verdict goes to the engine, and the block of an accepted login into the storage file.
//
// The pending block is taken out of the table in one step: of two answers that arrive at once
// only the first stores it, and an event that comes in between leaves its own block pending. A
// block that cannot be stored is reported and not tried again; one whose storing was cut off by an
// exception is pending again, so that a repeated answer can store it.
#include <syslog.h>

#include "platform/bllmanager.h"
#include "platform/log.h"
#include "tal/report.h"
#include "tal/tal.h"

talResultCode tal::talReply(unsigned interface, talRequestType type, talReplyResultCode code) {
    if (code == talReplyRequestStateOn) {
        if (talRequestStateSet(true) != 0)
            return talResError;
        // Kept: never 0, though the switch succeeded; the caller tells this answer from a login's.
        return talIsValidIntf(interface) ? talResError : talResIntfInvalid;
    }
    if (!talIsValidIntf(interface))
        return talResIntfInvalid;
    if (code != talReplyAccepted && code != talReplyRejected)
        return talResError;
    const bool accepted = code == talReplyAccepted;

    unsigned refused = 1;
    if (type == talRequestTypeAuthentication)
        refused = fea_.feaTalPortAuthenReply(interface, accepted);
    else if (type == talRequestTypeAuthorization)
        refused = fea_.feaTalPortAuthorReply(interface, accepted);
    if (refused != 0)
        return talResError;

    if (accepted)
        storePendingLogin(interface);
    return talResOk;
}

void tal::storePendingLogin(unsigned intf) {
    std::optional<rpcTalLoginBlockBll> block;
    withIntf(intf, [&block](talIntf& entry) {
        if (entry.loginPending)
            block = entry.loginBlock;
        entry.loginPending = false;
    });
    if (block && storeOrPutBack(intf, *block) != 0) {
        Log& log = singleton<Log>::instance();
        log.setMsgLevel(1);
        log.write("tal::talReply: cannot store data on interface " + std::to_string(intf) + "\n");
    }
}

unsigned tal::storeOrPutBack(unsigned intf, rpcTalLoginBlockBll& block) try {
    return talStoreLoginData(intf, block);
} catch (...) {
    withIntf(intf, [&block](talIntf& entry) {
        if (!entry.loginPending)
            entry.loginBlock = block;
        entry.loginPending = true;
    });
    throw;
}

talResultCode tal::operStateSet(unsigned intf, bool state, const char* operation,
                                unsigned (TalFea::*engineSet)(unsigned, unsigned),
                                const char* engineRefused) {
    const BLLManager::exclusiveLock_t lock;
    if (tal_report::refused(lock, operation))
        return talResError;
    if (!talIsValidIntf(intf))
        return talResIntfInvalid;
    if ((fea_.*engineSet)(intf, state) != 0) {
        syslog(LOG_WARNING, engineRefused, static_cast<int>(state), static_cast<int>(intf));
        return talResError;
    }
    return talResOk;
}

talResultCode tal::talIntfAuthenOperStateSet(unsigned interface, bool state) {
    return operStateSet(interface, state, "talIntfAuthenOperStateSet",
                        &TalFea::feaTalPortAuthenOperStateSet,
                        "talIntfAuthenOperStateSet Error setting TAL authentication operational "
                        "state to %d on interface %d.");
}

talResultCode tal::talIntfAuthorOperStateSet(unsigned interface, bool state) {
    return operStateSet(interface, state, "talIntfAuthorOperStateSet",
                        &TalFea::feaTalPortAuthorOperStateSet,
                        "talIntfAuthorOperStateSet Error setting TAL authorization operational "
                        "state to %d on interface %d.");
}
