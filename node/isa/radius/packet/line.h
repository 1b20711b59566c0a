// What is known of a line when it logs in, free of any host's records. Pure.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace node::radius {

using MacAddress = std::array<uint8_t, 6>;

struct Line {
    std::string interfaceName;  // "1/3"
    uint32_t interfaceNumber = 0;
    std::string circuitId;  // empty texts and unset values are not sent
    std::string remoteId;
    std::optional<MacAddress> mac;
    std::optional<uint32_t> address;  // IPv4, first byte highest
    uint16_t vlan = 0;
    std::string vendorClass;  // bytes of DHCP option 60
    std::string clientId;     // bytes of DHCP option 61
};

std::string macText(const MacAddress& mac);  // "02-00-5E-00-00-01"
std::string addressText(uint32_t address);   // "192.0.2.1"

}  // namespace node::radius
