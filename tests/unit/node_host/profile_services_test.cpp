// The platform's profile services on the store: what each of them says of its profiles, which
// the module's conversion and deletion rely on.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "node/host/board.h"
#include "node/profiles/profile_store.h"
#include "platform/itbridge.h"
#include "platform/ports.h"
#include "platform/profiles.h"

namespace {

using node::LoginProfiles;
using node::ProfileInfo;
using node::ProfileKind;
using node::ProfileState;
using node::ProfileStore;
using Names = std::list<std::string>;

class ProfileServicesTest : public testing::Test {
protected:
    // Of every kind a profile "kept", made static, and a dynamic one, "own" of line 7 or of none.
    void SetUp() override {
        node::setBoard({"1", 1, 5});
        node::attachProfiles(&store);
        login(3, "kept");
        for (size_t i = 0; i < node::profileKindCount; ++i) {
            ASSERT_TRUE(store.makeStatic(static_cast<ProfileKind>(i), "kept"));
        }
        login(7, "own");
    }
    void TearDown() override { node::attachProfiles(nullptr); }
    void login(unsigned ifId, const std::string& name) {
        LoginProfiles profiles;
        profiles.names.fill(name);
        store.login(ifId, profiles);
    }
    // "static", "dynamic", or "gone".
    std::string state(ProfileKind kind, const std::string& name) const {
        const auto info = store.find(kind, name);
        return info ? std::string(node::profileStateName(info->state)) : "gone";
    }
    template <class Service>
    Names walk(unsigned (Service::*next)(const std::string&, std::string&)) {
        Names names;
        std::string name;
        for (std::string following;
             (singleton<Service>::instance().*next)(name, following) == 0 && names.size() < 99;) {
            name = following;
            names.push_back(name);
        }
        return names;
    }

