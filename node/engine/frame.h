// One Ethernet frame, taken apart: what the rules look at and what an event line reports.
// Pure; views point into the frame given to parseFrame and live as long as its bytes.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace node {

struct DhcpMessage {
    bool fromClient = false;  // BOOTREQUEST
    uint8_t messageType = 0;  // option 53; 0 when absent (plain BOOTP)
    std::array<uint8_t, 6> clientMac{};
    std::span<const uint8_t> vendorId;  // option 60; empty when absent
    std::span<const uint8_t> remoteId;  // option 82, sub-option 2
    std::span<const uint8_t> clientId;  // option 61 as sent: type byte, then the identifier
};

struct Frame {
    std::span<const uint8_t> bytes;  // the whole frame with its VLAN tags in line
    std::array<uint8_t, 6> sourceMac{};
    std::array<uint8_t, 6> destinationMac{};
    std::optional<uint16_t> outerVlan;   // VLAN id (12 bits) of the first tag
    uint16_t etherType = 0;              // behind all tags (0x8100, 0x88a8, 0x9100)
    std::optional<uint32_t> ipv4Source;  // of the IPv4 header; of the sender in an ARP message
    std::optional<DhcpMessage> dhcp;     // UDP ports 67 and 68, unfragmented, cookie present
};

// Fields that the frame is too short or too damaged to hold stay empty; empty when the frame
// has no whole Ethernet header.
std::optional<Frame> parseFrame(std::span<const uint8_t> bytes);

}  // namespace node
