// Rules as a person writes them, "vendor-id" and "udhcp*", to and from the management record.
// Pure; any thread. The forms: docs/node.md.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "node/rules/rule_record.h"

namespace node {

constexpr size_t longestRuleText = 600;

std::string_view ruleName(uint32_t type);  // "vendor-id"; empty for an unknown type
std::optional<uint32_t> ruleTypeNamed(std::string_view name);

// Puts what the text says into the slot of the type and sets the record's type; the other slots
// stay. What is wrong with the text, as "must be ...", and nothing done; empty when all is well.
// The text of ruleAny is empty.
std::string ruleFromText(uint32_t type, std::string_view text, rpcTalRule& record);

// The value of the slot as ruleFromText takes it. A pattern given as text that would read as
// something else is written in hex.
std::string ruleValueText(uint32_t type, const rpcTalRule& record);

// Name and value: "vendor-id udhcp*", or "any".
std::string ruleText(uint32_t type, const rpcTalRule& record);

}  // namespace node
