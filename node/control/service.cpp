// Each method is one call on the module in a common frame: run it on the transport's thread,
// turn the result into a status, put the number into the metadata, let no exception out. The
// calls are short (at most a write of the storage file), so the threads need no company.
//
// Reads refuse interface 0: the module would take it for an interface of that number and keep
// an entry for it from then on.
//
// Tests: tests/control/service_test.cpp.
#include "node/control/service.h"

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

#include "node/control/event_stream.h"
#include "node/control/message.h"
#include "node/control/refusal.h"

namespace node::control {

namespace {

using grpc::Status;
using grpc::StatusCode;
using Reactor = grpc::ServerUnaryReactor;
using Context = grpc::CallbackServerContext;

Status invalid(const std::string& sentence) {
    return {StatusCode::INVALID_ARGUMENT, sentence};
}

// `work` returns the call's status.
template <class Work>
Reactor* answer(Context* context, Work work) {
    Status status;
    try {
        status = work();
    } catch (const std::exception& error) {
        status = {StatusCode::INTERNAL, std::string("the node failed: ") + error.what()};
    }
    Reactor* const reactor = context->DefaultReactor();
    reactor->Finish(status);
    return reactor;
}

// For `work` that returns the result of a service function.
template <class Work>
Status refusalOf(Context* context, unsigned ifId, const std::string& what, Work work) {
    const uint32_t result = work();
    context->AddTrailingMetadata(resultKey, std::to_string(result));
    return statusOf(result, ifId, what);
}

template <class Work>
Reactor* call(Context* context, unsigned ifId, const std::string& what, Work work) {
    return answer(context, [&] { return refusalOf(context, ifId, what, work); });
}

// A read of one interface.
template <class Work>
Reactor* readOne(Context* context, unsigned ifId, const std::string& what, Work work) {
    return answer(context, [&] {
        return ifId == 0 ? invalid("name one interface; only setters take 0 for all of them")
                         : refusalOf(context, ifId, what, work);
    });
}

std::string onInterface(unsigned ifId) {
    return ifId == 0 ? " on all interfaces" : " on interface " + std::to_string(ifId);
}

const char* nameOf(Setting setting) {
    switch (setting) {
        case Setting::admin:
            return "the admin state";
        case Setting::authentication:
            return "authentication";
        case Setting::authorization:
            return "authorization";
        case Setting::autoRequest:
            break;
    }
    return "automatic requests";
}

std::string switching(const std::string& name, bool on) {
    return "switch " + name + (on ? " on" : " off");
}

// Of the listed things about `ifId`, or of all of them for 0.
template <class List>
bool concerns(const List& list, unsigned ifId, unsigned List::value_type::*id) {
    return ifId == 0 || std::any_of(list.begin(), list.end(),
                                    [&](const auto& each) { return each.*id == ifId; });
}

}  // namespace

Reactor* Service::AdminStateSet(Context* context, const v1::AdminStateSetRequest* request,
                                v1::AdminStateSetResponse*) {
    return call(context, 0, switching("TAL", request->enabled()),
                [&] { return module_.adminSet(request->enabled()); });
}

Reactor* Service::AdminStateGet(Context* context, const v1::AdminStateGetRequest*,
                                v1::State* response) {
    return call(context, 0, "tell the global admin state", [&] {
        bool on = false;
        const uint32_t result = module_.adminGet(on);
        response->set_enabled(on);
        return result;
    });
}

Reactor* Service::setSetting(Context* context, const v1::IntfStateSetRequest& request,
                             Setting setting) {
    return call(
        context, request.interface(),
        switching(nameOf(setting), request.enabled()) + onInterface(request.interface()),
        [&] { return module_.settingSet(setting, request.interface(), request.enabled()); });
}

Reactor* Service::getSetting(Context* context, const v1::IntfRequest& request, v1::State& response,
                             Setting setting) {
    return readOne(context, request.interface(), std::string("tell ") + nameOf(setting), [&] {
        bool on = false;
        const uint32_t result = module_.settingGet(setting, request.interface(), on);
        response.set_enabled(on);
        return result;
    });
}

Reactor* Service::getOper(Context* context, const v1::IntfRequest& request, v1::State& response,
                          OperState state) {
    return readOne(context, request.interface(), "tell an operational state", [&] {
        bool up = false;
        const uint32_t result = module_.operGet(state, request.interface(), up);
        response.set_enabled(up);
        return result;
    });
}

Reactor* Service::IntfAdminStateSet(Context* context, const v1::IntfStateSetRequest* request,
                                    v1::IntfStateSetResponse*) {
    return setSetting(context, *request, Setting::admin);
}

Reactor* Service::IntfAdminStateGet(Context* context, const v1::IntfRequest* request,
                                    v1::State* response) {
    return getSetting(context, *request, *response, Setting::admin);
}

Reactor* Service::IntfAuthenAdminStateSet(Context* context, const v1::IntfStateSetRequest* request,
                                          v1::IntfStateSetResponse*) {
    return setSetting(context, *request, Setting::authentication);
}

Reactor* Service::IntfAuthenAdminStateGet(Context* context, const v1::IntfRequest* request,
                                          v1::State* response) {
    return getSetting(context, *request, *response, Setting::authentication);
}

Reactor* Service::IntfAuthorAdminStateSet(Context* context, const v1::IntfStateSetRequest* request,
                                          v1::IntfStateSetResponse*) {
    return setSetting(context, *request, Setting::authorization);
}

Reactor* Service::IntfAuthorAdminStateGet(Context* context, const v1::IntfRequest* request,
                                          v1::State* response) {
    return getSetting(context, *request, *response, Setting::authorization);
}

Reactor* Service::IntfAutoReqAdminStateSet(Context* context, const v1::IntfStateSetRequest* request,
                                           v1::IntfStateSetResponse*) {
    return setSetting(context, *request, Setting::autoRequest);
}

Reactor* Service::IntfAutoReqAdminStateGet(Context* context, const v1::IntfRequest* request,
                                           v1::State* response) {
    return getSetting(context, *request, *response, Setting::autoRequest);
}

Reactor* Service::IntfAuthenOperStateGet(Context* context, const v1::IntfRequest* request,
                                         v1::State* response) {
    return getOper(context, *request, *response, OperState::authentication);
}

Reactor* Service::IntfAuthorOperStateGet(Context* context, const v1::IntfRequest* request,
                                         v1::State* response) {
    return getOper(context, *request, *response, OperState::authorization);
}

Reactor* Service::IntfStatisticsGet(Context* context, const v1::IntfRequest* request,
                                    v1::IntfStatistics* response) {
    return readOne(context, request->interface(), "tell the statistics", [&] {
        Statistics statistics{};
        const uint32_t result = module_.statisticsGet(request->interface(), statistics);
        *response = messageOf(statistics);
        return result;
    });
}

Reactor* Service::IntfStatesGet(Context* context, const v1::IntfRequest* request,
                                v1::IntfStates* response) {
    return readOne(context, request->interface(), "tell the forwarding states", [&] {
        States states;
        const uint32_t result = module_.statesGet(request->interface(), states);
        *response = messageOf(states);
        return result;
    });
}

Reactor* Service::RuleSet(Context* context, const v1::RuleSetRequest* request,
                          v1::RuleSetResponse*) {
    const unsigned ifId = request->interface();
    return answer(context, [&] {
        if (request->has_delete_()) {
            const auto kind = kindOf(request->delete_());
            return kind ? refusalOf(context, ifId, "delete the rule" + onInterface(ifId),
                                    [&] { return module_.ruleDelete(ifId, *kind); })
                        : invalid("name the kind of the rule to delete");
        }
        const auto rule = ruleOf(request->add());
        if (!rule) {
            return invalid("the rule says nothing");
        }
        if (const std::string problem = problemOf(*rule); !problem.empty()) {
            return invalid(problem);
        }
        return refusalOf(context, ifId, "add the rule" + onInterface(ifId),
                         [&] { return module_.ruleAdd(ifId, *rule); });
    });
}

Reactor* Service::RuleBundleSet(Context* context, const v1::RuleBundleSetRequest* request,
                                v1::RuleBundleSetResponse*) {
    const unsigned ifId = request->interface();
    return answer(context, [&] {
        std::vector<Rule> rules;
        for (const v1::Rule& message : request->rules()) {
            const auto rule = ruleOf(message);
            if (!rule) {
                return invalid("a rule of the bundle says nothing");
            }
            rules.push_back(*rule);
        }
        if (const std::string problem = problemOfBundle(rules); !problem.empty()) {
            return invalid(problem);
        }
        return refusalOf(context, ifId, "set the rules" + onInterface(ifId),
                         [&] { return module_.bundleSet(ifId, rules); });
    });
}

Reactor* Service::RuleGet(Context* context, const v1::IntfRequest* request,
                          v1::RuleList* response) {
    return readOne(context, request->interface(), "tell the rules", [&] {
        std::vector<Rule> rules;
        const uint32_t result = module_.rulesGet(request->interface(), rules);
        *response = messageOf(rules);
        return result;
    });
}

Reactor* Service::ConvertAllDynamicProfilesToStatic(
    Context* context, const v1::ConvertAllDynamicProfilesToStaticRequest*,
    v1::ConvertAllDynamicProfilesToStaticResponse*) {
    return call(context, 0, "convert all dynamic profiles",
                [&] { return module_.convertProfiles(); });
}

Reactor* Service::ClearIsaConfiguration(Context* context, const v1::ClearIsaConfigurationRequest*,
                                        v1::ClearIsaConfigurationResponse*) {
    return call(context, 0, "return to its defaults and clear ISA's configuration",
                [&] { return module_.clearIsa(); });
}

Reactor* Service::NodeInfo(Context* context, const v1::NodeInfoRequest*,
                           v1::NodeInfoResponse* response) {
    return answer(context, [&] {
        *response = messageOf(view_.identity());
        response->set_event_clients(static_cast<uint32_t>(events_.readers()));
        return Status::OK;
    });
}

v1::Interface Service::interfaceOf(const InterfaceView& view) {
    v1::Interface message = messageOf(view);
    bool on = false;
    if (module_.settingGet(Setting::admin, view.id, on) == 0) {
        message.set_admin(on);
    }
    if (module_.settingGet(Setting::authentication, view.id, on) == 0) {
        message.set_authentication(on);
    }
    if (module_.settingGet(Setting::authorization, view.id, on) == 0) {
        message.set_authorization(on);
    }
    if (module_.settingGet(Setting::autoRequest, view.id, on) == 0) {
        message.set_auto_request(on);
    }
    if (module_.operGet(OperState::authentication, view.id, on) == 0) {
        message.set_authentication_oper(on);
    }
    if (module_.operGet(OperState::authorization, view.id, on) == 0) {
        message.set_authorization_oper(on);
    }
    if (States states; module_.statesGet(view.id, states) == 0) {
        *message.mutable_states() = messageOf(states);
    }
    if (std::vector<Rule> rules; module_.rulesGet(view.id, rules) == 0) {
        *message.mutable_rules() = messageOf(rules);
    }
    return message;
}

Reactor* Service::ListInterfaces(Context* context, const v1::ListInterfacesRequest* request,
                                 v1::ListInterfacesResponse* response) {
    return answer(context, [&] {
        for (const InterfaceView& view : view_.interfaces()) {
            if (request->interface() == 0 || request->interface() == view.id) {
                *response->add_interfaces() = interfaceOf(view);
            }
        }
        return request->interface() != 0 && response->interfaces().empty()
                   ? statusOf(3, request->interface(), "")
                   : Status::OK;
    });
}

Reactor* Service::ListStoredLogins(Context* context, const v1::ListStoredLoginsRequest* request,
                                   v1::ListStoredLoginsResponse* response) {
    return answer(context, [&] {
        const unsigned ifId = request->interface();
        if (!concerns(view_.interfaces(), ifId, &InterfaceView::id)) {
            return statusOf(3, ifId, "");
        }
        const StorageContents contents = readStorage(view_.storageFile());
        response->set_valid(contents.problem.empty());
        response->set_problem(contents.problem);
        for (const StoredLogin& login : contents.logins) {
            if (ifId == 0 || login.ifId == ifId) {
                *response->add_logins() = messageOf(login);
            }
        }
        return Status::OK;
    });
}

Reactor* Service::ListServers(Context* context, const v1::ListServersRequest*,
                              v1::ListServersResponse* response) {
    return answer(context, [&] {
        for (const ServerView& server : view_.servers()) {
            *response->add_servers() = messageOf(server);
        }
        return Status::OK;
    });
}

Reactor* Service::ListProfiles(Context* context, const v1::ListProfilesRequest*,
                               v1::ListProfilesResponse* response) {
    return answer(context, [&] {
        for (const ProfileInfo& profile : view_.profiles()) {
            *response->add_profiles() = messageOf(profile);
        }
        return Status::OK;
    });
}

grpc::ServerWriteReactor<v1::Event>* Service::Events(Context* context,
                                                     const v1::EventsRequest* request) {
    EventHub::Filter filter{.ifId = request->interface()};
    for (const int kind : request->kinds()) {
        const auto known = eventKindOf(static_cast<v1::EventKind>(kind));
        if (!known) {
            return EventStream::refuse(
                invalid("an event is a trap, request, verdict, gate or "
                        "store"));
        }
        filter.kinds.insert(*known);
    }
    if (!concerns(view_.interfaces(), filter.ifId, &InterfaceView::id)) {
        return EventStream::refuse(statusOf(3, filter.ifId, ""));
    }
    return EventStream::open(*context, events_, std::move(filter), stalledFor_, log_);
}

}  // namespace node::control
