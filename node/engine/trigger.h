// Which frames of a closed line ask for a login, as long as the line has no rules of its own.
// Pure.
#pragma once

#include <string_view>

#include "node/engine/frame.h"

namespace node {

enum class Trigger { none, dhcpDiscover, arp, ipv4 };

// A DHCP DISCOVER, or any ARP or IPv4 frame whose sender address can be read.
Trigger triggerOf(const Frame& frame);

std::string_view triggerName(Trigger trigger);

}  // namespace node
