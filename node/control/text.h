// Bytes as text: for people, for terminals, for the protocol. Pure; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace node::control {

// Printable ASCII as it stands, the backslash as \\, every other byte as \xNN, so that what a
// subscriber sent can neither drive a terminal nor break a protocol that wants valid text.
std::string escaped(std::string_view bytes);

std::string hexOf(std::string_view bytes);  // lower case, without separators
std::string macText(std::string_view bytes);
std::string ipText(std::string_view fourBytes);

// Whole texts only: an odd number of digits, a sign or a blank is refused.
std::optional<std::string> bytesOfHex(std::string_view text);
std::optional<std::string> bytesOfMac(std::string_view text);  // six pairs joined by : or -
std::optional<std::string> bytesOfIp(std::string_view text);   // four decimal numbers
std::optional<uint32_t> decimal(std::string_view text);
std::optional<uint32_t> hexNumber(std::string_view text);  // without 0x, at most 8 digits

}  // namespace node::control
