// One record per interface on which TAL can run, made once by start() and kept until unload.
//
// Two locks guard it. The manager's lock, taken by the operations as described in tal.h, orders
// whole operations. The table's own lock inside it guards the map and its fields: engine events,
// interface events and a getter for interface 0 insert or write without the exclusive lock, on
// threads of their own. Nothing outside the module is called while the inner lock is held.
//
// Interface 0 is always valid and stands for all interfaces; a lookup of it adds an all-zero
// entry that later walks visit like any other.
#include <optional>

#include "platform/bllmanager.h"
#include "platform/ports.h"
#include "tal/module_flags.h"
#include "tal/report.h"
#include "tal/tal.h"

namespace {

constexpr unsigned boardTypeDsl = 1;
constexpr int eventOperationallyUp = 4;

constexpr TalFea::feaTalActionType actionsOfList[] = {
    static_cast<TalFea::feaTalActionType>(2),
    static_cast<TalFea::feaTalActionType>(3),
};

// Clears the flag and says whether it was set.
bool takeFlag(bool& flag) {
    const bool was = flag;
    flag = false;
    return was;
}

}  // namespace

unsigned tal::talIntfInit(unsigned ifId) {
    unsigned type = 0;
    if (ifId == 0 || singleton<Interfaces>::instance().interfaceGetTypeById(ifId, &type) != 0 ||
        type != accessIntfType)
        return 1;
    withIntf(ifId, [ifId](talIntf& entry) {
        entry = talIntf{};
        entry.interface = ifId;
    });

    std::string name;
    talKernelNameSet(name, ifId);
    if (fea_.talSelectorAdd(name.c_str()) != 0 || fea_.talActionListAdd(name.c_str()) != 0)
        return 1;
    for (const TalFea::feaTalActionType action : actionsOfList) {
        if (fea_.talActionAdd(name.c_str(), action) != 0)
            return 1;
    }
    if (fea_.talListSet(ifId, name.c_str(), name.c_str(), 1, 0) != 0)
        return 1;

    withIntf(ifId, [this](talIntf& entry) { setTalRuleDefault(&entry.rule); });
    if (talIntfDefaultSet(ifId) != 0)
        return 1;
    withIntf(ifId, [](talIntf& entry) {
        entry.dslIntfDisabled = false;
        entry.loginPending = false;
        entry.firstStateEventPending = true;
    });
    return 0;
}

unsigned tal::talIntfDefaultSet(unsigned ifId) {
    bool failed = false;
    const auto note = [&failed](unsigned result) { failed |= result != 0; };
    note(talIntfAdminStateDefaultSet(ifId));
    note(talIntfAuthenAdminStateDefaultSet(ifId));
    note(talIntfAuthorAdminStateDefaultSet(ifId));
    note(talIntfAutoReqAdminStateDefaultSet(ifId));
    note(talIntfTimeoutDefaultSet(ifId));
    note(talIntfMaxQueueSizeDefaultSet(ifId));
    if (!tal_flags::startInProgress) {
        talRule rule{};
        setTalRuleDefault(&rule);
        note(talRuleBundleSet(ifId, &rule));
    }
    return failed ? 1 : 0;
}

void tal::talKernelNameSet(std::string& name, unsigned ifId) {
    name = std::to_string(ifId - 1);
}

bool tal::intfKnown(unsigned ifId) {
    if (ifId == 0)
        return true;
    const std::lock_guard<std::mutex> lock(intfTableMutex_);
    // The records are asked, not the keys: an entry made by a lookup alone is not valid.
    for (const auto& [key, entry] : intfTable_) {
        if (entry.interface == ifId)
            return true;
    }
    return false;
}

bool tal::talIsValidIntf(unsigned ifId) {
    const BLLManager::sharedLock_t lock;
    return !tal_report::refused(lock, "talIsValidIntf") && intfKnown(ifId);
}

bool tal::talIsAccessIntf(unsigned ifId) {
    const BLLManager::sharedLock_t lock;
    if (tal_report::refused(lock, "talIsAccessIntf") || ifId == 0)
        return false;
    unsigned type = 0;
    return singleton<Interfaces>::instance().interfaceGetTypeById(ifId, &type) == 0 &&
           type == accessIntfType;
}

bool tal::talIsDslInterface(unsigned ifId) {
    if (!talIsValidIntf(ifId) || singleton<Ports>::instance().getBoardType() != boardTypeDsl)
        return false;
    std::string linuxName;
    return singleton<Interfaces>::instance().interfaceGetLinuxnameById(ifId, &linuxName) == 0 &&
           linuxName.find("dsl") != std::string::npos;
}

unsigned tal::talDslIntfDisabled(unsigned ifId) {
    if (!talIsValidIntf(ifId))
        return talResIntfInvalid;
    withIntf(ifId, [](talIntf& entry) { entry.dslIntfDisabled = true; });
    return 0;
}

void tal::talInterfaceStateChange(int ifId, Interfaces::interfaceEvent_t event) {
    try {
        interfaceStateChange(static_cast<unsigned>(ifId), event);
    } catch (...) {
        // The registry calls back without expecting exceptions; the event is dropped.
    }
}

void tal::interfaceStateChange(unsigned intf, int event) {
    bool global = false;
    bool admin = false;
    bool authen = false;
    bool author = false;
    if (!talIsValidIntf(intf) || talAdminStateGet(&global) != 0 ||
        talIntfAdminStateGet(intf, &admin) != 0 || talIntfAuthenAdminStateGet(intf, &authen) != 0 ||
        talIntfAuthorAdminStateGet(intf, &author) != 0 || event != eventOperationallyUp)
        return;
    const bool first =
        withIntf(intf, [](talIntf& entry) { return takeFlag(entry.firstStateEventPending); });
    if (first || !global || !admin)
        return;
    const bool autoReq = withIntf(intf, [](talIntf& entry) { return entry.autoReqAdminState; });
    if (autoReq && talRuleEmpty(intf))
        return;
    if (talIsDslInterface(intf) &&
        withIntf(intf, [](talIntf& entry) { return takeFlag(entry.dslIntfDisabled); }))
        return;
    // A refusal leaves the line as the engine has it; the next event tries again.
    if (authen)
        (void)fea_.feaTalPortAuthenOperStateSet(intf, 1);
    if (author)
        (void)fea_.feaTalPortAuthorOperStateSet(intf, 1);
}

bool tal::nextIntf(std::optional<unsigned>& intf) {
    const std::lock_guard<std::mutex> lock(intfTableMutex_);
    const auto next = intf ? intfTable_.upper_bound(*intf) : intfTable_.begin();
    if (next == intfTable_.end())
        return false;
    intf = next->first;
    return true;
}
