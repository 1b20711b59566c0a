// Every method over a Unix socket, against a table of functions that the test watches.
#include <gmock/gmock.h>

#include "tests/control/server_fixture.h"

namespace node::control {
namespace {

using grpc::StatusCode;
using testing::ElementsAre;
using testing::HasSubstr;
using Stub = v1::Management::Stub;

class ServiceTest : public ServerTest {
protected:
    ServiceTest() {
        start();
        stub = client();
    }

    template <class Request, class Response>
    StatusCode code(grpc::Status (Stub::*method)(grpc::ClientContext*, const Request&, Response*),
                    const Request& request, Response& response) {
        const grpc::Status status = call(*stub, method, request, response, &result);
        sentence = status.error_message();
        return status.error_code();
    }
    StatusCode set(const v1::RuleSetRequest& request) {
        v1::RuleSetResponse response;
        return code(&Stub::RuleSet, request, response);
    }
    v1::RuleList rules(unsigned ifId) {
        v1::IntfRequest request;
        request.set_interface(ifId);
        v1::RuleList list;
        EXPECT_EQ(StatusCode::OK, code(&Stub::RuleGet, request, list)) << sentence;
        return list;
    }

    std::unique_ptr<Stub> stub;
    std::string result;    // rpc-tal-res of the last call
    std::string sentence;  // and its message
};

TEST_F(ServiceTest, AdminStateIsSetAndRead) {
    v1::AdminStateSetRequest request;
    request.set_enabled(true);
    v1::AdminStateSetResponse response;
    EXPECT_EQ(StatusCode::OK, code(&Stub::AdminStateSet, request, response));
    EXPECT_EQ("0", result);
    v1::State state;
    EXPECT_EQ(StatusCode::OK, code(&Stub::AdminStateGet, v1::AdminStateGetRequest(), state));
    EXPECT_TRUE(state.enabled());
    EXPECT_THAT(node.calls(), ElementsAre("rpcTalAdminStateSet(1)"));
}

TEST_F(ServiceTest, EverySettingReachesItsOwnFunction) {
    struct Case {
        grpc::Status (Stub::*set)(grpc::ClientContext*, const v1::IntfStateSetRequest&,
                                  v1::IntfStateSetResponse*);
        grpc::Status (Stub::*get)(grpc::ClientContext*, const v1::IntfRequest&, v1::State*);
        bool wanted;
    };
    const Case cases[] = {
        {&Stub::IntfAdminStateSet, &Stub::IntfAdminStateGet, true},
        {&Stub::IntfAuthenAdminStateSet, &Stub::IntfAuthenAdminStateGet, false},
        {&Stub::IntfAuthorAdminStateSet, &Stub::IntfAuthorAdminStateGet, false},
        {&Stub::IntfAutoReqAdminStateSet, &Stub::IntfAutoReqAdminStateGet, true},
    };
    for (const Case& each : cases) {
        v1::IntfStateSetRequest request;
        request.set_interface(2);
        request.set_enabled(each.wanted);
        v1::IntfStateSetResponse done;
        EXPECT_EQ(StatusCode::OK, code(each.set, request, done));
        v1::IntfRequest read;
        v1::State state;
        read.set_interface(2);
        EXPECT_EQ(StatusCode::OK, code(each.get, read, state));
        EXPECT_EQ(each.wanted, state.enabled());
        read.set_interface(1);
        EXPECT_EQ(StatusCode::OK, code(each.get, read, state));
        EXPECT_NE(each.wanted, state.enabled());
    }
    EXPECT_THAT(
        node.calls(),
        ElementsAre("rpcTalIntfAdminStateSet(2, 1)", "rpcTalIntfAuthenAdminStateSet(2, 0)",
                    "rpcTalIntfAuthorAdminStateSet(2, 0)", "rpcTalIntfAutoReqAdminStateSet(2, 1)"));
}

TEST_F(ServiceTest, InterfaceZeroIsForSettersOnly) {
    v1::IntfStateSetRequest all;
    all.set_enabled(true);
    v1::IntfStateSetResponse done;
    EXPECT_EQ(StatusCode::OK, code(&Stub::IntfAdminStateSet, all, done));
    const v1::IntfRequest none;
    v1::State state;
    v1::RuleList list;
    v1::IntfStates states;
    v1::IntfStatistics statistics;
    EXPECT_EQ(StatusCode::INVALID_ARGUMENT, code(&Stub::IntfAdminStateGet, none, state));
    EXPECT_EQ(StatusCode::INVALID_ARGUMENT, code(&Stub::IntfAuthenOperStateGet, none, state));
    EXPECT_EQ(StatusCode::INVALID_ARGUMENT, code(&Stub::IntfStatesGet, none, states));
    EXPECT_EQ(StatusCode::INVALID_ARGUMENT, code(&Stub::IntfStatisticsGet, none, statistics));
    EXPECT_EQ(StatusCode::INVALID_ARGUMENT, code(&Stub::RuleGet, none, list));
    EXPECT_EQ("none", result);
    EXPECT_THAT(sentence, HasSubstr("name one interface"));
}

TEST_F(ServiceTest, OperStatesAndStatisticsAreRead) {
    v1::IntfRequest request;
    request.set_interface(2);
    v1::State state;
    EXPECT_EQ(StatusCode::OK, code(&Stub::IntfAuthenOperStateGet, request, state));
    EXPECT_TRUE(state.enabled());
    EXPECT_EQ(StatusCode::OK, code(&Stub::IntfAuthorOperStateGet, request, state));
    EXPECT_FALSE(state.enabled());
    v1::IntfStatistics statistics;
    EXPECT_EQ(StatusCode::OK, code(&Stub::IntfStatisticsGet, request, statistics));
    const auto* fields = v1::IntfStatistics::descriptor();
    ASSERT_EQ(13, fields->field_count());
    for (int i = 0; i < fields->field_count(); ++i) {
        EXPECT_EQ(201u + static_cast<unsigned>(i),
                  statistics.GetReflection()->GetUInt32(statistics, fields->field(i)))
            << fields->field(i)->name();
    }
}

TEST_F(ServiceTest, StatesThatTheModuleDoesNotForwardAreUnspecified) {
    v1::IntfRequest request;
    request.set_interface(1);
    v1::IntfStates states;
    node.setStates(2, 3, 4);
    EXPECT_EQ(StatusCode::OK, code(&Stub::IntfStatesGet, request, states));
    EXPECT_EQ(v1::FORWARDING_STATE_OPEN, states.forwarding());
    EXPECT_EQ(v1::STAGE_STATE_ACCEPTED, states.authentication());
    EXPECT_EQ(v1::STAGE_STATE_REJECTED, states.authorization());
    node.setStates(3, 5, 0);
    EXPECT_EQ(StatusCode::OK, code(&Stub::IntfStatesGet, request, states));
    EXPECT_EQ(v1::FORWARDING_STATE_UNSPECIFIED, states.forwarding());
    EXPECT_EQ(v1::STAGE_STATE_UNSPECIFIED, states.authentication());
    EXPECT_EQ(v1::STAGE_STATE_OFF, states.authorization());
}

TEST_F(ServiceTest, EveryResultBecomesItsStatusWithTheNumberAndASentence) {
    const std::tuple<uint32_t, StatusCode, const char*> cases[] = {
        {1, StatusCode::FAILED_PRECONDITION, "the node refused to switch the admin state on"},
        {2, StatusCode::FAILED_PRECONDITION, "EtherType"},
        {3, StatusCode::NOT_FOUND, "there is no interface 2"},
        {4, StatusCode::FAILED_PRECONDITION, "ISA"},
        {9, StatusCode::FAILED_PRECONDITION, "refused"},
    };
    for (const auto& [number, expected, words] : cases) {
        node.refuse("rpcTalIntfAdminStateSet", number);
        v1::IntfStateSetRequest request;
        request.set_interface(2);
        request.set_enabled(true);
        v1::IntfStateSetResponse done;
        EXPECT_EQ(expected, code(&Stub::IntfAdminStateSet, request, done)) << number;
        EXPECT_EQ(std::to_string(number), result);
        EXPECT_THAT(sentence, HasSubstr(words));
    }
}

TEST_F(ServiceTest, UnknownInterfaceIsNotFoundEverywhere) {
    v1::IntfRequest request;
    request.set_interface(77);
    v1::State state;
    v1::RuleList list;
    v1::IntfStatistics statistics;
    EXPECT_EQ(StatusCode::NOT_FOUND, code(&Stub::IntfAdminStateGet, request, state));
    EXPECT_EQ("3", result);
    EXPECT_EQ(StatusCode::NOT_FOUND, code(&Stub::RuleGet, request, list));
    EXPECT_EQ(StatusCode::NOT_FOUND, code(&Stub::IntfStatisticsGet, request, statistics));
    v1::ListInterfacesRequest interfaces;
    interfaces.set_interface(77);
    v1::ListInterfacesResponse listed;
    EXPECT_EQ(StatusCode::NOT_FOUND, code(&Stub::ListInterfaces, interfaces, listed));
    v1::ListStoredLoginsRequest logins;
    logins.set_interface(77);
    v1::ListStoredLoginsResponse stored;
    EXPECT_EQ(StatusCode::NOT_FOUND, code(&Stub::ListStoredLogins, logins, stored));
    EXPECT_THAT(sentence, HasSubstr("there is no interface 77"));
}

TEST_F(ServiceTest, RulesAreAddedReadAndDeletedByKind) {
    v1::RuleSetRequest request;
    request.set_interface(1);
    request.mutable_add()->set_vlan(100);
    EXPECT_EQ(StatusCode::OK, set(request)) << sentence;
    request.mutable_add()->mutable_vendor_id()->set_text("acme");
    EXPECT_EQ(StatusCode::OK, set(request)) << sentence;
    ASSERT_EQ(2, rules(1).rules_size());
    EXPECT_EQ("acme", rules(1).rules(0).vendor_id().text());
    EXPECT_EQ(100u, rules(1).rules(1).vlan());
    EXPECT_EQ(0, rules(2).rules_size());
    request.set_delete_(v1::RULE_KIND_VENDOR_ID);
    EXPECT_EQ(StatusCode::OK, set(request)) << sentence;
    EXPECT_EQ(1, rules(1).rules_size());
    EXPECT_THAT(node.calls(),
                ElementsAre("rpcTalRuleSet(1, type 8, add)", "rpcTalRuleSet(1, type 3, add)",
                            "rpcTalRuleSet(1, type 3, delete)"));
}

TEST_F(ServiceTest, RuleForAnyFrameGoesByTheViewBecauseTheRecordCannotCarryIt) {
    v1::RuleSetRequest request;
    request.set_interface(1);
    request.mutable_add()->mutable_any();
    EXPECT_EQ(StatusCode::OK, set(request)) << sentence;
    ASSERT_EQ(1, rules(1).rules_size());
    EXPECT_TRUE(rules(1).rules(0).has_any());
    request.set_delete_(v1::RULE_KIND_ANY);
    EXPECT_EQ(StatusCode::OK, set(request)) << sentence;
    EXPECT_EQ(0, rules(1).rules_size());
    EXPECT_THAT(node.calls(), ElementsAre("anyRuleSet(1, on)", "anyRuleSet(1, off)"));
}

TEST_F(ServiceTest, RuleThatCannotBeMeantIsInvalidAndReachesNobody) {
    v1::RuleSetRequest empty;
    EXPECT_EQ(StatusCode::INVALID_ARGUMENT, set(empty));
    v1::RuleSetRequest noPattern;
    noPattern.mutable_add()->mutable_vendor_id();
    EXPECT_EQ(StatusCode::INVALID_ARGUMENT, set(noPattern));
    v1::RuleSetRequest vlan;
    vlan.mutable_add()->set_vlan(4095);
    EXPECT_EQ(StatusCode::INVALID_ARGUMENT, set(vlan));
    EXPECT_THAT(sentence, HasSubstr("VLAN"));
    v1::RuleSetRequest dhcp;
    dhcp.mutable_add()->set_dhcp(static_cast<v1::Dhcp>(7));
    EXPECT_EQ(StatusCode::INVALID_ARGUMENT, set(dhcp));
    for (const int kind : {0, 11, -1}) {
        v1::RuleSetRequest remove;
        remove.set_delete_(static_cast<v1::RuleKind>(kind));
        EXPECT_EQ(StatusCode::INVALID_ARGUMENT, set(remove)) << kind;
    }
    EXPECT_THAT(node.calls(), ElementsAre());
}

TEST_F(ServiceTest, BundleReplacesTheRules) {
    v1::RuleBundleSetRequest request;
    request.set_interface(2);
    request.add_rules()->set_dhcp(v1::DHCP_DISCOVER);
    request.add_rules()->set_ether_type(0x0800);
    v1::RuleBundleSetResponse response;
    EXPECT_EQ(StatusCode::OK, code(&Stub::RuleBundleSet, request, response)) << sentence;
    EXPECT_EQ(2, rules(2).rules_size());
    request.clear_rules();
    EXPECT_EQ(StatusCode::INVALID_ARGUMENT, code(&Stub::RuleBundleSet, request, response));
    EXPECT_THAT(sentence, HasSubstr("DHCP"));
    EXPECT_EQ(2, rules(2).rules_size());
}

TEST_F(ServiceTest, ConversionAndResetReachTheirFunctions) {
    v1::ConvertAllDynamicProfilesToStaticResponse converted;
    EXPECT_EQ(StatusCode::OK, code(&Stub::ConvertAllDynamicProfilesToStatic,
                                   v1::ConvertAllDynamicProfilesToStaticRequest(), converted));
    v1::ClearIsaConfigurationResponse cleared;
    EXPECT_EQ(StatusCode::OK,
              code(&Stub::ClearIsaConfiguration, v1::ClearIsaConfigurationRequest(), cleared));
    EXPECT_THAT(node.calls(), ElementsAre("rpcTalConvertAllDynamicProfilesToStatic()",
                                          "clearIsaConfiguration()"));
    node.refuse("clearIsaConfiguration", 1);
    EXPECT_EQ(StatusCode::FAILED_PRECONDITION,
              code(&Stub::ClearIsaConfiguration, v1::ClearIsaConfigurationRequest(), cleared));
    EXPECT_EQ("1", result);
}

TEST_F(ServiceTest, NodeTellsWhoItIs) {
    v1::NodeInfoResponse info;
    EXPECT_EQ(StatusCode::OK, code(&Stub::NodeInfo, v1::NodeInfoRequest(), info));
    EXPECT_EQ("2", info.shelf());
    EXPECT_EQ(5u, info.board_position());
    EXPECT_EQ("0.1.0", info.version());
    EXPECT_EQ(1700000000, info.started().seconds());
    EXPECT_EQ(3661, info.uptime().seconds());
}

TEST_F(ServiceTest, InterfacesAreListedWithAllThatIsKnown) {
    node.setInterface({.id = 2,
                       .name = "1/2",
                       .kernelName = "dsl2",
                       .portState = PortState::open,
                       .gateOpen = true,
                       .timeout = 30,
                       .maxQueueSize = 4,
                       .anyRule = true});
    v1::ListInterfacesResponse list;
    EXPECT_EQ(StatusCode::OK, code(&Stub::ListInterfaces, v1::ListInterfacesRequest(), list));
    ASSERT_EQ(2, list.interfaces_size());
    EXPECT_EQ(v1::PORT_STATE_BLOCKED, list.interfaces(0).port_state());
    EXPECT_EQ(v1::GATE_CLOSED, list.interfaces(0).gate());
    const v1::Interface& second = list.interfaces(1);
    EXPECT_EQ(2u, second.id());
    EXPECT_EQ("1/2", second.name());
    EXPECT_EQ("dsl2", second.kernel_name());
    EXPECT_EQ(v1::PORT_STATE_OPEN, second.port_state());
    EXPECT_EQ(v1::GATE_OPEN, second.gate());
    EXPECT_EQ(30u, second.timeout());
    EXPECT_EQ(4u, second.max_queue_size());
    EXPECT_FALSE(second.admin());
    EXPECT_TRUE(second.authentication());
    EXPECT_TRUE(second.authentication_oper());
    EXPECT_FALSE(second.authorization_oper());
    EXPECT_TRUE(second.has_states());
    ASSERT_EQ(1, second.rules().rules_size());
    EXPECT_TRUE(second.rules().rules(0).has_any());
}

TEST_F(ServiceTest, FieldThatCannotBeReadIsMissingInTheList) {
    node.refuse("rpcTalIntfAdminStateGet", 1);
    node.refuse("rpcTalIntfStatesGet", 1);
    node.refuse("rpcTalRuleGet", 1);
    v1::ListInterfacesRequest request;
    request.set_interface(1);
    v1::ListInterfacesResponse list;
    EXPECT_EQ(StatusCode::OK, code(&Stub::ListInterfaces, request, list));
    ASSERT_EQ(1, list.interfaces_size());
    EXPECT_FALSE(list.interfaces(0).has_admin());
    EXPECT_FALSE(list.interfaces(0).has_states());
    EXPECT_FALSE(list.interfaces(0).has_rules());
    EXPECT_TRUE(list.interfaces(0).has_authentication());
}

TEST_F(ServiceTest, StoredLoginsAreListedAsTheFileHoldsThem) {
    node.setFile(storedLogin(2) + storedLogin(1));
    v1::ListStoredLoginsResponse list;
    EXPECT_EQ(StatusCode::OK, code(&Stub::ListStoredLogins, v1::ListStoredLoginsRequest(), list));
    EXPECT_TRUE(list.valid());
    ASSERT_EQ(2, list.logins_size());
    EXPECT_EQ(2u, list.logins(0).interface());
    EXPECT_EQ(15u, list.logins(1).line());
    EXPECT_EQ("node2 atm 5/1", list.logins(0).circuit_id());
    EXPECT_EQ("\\x01\\x02", list.logins(0).client_id());
    EXPECT_EQ("192.0.2.7", list.logins(0).source_ip());
    EXPECT_EQ(100u, list.logins(0).vlan());
    v1::ListStoredLoginsRequest one;
    one.set_interface(1);
    EXPECT_EQ(StatusCode::OK, code(&Stub::ListStoredLogins, one, list));
    ASSERT_EQ(1, list.logins_size());
    node.setFile(storedLogin(1) + "interface: 2\n");
    EXPECT_EQ(StatusCode::OK, code(&Stub::ListStoredLogins, v1::ListStoredLoginsRequest(), list));
    EXPECT_FALSE(list.valid());
    EXPECT_THAT(list.problem(), HasSubstr("line 15"));
}

TEST_F(ServiceTest, ServersAreListedAndAUserListHasNone) {
    v1::ListServersResponse list;
    EXPECT_EQ(StatusCode::OK, code(&Stub::ListServers, v1::ListServersRequest(), list));
    EXPECT_EQ(0, list.servers_size());
    node.setServers({{.name = "first",
                      .address = "192.0.2.1:1812",
                      .role = "authentication",
                      .alive = true,
                      .requests = 7,
                      .timeouts = 1,
                      .note = ""}});
    EXPECT_EQ(StatusCode::OK, code(&Stub::ListServers, v1::ListServersRequest(), list));
    ASSERT_EQ(1, list.servers_size());
    EXPECT_EQ("192.0.2.1:1812", list.servers(0).address());
    EXPECT_TRUE(list.servers(0).alive());
}

TEST_F(ServiceTest, ProfilesAreListedInTheNodesOrder) {
    v1::ListProfilesResponse list;
    EXPECT_EQ(StatusCode::OK, code(&Stub::ListProfiles, v1::ListProfilesRequest(), list));
    EXPECT_EQ(0, list.profiles_size());
    std::vector<ProfileInfo> profiles;
    for (size_t kind = 0; kind < profileKindCount; ++kind) {
        profiles.push_back({.kind = static_cast<ProfileKind>(kind),
                            .name = "Default\n",
                            .state = ProfileState::builtIn,
                            .isProtected = false,
                            .interfaces = {}});
    }
    profiles[0].state = ProfileState::dynamic;
    profiles[0].isProtected = true;
    profiles[0].interfaces = {1, 2};
    profiles[1].state = ProfileState::fixed;
    node.setProfiles(profiles);
    EXPECT_EQ(StatusCode::OK, code(&Stub::ListProfiles, v1::ListProfilesRequest(), list));
    ASSERT_EQ(static_cast<int>(profileKindCount), list.profiles_size());
    for (int i = 0; i < list.profiles_size(); ++i) {
        EXPECT_EQ(v1::PROFILE_KIND_SERVICE + i, list.profiles(i).kind());
        EXPECT_EQ("Default\\x0a", list.profiles(i).name());
        EXPECT_EQ(i == 0, list.profiles(i).protected_());
        EXPECT_EQ(i == 0 ? 2 : 0, list.profiles(i).interfaces_size());
    }
    EXPECT_EQ(v1::PROFILE_STATE_DYNAMIC, list.profiles(0).state());
    EXPECT_EQ(v1::PROFILE_STATE_STATIC, list.profiles(1).state());
    EXPECT_EQ(v1::PROFILE_STATE_BUILT_IN, list.profiles(2).state());
}

TEST_F(ServiceTest, RequestThatIsTooLargeIsRefusedAndTheNodeGoesOn) {
    v1::RuleSetRequest request;
    request.mutable_add()->mutable_vendor_id()->set_text(std::string(100000, 'a'));
    EXPECT_EQ(StatusCode::RESOURCE_EXHAUSTED, set(request));
    EXPECT_EQ(0, rules(1).rules_size());
}

}  // namespace
}  // namespace node::control
