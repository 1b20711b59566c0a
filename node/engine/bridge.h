// Puts an engine behind the bridge's C functions. Before the module is loaded and while no
// bridge call runs.
#pragma once

#include "node/engine/engine.h"

namespace node {

void attachBridge(Engine* engine);  // null: every call is refused

}  // namespace node