    std::ostringstream out;
    node::EventLog log{out};
    ProfileStore store{{"", true}, log};
    const Names both{"kept", "own"};
};

TEST_F(ProfileServicesTest, ServiceProfilesCarryAFlagUntilTheyAreUnprotected) {
    servprofile& service = singleton<servprofile>::instance();
    Names names{"x"};
    EXPECT_EQ(service.getAllServiceProfiles(names), 0u);
    EXPECT_EQ(names, both);
    rpcServProf profile{true};
    EXPECT_EQ(service.servProfileGet("kept", profile), 0u);
    EXPECT_FALSE(profile.protectFlag);
    EXPECT_EQ(service.servProfileGet("own", profile), 0u);
    EXPECT_TRUE(profile.protectFlag);
    EXPECT_NE(service.servProfileGet("none", profile), 0u);
    EXPECT_NE(service.servProfileUnprotect("none"), 0u);
    EXPECT_EQ(service.servProfileUnprotect("own"), 0u);
    EXPECT_EQ(state(ProfileKind::service, "own"), "static");
    EXPECT_EQ(service.servProfileGet("own", profile), 0u);
    EXPECT_FALSE(profile.protectFlag);
}

TEST_F(ProfileServicesTest, VlanProfilesCarryAFlagUntilTheyAreUnprotected) {
    vlanprofile& service = singleton<vlanprofile>::instance();
    Names names{"x"};
    EXPECT_EQ(service.getAllVlanProfiles(names), 0u);
    EXPECT_EQ(names, both);
    rpcVlanProf profile{true};
    EXPECT_EQ(service.vlanProfileGet("kept", profile), 0u);
    EXPECT_FALSE(profile.protectFlag);
    EXPECT_EQ(service.vlanProfileGet("own", profile), 0u);
    EXPECT_TRUE(profile.protectFlag);
    EXPECT_NE(service.vlanProfileGet("none", profile), 0u);
    EXPECT_NE(service.vlanProfileUnprotect("none"), 0u);
    EXPECT_EQ(service.vlanProfileUnprotect("own"), 0u);
    EXPECT_EQ(state(ProfileKind::vlan, "own"), "static");
}

TEST_F(ProfileServicesTest, FlowProfilesHaveTwoFlagsAndSomeAreTheNodesOwn) {
    qos& service = singleton<qos>::instance();
    EXPECT_EQ(walk(&qos::qosProfileNextGet), (Names{"DEFAULT", "kept", node::defaultFlowProfile,
                                                    node::internalFlowProfile, "own"}));
    EXPECT_TRUE(service.qosIsFlowProfileInternal(node::internalFlowProfile));
    EXPECT_TRUE(service.qosIsProfileDefaultFlowProfile(node::defaultFlowProfile));
    for (const char* name : {"DEFAULT", "kept", "own", "none"}) {
        EXPECT_FALSE(service.qosIsFlowProfileInternal(name)) << name;
        EXPECT_FALSE(service.qosIsProfileDefaultFlowProfile(name)) << name;
    }
    EXPECT_EQ(service.qosProfileGet("own"), 0u);
    EXPECT_NE(service.qosProfileGet("none"), 0u);
    constexpr qos::profileFlags flags[] = {qos::profileFlags(0), qos::profileFlags(1),
                                           qos::profileFlags(2)};
    EXPECT_NE(service.qosProfileFlagsSet("own", flags[2], false), 0u);
    EXPECT_NE(service.qosProfileFlagsSet("none", flags[0], false), 0u);
    EXPECT_NE(service.qosProfileFlagsSet("DEFAULT", flags[0], false), 0u);
    EXPECT_EQ(state(ProfileKind::flow, "own"), "dynamic");
    EXPECT_EQ(service.qosProfileFlagsSet("own", flags[0], false), 0u);
    EXPECT_EQ(state(ProfileKind::flow, "own"), "static");
    EXPECT_TRUE(store.find(ProfileKind::flow, "own")->isProtected);
    EXPECT_EQ(service.qosProfileFlagsSet("own", flags[1], false), 0u);
    EXPECT_FALSE(store.find(ProfileKind::flow, "own")->isProtected);
    EXPECT_EQ(service.qosProfileFlagsSet("own", flags[0], true), 0u);
    EXPECT_EQ(state(ProfileKind::flow, "own"), "dynamic");
}

TEST_F(ProfileServicesTest, MulticastProfilesCarryAFlagUntilTheyAreUnprotected) {
    mcastprofile& service = singleton<mcastprofile>::instance();
    EXPECT_EQ(walk(&mcastprofile::mcastProfileGetNext), both);
    mcastprofile::mcastProfileInfo info{true};
    EXPECT_EQ(service.mcastProfileGet("kept", info), 0u);
    EXPECT_FALSE(info.protectFlag);
    EXPECT_EQ(service.mcastProfileGet("own", info), 0u);
    EXPECT_TRUE(info.protectFlag);
    EXPECT_NE(service.mcastProfileGet("none", info), 0u);
    EXPECT_NE(service.mcastProfileUnprotect("none"), 0u);
    EXPECT_EQ(service.mcastProfileUnprotect("own"), 0u);
    EXPECT_EQ(state(ProfileKind::multicast, "own"), "static");
}

TEST_F(ProfileServicesTest, SecurityProfilesAreUnprotectedAgainWithoutHarm) {
    securityprofile& service = singleton<securityprofile>::instance();
    EXPECT_EQ(walk(&securityprofile::securityProfileGetNext), both);
    EXPECT_EQ(service.securityProfileGet("own"), 0u);
    EXPECT_NE(service.securityProfileGet("none"), 0u);
    EXPECT_NE(service.securityProfileUnprotect("none"), 0u);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(service.securityProfileUnprotect("own"), 0u);
        EXPECT_EQ(service.securityProfileUnprotect("kept"), 0u);
    }
    EXPECT_EQ(state(ProfileKind::security, "own"), "static");
}

TEST_F(ProfileServicesTest, L2cpProfilesAreMadeStaticInTwoSteps) {
    L2CP& service = singleton<L2CP>::instance();
    std::list<L2CP::Profile> profiles{{"x"}};
    EXPECT_EQ(service.profileGetAll(profiles), 0u);
    ASSERT_EQ(profiles.size(), 2u);
    EXPECT_EQ(profiles.front().name, "kept");
    EXPECT_EQ(service.profileGet("own"), 0u);
    EXPECT_NE(service.profileGet("none"), 0u);
    EXPECT_NE(service.profileSetDynamic("none", false), 0u);
    EXPECT_NE(service.profileSetProtect("none", false), 0u);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(service.profileSetDynamic("own", false), 0u);
        EXPECT_EQ(service.profileSetProtect("own", false), 0u);
    }
    EXPECT_EQ(state(ProfileKind::l2cp, "own"), "static");
    EXPECT_FALSE(store.find(ProfileKind::l2cp, "own")->isProtected);
}

