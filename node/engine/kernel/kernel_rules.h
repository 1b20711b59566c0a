// The conditions of a line as the kernel's program reads them.
// Pure; any thread.
#pragma once

#include <optional>
#include <span>

#include "node/engine/kernel/layout.h"
#include "platform/ittal.h"

namespace node {

// Conditions that describe no frame (an unknown type, a code of another type) are left out.
// Empty when more than KERNEL_RULES remain.
std::optional<KernelRules> kernelRules(std::span<const ittalCondition> conditions);

}  // namespace node
