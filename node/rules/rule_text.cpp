// The engine compares beginnings of options, so the star that says so may stand at the end of a
// pattern and nowhere else: a star in the middle would promise a search that nobody makes. A
// pattern that looks like a bare MAC address is refused too, because as text it would be
// compared with seventeen characters that no client sends.
// Tests: tests/unit/node_host/rule_text_test.cpp.
#include "node/rules/rule_text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <utility>

#include "node/text/bytes.h"

namespace node {

namespace {

constexpr std::array<std::string_view, ruleTypes> names{
    "any",       "ethertype", "dhcp", "vendor-id", "remote-id",
    "client-id", "mac",       "ip",   "vlan",      "user-pattern"};
constexpr std::pair<std::string_view, uint32_t> etherTypes[] = {
    {"ipv4", etherTypeIpv4}, {"arp", 0x0806}, {"ipv6", 0x86dd}};

constexpr uint32_t lowestEtherType = 0x0600;  // what is below is a length
constexpr uint32_t highestEtherType = 0xffff;
constexpr uint32_t highestVlan = 4094;
constexpr uint32_t ipBits = 32;
constexpr uint32_t macBits = 48;
constexpr size_t longestPattern = 255;
constexpr size_t userPatternBytes = 128;
constexpr std::string_view hexPrefix = "hex:";
constexpr std::string_view macPrefix = "mac:";

constexpr char noProblem[] = "";

std::optional<uint32_t> numberOf(std::string_view text) {
    return text.starts_with("0x") || text.starts_with("0X") ? hexNumberOf(text.substr(2))
                                                            : decimalOf(text);
}

std::string etherTypeFromText(std::string_view text, uint32_t& slot) {
    std::optional<uint32_t> number = numberOf(text);
    for (const auto& [name, value] : etherTypes) {
        number = name == text ? value : number;
    }
    if (!number || *number < lowestEtherType || *number > highestEtherType) {
        return "must be an EtherType, 0x0600 to 0xffff, or \"ipv4\", \"arp\" or \"ipv6\"";
    }
    if (isTagType(*number)) {
        return "must not be the type of a VLAN tag: the type behind all tags is compared";
    }
    slot = *number;
    return noProblem;
}

std::string dhcpFromText(std::string_view text, uint32_t& slot) {
    if (text != "any" && text != "discover") {
        return "must be \"any\" or \"discover\"";
    }
    slot = text == "any" ? dhcpAnyMessage : dhcpDiscoverOnly;
    return noProblem;
}

std::string vlanFromText(std::string_view text, uint32_t& slot) {
    const std::optional<uint32_t> number = decimalOf(text);
    if (!number || *number > highestVlan) {
        return "must be a VLAN id, 0 to 4094";
    }
    slot = *number;
    return noProblem;
}

bool isPlainText(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

std::string patternFromText(std::string_view text, rpcTalRulePattern& slot) {
    if (text.ends_with('*')) {
        text.remove_suffix(1);
    }
    rpcTalRulePattern pattern{};
    if (text.starts_with(hexPrefix)) {
        const auto bytes = bytesOfHex(text.substr(hexPrefix.size()));
        if (!bytes || bytes->size() > longestPattern) {
            return "must be at most 255 pairs of hex digits behind \"hex:\"";
        }
        pattern.format = patternRaw;
        std::copy(bytes->begin(), bytes->end(), pattern.raw);
        pattern.rawLength = static_cast<uint32_t>(bytes->size());
    } else if (text.starts_with(macPrefix)) {
        const auto mac = macOf(text.substr(macPrefix.size()));
        if (!mac) {
            return "must be six pairs of hex digits joined by \":\" or \"-\" behind \"mac:\"";
        }
        pattern.format = patternMac;
        std::copy(mac->begin(), mac->end(), pattern.mac);
    } else if (macOf(text)) {
        return "must be written as \"mac:" + std::string(text) + "\" to mean the address";
    } else if (text.find('*') != std::string_view::npos) {
        return "must have its star at the end; a star to be compared is \"hex:2a\"";
    } else if (text.size() > longestPattern || !isPlainText(text)) {
        return "must be at most 255 printable characters; other bytes are written \"hex:00ff\"";
    } else {
        pattern.format = patternText;
        std::copy(text.begin(), text.end(), pattern.text);
    }
    slot = pattern;
    return noProblem;
}

// What stands before and behind the first slash.
std::pair<std::string_view, std::optional<std::string_view>> halves(std::string_view text) {
    const size_t slash = text.find('/');
    if (slash == std::string_view::npos) {
        return {text, std::nullopt};
    }
    return {text.substr(0, slash), text.substr(slash + 1)};
}

template <class Bytes>
bool allZero(const Bytes& bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte == 0; });
}

MacAddress macMaskOfBits(uint32_t bits) {
    MacAddress mask{};
    for (uint32_t bit = 0; bit < bits; ++bit) {
        mask[bit / 8] = static_cast<uint8_t>(mask[bit / 8] | 0x80 >> bit % 8);
    }
    return mask;
}

// Without a mask every bit; otherwise a number of bits, or a mask written like an address.
std::optional<MacAddress> macMaskOf(std::optional<std::string_view> text) {
    const std::optional<uint32_t> bits = text ? decimalOf(*text) : macBits;
    if (bits) {
        return *bits <= macBits ? std::optional(macMaskOfBits(*bits)) : std::nullopt;
    }
    return macOf(*text);
}

std::string macFromText(std::string_view text, rpcTalRule& record) {
    const auto [value, maskText] = halves(text);
    const auto address = macOf(value);
    const auto mask = macMaskOf(maskText);
    if (!address || !mask) {
        return "must be a MAC address, or one and its prefix length or mask: "
               "\"00:11:22:00:00:00/ff:ff:ff:00:00:00\"";
    }
    if (allZero(*address) || allZero(*mask)) {
        return "must have a bit set in the address and one in the mask";
    }
    std::copy(address->begin(), address->end(), record.macAddr);
    std::copy(mask->begin(), mask->end(), record.macMask);
    return noProblem;
}

uint32_t maskOfBits(uint32_t bits) {
    return bits == 0 ? 0 : ~uint32_t{0} << (ipBits - bits);
}

// Without a mask every bit; otherwise a number of bits, or a mask written like an address.
std::optional<uint32_t> ipMaskOf(std::optional<std::string_view> text) {
    const std::optional<uint32_t> bits = text ? decimalOf(*text) : ipBits;
    if (bits) {
        return *bits <= ipBits ? std::optional(maskOfBits(*bits)) : std::nullopt;
    }
    return ipOf(*text);
}

std::string ipFromText(std::string_view text, rpcTalRule& record) {
    const auto [value, maskText] = halves(text);
    const auto address = ipOf(value);
    const auto mask = ipMaskOf(maskText);
    if (!address || !mask) {
        return "must be an IPv4 address, or one and its prefix length or mask: \"192.0.2.0/24\"";
    }
    if (*address == 0 || *mask == 0) {
        return "must have a bit set in the address and one in the mask";
    }
    record.ipValue = *address;
    record.ipMask = *mask;
    return noProblem;
}

// The first byte of the frame stands in the top 8 bits of the first word.
void wordsOf(const std::vector<uint8_t>& bytes, uint32_t (&words)[32]) {
    std::fill(std::begin(words), std::end(words), 0);
    for (size_t i = 0; i < bytes.size(); ++i) {
        words[i / 4] |= uint32_t{bytes[i]} << (24 - 8 * (i % 4));
    }
}

std::string userPatternFromText(std::string_view text, rpcTalRule& record) {
    const auto [value, maskText] = halves(text);
    const auto sequence = bytesOfHex(value);
    const auto mask =
        maskText
            ? bytesOfHex(*maskText)
            : std::optional(std::vector<uint8_t>(sequence ? sequence->size() : 0, uint8_t{0xff}));
    if (!sequence || !mask || sequence->size() != mask->size() ||
        sequence->size() > userPatternBytes) {
        return "must be at most 128 pairs of hex digits, and behind a \"/\" as many for the mask";
    }
    if (allZero(*sequence) || allZero(*mask)) {
        return "must have a bit set in the pattern and one in the mask";
    }
    wordsOf(*sequence, record.userPatternSequence);
    wordsOf(*mask, record.userPatternMask);
    return noProblem;
}

std::string slotFromText(uint32_t type, std::string_view text, rpcTalRule& record) {
    switch (type) {
        case ruleAny:
            return text.empty() ? noProblem : "must be without a value";
        case ruleEtherType:
            return etherTypeFromText(text, record.ethType);
        case ruleDhcp:
            return dhcpFromText(text, record.type2Value);
        case ruleVendorId:
        case ruleRemoteId:
        case ruleClientId:
            return patternFromText(text, *patternSlot(record, type));
        case ruleMac:
            return macFromText(text, record);
        case ruleIp:
            return ipFromText(text, record);
        case ruleVlan:
            return vlanFromText(text, record.type8Value);
        case ruleUserPattern:
            return userPatternFromText(text, record);
        default:
            return "must be of a known type";
    }
}

std::string etherTypeText(uint32_t number) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%04x", number);
    return text;
}

