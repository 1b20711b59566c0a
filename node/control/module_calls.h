// The service functions with plain arguments: every call of management on the module passes
// here. Results are an rpc_tal_res; outputs are written only with result 0. Any thread, as the
// functions and the view behind it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "node/control/node_view.h"
#include "node/control/rule.h"

namespace node::control {

struct ServiceFunctions;

enum class Setting { admin, authentication, authorization, autoRequest };
enum class OperState { authentication, authorization };

using Statistics = std::array<uint32_t, 13>;

struct States {  // empty: the engine gave a state of its own
    std::optional<uint32_t> forwarding;
    std::optional<uint32_t> authentication;
    std::optional<uint32_t> authorization;
};

class ModuleCalls {
public:
    // Both must outlive this object.
    ModuleCalls(const ServiceFunctions& functions, NodeView& view)
        : functions_(functions), view_(view) {}

    // The C name of a function that the table lacks; empty when it is complete.
    std::string missing() const;

    uint32_t adminSet(bool on);
    uint32_t adminGet(bool& on);
    uint32_t settingSet(Setting setting, unsigned ifId, bool on);
    uint32_t settingGet(Setting setting, unsigned ifId, bool& on);
    uint32_t operGet(OperState state, unsigned ifId, bool& up);
    uint32_t statisticsGet(unsigned ifId, Statistics& statistics);
    uint32_t statesGet(unsigned ifId, States& states);
    uint32_t ruleAdd(unsigned ifId, const Rule& rule);  // without a problem
    uint32_t ruleDelete(unsigned ifId, RuleKind kind);
    uint32_t bundleSet(unsigned ifId, const std::vector<Rule>& rules);  // without a problem
    uint32_t rulesGet(unsigned ifId, std::vector<Rule>& rules);
    uint32_t convertProfiles();
    uint32_t clearIsa();

private:
    const ServiceFunctions& functions_;
    NodeView& view_;
};

}  // namespace node::control
