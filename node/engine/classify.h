// Decides whether a frame is one that the rules of an interface describe.
// Pure; any thread. What each type matches on the wire: docs/engine.md.
#pragma once

#include <span>

#include "node/engine/frame.h"
#include "platform/ittal.h"

namespace node {

// A condition of unknown type, or whose code does not belong to its type, matches nothing.
bool matches(const Frame& frame, const ittalCondition& condition);

// Conditions are alternatives: the first one that matches, null when none does.
const ittalCondition* firstMatch(const Frame& frame, std::span<const ittalCondition> conditions);

}  // namespace node
