// The six settings of an interface. All share one frame: lock, interface check, range check,
// engine, table, deletion of what the change makes obsolete. Where they differ on purpose the
// difference stands in the table of settings below.
//
// A value reaches the table only after the engine accepted it; a walk over all interfaces that
// fails part-way leaves those before it changed. Nothing is deleted while start() runs.
#include <syslog.h>

#include "platform/bllmanager.h"
#include "tal/module_flags.h"
#include "tal/report.h"
#include "tal/tal.h"

// What a walk over all interfaces does at an entry that already holds the value.
enum class HeldValue {
    setAgain,  // nothing is compared, also on a single interface
    skip,
    endWalk,
};

enum class WalkPurge {
    eachInterface,
    onceAtEnd,
};

template <class Value>
struct tal::IntfSetting {
    const char* setter;
    const char* getter;
    Value talIntf::*field;
    unsigned (TalFea::*engineSet)(unsigned, Value);
    Value defaultValue;
    Value lowest;
    Value highest;
    HeldValue heldValue;
    WalkPurge walkPurge;
    void (tal::*purge)(unsigned, Value);  // null: nothing is ever deleted
    const char* engineRefused;
    const char* engineRefusedInWalk;
};

struct tal::IntfSettings {
    static constexpr const char* adminRefused =
        "talIntfAdminStateSet Error setting TAL to %d on interface %d.";
    static constexpr const char* authenRefused =
        "talIntfAuthenAdminStateSet Error setting TAL authentication to %d on interface %d.";
    static constexpr const char* authorRefused =
        "talIntfAuthorAdminStateSet Error setting TAL authorization to %d on interface %d.";
    static constexpr const char* autoReqRefused =
        "talIntfAutoReqAdminStateSet Error setting TAL automatic request to %d on interface %d.";
    static constexpr const char* timeoutRefused =
        "talIntfTimeoutSet Error setting TAL timeout to %d on interface %d.";
    static constexpr const char* queueRefused =
        "talIntfMaxQueueSizeSet Error setting TAL max queue size to %d on interface %d.";
    // Kept: this text lacks the word "Error".
    static constexpr const char* queueRefusedInWalk =
        "talIntfMaxQueueSizeSet setting TAL max queue size to %d on interface %d.";

    static constexpr IntfSetting<bool> adminState = {
        .setter = "talIntfAdminStateSet",
        .getter = "talIntfAdminStateGet",
        .field = &talIntf::adminState,
        .engineSet = &TalFea::feaTalPortAdminStateSet,
        .defaultValue = false,
        .lowest = false,
        .highest = true,
        .heldValue = HeldValue::skip,
        .walkPurge = WalkPurge::onceAtEnd,
        .purge = &tal::purgeAfterAdminState,
        .engineRefused = adminRefused,
        .engineRefusedInWalk = adminRefused,
    };
    static constexpr IntfSetting<bool> authenAdminState = {
        .setter = "talIntfAuthenAdminStateSet",
        .getter = "talIntfAuthenAdminStateGet",
        .field = &talIntf::authenAdminState,
        .engineSet = &TalFea::feaTalPortAuthenAdminStateSet,
        .defaultValue = true,
        .lowest = false,
        .highest = true,
        .heldValue = HeldValue::endWalk,
        .walkPurge = WalkPurge::eachInterface,
        .purge = &tal::purgeAfterAuthenAdminState,
        .engineRefused = authenRefused,
        .engineRefusedInWalk = authenRefused,
    };
    static constexpr IntfSetting<bool> authorAdminState = {
        .setter = "talIntfAuthorAdminStateSet",
        .getter = "talIntfAuthorAdminStateGet",
        .field = &talIntf::authorAdminState,
        .engineSet = &TalFea::feaTalPortAuthorAdminStateSet,
        .defaultValue = true,
        .lowest = false,
        .highest = true,
        .heldValue = HeldValue::endWalk,
        .walkPurge = WalkPurge::eachInterface,
        .purge = &tal::purgeAfterAuthorAdminState,
        .engineRefused = authorRefused,
        .engineRefusedInWalk = authorRefused,
    };
    static constexpr IntfSetting<bool> autoReqAdminState = {
        .setter = "talIntfAutoReqAdminStateSet",
        .getter = "talIntfAutoReqAdminStateGet",
        .field = &talIntf::autoReqAdminState,
        .engineSet = &TalFea::feaTalPortAutoReqAdminStateSet,
        .defaultValue = false,
        .lowest = false,
        .highest = true,
        .heldValue = HeldValue::setAgain,
        .walkPurge = WalkPurge::eachInterface,
        .purge = &tal::purgeAfterAutoReqAdminState,
        .engineRefused = autoReqRefused,
        .engineRefusedInWalk = autoReqRefused,
    };
    static constexpr IntfSetting<uint32_t> timeout = {
        .setter = "talIntfTimeoutSet",
        .getter = "talIntfTimeoutGet",
        .field = &talIntf::timeout,
        .engineSet = &TalFea::feaTalPortTimeoutSet,
        .defaultValue = 120,
        .lowest = 1,
        .highest = 300,
        .heldValue = HeldValue::setAgain,
        .walkPurge = WalkPurge::eachInterface,
        .purge = nullptr,
        .engineRefused = timeoutRefused,
        .engineRefusedInWalk = timeoutRefused,
    };
    static constexpr IntfSetting<uint32_t> maxQueueSize = {
        .setter = "talIntfMaxQueueSizeSet",
        .getter = "talIntfMaxQueueSizeGet",
        .field = &talIntf::maxQueueSize,
        .engineSet = &TalFea::feaTalPortMaxQueueSizeSet,
        .defaultValue = 1,
        .lowest = 1,
        .highest = 100,
        .heldValue = HeldValue::setAgain,
        .walkPurge = WalkPurge::eachInterface,
        .purge = nullptr,
        .engineRefused = queueRefused,
        .engineRefusedInWalk = queueRefusedInWalk,
    };
};

