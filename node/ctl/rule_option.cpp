// The engine compares beginnings, so a pattern is written with the star that says so: "acme*".
// One without a star would promise an exact comparison that nobody makes, and is refused.
//
// Tests: tests/control/rule_option_test.cpp.
#include "node/ctl/rule_option.h"

#include <algorithm>
#include <cstdio>

#include "node/control/text.h"

namespace node::ctl {

using namespace control;

const std::array<RuleOption, ruleKinds> ruleOptions{{
    {RuleKind::any, "any", "", "any frame"},
    {RuleKind::etherType, "ethertype", "TYPE", "EtherType: 0x0800, ipv4, ipv6, arp"},
    {RuleKind::dhcp, "dhcp", "any|discover", "DHCP messages of a client"},
    {RuleKind::vendorId, "vendor-id", "TEXT*", "DHCP option 60 begins with; also hex:00ff*"},
    {RuleKind::remoteId, "remote-id", "TEXT*", "the relay's remote id begins with"},
    {RuleKind::clientId, "client-id", "TEXT*", "DHCP option 61 begins with"},
    {RuleKind::mac, "mac", "MAC[/MASK]", "source: 00:11:22:00:00:00/ff:ff:ff:00:00:00"},
    {RuleKind::ip, "ip", "IP[/BITS]", "IPv4 source: 192.0.2.0/24"},
    {RuleKind::vlan, "vlan", "ID", "outer VLAN id, 0 to 4094"},
    {RuleKind::userPattern, "user-pattern", "HEX[/HEX]", "first bytes of the frame, under a mask"},
}};

namespace {

constexpr std::pair<std::string_view, uint32_t> etherTypes[] = {
    {"ipv4", 0x0800},
    {"arp", 0x0806},
    {"ipv6", 0x86DD},
};
constexpr std::string_view hexPrefix = "hex:";
constexpr std::string_view macPrefix = "mac:";
constexpr int ipBits = 32;

ParsedRule problem(const std::string& text) {
    return {std::nullopt, text};
}

ParsedRule checked(Rule rule) {
    std::string wrong = problemOf(rule);
    if (!wrong.empty()) {
        return problem(wrong);
    }
    return {std::move(rule), ""};
}

std::optional<uint32_t> etherType(std::string_view text) {
    for (const auto& [name, number] : etherTypes) {
        if (name == text) {
            return number;
        }
    }
    return text.starts_with("0x") || text.starts_with("0X") ? hexNumber(text.substr(2))
                                                            : decimal(text);
}

ParsedRule parsePattern(RuleKind kind, std::string_view text) {
    if (!text.ends_with('*')) {
        return problem("the engine compares beginnings: write \"" + std::string(text) + "*\"");
    }
    text.remove_suffix(1);
    Rule rule{.kind = kind};
    if (text.starts_with(hexPrefix)) {
        const auto bytes = bytesOfHex(text.substr(hexPrefix.size()));
        if (!bytes) {
            return problem("expected pairs of hex digits behind hex:");
        }
        rule.format = PatternFormat::raw;
        rule.value = *bytes;
    } else if (text.starts_with(macPrefix)) {
        const auto bytes = bytesOfMac(text.substr(macPrefix.size()));
        if (!bytes) {
            return problem("expected a MAC address behind mac:");
        }
        rule.format = PatternFormat::mac;
        rule.value = *bytes;
    } else if (text.find('*') != std::string_view::npos) {
        return problem("the star stands at the end; a star to be compared is written as hex:2a*");
    } else {
        rule.value = text;
    }
    return checked(std::move(rule));
}

// What stands before and behind the first slash.
struct Halves {
    std::string_view value;
    std::optional<std::string_view> mask;
};

Halves split(std::string_view text) {
    const size_t slash = text.find('/');
    if (slash == std::string_view::npos) {
        return {text, std::nullopt};
    }
    return {text.substr(0, slash), text.substr(slash + 1)};
}

std::string maskOfBits(uint32_t bits, size_t length) {
    std::string mask(length, '\0');
    for (size_t bit = 0; bit < bits; ++bit) {
        const auto byte = static_cast<unsigned char>(mask[bit / 8]);
        mask[bit / 8] = static_cast<char>(byte | 0x80 >> bit % 8);
    }
    return mask;
}

// A mask as a number of bits, or written like the value.
template <class Parse>
std::optional<std::string> maskOf(std::optional<std::string_view> text, size_t length,
                                  Parse parse) {
    const auto allBits = static_cast<uint32_t>(8 * length);
    if (!text) {
        return maskOfBits(allBits, length);
    }
    if (const auto bits = decimal(*text)) {
        return *bits <= allBits ? std::optional(maskOfBits(*bits, length)) : std::nullopt;
    }
    return parse(*text);
}

ParsedRule parseMac(std::string_view text) {
    const Halves halves = split(text);
    const auto value = bytesOfMac(halves.value);
    const auto mask = maskOf(halves.mask, macLength, bytesOfMac);
    if (!value || !mask) {
        return problem("expected a MAC address, and behind a slash a mask like it");
    }
    return checked({.kind = RuleKind::mac, .value = *value, .mask = *mask});
}

ParsedRule parseIp(std::string_view text) {
    const Halves halves = split(text);
    const auto value = bytesOfIp(halves.value);
    const auto mask = maskOf(halves.mask, ipLength, bytesOfIp);
    if (!value || !mask) {
        return problem("expected an IPv4 address, and behind a slash 1 to 32 bits or a mask");
    }
    return checked({.kind = RuleKind::ip, .value = *value, .mask = *mask});
}

ParsedRule parseUserPattern(std::string_view text) {
    const Halves halves = split(text);
    auto value = bytesOfHex(halves.value);
    auto mask = halves.mask ? bytesOfHex(*halves.mask)
                            : std::optional(std::string(value.value_or("").size(), '\xff'));
    if (!value || !mask || value->empty()) {
        return problem("expected pairs of hex digits, and behind a slash as many for the mask");
    }
    if (value->size() != mask->size()) {
        return problem("the pattern and its mask differ in length");
    }
    if (value->size() > userPatternLength) {
        return problem("a user pattern has at most 128 bytes");
    }
    value->resize(userPatternLength);
    mask->resize(userPatternLength);
    return checked({.kind = RuleKind::userPattern, .value = *value, .mask = *mask});
}

ParsedRule parseNumber(RuleKind kind, std::optional<uint32_t> number, const char* expected) {
    return number ? checked({.kind = kind, .number = *number}) : problem(expected);
}

bool readsAsText(const std::string& value) {
    return value.find('*') == std::string::npos && !value.starts_with(hexPrefix) &&
           !value.starts_with(macPrefix) &&
           std::all_of(value.begin(), value.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

std::string patternText(const Rule& rule) {
    if (rule.format == PatternFormat::mac) {
        return std::string(macPrefix) + macText(rule.value) + "*";
    }
    if (rule.format == PatternFormat::text && readsAsText(rule.value)) {
        return rule.value + "*";
    }
    return std::string(hexPrefix) + hexOf(rule.value) + "*";
}

std::string ipMaskText(const std::string& mask) {
    for (uint32_t bits = 0; bits <= ipBits; ++bits) {
        if (maskOfBits(bits, ipLength) == mask) {
            return std::to_string(bits);
        }
    }
    return ipText(mask);
}

std::string userPatternText(const Rule& rule) {
    size_t length = userPatternLength;
    while (length > 0 && rule.value[length - 1] == 0 && rule.mask[length - 1] == 0) {
        --length;
    }
    return hexOf(std::string_view(rule.value).substr(0, length)) + "/" +
           hexOf(std::string_view(rule.mask).substr(0, length));
}

std::string etherTypeText(uint32_t number) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%04x", number);
    return text;
}

}  // namespace

std::string_view nameOf(RuleKind kind) {
    return ruleOptions[static_cast<size_t>(kind)].name;
}

std::optional<RuleKind> kindNamed(std::string_view name) {
    for (const RuleOption& option : ruleOptions) {
        if (option.name == name) {
            return option.kind;
        }
    }
    return std::nullopt;
}

ParsedRule parseRule(RuleKind kind, std::string_view text) {
    switch (kind) {
        case RuleKind::any:
            return text.empty() ? checked({.kind = kind}) : problem("it takes no value");
        case RuleKind::etherType:
            return parseNumber(kind, etherType(text), "expected an EtherType such as 0x0800");
        case RuleKind::dhcp:
            return parseNumber(kind,
                               text == "any"        ? std::optional(dhcpAny)
                               : text == "discover" ? std::optional(dhcpDiscover)
                                                    : std::nullopt,
                               "expected any or discover");
        case RuleKind::vendorId:
        case RuleKind::remoteId:
        case RuleKind::clientId:
            return parsePattern(kind, text);
        case RuleKind::mac:
            return parseMac(text);
        case RuleKind::ip:
            return parseIp(text);
        case RuleKind::vlan:
            return parseNumber(kind, decimal(text), "expected a VLAN id such as 100");
        case RuleKind::userPattern:
            return parseUserPattern(text);
    }
    return problem("unknown kind of rule");
}

std::string valueText(const Rule& rule) {
    switch (rule.kind) {
        case RuleKind::any:
            break;
        case RuleKind::etherType:
            return etherTypeText(rule.number);
        case RuleKind::dhcp:
            return rule.number == dhcpDiscover ? "discover" : "any";
        case RuleKind::vendorId:
        case RuleKind::remoteId:
        case RuleKind::clientId:
            return patternText(rule);
        case RuleKind::mac:
            return macText(rule.value) + "/" + macText(rule.mask);
        case RuleKind::ip:
            return ipText(rule.value) + "/" + ipMaskText(rule.mask);
        case RuleKind::vlan:
            return std::to_string(rule.number);
        case RuleKind::userPattern:
            return userPatternText(rule);
    }
    return "";
}

}  // namespace node::ctl
