// Which differences between two configurations a running node cannot follow. Pure; any thread.
#pragma once

#include <string>

#include "node/config/config.h"

namespace node {

// What of `next` would need a restart of a node that runs `now`, in one line; empty: nothing.
std::string needsRestart(const Config& now, const Config& next);

}  // namespace node
