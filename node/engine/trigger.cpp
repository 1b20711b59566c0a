#include "node/engine/trigger.h"

namespace node {

namespace {

constexpr uint8_t dhcpDiscover = 1;
constexpr uint16_t etherTypeIpv4 = 0x0800;
constexpr uint16_t etherTypeArp = 0x0806;

}  // namespace

Trigger triggerOf(const Frame& frame) {
    if (frame.dhcp && frame.dhcp->fromClient && frame.dhcp->messageType == dhcpDiscover) {
        return Trigger::dhcpDiscover;
    }
    if (!frame.ipv4Source) {
        return Trigger::none;
    }
    if (frame.etherType == etherTypeArp) {
        return Trigger::arp;
    }
    return frame.etherType == etherTypeIpv4 ? Trigger::ipv4 : Trigger::none;
}

std::string_view triggerName(Trigger trigger) {
    switch (trigger) {
        case Trigger::none:
            return "";
        case Trigger::dhcpDiscover:
            return "DHCP DISCOVER";
        case Trigger::arp:
            return "ARP";
        case Trigger::ipv4:
            return "IPv4";
    }
    return "";
}

}  // namespace node
