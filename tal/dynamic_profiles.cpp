// Profiles that logins created: made static on request, or deleted when TAL is switched off.
//
// The kinds run in a fixed order and the conversion stops at the first failure; what was converted
// before stays so. Names are collected before anything is changed, because unprotecting a profile
// would disturb the enumeration. Which results are examined differs from service to service and
// is listed at each member.
#include "platform/isaradiusbll.h"
#include "platform/itbridge.h"
#include "platform/log.h"
#include "platform/ports.h"
#include "platform/profiles.h"
#include "tal/tal.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <exception>
#include <string_view>

namespace {

constexpr unsigned stillDynamic = 3;  // protection value of a dynamic profile
constexpr unsigned madeStatic = 2;    // protection level that ends it
constexpr char flowDefaultName[] = "DEFAULT";
constexpr std::string_view alarmDefaultPrefix = "Default";

constexpr qos::profileFlags flowFlags[] = {
    static_cast<qos::profileFlags>(0),
    static_cast<qos::profileFlags>(1),
};

bool boardHasDsl() {
    const unsigned type = singleton<Ports>::instance().getBoardType();
    return type == 1 || type == 5 || type == 7;
}

// A board with DSL lines has an implementation; without one the host is broken beyond a result.
boost::shared_ptr<Vdsl> vdslOfBoard() {
    boost::shared_ptr<Vdsl> vdsl = singleton<Ports>::instance().getVdslImpl();
    if (!vdsl)
        abort();
    return vdsl;
}

// The same; an exception is reported and leaves none.
boost::shared_ptr<Vdsl> vdslOfBoardReported() try {
    return vdslOfBoard();
} catch (const std::exception& exception) {
    Log& log = singleton<Log>::instance();
    log.setMsgLevel(0);
    log.write(std::string("Exceptional situation (VdslScripter): ") + exception.what() + ".\n");
    return nullptr;
}

void saveDynamicProfiles() {
    constexpr auto mode = static_cast<CliConfigRpcSaveDynProfMode>(0);
    (void)singleton<CliConfig>::instance().saveDynamicProfiles(mode);  // reports for itself
}

template <size_t size>
std::string fieldText(const char (&field)[size]) {
    return {field, strnlen(field, size)};
}

// All names of a service that hands out one after the other, from the empty name on.
template <class Service>
std::list<std::string> enumerate(Service& service,
                                 unsigned (Service::*next)(const std::string&, std::string&)) {
    std::list<std::string> names;
    std::string name;
    for (std::string following; (service.*next)(name, following) == 0; following.clear()) {
        name = following;
        names.push_back(name);
    }
    return names;
}

// Unprotects the profiles whose record carries the flag. The read is not examined: a profile that
// cannot be read carries no flag.
template <class Service, class Record>
bool unprotectFlagged(Service& service, const std::list<std::string>& names,
                      unsigned (Service::*get)(const std::string&, Record&),
                      unsigned (Service::*unprotect)(const std::string&)) {
    for (const std::string& name : names) {
        Record record{};
        (void)(service.*get)(name, record);
        if (record.protectFlag && (service.*unprotect)(name) != 0)
            return false;
    }
    return true;
}

}  // namespace

bool tal::talConvertAllDynamicProfilesToStatic() {
    if (!convertAllServiceProfiles() || !convertAllVlanProfiles() || !convertAllFlowProfiles() ||
        !convertAllMulticastProfiles() || !convertAllSecurityProfiles() ||
        !convertAllL2CPProfiles() || !convertAllMacAclProfiles())
        return false;
    if (boardHasDsl() && (!convertAllDslProfiles() || !convertAllAlarmProfiles()))
        return false;
    saveDynamicProfiles();
    return true;
}

bool tal::convertAllServiceProfiles() {
    servprofile& service = singleton<servprofile>::instance();
    std::list<std::string> names;
    (void)service.getAllServiceProfiles(names);  // without names there is nothing to convert
    return unprotectFlagged(service, names, &servprofile::servProfileGet,
                            &servprofile::servProfileUnprotect);
}

bool tal::convertAllVlanProfiles() {
    vlanprofile& service = singleton<vlanprofile>::instance();
    std::list<std::string> names;
    (void)service.getAllVlanProfiles(names);  // without names there is nothing to convert
    return unprotectFlagged(service, names, &vlanprofile::vlanProfileGet,
                            &vlanprofile::vlanProfileUnprotect);
}

// No result is examined; always true.
bool tal::convertAllFlowProfiles() {
    qos& service = singleton<qos>::instance();
    for (const std::string& name : enumerate(service, &qos::qosProfileNextGet)) {
        if (service.qosIsFlowProfileInternal(name) ||
            service.qosIsProfileDefaultFlowProfile(name) || name == flowDefaultName)
            continue;
        (void)service.qosProfileGet(name);
        for (const qos::profileFlags flag : flowFlags)
            (void)service.qosProfileFlagsSet(name, flag, false);
    }
    return true;
}

