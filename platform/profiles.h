// The profile services of the node, one class per kind of profile. Unless said otherwise
// the operations return 0 on success and may be called from any thread.
#pragma once

#include <list>
#include <string>
#include "platform/singleton.h"

// Unless said otherwise the operations return 0 on success.

struct rpcServProf {
    bool protectFlag;
};

class servprofile {
public:
    unsigned getAllServiceProfiles(std::list<std::string>& names);
    unsigned servProfileGet(const std::string& name, rpcServProf& profile);
    unsigned servProfileUnprotect(const std::string& name);
    unsigned serviceDynamicProfilesDelete(int ifId);
};
template <>
servprofile& singleton<servprofile>::instance();

struct rpcVlanProf {
    bool protectFlag;
};

class vlanprofile {
public:
    unsigned getAllVlanProfiles(std::list<std::string>& names);
    unsigned vlanProfileGet(const std::string& name, rpcVlanProf& profile);
    unsigned vlanProfileUnprotect(const std::string& name);
    unsigned vlanDynamicProfilesDelete(unsigned ifId);
};
template <>
vlanprofile& singleton<vlanprofile>::instance();

class qos {
public:
    enum profileFlags : int {};  // values 0 and 1 are used

    unsigned qosProfileNextGet(const std::string& name, std::string& next);
    bool qosIsFlowProfileInternal(const std::string& name);
    bool qosIsProfileDefaultFlowProfile(const std::string& name);
    unsigned qosProfileGet(const std::string& name);
    unsigned qosProfileFlagsSet(const std::string& name, profileFlags flag, bool value);
    unsigned qosFlowDynamicProfilesDeleteAll();
};
template <>
qos& singleton<qos>::instance();

class mcastprofile {
public:
    struct mcastProfileInfo {
        bool protectFlag;
    };

    unsigned mcastProfileGetNext(const std::string& name, std::string& next);
    unsigned mcastProfileGet(const std::string& name, mcastProfileInfo& info);
    unsigned mcastProfileUnprotect(const std::string& name);
    unsigned mcastDynamicProfilesDeleteAll();
};
template <>
mcastprofile& singleton<mcastprofile>::instance();

class securityprofile {
public:
    unsigned securityProfileGetNext(const std::string& name, std::string& next);
    unsigned securityProfileGet(const std::string& name);
    unsigned securityProfileUnprotect(const std::string& name);
    unsigned securityDynamicProfilesDeleteAll();
};
template <>
securityprofile& singleton<securityprofile>::instance();

class L2CP {
public:
    struct Profile {
        std::string name;
    };

    unsigned profileGetAll(std::list<Profile>& profiles);
    unsigned profileGet(const std::string& name);
    unsigned profileSetDynamic(const std::string& name, bool dynamic);
    unsigned profileSetProtect(const std::string& name, bool protect);
    unsigned l2cpDynamicProfilesDeleteAll();
};
template <>
L2CP& singleton<L2CP>::instance();

enum CliConfigRpcSaveDynProfMode : int {};  // only value 0 is used

class CliConfig {
public:
    unsigned saveDynamicProfiles(CliConfigRpcSaveDynProfMode mode);
};
template <>
CliConfig& singleton<CliConfig>::instance();
