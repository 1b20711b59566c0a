// Decodes the kernel's messages about network interfaces (rtnetlink).
// Pure; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace node {

struct LinkMessage {
    enum class Kind { present, gone, endOfList, error };

    Kind kind = Kind::present;
    unsigned ifIndex = 0;
    std::string name;
    bool up = false;  // operationally: switched on and its link is there
    uint32_t carrierDowns = 0;
    bool listChanged = false;  // the list was made while it changed; read it again
    int error = 0;             // errno
};

// Messages about other things are left out; a damaged message ends the datagram.
std::vector<LinkMessage> decodeLinkMessages(std::span<const uint8_t> datagram);

}  // namespace node
