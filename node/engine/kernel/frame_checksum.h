// Completes the checksum of a frame whose sender left that to its network card.
// Pure; any thread.
#pragma once

#include <cstdint>
#include <span>

namespace node {

// Of a whole UDP or TCP packet over IPv4 or IPv6, behind VLAN tags: when its checksum field holds
// nothing but the sum of the pseudo-header, it gets the checksum. Any other frame stays as it is,
// one with a wrong checksum too.
void completeChecksum(std::span<uint8_t> frame);

}  // namespace node
