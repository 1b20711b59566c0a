// A login block as the RADIUS library knows a line. Pure; any thread.
#pragma once

#include <string>

#include "node/isa/radius/packet/line.h"
#include "rpc/rpctal.h"

namespace node {

// Only what the block says is present.
radius::Line loginLine(const rpcTalLoginBlockBll& block, const std::string& interfaceName);

}  // namespace node
