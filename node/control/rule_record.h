// Rules as the service functions' record, both ways. Pure; any thread.
#pragma once

#include <vector>

#include "node/control/rule.h"
#include "rpc/rpctal.h"

namespace node::control {

// Puts a rule without a problem into its slot and sets the record's type.
void fillSlot(const Rule& rule, rpcTalRule& record);

// The slots that are set, in the order of the kinds; the record has none for RuleKind::any.
std::vector<Rule> rulesOf(const rpcTalRule& record);

}  // namespace node::control
