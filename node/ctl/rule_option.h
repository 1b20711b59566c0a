// Rules as a person writes them on the command line, both ways. Pure.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "node/control/rule.h"

namespace node::ctl {

struct RuleOption {
    control::RuleKind kind;
    std::string_view value;  // how its value is told in the help; empty: it takes none
    std::string_view help;
};

extern const std::array<RuleOption, control::ruleKinds> ruleOptions;

// "vlan": the option --vlan, and what the kind is called.
std::string_view nameOf(control::RuleKind kind);

// A rule without a problem, or what is wrong with the text.
struct ParsedRule {
    std::optional<control::Rule> rule;
    std::string problem;
};
ParsedRule parseRule(control::RuleKind kind, std::string_view text);

// What parseRule takes for the same rule.
std::string valueText(const control::Rule& rule);

}  // namespace node::ctl
