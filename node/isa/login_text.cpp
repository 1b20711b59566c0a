#include "node/isa/login_text.h"

#include <cstdio>

namespace node {

namespace {

std::string macText(const unsigned char* mac) {
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
                  mac[3], mac[4], mac[5]);
    return text;
}

std::string addressText(uint32_t address) {
    char text[16];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", address >> 24, address >> 16 & 0xff,
                  address >> 8 & 0xff, address & 0xff);
    return text;
}

std::string patternText(const uint32_t (&words)[32]) {
    std::string text;
    for (const uint32_t word : words) {
        char digits[9];
        std::snprintf(digits, sizeof digits, "%08x", word);
        text += digits;
    }
    return text;
}

}  // namespace

std::vector<std::pair<std::string, std::string>> loginIdentifiers(
    const rpcTalLoginBlockBll& block) {
    std::vector<std::pair<std::string, std::string>> identifiers;
    const auto add = [&](unsigned bit, const char* name, const std::string& value) {
        if (block.loginIdType & bit) {
            identifiers.emplace_back(name, value);
        }
    };
    add(talLoginIdCircuitId, "circuit", fieldText(block.circuitId));
    add(talLoginIdRemoteId, "remote", fieldText(block.remoteId));
    add(talLoginIdVendorId, "vendor", fieldText(block.vendorId));
    add(talLoginIdClientId, "client", fieldText(block.clientId));
    add(talLoginIdSourceMac, "mac", macText(block.sourceMac));
    add(talLoginIdSourceIp, "ip", addressText(block.sourceIP));
    add(talLoginIdVlan, "vlan", std::to_string(block.vlanId));
    add(talLoginIdUserPattern, "pattern", patternText(block.userPatternSequence));
    return identifiers;
}

std::string loginText(const rpcTalLoginBlockBll& block) {
    std::string text;
    for (const auto& [name, value] : loginIdentifiers(block)) {
        const bool isText =
            name == "circuit" || name == "remote" || name == "vendor" || name == "client";
        text += text.empty() ? "" : " ";
        text += name + "=" + (name == "pattern" ? "128 bytes" : isText ? '"' + value + '"' : value);
    }
    return text.empty() ? "without identifiers" : text;
}

}  // namespace node
