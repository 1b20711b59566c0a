// The entities of the process in their order: who depends on whom, start, configuration,
// stop. Main thread, which is the loop's.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/blentity.h"

namespace node {

// The entities in an order in which each comes after those it depends on; of two that could
// both come next, the one given first. Throws std::runtime_error with one line when a name is
// unknown or used twice, or when entities depend on each other.
std::vector<BLEntity*> startOrder(const std::vector<BLEntity*>& entities);

// Starts them in that order. Throws std::runtime_error naming the one that did not start;
// those before it stay started.
void startEntities(const std::vector<BLEntity*>& order);

// In the reverse order. The names of those that reported failure.
std::vector<std::string> stopEntities(const std::vector<BLEntity*>& order);

// Fires the start callbacks, applies, fires the stop callbacks, also when `settings` throws; with
// no lock held.
void applyConfiguration(const std::function<void()>& settings);

// What the module left in the platform's callback vectors is dropped, before its code goes.
void dropCallbacks();

// Calls every registered callback with the event line, or with an interface that came up.
void deliverEvent(const std::string& line);
void deliverInterfaceUp(unsigned ifId);

}  // namespace node