bool tal::convertAllMulticastProfiles() {
    mcastprofile& service = singleton<mcastprofile>::instance();
    return unprotectFlagged(service, enumerate(service, &mcastprofile::mcastProfileGetNext),
                            &mcastprofile::mcastProfileGet, &mcastprofile::mcastProfileUnprotect);
}

bool tal::convertAllSecurityProfiles() {
    securityprofile& service = singleton<securityprofile>::instance();
    for (const std::string& name : enumerate(service, &securityprofile::securityProfileGetNext)) {
        if (service.securityProfileGet(name) != 0 || service.securityProfileUnprotect(name) != 0)
            return false;
    }
    return true;
}

bool tal::convertAllL2CPProfiles() {
    L2CP& service = singleton<L2CP>::instance();
    std::list<L2CP::Profile> profiles;
    if (service.profileGetAll(profiles) != 0)
        return false;
    for (const L2CP::Profile& profile : profiles) {
        if (service.profileGet(profile.name) != 0 ||
            service.profileSetDynamic(profile.name, false) != 0 ||
            service.profileSetProtect(profile.name, false) != 0)
            return false;
    }
    return true;
}

bool tal::convertAllMacAclProfiles() {
    constexpr int isDynamic = 0;
    constexpr int checkFailed = 6;
    ACLContainer_t& container = singleton<itbridge>::instance().getACLContainer();
    std::list<ACLContainer_t::aclInfo_t> acls;
    if (container.getACLsInfo(acls) != 0)
        return false;
    for (const ACLContainer_t::aclInfo_t& acl : acls) {
        const int check = container.aclCheckDynamic(acl.name);
        if (check == checkFailed ||
            (check == isDynamic && container.setAclProtected(acl.name, madeStatic) != 0))
            return false;
    }
    return true;
}

// Only an exception of obtaining the implementation is reported; one of a call to it goes on to the
// caller.
bool tal::convertAllDslProfiles() {
    boost::shared_ptr<Vdsl> vdsl = vdslOfBoardReported();
    if (!vdsl)
        return false;
    rpcVdslProfileAll all{};
    if (vdsl->getProfileAll(all) != 0)
        return true;  // Kept: a board that cannot list its profiles has none to convert.
    const size_t count = std::min<size_t>(all.count, std::size(all.profile));
    for (size_t i = 0; i < count; ++i) {
        const rpcVdslProfile& profile = all.profile[i];
        if (profile.protection != stillDynamic)
            continue;
        vdsl = vdslOfBoardReported();
        int result = 0;
        if (!vdsl || vdsl->profileProtect(fieldText(profile.name), madeStatic, result) != 0)
            return false;
    }
    return true;
}

bool tal::convertAllAlarmProfiles() {
    AlarmProfileList list{};
    if (vdslOfBoard()->getAlarmProfileAll(list) != 0)
        return false;
    for (const auto& slot : list.name) {
        const std::string name = fieldText(slot);
        AlarmProfileProtectedFlags flags{};
        if (vdslOfBoard()->getAlarmProtectedFlag(name, flags) != 0)
            return true;  // the first slot that is not in use
        int result = 0;
        if (!name.starts_with(alarmDefaultPrefix) && flags.protectedFlag == stillDynamic &&
            vdslOfBoard()->alarmProfileProtect(name, madeStatic, result) != 0)
            return false;
    }
    return true;
}

// No result is examined: what a service could not delete stays, and the others go.
unsigned tal::talDynamicProfilesDelete(unsigned intf) {
    (void)singleton<servprofile>::instance().serviceDynamicProfilesDelete(static_cast<int>(intf));
    (void)singleton<vlanprofile>::instance().vlanDynamicProfilesDelete(intf);
    if (intf == 0) {
        // These know no interface.
        (void)singleton<qos>::instance().qosFlowDynamicProfilesDeleteAll();
        (void)singleton<mcastprofile>::instance().mcastDynamicProfilesDeleteAll();
        (void)singleton<securityprofile>::instance().securityDynamicProfilesDeleteAll();
        (void)singleton<L2CP>::instance().l2cpDynamicProfilesDeleteAll();
        (void)singleton<itbridge>::instance().getACLContainer().accessListDynamicDeleteAll();
    }
    if (boardHasDsl())
        (void)singleton<Ports>::instance().vdslPortDynamicProfilesDelete(intf);
    saveDynamicProfiles();
    return 0;
}

bool tal::clearIsaConfiguration() {
    if (!applyDefaultSettings())
        return false;
    (void)singleton<isaradiusbll>::instance().isaradiusbllClearConfig();  // ISA reports for itself
    return true;
}
