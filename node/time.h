// The node's time: microseconds since the start of the run. With captures it is the captures'
// time and jumps; otherwise it is the wall's. Pure.
#pragma once

#include <chrono>

namespace node {

using Time = std::chrono::microseconds;

}  // namespace node