TEST_F(ProfileServicesTest, AccessListsAnswerZeroOneOrSix) {
    ACLContainer_t& lists = singleton<itbridge>::instance().getACLContainer();
    std::list<ACLContainer_t::aclInfo_t> all{{"x"}};
    EXPECT_EQ(lists.getACLsInfo(all), 0);
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all.back().name, "own");
    EXPECT_EQ(lists.aclCheckDynamic("own"), 0);
    EXPECT_EQ(lists.aclCheckDynamic("kept"), 1);
    EXPECT_EQ(lists.aclCheckDynamic("none"), 6);
    for (const unsigned level : {0u, 1u, 3u, 4u}) {
        EXPECT_NE(lists.setAclProtected("own", level), 0);
    }
    EXPECT_NE(lists.setAclProtected("none", 2), 0);
    EXPECT_EQ(lists.aclCheckDynamic("own"), 0);
    EXPECT_EQ(lists.setAclProtected("own", 2), 0);
    EXPECT_EQ(lists.aclCheckDynamic("own"), 1);
}

TEST_F(ProfileServicesTest, DslProfilesHaveProtectionThreeUntilItIsSetToTwo) {
    const boost::shared_ptr<Vdsl> vdsl = singleton<Ports>::instance().getVdslImpl();
    ASSERT_TRUE(vdsl);
    rpcVdslProfileAll all;
    std::memset(&all, 0xff, sizeof all);
    EXPECT_EQ(vdsl->getProfileAll(all), 0u);
    ASSERT_EQ(all.count, 2u);
    EXPECT_STREQ(all.profile[0].name, "kept");
    EXPECT_EQ(all.profile[0].protection, 2u);
    EXPECT_STREQ(all.profile[1].name, "own");
    EXPECT_EQ(all.profile[1].protection, 3u);
    int result = 77;
    EXPECT_NE(vdsl->profileProtect("none", 2, result), 0u);
    EXPECT_NE(result, 0);
    EXPECT_NE(vdsl->profileProtect("own", 3, result), 0u);
    EXPECT_EQ(vdsl->profileProtect("own", 2, result), 0u);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(state(ProfileKind::dsl, "own"), "static");
}

TEST_F(ProfileServicesTest, AllOf128DslProfilesFitAndLongNamesFillTheirField) {
    for (unsigned i = 8; store.names(ProfileKind::dsl).size() < 128; ++i) {
        LoginProfiles profiles;
        std::string name = std::to_string(i);
        name.resize(64, 'x');
        profiles.of(ProfileKind::dsl) = name;
        store.login(i, profiles);
    }
    rpcVdslProfileAll all;
    EXPECT_EQ(singleton<Ports>::instance().getVdslImpl()->getProfileAll(all), 0u);
    EXPECT_EQ(all.count, 128u);
    EXPECT_EQ(std::string(all.profile[0].name, 64), "100" + std::string(61, 'x'));
}

TEST_F(ProfileServicesTest, AlarmProfilesStandInThirtySlotsBeginningWithTheDefault) {
    const boost::shared_ptr<Vdsl> vdsl = singleton<Ports>::instance().getVdslImpl();
    AlarmProfileList list;
    std::memset(&list, 0xff, sizeof list);
    EXPECT_EQ(vdsl->getAlarmProfileAll(list), 0u);
    EXPECT_STREQ(list.name[0], "Default");
    EXPECT_STREQ(list.name[1], "kept");
    EXPECT_STREQ(list.name[2], "own");
    EXPECT_STREQ(list.name[3], "");
    EXPECT_STREQ(list.name[29], "");
    AlarmProfileProtectedFlags flags{};
    const std::pair<const char*, unsigned> known[] = {{"Default", 1}, {"kept", 2}, {"own", 3}};
    for (const auto& [name, flag] : known) {
        EXPECT_EQ(vdsl->getAlarmProtectedFlag(name, flags), 0u);
        EXPECT_EQ(flags.protectedFlag, flag) << name;
    }
    EXPECT_NE(vdsl->getAlarmProtectedFlag("", flags), 0u) << "a slot that is not in use";
    int result = 77;
    EXPECT_NE(vdsl->alarmProfileProtect("Default", 2, result), 0u);
    EXPECT_NE(vdsl->alarmProfileProtect("own", 1, result), 0u);
    EXPECT_EQ(vdsl->alarmProfileProtect("own", 2, result), 0u);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(state(ProfileKind::alarm, "own"), "static");
}

