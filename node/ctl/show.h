// Answers of the node for people (tables) and for programs (JSON; docs/operations.md). Pure.
#pragma once

#include <string>
#include <vector>

#include <tal/v1/tal.pb.h>
#include "node/ctl/json.h"

namespace node::ctl {

namespace v1 = ::tal::v1;

struct Status {
    v1::NodeInfoResponse node;
    bool admin = false;
    v1::ListInterfacesResponse interfaces;
    v1::ListStoredLoginsResponse logins;
    v1::ListServersResponse servers;
};

struct NamedStatistics {
    v1::Interface interface;
    v1::IntfStatistics counters;
    v1::IntfStatistics before;  // with `changes`: of the reading before
    bool changes = false;
};

std::string tableOf(const Status& status);
std::string tableOf(const v1::ListInterfacesResponse& list);
std::string tableOf(const v1::Interface& interface);
std::string tableOf(const v1::RuleList& rules);
std::string tableOf(const std::vector<NamedStatistics>& statistics);
std::string tableOf(const v1::ListStoredLoginsResponse& list);
std::string tableOf(const v1::ListServersResponse& list);
std::string tableOf(const v1::ListProfilesResponse& list);
std::string lineOf(const v1::Event& event);

Json jsonOf(const Status& status);
Json jsonOf(const v1::ListInterfacesResponse& list);
Json jsonOf(const v1::Interface& interface);
Json jsonOf(const v1::RuleList& rules);
Json jsonOf(const std::vector<NamedStatistics>& statistics);
Json jsonOf(const v1::ListStoredLoginsResponse& list);
Json jsonOf(const v1::ListServersResponse& list);
Json jsonOf(const v1::ListProfilesResponse& list);
Json jsonOf(const v1::Event& event);

}  // namespace node::ctl