template <class Value>
talResultCode tal::settingSet(const IntfSetting<Value>& setting, unsigned intf, Value value) {
    const BLLManager::exclusiveLock_t lock;
    if (tal_report::refused(lock, setting.setter))
        return talResError;
    if (!talIsValidIntf(intf))
        return talResIntfInvalid;
    if (value < setting.lowest || value > setting.highest)
        return talResError;

    const auto holds = [&](unsigned id) {
        return setting.heldValue != HeldValue::setAgain &&
               withIntf(id, [&](talIntf& entry) { return entry.*setting.field == value; });
    };
    const auto purge = [&](unsigned id) {
        if (setting.purge != nullptr && !tal_flags::startInProgress)
            (this->*setting.purge)(id, value);
    };

    if (intf != 0) {
        if (holds(intf))
            return talResOk;
        if (!settingPush(setting, intf, value, setting.engineRefused))
            return talResError;
        purge(intf);
        return talResOk;
    }
    for (std::optional<unsigned> id; nextIntf(id);) {
        if (holds(*id)) {
            // Kept: for the two stages the walk ends here, whatever the later interfaces hold.
            if (setting.heldValue == HeldValue::endWalk)
                return talResOk;
            continue;
        }
        if (!settingPush(setting, *id, value, setting.engineRefusedInWalk))
            return talResError;
        if (setting.walkPurge == WalkPurge::eachInterface)
            purge(*id);
    }
    if (setting.walkPurge == WalkPurge::onceAtEnd)
        purge(0);
    return talResOk;
}

// Engine first, then the table.
template <class Value>
bool tal::settingPush(const IntfSetting<Value>& setting, unsigned intf, Value value,
                      const char* engineRefused) {
    if ((fea_.*setting.engineSet)(intf, value) != 0) {
        syslog(LOG_WARNING, engineRefused, static_cast<int>(value), static_cast<int>(intf));
        return false;
    }
    withIntf(intf, [&](talIntf& entry) { entry.*setting.field = value; });
    return true;
}

template <class Value>
talResultCode tal::settingGet(const IntfSetting<Value>& setting, unsigned intf, Value* value) {
    const BLLManager::sharedLock_t lock;
    if (tal_report::refused(lock, setting.getter))
        return talResError;
    if (!talIsValidIntf(intf))
        return talResIntfInvalid;
    if (value == nullptr)
        return talResError;
    // Kept: reading interface 0 adds an all-zero entry that later walks visit.
    *value = withIntf(intf, [&](talIntf& entry) { return entry.*setting.field; });
    return talResOk;
}

template <class Value>
unsigned tal::settingDefaultSet(const IntfSetting<Value>& setting, unsigned intf) {
    return settingSet(setting, intf, setting.defaultValue) != talResOk ? 1 : 0;
}

template <class Value>
talResultCode tal::settingDefaultGet(const IntfSetting<Value>& setting, unsigned intf,
                                     Value* value) {
    if (!intfKnown(intf))
        return talResIntfInvalid;
    if (value == nullptr)
        return talResError;
    *value = setting.defaultValue;
    return talResOk;
}

// On one interface its stored login and profiles go, on all (0) everything goes at once.
void tal::purgeAfterAdminState(unsigned intf, bool state) {
    if (state)
        return;
    if (intf == 0) {
        if (talDeleteStoredLoginDataAll() != 0)
            syslog(LOG_WARNING, "talIntfAdminStateSet Error deleting all TAL stored login data.");
    } else if (talDeleteStoredLoginData(intf) != 0) {
        syslog(LOG_WARNING,
               "talIntfAdminStateSet Error deleting TAL stored login data on interface %d.",
               static_cast<int>(intf));
    }
    (void)talDynamicProfilesDelete(intf);  // always 0
}

void tal::purgeAfterAuthenAdminState(unsigned intf, bool state) {
    if (state || withIntf(intf, [](talIntf& entry) { return entry.authorAdminState; }))
        return;
    if (talDeleteStoredLoginData(intf) != 0)
        syslog(LOG_WARNING,
               "talIntfAuthenAdminStateSet Error deleting TAL stored login data on interface %d.",
               static_cast<int>(intf));
}

