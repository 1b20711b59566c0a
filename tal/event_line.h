// Decodes the engine's event line by fixed character positions. Pure; any thread.
// The layout is drawn in docs/formats.md; tests/oracle/ holds a literal twin.
#pragma once

#include <stdint.h>

#include <optional>
#include <string_view>

namespace tal_text {

constexpr size_t eventLineComplete = 10;    // shorter lines are dropped
constexpr size_t eventLineHasTraffic = 14;  // shorter lines carry only the header

// An identifier as received, cut out of the line: 254 characters at most.
struct EventFields {
    uint16_t vlanId = 0;
    unsigned char sourceMac[6] = {};
    uint32_t sourceIp = 0;  // first octet in the top 8 bits
    bool patternPresent = false;
    uint32_t pattern[32] = {};
    std::string_view remoteId;  // views into the line
    std::string_view vendorId;
    std::string_view clientId;
};

// The Linux interface name of an event line of at least 8 characters that starts with "tal";
// empty for any other line.
std::optional<std::string_view> eventLineInterface(std::string_view line);

// The fields of trapped traffic, as far as the line reaches.
EventFields decodeEventFields(std::string_view line);

// LoginAAAtype for the AAA selector of an event: 1 for 0, 2 for 1, none for anything else.
std::optional<unsigned char> loginAaaType(unsigned selector);

}  // namespace tal_text
