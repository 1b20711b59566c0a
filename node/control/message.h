// What management shows, as messages of the protocol, and what it is asked. Pure; any thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <tal/v1/tal.pb.h>
#include "node/control/event_hub.h"
#include "node/control/module_calls.h"
#include "node/control/node_view.h"
#include "node/control/rule.h"
#include "node/control/storage_reader.h"

namespace node::control {

namespace v1 = ::tal::v1;

// Empty: the message does not say one.
std::optional<RuleKind> kindOf(v1::RuleKind kind);
std::optional<Rule> ruleOf(const v1::Rule& message);
std::optional<EventKind> eventKindOf(v1::EventKind kind);

v1::Rule messageOf(const Rule& rule);
v1::RuleList messageOf(const std::vector<Rule>& rules);
v1::IntfStates messageOf(const States& states);
v1::IntfStatistics messageOf(const Statistics& statistics);
v1::NodeInfoResponse messageOf(const Identity& identity);
v1::Interface messageOf(const InterfaceView& view);  // what the view tells
v1::StoredLogin messageOf(const StoredLogin& login);
v1::Server messageOf(const ServerView& server);
v1::Profile messageOf(const ProfileInfo& profile);
v1::Event messageOf(const EventHub::Record& record);

}  // namespace node::control
