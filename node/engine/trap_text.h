// What the engine trapped and why, for people to read. Pure.
#pragma once

#include <string>
#include <string_view>

#include "node/engine/frame.h"
#include "platform/ittal.h"

namespace node {

// The condition as the rule that it came from would be written: "vendor-id udhcp*".
std::string conditionText(const ittalCondition& condition);

// "DHCP DISCOVER", "ARP", "IPv4", or the EtherType.
std::string frameText(const Frame& frame);

std::string trapText(const Frame& frame, std::string_view rule);

}  // namespace node
