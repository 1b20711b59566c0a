#include "node/text/bytes.h"

#include <algorithm>
#include <charconv>

namespace node {

namespace {

constexpr size_t octets = 4;

bool isHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// from_chars takes no sign for an unsigned number.
std::optional<uint32_t> number(std::string_view text, int base) {
    uint32_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

}  // namespace

std::optional<uint32_t> decimalOf(std::string_view text) {
    return number(text, 10);
}

std::optional<uint32_t> hexNumberOf(std::string_view text) {
    return text.size() <= 8 ? number(text, 16) : std::nullopt;
}

std::optional<std::vector<uint8_t>> bytesOfHex(std::string_view text) {
    if (text.size() % 2 != 0 || !std::all_of(text.begin(), text.end(), isHexDigit)) {
        return std::nullopt;
    }
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < text.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(*hexNumberOf(text.substr(i, 2))));
    }
    return bytes;
}

std::optional<MacAddress> macOf(std::string_view text) {
    MacAddress mac{};
    if (text.size() != 3 * mac.size() - 1 || (text[2] != ':' && text[2] != '-')) {
        return std::nullopt;
    }
    for (size_t i = 0; i < mac.size(); ++i) {
        const auto byte = bytesOfHex(text.substr(3 * i, 2));
        if (!byte || (i + 1 < mac.size() && text[3 * i + 2] != text[2])) {
            return std::nullopt;
        }
        mac[i] = byte->front();
    }
    return mac;
}

std::optional<uint32_t> ipOf(std::string_view text) {
    uint32_t address = 0;
    for (size_t i = 0; i < octets; ++i) {
        const size_t dot = i + 1 < octets ? text.find('.') : text.size();
        if (dot == std::string_view::npos || dot == 0 || dot > 3) {
            return std::nullopt;
        }
        const auto octet = decimalOf(text.substr(0, dot));
        if (!octet || *octet > 255) {
            return std::nullopt;
        }
        address = address << 8 | *octet;
        text.remove_prefix(std::min(text.size(), dot + 1));
    }
    return address;
}

std::string hexText(std::span<const uint8_t> bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0f];
    }
    return text;
}

std::string macText(std::span<const uint8_t, 6> mac) {
    std::string text;
    for (const uint8_t byte : mac) {
        text += (text.empty() ? "" : ":") + hexText({&byte, 1});
    }
    return text;
}

std::string ipText(uint32_t address) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += (text.empty() ? "" : ".") + std::to_string(address >> shift & 0xff);
    }
    return text;
}

}  // namespace node
