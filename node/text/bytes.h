// Numbers, addresses and bytes as people write them, both ways. Strict: the whole text or
// nothing. Pure; any thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace node {

using MacAddress = std::array<uint8_t, 6>;

std::optional<uint32_t> decimalOf(std::string_view text);               // "0" to "4294967295"
std::optional<uint32_t> hexNumberOf(std::string_view text);             // one to eight digits
std::optional<std::vector<uint8_t>> bytesOfHex(std::string_view text);  // pairs of digits
std::optional<MacAddress> macOf(std::string_view text);                 // joined by : or -
std::optional<uint32_t> ipOf(std::string_view text);                    // "192.0.2.1"

std::string hexText(std::span<const uint8_t> bytes);
std::string macText(std::span<const uint8_t, 6> mac);
std::string ipText(uint32_t address);  // the first octet in the top 8 bits

}  // namespace node
