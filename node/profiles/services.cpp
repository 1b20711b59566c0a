// The platform's profile services, each a view of the profiles of its kind. How they say that a
// profile is dynamic differs:
//   service, VLAN, multicast   a protection flag, taken away by unprotecting
//   security                   nothing to read; unprotecting makes it static
//   flow                       flag 0 is dynamic, flag 1 is protected
//   L2CP                       the same two, with a call for each
// The access lists are in access_lists.cpp, the profiles of DSL boards in dsl.cpp.
#include "node/profiles/view.h"
#include "platform/profiles.h"

using node::ProfileKind;
using node::ProfileStore;
namespace view = node::view;

namespace {

unsigned allNames(ProfileKind kind, std::list<std::string>& names) {
    const std::vector<std::string> found = view::names(kind);
    names.assign(found.begin(), found.end());
    return view::good;
}

template <class Record>
unsigned readFlag(ProfileKind kind, const std::string& name, Record& record) {
    const std::optional<node::ProfileInfo> info = view::find(kind, name);
    if (!info) {
        return view::failed;
    }
    record.protectFlag = info->isProtected;
    return view::good;
}

unsigned resultOfRead(ProfileKind kind, const std::string& name) {
    return view::resultOf(view::exists(kind, name));
}

}  // namespace

// ---- service profiles

unsigned servprofile::getAllServiceProfiles(std::list<std::string>& names) {
    return allNames(ProfileKind::service, names);
}
unsigned servprofile::servProfileGet(const std::string& name, rpcServProf& profile) {
    return readFlag(ProfileKind::service, name, profile);
}
unsigned servprofile::servProfileUnprotect(const std::string& name) {
    return view::makeStatic(ProfileKind::service, name);
}
unsigned servprofile::serviceDynamicProfilesDelete(int ifId) {
    return view::removeDynamic(ProfileKind::service, static_cast<unsigned>(ifId));
}

template <>
servprofile& singleton<servprofile>::instance() {
    static servprofile service;
    return service;
}

// ---- VLAN profiles

unsigned vlanprofile::getAllVlanProfiles(std::list<std::string>& names) {
    return allNames(ProfileKind::vlan, names);
}
unsigned vlanprofile::vlanProfileGet(const std::string& name, rpcVlanProf& profile) {
    return readFlag(ProfileKind::vlan, name, profile);
}
unsigned vlanprofile::vlanProfileUnprotect(const std::string& name) {
    return view::makeStatic(ProfileKind::vlan, name);
}
unsigned vlanprofile::vlanDynamicProfilesDelete(unsigned ifId) {
    return view::removeDynamic(ProfileKind::vlan, ifId);
}

template <>
vlanprofile& singleton<vlanprofile>::instance() {
    static vlanprofile service;
    return service;
}

// ---- flow profiles

unsigned qos::qosProfileNextGet(const std::string& name, std::string& next) {
    return view::next(ProfileKind::flow, name, next);
}
bool qos::qosIsFlowProfileInternal(const std::string& name) {
    return name == node::internalFlowProfile;
}
bool qos::qosIsProfileDefaultFlowProfile(const std::string& name) {
    return name == node::defaultFlowProfile;
}
unsigned qos::qosProfileGet(const std::string& name) {
    return resultOfRead(ProfileKind::flow, name);
}
unsigned qos::qosProfileFlagsSet(const std::string& name, profileFlags flag, bool value) {
    switch (static_cast<int>(flag)) {
        case 0:
            return view::mark(ProfileKind::flow, name, {value, std::nullopt});
        case 1:
            return view::mark(ProfileKind::flow, name, {std::nullopt, value});
        default:
            return view::failed;
    }
}
unsigned qos::qosFlowDynamicProfilesDeleteAll() {
    return view::removeDynamic(ProfileKind::flow, 0);
}

template <>
qos& singleton<qos>::instance() {
    static qos service;
    return service;
}

// ---- multicast profiles

unsigned mcastprofile::mcastProfileGetNext(const std::string& name, std::string& next) {
    return view::next(ProfileKind::multicast, name, next);
}
unsigned mcastprofile::mcastProfileGet(const std::string& name, mcastProfileInfo& info) {
    return readFlag(ProfileKind::multicast, name, info);
}
unsigned mcastprofile::mcastProfileUnprotect(const std::string& name) {
    return view::makeStatic(ProfileKind::multicast, name);
}
unsigned mcastprofile::mcastDynamicProfilesDeleteAll() {
    return view::removeDynamic(ProfileKind::multicast, 0);
}

template <>
mcastprofile& singleton<mcastprofile>::instance() {
    static mcastprofile service;
    return service;
}

// ---- security profiles

unsigned securityprofile::securityProfileGetNext(const std::string& name, std::string& next) {
    return view::next(ProfileKind::security, name, next);
}
unsigned securityprofile::securityProfileGet(const std::string& name) {
    return resultOfRead(ProfileKind::security, name);
}
unsigned securityprofile::securityProfileUnprotect(const std::string& name) {
    return view::makeStatic(ProfileKind::security, name);
}
unsigned securityprofile::securityDynamicProfilesDeleteAll() {
    return view::removeDynamic(ProfileKind::security, 0);
}

template <>
securityprofile& singleton<securityprofile>::instance() {
    static securityprofile service;
    return service;
}

// ---- L2CP profiles

unsigned L2CP::profileGetAll(std::list<Profile>& profiles) {
    profiles.clear();
    for (const std::string& name : view::names(ProfileKind::l2cp)) {
        profiles.push_back({name});
    }
    return view::good;
}
unsigned L2CP::profileGet(const std::string& name) {
    return resultOfRead(ProfileKind::l2cp, name);
}
unsigned L2CP::profileSetDynamic(const std::string& name, bool dynamic) {
    return view::mark(ProfileKind::l2cp, name, {dynamic, std::nullopt});
}
unsigned L2CP::profileSetProtect(const std::string& name, bool protect) {
    return view::mark(ProfileKind::l2cp, name, {std::nullopt, protect});
}
unsigned L2CP::l2cpDynamicProfilesDeleteAll() {
    return view::removeDynamic(ProfileKind::l2cp, 0);
}

template <>
L2CP& singleton<L2CP>::instance() {
    static L2CP service;
    return service;
}

// ---- saving

unsigned CliConfig::saveDynamicProfiles(CliConfigRpcSaveDynProfMode mode) {
    constexpr int toTheFile = 0;  // the only mode there is
    if (static_cast<int>(mode) != toTheFile) {
        return view::failed;
    }
    return view::onStore(view::good,
                         [](ProfileStore& store) { return view::resultOf(store.save()); });
}

template <>
CliConfig& singleton<CliConfig>::instance() {
    static CliConfig service;
    return service;
}