TEST_F(ProfileServicesTest, DeletionTakesTheDynamicProfilesOfItsKindOnly) {
    struct Deletion {
        std::vector<ProfileKind> kinds;
        unsigned (*ofOne)();  // of line 7; null where the service knows no lines
        unsigned (*ofAll)();
    };
    const Deletion deletions[] = {
        {{ProfileKind::service},
         [] { return singleton<servprofile>::instance().serviceDynamicProfilesDelete(7); },
         [] { return singleton<servprofile>::instance().serviceDynamicProfilesDelete(0); }},
        {{ProfileKind::vlan},
         [] { return singleton<vlanprofile>::instance().vlanDynamicProfilesDelete(7); },
         [] { return singleton<vlanprofile>::instance().vlanDynamicProfilesDelete(0); }},
        {{ProfileKind::flow},
         nullptr,
         [] { return singleton<qos>::instance().qosFlowDynamicProfilesDeleteAll(); }},
        {{ProfileKind::multicast},
         nullptr,
         [] { return singleton<mcastprofile>::instance().mcastDynamicProfilesDeleteAll(); }},
        {{ProfileKind::security},
         nullptr,
         [] { return singleton<securityprofile>::instance().securityDynamicProfilesDeleteAll(); }},
        {{ProfileKind::l2cp},
         nullptr,
         [] { return singleton<L2CP>::instance().l2cpDynamicProfilesDeleteAll(); }},
        {{ProfileKind::accessList},
         nullptr,
         [] {
             ACLContainer_t& lists = singleton<itbridge>::instance().getACLContainer();
             return static_cast<unsigned>(lists.accessListDynamicDeleteAll());
         }},
        {{ProfileKind::dsl, ProfileKind::alarm},
         [] { return singleton<Ports>::instance().vdslPortDynamicProfilesDelete(7); },
         [] { return singleton<Ports>::instance().vdslPortDynamicProfilesDelete(0); }},
    };
    login(8, "other");
    size_t gone = 0;
    for (const Deletion& deletion : deletions) {
        if (deletion.ofOne) {
            EXPECT_EQ(deletion.ofOne(), 0u);
            for (const ProfileKind kind : deletion.kinds) {
                EXPECT_EQ(state(kind, "own"), "gone");
                EXPECT_EQ(state(kind, "other"), "dynamic");
            }
        }
        EXPECT_EQ(deletion.ofAll(), 0u);
        for (const ProfileKind kind : deletion.kinds) {
            EXPECT_EQ(state(kind, "own"), "gone");
            EXPECT_EQ(state(kind, "other"), "gone");
            EXPECT_EQ(state(kind, "kept"), "static");
            ++gone;
        }
        size_t left = 0;
        for (const ProfileInfo& info : store.list()) {
            left += info.state == ProfileState::dynamic ? 1 : 0;
        }
        EXPECT_EQ(left, 2 * (node::profileKindCount - gone));
    }
}

TEST_F(ProfileServicesTest, DeletionOfAnInterfaceNumberNobodyHasDeletesNothing) {
    EXPECT_EQ(singleton<servprofile>::instance().serviceDynamicProfilesDelete(-1), 0u);
    EXPECT_EQ(singleton<vlanprofile>::instance().vlanDynamicProfilesDelete(4294967295u), 0u);
    EXPECT_EQ(singleton<Ports>::instance().vdslPortDynamicProfilesDelete(99), 0u);
    EXPECT_EQ(state(ProfileKind::service, "own"), "dynamic");
    EXPECT_EQ(state(ProfileKind::vlan, "own"), "dynamic");
    EXPECT_EQ(state(ProfileKind::dsl, "own"), "dynamic");
}

TEST_F(ProfileServicesTest, OnlySaveModeZeroIsKnown) {
    CliConfig& config = singleton<CliConfig>::instance();
    EXPECT_NE(config.saveDynamicProfiles(CliConfigRpcSaveDynProfMode(1)), 0u);
    out.str("");
    EXPECT_EQ(config.saveDynamicProfiles(CliConfigRpcSaveDynProfMode(0)), 0u);
    EXPECT_NE(out.str().find("saved"), std::string::npos);
}

TEST_F(ProfileServicesTest, BoardWithoutDslLinesHasNoImplementation) {
    for (const unsigned type : {0u, 2u, 3u, 4u, 6u, 8u, 255u}) {
        node::setBoard({"1", 1, type});
        EXPECT_FALSE(singleton<Ports>::instance().getVdslImpl()) << type;
    }
}

}  // namespace
