// Loading the library, and what the manager drives: start, defaults, configuration, stop.
//
// The order at load matters: two names first, then the manager, then the one module object, then
// its registration. It is fixed by standing in one translation unit; the other texts of the module
// are constants and need no construction. Unloading destroys the module object; the manager keeps
// a dangling reference unless the host forgets it first.
//
// start() fails at the first interface that cannot be initialised and then leaves startInProgress
// set, so a module that never started never deletes stored logins.
#include <syslog.h>
#include <boost/bind/bind.hpp>

#include "platform/bllmanager.h"
#include "platform/isaradiusbll.h"
#include "platform/itbridge.h"
#include "tal/module_flags.h"
#include "tal/report.h"
#include "tal/tal.h"

using tal_flags::configurationApplyInProgress;
using tal_flags::firstApplyPending;
using tal_flags::startInProgress;

std::atomic<bool> tal_flags::firstApplyPending{true};
std::atomic<bool> tal_flags::configurationApplyInProgress{false};
std::atomic<bool> tal_flags::startInProgress{false};

namespace {

// Kept: two names of the module that nothing refers to; the engine objects of an interface are
// named by its number instead. They are there from load to unload all the same.
[[gnu::used]] const std::string authenticationName = "TAL_AUTHEN";
[[gnu::used]] const std::string authorizationName = "TAL_AUTHOR";

constexpr bool adminStateDefault = false;
constexpr bool requestStateDefault = true;

struct Registration {
    Registration() {
        BLLManager& manager = singleton<BLLManager>::instance();
        manager.registerEntity(singleton<tal>::instance());
    }
};
const Registration registration;

}  // namespace

template <>
tal& singleton<tal>::instance() {
    static tal object;
    return object;
}

tal::tal() : BLEntity("tal") {}

tal::~tal() = default;

// The module keeps no settings in the configuration tree.
void tal::applyConfiguration(boost::shared_ptr<Storage::Setting>) {}

void tal::saveConfiguration(boost::shared_ptr<Storage::Setting>) const {}

bool tal::start() {
    Interfaces& interfaces = singleton<Interfaces>::instance();
    std::vector<Interfaces::Interface> list;
    // A registry that cannot answer has no interfaces to offer.
    (void)interfaces.interfaceListGet(list);
    startInProgress = true;
    for (const Interfaces::Interface& interface : list) {
        unsigned type = 0;
        if (interfaces.interfaceGetTypeById(interface.id, &type) == 0 && type == accessIntfType &&
            talIntfInit(interface.id) != 0)
            return false;
    }
    if (!applyDefaultSettings())
        return false;

    namespace placeholders = boost::placeholders;
    BLLManager& manager = singleton<BLLManager>::instance();
    interfaces.interfaceEventCallbacks.push_back(
        boost::bind(&tal::talInterfaceStateChange, this, placeholders::_1, placeholders::_2));
    singleton<itbridge>::instance().talEventCallbacks.push_back(
        boost::bind(&tal::talEvent, this, placeholders::_1));
    manager.configurationApplyStartCallbacks.push_back(
        boost::bind(&tal::configurationApplyStart, this));
    manager.configurationApplyStopCallbacks.push_back(
        boost::bind(&tal::configurationApplyStop, this));
    startInProgress = false;
    return true;
}

bool tal::applyDefaultSettings() {
    bool ok = talGlobalDefaultSet() == 0;
    for (std::optional<unsigned> intf; nextIntf(intf);) {
        if (talIntfDefaultSet(*intf) != 0)
            ok = false;
    }
    return ok;
}

bool tal::stop() {
    return true;
}

void tal::getDependencies(std::list<std::string>& dependencies) {
    dependencies.clear();
    dependencies.push_back(singleton<Interfaces>::instance().getName());
    dependencies.push_back(singleton<itbridge>::instance().getName());
}

void tal::configurationApplyStart() {
    configurationApplyInProgress = true;
}

void tal::configurationApplyStop() {
    configurationApplyInProgress = false;
    if (!firstApplyPending.exchange(false))
        return;
    try {
        // What could not be replayed has been reported and stays stored or is gone.
        (void)talApplyStoredData();
    } catch (...) {
        // The manager calls back without expecting exceptions; the logins stay in the file.
    }
}

unsigned tal::talAdminStateSet(bool state) {
    const BLLManager::exclusiveLock_t lock;
    if (tal_report::refused(lock, "talAdminStateSet"))
        return 1;
    if (state == adminState_)
        return 0;
    if (fea_.feaTalAdminStateSet(state) != 0) {
        syslog(LOG_WARNING, "talAdminStateSet Error setting TAL to %d.", state);
        return 1;
    }
    if (state) {
        if (singleton<isaradiusbll>::instance().isaradiusbllTalMode(1) != 0) {
            syslog(LOG_ERR,
                   "talAdminStateSet Unable to notify ISA about TAL admin state change: %d.", 1);
            // Kept: the engine stays on while the stored state says off, so that a repeated
            // call tries both again.
            return 4;
        }
    } else {
        if (talDeleteStoredLoginDataAll() != 0)
            syslog(LOG_WARNING, "talAdminStateSet Error deleting all TAL stored login data.");
        (void)talDynamicProfilesDelete(0);  // always 0
    }
    adminState_ = state;
    return 0;
}

unsigned tal::talAdminStateGet(bool* state) {
    const BLLManager::sharedLock_t lock;
    if (tal_report::refused(lock, "talAdminStateGet") || state == nullptr)
        return 1;
    *state = adminState_;
    return 0;
}

unsigned tal::talAdminStateDefaultSet() {
    return talAdminStateSet(adminStateDefault) != 0 ? 1 : 0;
}

unsigned tal::talAdminStateDefaultGet(bool* state) {
    if (state == nullptr)
        return 1;
    *state = adminStateDefault;
    return 0;
}

unsigned tal::talRequestStateSet(bool state) {
    const BLLManager::exclusiveLock_t lock;
    if (tal_report::refused(lock, "talRequestStateSet"))
        return 1;
    // Kept: the engine is told even when nothing changes, unlike for the admin state.
    if (fea_.feaTalRequestState(state) != 0) {
        syslog(LOG_WARNING, "talRequestStateSet Error setting TAL request state to %d.", state);
        return 1;
    }
    requestState_ = state;
    return 0;
}

unsigned tal::talRequestStateDefaultSet() {
    return talRequestStateSet(requestStateDefault) != 0 ? 1 : 0;
}

unsigned tal::talGlobalDefaultSet() {
    if (talAdminStateDefaultSet() != 0)
        return 1;
    return talRequestStateDefaultSet();
}
