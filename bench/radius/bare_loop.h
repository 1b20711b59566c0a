// The least that logs in by RADIUS: one socket, one loop, no timer, no second server, no queue.
// What it reaches is what the client is measured against. One thread.
#pragma once

#include <cstdint>
#include <string>

#include "node/isa/radius/packet/packet.h"

namespace bench {

// Sends `count` requests made of `attributes` and `password` with `underWay` (up to 256)
// outstanding, and proves every answer. Returns the seconds it took; throws std::runtime_error
// when an answer fails to come.
double bareLoop(uint16_t port, const std::string& secret, const node::radius::Buffer& attributes,
                const std::string& password, uint64_t count, unsigned underWay);

}  // namespace bench
