// Where the module's own log goes. Before the module is loaded.
#pragma once

#include "node/log/event_log.h"

namespace node {

void attachModuleLog(EventLog* log);  // null: the module's texts are dropped

}  // namespace node
