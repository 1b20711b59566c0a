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

// Answers whose authenticator holds, without Message-Authenticator or with these bytes as one.
node::radius::Buffer answerWithoutMessageAuthenticator(node::radius::Code code,
                                                       const node::radius::PacketView& request,
                                                       std::string_view secret);
node::radius::Buffer answerWithMessageAuthenticator(node::radius::Code code,
                                                    const node::radius::PacketView& request,
                                                    std::string_view secret,
                                                    const node::radius::Authenticator& value);

}  // namespace radius_test