std::string patternValueText(const rpcTalRulePattern& pattern) {
    switch (pattern.format) {
        case patternText: {
            const std::string text(pattern.text, strnlen(pattern.text, sizeof pattern.text));
            rpcTalRulePattern again{};
            if (patternFromText(text + "*", again).empty() && again.format == patternText) {
                return text + "*";
            }
            const std::vector<uint8_t> bytes(text.begin(), text.end());
            return std::string(hexPrefix) + hexText(bytes) + "*";
        }
        case patternMac:
            return std::string(macPrefix) + macText(pattern.mac) + "*";
        case patternRaw:
            return std::string(hexPrefix) +
                   hexText({pattern.raw, std::min<size_t>(pattern.rawLength, longestPattern)}) +
                   "*";
        default:
            return "";
    }
}

std::string ipValueText(uint32_t address, uint32_t mask) {
    for (uint32_t bits = 1; bits <= ipBits; ++bits) {
        if (maskOfBits(bits) == mask) {
            return ipText(address) + "/" + std::to_string(bits);
        }
    }
    return ipText(address) + "/" + ipText(mask);
}

std::vector<uint8_t> bytesOf(const uint32_t (&words)[32]) {
    std::vector<uint8_t> bytes;
    for (const uint32_t word : words) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes.push_back(static_cast<uint8_t>(word >> shift));
        }
    }
    return bytes;
}

