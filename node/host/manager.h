// What the process does with the entity manager: the registered entities and their callbacks.
// The declarations that the module sees are platform/bllmanager.h. Main thread.
#pragma once

#include <string>
#include <vector>

#include "platform/bllmanager.h"

namespace node {

// In the order of their registration.
std::vector<BLEntity*> registeredEntities();
void forgetEntity(const BLEntity& entity);  // before it is unloaded

}  // namespace node