void tal::purgeAfterAuthorAdminState(unsigned intf, bool state) {
    if (state || withIntf(intf, [](talIntf& entry) { return entry.authenAdminState; }))
        return;
    if (talDeleteStoredLoginData(intf) != 0)
        syslog(LOG_WARNING,
               "talIntfAuthorAdminStateSet Error deleting TAL stored login data on interface %d.",
               static_cast<int>(intf));
}

// Kept: stored logins go when automatic requests are switched on, the other way round than for
// the three states above: without rules the line will ask anew by itself.
void tal::purgeAfterAutoReqAdminState(unsigned intf, bool state) {
    if (!state || !talRuleEmpty(intf))
        return;
    if (talDeleteStoredLoginData(intf) != 0)
        syslog(LOG_WARNING,
               "talIntfAutoReqAdminStateSet Error deleting TAL stored login data on interface %d.",
               static_cast<int>(intf));
}

talResultCode tal::talIntfAdminStateSet(unsigned intf, bool state) {
    return settingSet(IntfSettings::adminState, intf, state);
}

talResultCode tal::talIntfAdminStateGet(unsigned intf, bool* state) {
    return settingGet(IntfSettings::adminState, intf, state);
}

unsigned tal::talIntfAdminStateDefaultSet(unsigned intf) {
    return settingDefaultSet(IntfSettings::adminState, intf);
}

talResultCode tal::talIntfAdminStateDefaultGet(unsigned intf, bool* state) {
    return settingDefaultGet(IntfSettings::adminState, intf, state);
}

talResultCode tal::talIntfAuthenAdminStateSet(unsigned intf, bool state) {
    return settingSet(IntfSettings::authenAdminState, intf, state);
}

talResultCode tal::talIntfAuthenAdminStateGet(unsigned intf, bool* state) {
    return settingGet(IntfSettings::authenAdminState, intf, state);
}

unsigned tal::talIntfAuthenAdminStateDefaultSet(unsigned intf) {
    return settingDefaultSet(IntfSettings::authenAdminState, intf);
}

talResultCode tal::talIntfAuthenAdminStateDefaultGet(unsigned intf, bool* state) {
    return settingDefaultGet(IntfSettings::authenAdminState, intf, state);
}

talResultCode tal::talIntfAuthorAdminStateSet(unsigned intf, bool state) {
    return settingSet(IntfSettings::authorAdminState, intf, state);
}

talResultCode tal::talIntfAuthorAdminStateGet(unsigned intf, bool* state) {
    return settingGet(IntfSettings::authorAdminState, intf, state);
}

unsigned tal::talIntfAuthorAdminStateDefaultSet(unsigned intf) {
    return settingDefaultSet(IntfSettings::authorAdminState, intf);
}

talResultCode tal::talIntfAuthorAdminStateDefaultGet(unsigned intf, bool* state) {
    return settingDefaultGet(IntfSettings::authorAdminState, intf, state);
}

talResultCode tal::talIntfAutoReqAdminStateSet(unsigned intf, bool state) {
    return settingSet(IntfSettings::autoReqAdminState, intf, state);
}

talResultCode tal::talIntfAutoReqAdminStateGet(unsigned intf, bool* state) {
    return settingGet(IntfSettings::autoReqAdminState, intf, state);
}

unsigned tal::talIntfAutoReqAdminStateDefaultSet(unsigned intf) {
    return settingDefaultSet(IntfSettings::autoReqAdminState, intf);
}

talResultCode tal::talIntfAutoReqAdminStateDefaultGet(unsigned intf, bool* state) {
    return settingDefaultGet(IntfSettings::autoReqAdminState, intf, state);
}

talResultCode tal::talIntfTimeoutSet(unsigned intf, uint32_t timeout) {
    return settingSet(IntfSettings::timeout, intf, timeout);
}

talResultCode tal::talIntfTimeoutGet(unsigned intf, uint32_t* timeout) {
    return settingGet(IntfSettings::timeout, intf, timeout);
}

unsigned tal::talIntfTimeoutDefaultSet(unsigned intf) {
    return settingDefaultSet(IntfSettings::timeout, intf);
}

talResultCode tal::talIntfTimeoutDefaultGet(unsigned intf, uint32_t* timeout) {
    return settingDefaultGet(IntfSettings::timeout, intf, timeout);
}

talResultCode tal::talIntfMaxQueueSizeSet(unsigned intf, uint32_t size) {
    return settingSet(IntfSettings::maxQueueSize, intf, size);
}

talResultCode tal::talIntfMaxQueueSizeGet(unsigned intf, uint32_t* size) {
    return settingGet(IntfSettings::maxQueueSize, intf, size);
}

unsigned tal::talIntfMaxQueueSizeDefaultSet(unsigned intf) {
    return settingDefaultSet(IntfSettings::maxQueueSize, intf);
}

talResultCode tal::talIntfMaxQueueSizeDefaultGet(unsigned intf, uint32_t* size) {
    return settingDefaultGet(IntfSettings::maxQueueSize, intf, size);
}