std::string userPatternText(const rpcTalRule& record) {
    std::vector<uint8_t> sequence = bytesOf(record.userPatternSequence);
    std::vector<uint8_t> mask = bytesOf(record.userPatternMask);
    while (!mask.empty() && mask.back() == 0 && sequence.back() == 0) {
        mask.pop_back();
        sequence.pop_back();
    }
    return hexText(sequence) + "/" + hexText(mask);
}

}  // namespace

std::string_view ruleName(uint32_t type) {
    return type < names.size() ? names[type] : std::string_view();
}

std::optional<uint32_t> ruleTypeNamed(std::string_view name) {
    const auto found = std::find(names.begin(), names.end(), name);
    return found == names.end() ? std::nullopt
                                : std::optional(static_cast<uint32_t>(found - names.begin()));
}

std::string ruleFromText(uint32_t type, std::string_view text, rpcTalRule& record) {
    std::string problem = slotFromText(type, text, record);
    if (problem.empty()) {
        record.type = static_cast<rpc_tal_rule_type>(type);
    }
    return problem;
}

std::string ruleValueText(uint32_t type, const rpcTalRule& record) {
    switch (type) {
        case ruleEtherType:
            return etherTypeText(record.ethType);
        case ruleDhcp:
            return record.type2Value == dhcpDiscoverOnly ? "discover" : "any";
        case ruleVendorId:
        case ruleRemoteId:
        case ruleClientId:
            return patternValueText(*patternSlot(record, type));
        case ruleMac:
            return macText(record.macAddr) + "/" + macText(record.macMask);
        case ruleIp:
            return ipValueText(record.ipValue, record.ipMask);
        case ruleVlan:
            return std::to_string(record.type8Value);
        case ruleUserPattern:
            return userPatternText(record);
        default:
            return "";
    }
}

std::string ruleText(uint32_t type, const rpcTalRule& record) {
    const std::string value = ruleValueText(type, record);
    return std::string(ruleName(type)) + (value.empty() ? "" : " " + value);
}

}  // namespace node
