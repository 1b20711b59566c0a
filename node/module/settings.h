// Makes the settings and rules of the module what a configuration says. Main thread, between the
// start and the end of an application.
#pragma once

#include "node/config/config.h"
#include "node/log/event_log.h"
#include "node/module/library.h"

namespace node {

// What is right already is left alone. Logs each change of a rule. Throws std::runtime_error with
// one line at the first thing that the module refuses; what came before it stays changed.
void applySettings(const Library& library, const Config& config, EventLog& log);

}  // namespace node
