// The profile services of the null platform: there are no profiles, and what is asked of one
// succeeds. A walk to the next profile ends at once.
#include "platform/profiles.h"

namespace {

constexpr unsigned noFurtherProfile = 1;

}  // namespace

template <>
servprofile& singleton<servprofile>::instance() {
    static servprofile service;
    return service;
}

unsigned servprofile::getAllServiceProfiles(std::list<std::string>& names) {
    names.clear();
    return 0;
}
unsigned servprofile::servProfileGet(const std::string&, rpcServProf& profile) {
    profile = {};
    return 0;
}
unsigned servprofile::servProfileUnprotect(const std::string&) {
    return 0;
}
unsigned servprofile::serviceDynamicProfilesDelete(int) {
    return 0;
}

template <>
vlanprofile& singleton<vlanprofile>::instance() {
    static vlanprofile service;
    return service;
}

unsigned vlanprofile::getAllVlanProfiles(std::list<std::string>& names) {
    names.clear();
    return 0;
}
unsigned vlanprofile::vlanProfileGet(const std::string&, rpcVlanProf& profile) {
    profile = {};
    return 0;
}
unsigned vlanprofile::vlanProfileUnprotect(const std::string&) {
    return 0;
}
unsigned vlanprofile::vlanDynamicProfilesDelete(unsigned) {
    return 0;
}

template <>
qos& singleton<qos>::instance() {
    static qos service;
    return service;
}

unsigned qos::qosProfileNextGet(const std::string&, std::string&) {
    return noFurtherProfile;
}
bool qos::qosIsFlowProfileInternal(const std::string&) {
    return false;
}
bool qos::qosIsProfileDefaultFlowProfile(const std::string&) {
    return false;
}
unsigned qos::qosProfileGet(const std::string&) {
    return 0;
}
unsigned qos::qosProfileFlagsSet(const std::string&, profileFlags, bool) {
    return 0;
}
unsigned qos::qosFlowDynamicProfilesDeleteAll() {
    return 0;
}

template <>
mcastprofile& singleton<mcastprofile>::instance() {
    static mcastprofile service;
    return service;
}

unsigned mcastprofile::mcastProfileGetNext(const std::string&, std::string&) {
    return noFurtherProfile;
}
unsigned mcastprofile::mcastProfileGet(const std::string&, mcastProfileInfo& info) {
    info = {};
    return 0;
}
unsigned mcastprofile::mcastProfileUnprotect(const std::string&) {
    return 0;
}
unsigned mcastprofile::mcastDynamicProfilesDeleteAll() {
    return 0;
}

template <>
securityprofile& singleton<securityprofile>::instance() {
    static securityprofile service;
    return service;
}

unsigned securityprofile::securityProfileGetNext(const std::string&, std::string&) {
    return noFurtherProfile;
}
unsigned securityprofile::securityProfileGet(const std::string&) {
    return 0;
}
unsigned securityprofile::securityProfileUnprotect(const std::string&) {
    return 0;
}
unsigned securityprofile::securityDynamicProfilesDeleteAll() {
    return 0;
}

template <>
L2CP& singleton<L2CP>::instance() {
    static L2CP service;
    return service;
}

unsigned L2CP::profileGetAll(std::list<Profile>& profiles) {
    profiles.clear();
    return 0;
}
unsigned L2CP::profileGet(const std::string&) {
    return 0;
}
unsigned L2CP::profileSetDynamic(const std::string&, bool) {
    return 0;
}
unsigned L2CP::profileSetProtect(const std::string&, bool) {
    return 0;
}
unsigned L2CP::l2cpDynamicProfilesDeleteAll() {
    return 0;
}

template <>
CliConfig& singleton<CliConfig>::instance() {
    static CliConfig service;
    return service;
}

unsigned CliConfig::saveDynamicProfiles(CliConfigRpcSaveDynProfMode) {
    return 0;
}
