// Bytes as hex text, for tables of packets in tests. Pure.
#pragma once

#include <string>
#include <string_view>

#include "node/isa/radius/packet/packet.h"

namespace radius_test {

node::radius::Buffer fromHex(std::string_view text);  // blanks are passed over
std::string toHex(node::radius::Bytes bytes);

// A packet with this header, a zero authenticator and these attributes, its length correct.
node::radius::Buffer rawPacket(uint8_t code, uint8_t id, std::string_view attributesInHex);

}  // namespace radius_test
