// The profile services of a node that holds no profiles of any kind: enumerations are empty,
// every name is unknown, deleting all dynamic profiles succeeds because there are none.
// Callable from any thread.
#include "platform/aclcontainer.h"
#include "platform/profiles.h"

namespace {

constexpr unsigned unknownName = 1;
constexpr unsigned noFurtherName = 1;
constexpr int unknownList = 6;

}  // namespace

unsigned servprofile::getAllServiceProfiles(std::list<std::string>& names) {
    names.clear();
    return 0;
}
unsigned servprofile::servProfileGet(const std::string&, rpcServProf&) {
    return unknownName;
}
unsigned servprofile::servProfileUnprotect(const std::string&) {
    return unknownName;
}
unsigned servprofile::serviceDynamicProfilesDelete(int) {
    return 0;
}

template <>
servprofile& singleton<servprofile>::instance() {
    static servprofile service;
    return service;
}

unsigned vlanprofile::getAllVlanProfiles(std::list<std::string>& names) {
    names.clear();
    return 0;
}
unsigned vlanprofile::vlanProfileGet(const std::string&, rpcVlanProf&) {
    return unknownName;
}
unsigned vlanprofile::vlanProfileUnprotect(const std::string&) {
    return unknownName;
}
unsigned vlanprofile::vlanDynamicProfilesDelete(unsigned) {
    return 0;
}

template <>
vlanprofile& singleton<vlanprofile>::instance() {
    static vlanprofile service;
    return service;
}

unsigned qos::qosProfileNextGet(const std::string&, std::string&) {
    return noFurtherName;
}
bool qos::qosIsFlowProfileInternal(const std::string&) {
    return false;
}
bool qos::qosIsProfileDefaultFlowProfile(const std::string&) {
    return false;
}
unsigned qos::qosProfileGet(const std::string&) {
    return unknownName;
}
unsigned qos::qosProfileFlagsSet(const std::string&, profileFlags, bool) {
    return unknownName;
}
unsigned qos::qosFlowDynamicProfilesDeleteAll() {
    return 0;
}

template <>
qos& singleton<qos>::instance() {
    static qos service;
    return service;
}

unsigned mcastprofile::mcastProfileGetNext(const std::string&, std::string&) {
    return noFurtherName;
}
unsigned mcastprofile::mcastProfileGet(const std::string&, mcastProfileInfo&) {
    return unknownName;
}
unsigned mcastprofile::mcastProfileUnprotect(const std::string&) {
    return unknownName;
}
unsigned mcastprofile::mcastDynamicProfilesDeleteAll() {
    return 0;
}

template <>
mcastprofile& singleton<mcastprofile>::instance() {
    static mcastprofile service;
    return service;
}

unsigned securityprofile::securityProfileGetNext(const std::string&, std::string&) {
    return noFurtherName;
}
unsigned securityprofile::securityProfileGet(const std::string&) {
    return unknownName;
}
unsigned securityprofile::securityProfileUnprotect(const std::string&) {
    return unknownName;
}
unsigned securityprofile::securityDynamicProfilesDeleteAll() {
    return 0;
}

template <>
securityprofile& singleton<securityprofile>::instance() {
    static securityprofile service;
    return service;
}

unsigned L2CP::profileGetAll(std::list<Profile>& profiles) {
    profiles.clear();
    return 0;
}
unsigned L2CP::profileGet(const std::string&) {
    return unknownName;
}
unsigned L2CP::profileSetDynamic(const std::string&, bool) {
    return unknownName;
}
unsigned L2CP::profileSetProtect(const std::string&, bool) {
    return unknownName;
}
unsigned L2CP::l2cpDynamicProfilesDeleteAll() {
    return 0;
}

template <>
L2CP& singleton<L2CP>::instance() {
    static L2CP service;
    return service;
}

unsigned CliConfig::saveDynamicProfiles(CliConfigRpcSaveDynProfMode) {
    return 0;
}

template <>
CliConfig& singleton<CliConfig>::instance() {
    static CliConfig service;
    return service;
}

int ACLContainer_t::getACLsInfo(std::list<aclInfo_t>& acls) {
    acls.clear();
    return 0;
}
int ACLContainer_t::aclCheckDynamic(const std::string&) {
    return unknownList;
}
int ACLContainer_t::setAclProtected(const std::string&, unsigned) {
    return unknownList;
}
int ACLContainer_t::accessListDynamicDeleteAll() {
    return 0;
}
