// Layout by character position:
//   0-2 "tal", 3-6 name, 7 blank, 8 AAA selector, 9 request kind ("00" traffic, "02" stored),
//   10-13 VLAN id (decimal, left-aligned), 14-25 MAC, 26-40 address (four groups of three
//   digits with dots), 41-296 the first 128 bytes of the frame in hex, zero-padded, from 297
//   the options found: code (three digits), length (three digits), for the client id its type
//   (three digits), data.
// Option data is text of the subscriber's making: what is not printable ASCII becomes a dot,
// so that no newline reaches the storage file and no NUL cuts the line. A client id of a type
// other than 0 is bytes and goes as hex digits. Data beyond 254 characters is cut, because the
// module skips longer options as a whole. Tested by tests/unit/node_host/event_line_test.cpp.
#include "node/engine/event_line.h"

#include <algorithm>
#include <cstdio>
#include <span>

#include "node/log/event_log.h"

namespace node {

namespace {

constexpr size_t patternBytes = 128;
constexpr size_t longestOption = 254;

std::string header(std::string_view kernelName, std::string_view kind) {
    std::string line("tal");
    return line.append(kernelName).append(" ").append(kind);
}

void appendHex(std::string& line, std::span<const uint8_t> bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    for (const uint8_t byte : bytes) {
        line += digits[byte >> 4];
        line += digits[byte & 0x0f];
    }
}

std::string threeDigits(size_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "%03zu", value);
    return text;
}

void appendVlan(std::string& line, uint16_t vlan) {
    std::string text = std::to_string(vlan & 0x0fff);
    text.resize(4, ' ');
    line += text;
}

void appendAddress(std::string& line, uint32_t address) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        line += threeDigits((address >> shift) & 0xff);
        if (shift != 0) {
            line += '.';
        }
    }
}

std::string asText(std::span<const uint8_t> bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
        text += static_cast<char>(byte);
    }
    return printable(text);
}

void appendOption(std::string& line, unsigned code, std::span<const uint8_t> bytes) {
    if (!bytes.empty()) {
        const std::string data = asText(bytes.first(std::min(bytes.size(), longestOption)));
        line += threeDigits(code) + threeDigits(data.size()) + data;
    }
}

void appendClientId(std::string& line, std::span<const uint8_t> bytes) {
    if (bytes.size() < 2) {
        return;
    }
    const uint8_t type = bytes[0];
    std::string data;
    if (type == 0) {
        data = asText(bytes.subspan(1));
    } else {
        appendHex(data, bytes.subspan(1));
    }
    data.resize(std::min(data.size(), longestOption));
    line += threeDigits(61) + threeDigits(data.size()) + threeDigits(type) + data;
}

}  // namespace

std::string trafficLine(std::string_view kernelName, const Frame& frame) {
    std::string line = header(kernelName, "00");
    appendVlan(line, frame.outerVlan.value_or(0));
    appendHex(line, frame.sourceMac);
    appendAddress(line, frame.ipv4Source.value_or(0));
    std::array<uint8_t, patternBytes> pattern{};
    std::copy_n(frame.bytes.begin(), std::min(frame.bytes.size(), patternBytes), pattern.begin());
    appendHex(line, pattern);
    if (frame.dhcp) {
        appendOption(line, 60, frame.dhcp->vendorId);
        appendOption(line, 2, frame.dhcp->remoteId);
        appendClientId(line, frame.dhcp->clientId);
    }
    return line;
}

std::string automaticLine(std::string_view kernelName) {
    std::string line = header(kernelName, "00");
    appendVlan(line, 0);
    return line;
}

std::string storedLine(std::string_view kernelName) {
    return header(kernelName, "02");
}

}  // namespace node
