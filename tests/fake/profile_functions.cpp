// The profile services, forwarded to the current FakePlatform.
#include "platform/profiles.h"
#include "tests/fake/fake_platform.h"

using fake::shown;
using fake::shownList;

namespace {

template <class T>
T& only() {
    static T object;
    return object;
}

fake::Profiles& profiles() {
    return FakePlatform::current().profiles;
}

}  // namespace

template <>
servprofile& singleton<servprofile>::instance() {
    return only<servprofile>();
}
template <>
vlanprofile& singleton<vlanprofile>::instance() {
    return only<vlanprofile>();
}
template <>
qos& singleton<qos>::instance() {
    return only<qos>();
}
template <>
mcastprofile& singleton<mcastprofile>::instance() {
    return only<mcastprofile>();
}
template <>
securityprofile& singleton<securityprofile>::instance() {
    return only<securityprofile>();
}
template <>
L2CP& singleton<L2CP>::instance() {
    return only<L2CP>();
}
template <>
CliConfig& singleton<CliConfig>::instance() {
    return only<CliConfig>();
}

unsigned servprofile::getAllServiceProfiles(std::list<std::string>& names) {
    return profiles().getAll(__func__, profiles().services, names);
}
unsigned servprofile::servProfileGet(const std::string& name, rpcServProf& profile) {
    return profiles().get(__func__, profiles().services, name, profile.protectFlag);
}
unsigned servprofile::servProfileUnprotect(const std::string& name) {
    return profiles().unprotect(__func__, profiles().services, name);
}
unsigned servprofile::serviceDynamicProfilesDelete(int ifId) {
    return profiles().plain(__func__, shown(ifId));
}

unsigned vlanprofile::getAllVlanProfiles(std::list<std::string>& names) {
    return profiles().getAll(__func__, profiles().vlans, names);
}
unsigned vlanprofile::vlanProfileGet(const std::string& name, rpcVlanProf& profile) {
    return profiles().get(__func__, profiles().vlans, name, profile.protectFlag);
}
unsigned vlanprofile::vlanProfileUnprotect(const std::string& name) {
    return profiles().unprotect(__func__, profiles().vlans, name);
}
unsigned vlanprofile::vlanDynamicProfilesDelete(unsigned ifId) {
    return profiles().plain(__func__, shown(ifId));
}

unsigned qos::qosProfileNextGet(const std::string& name, std::string& next) {
    return profiles().next(__func__, profiles().flowNames(), name, next);
}
bool qos::qosIsFlowProfileInternal(const std::string& name) {
    return profiles().ask(__func__, name, &fake::Profiles::Flow::internal);
}
bool qos::qosIsProfileDefaultFlowProfile(const std::string& name) {
    return profiles().ask(__func__, name, &fake::Profiles::Flow::byDefault);
}
unsigned qos::qosProfileGet(const std::string& name) {
    return profiles().about(__func__, name, shown(name));
}
unsigned qos::qosProfileFlagsSet(const std::string& name, profileFlags flag, bool value) {
    return profiles().about(__func__, name, shownList(name, static_cast<int>(flag), value));
}
unsigned qos::qosFlowDynamicProfilesDeleteAll() {
    return profiles().plain(__func__, "");
}

unsigned mcastprofile::mcastProfileGetNext(const std::string& name, std::string& next) {
    return profiles().next(__func__, profiles().multicastNames(), name, next);
}
unsigned mcastprofile::mcastProfileGet(const std::string& name, mcastProfileInfo& info) {
    return profiles().get(__func__, profiles().multicasts, name, info.protectFlag);
}
unsigned mcastprofile::mcastProfileUnprotect(const std::string& name) {
    return profiles().unprotect(__func__, profiles().multicasts, name);
}
unsigned mcastprofile::mcastDynamicProfilesDeleteAll() {
    return profiles().plain(__func__, "");
}

unsigned securityprofile::securityProfileGetNext(const std::string& name, std::string& next) {
    return profiles().next(__func__, profiles().securities, name, next);
}
unsigned securityprofile::securityProfileGet(const std::string& name) {
    return profiles().about(__func__, name, shown(name));
}
unsigned securityprofile::securityProfileUnprotect(const std::string& name) {
    return profiles().about(__func__, name, shown(name));
}
unsigned securityprofile::securityDynamicProfilesDeleteAll() {
    return profiles().plain(__func__, "");
}

unsigned L2CP::profileGetAll(std::list<Profile>& list) {
    std::list<std::string> names;
    const unsigned result = profiles().l2cpList(names);
    if (result == 0) {
        list.clear();
        for (const std::string& name : names) {
            list.push_back({name});
        }
    }
    return result;
}
unsigned L2CP::profileGet(const std::string& name) {
    return profiles().about(__func__, name, shown(name));
}
unsigned L2CP::profileSetDynamic(const std::string& name, bool dynamic) {
    return profiles().about(__func__, name, shownList(name, dynamic));
}
unsigned L2CP::profileSetProtect(const std::string& name, bool protect) {
    return profiles().about(__func__, name, shownList(name, protect));
}
unsigned L2CP::l2cpDynamicProfilesDeleteAll() {
    return profiles().plain(__func__, "");
}

unsigned CliConfig::saveDynamicProfiles(CliConfigRpcSaveDynProfMode mode) {
    return profiles().plain(__func__, shown(static_cast<int>(mode)));
}
