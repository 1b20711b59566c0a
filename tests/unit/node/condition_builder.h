// Conditions as the module hands them to the engine: zeroed, then the fields of the type.
// Test code, one thread.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "platform/ittal.h"

namespace node_test {

inline ittalCondition condition(uint32_t type, uint32_t code) {
    ittalCondition out{};
    out.selector[0] = '0';
    out.type = type;
    out.code = code;
    return out;
}

inline ittalCondition anyFrame() {
    return condition(0, 0);
}

inline ittalCondition etherTypeIs(uint16_t value) {
    ittalCondition out = condition(1, 5);
    out.u.value = value;
    return out;
}

inline ittalCondition dhcpMessage(uint8_t selection) {
    ittalCondition out = condition(2, 29);
    out.u.match.selection = selection;
    return out;
}

// Types 3, 4 and 5: the option begins with the pattern.
inline ittalCondition optionBegins(uint32_t type, std::string_view pattern) {
    ittalCondition out = condition(type, 29);
    out.u.match.subCode = type == 5 ? 4 : type - 2;
    std::copy(pattern.begin(), pattern.end(), out.u.match.pattern);
    out.u.match.length = static_cast<unsigned char>(pattern.size());
    return out;
}

using MacBytes = std::array<uint8_t, 6>;

inline ittalCondition sourceMacIs(const MacBytes& address, const MacBytes& mask) {
    ittalCondition out = condition(6, 3);
    std::copy(address.begin(), address.end(), out.u.mac.addr);
    std::copy(mask.begin(), mask.end(), out.u.mac.mask);
    return out;
}

inline ittalCondition sourceIpIs(uint32_t address, uint32_t mask) {
    ittalCondition out = condition(7, 11);
    out.u.ip.addr = address;
    out.u.ip.mask = mask;
    return out;
}

inline ittalCondition outerVlanIs(uint16_t value) {
    ittalCondition out = condition(8, 6);
    out.u.value = value;
    return out;
}

inline ittalCondition userPattern() {
    return condition(9, 34);
}

}  // namespace node_test
