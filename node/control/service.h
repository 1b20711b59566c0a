// The methods of the management service. Called on the transport's threads.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <string>

#include <tal/v1/tal.grpc.pb.h>
#include "node/control/event_hub.h"
#include "node/control/module_calls.h"
#include "node/control/node_view.h"

namespace node::control {

class Service final : public tal::v1::Management::CallbackService {
public:
    using Log = std::function<void(const std::string& line)>;

    // All must outlive the service.
    Service(ModuleCalls& module, NodeView& view, EventHub& events,
            std::chrono::milliseconds stalledFor, const Log& log)
        : module_(module), view_(view), events_(events), stalledFor_(stalledFor), log_(log) {}

private:
    using Context = grpc::CallbackServerContext;
    using Reactor = grpc::ServerUnaryReactor;

    Reactor* AdminStateSet(Context* context, const tal::v1::AdminStateSetRequest* request,
                           tal::v1::AdminStateSetResponse* response) override;
    Reactor* AdminStateGet(Context* context, const tal::v1::AdminStateGetRequest* request,
                           tal::v1::State* response) override;
    Reactor* IntfAdminStateSet(Context* context, const tal::v1::IntfStateSetRequest* request,
                               tal::v1::IntfStateSetResponse* response) override;
    Reactor* IntfAdminStateGet(Context* context, const tal::v1::IntfRequest* request,
                               tal::v1::State* response) override;
    Reactor* IntfAuthenAdminStateSet(Context* context, const tal::v1::IntfStateSetRequest* request,
                                     tal::v1::IntfStateSetResponse* response) override;
    Reactor* IntfAuthenAdminStateGet(Context* context, const tal::v1::IntfRequest* request,
                                     tal::v1::State* response) override;
    Reactor* IntfAuthorAdminStateSet(Context* context, const tal::v1::IntfStateSetRequest* request,
                                     tal::v1::IntfStateSetResponse* response) override;
    Reactor* IntfAuthorAdminStateGet(Context* context, const tal::v1::IntfRequest* request,
                                     tal::v1::State* response) override;
    Reactor* IntfAutoReqAdminStateSet(Context* context, const tal::v1::IntfStateSetRequest* request,
                                      tal::v1::IntfStateSetResponse* response) override;
    Reactor* IntfAutoReqAdminStateGet(Context* context, const tal::v1::IntfRequest* request,
                                      tal::v1::State* response) override;
    Reactor* IntfAuthenOperStateGet(Context* context, const tal::v1::IntfRequest* request,
                                    tal::v1::State* response) override;
    Reactor* IntfAuthorOperStateGet(Context* context, const tal::v1::IntfRequest* request,
                                    tal::v1::State* response) override;
    Reactor* IntfStatisticsGet(Context* context, const tal::v1::IntfRequest* request,
                               tal::v1::IntfStatistics* response) override;
    Reactor* IntfStatesGet(Context* context, const tal::v1::IntfRequest* request,
                           tal::v1::IntfStates* response) override;
    Reactor* RuleSet(Context* context, const tal::v1::RuleSetRequest* request,
                     tal::v1::RuleSetResponse* response) override;
    Reactor* RuleBundleSet(Context* context, const tal::v1::RuleBundleSetRequest* request,
                           tal::v1::RuleBundleSetResponse* response) override;
    Reactor* RuleGet(Context* context, const tal::v1::IntfRequest* request,
                     tal::v1::RuleList* response) override;
    Reactor* ConvertAllDynamicProfilesToStatic(
        Context* context, const tal::v1::ConvertAllDynamicProfilesToStaticRequest* request,
        tal::v1::ConvertAllDynamicProfilesToStaticResponse* response) override;
    Reactor* ClearIsaConfiguration(Context* context,
                                   const tal::v1::ClearIsaConfigurationRequest* request,
                                   tal::v1::ClearIsaConfigurationResponse* response) override;
    Reactor* NodeInfo(Context* context, const tal::v1::NodeInfoRequest* request,
                      tal::v1::NodeInfoResponse* response) override;
    Reactor* ListInterfaces(Context* context, const tal::v1::ListInterfacesRequest* request,
                            tal::v1::ListInterfacesResponse* response) override;
    Reactor* ListStoredLogins(Context* context, const tal::v1::ListStoredLoginsRequest* request,
                              tal::v1::ListStoredLoginsResponse* response) override;
    Reactor* ListServers(Context* context, const tal::v1::ListServersRequest* request,
                         tal::v1::ListServersResponse* response) override;
    Reactor* ListProfiles(Context* context, const tal::v1::ListProfilesRequest* request,
                          tal::v1::ListProfilesResponse* response) override;
    grpc::ServerWriteReactor<tal::v1::Event>* Events(
        Context* context, const tal::v1::EventsRequest* request) override;

    Reactor* setSetting(Context* context, const tal::v1::IntfStateSetRequest& request,
                        Setting setting);
    Reactor* getSetting(Context* context, const tal::v1::IntfRequest& request,
                        tal::v1::State& response, Setting setting);
    Reactor* getOper(Context* context, const tal::v1::IntfRequest& request,
                     tal::v1::State& response, OperState state);
    tal::v1::Interface interfaceOf(const InterfaceView& view);

    ModuleCalls& module_;
    NodeView& view_;
    EventHub& events_;
    const std::chrono::milliseconds stalledFor_;
    const Log& log_;
};

}  // namespace node::control
