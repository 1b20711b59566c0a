// The engine's event line has fields at fixed positions, each written one character wider than
// it is read: the routine that once cut them out reserved the last character for a terminating
// NUL. Engines in the field count on it, so the positions below are the effective ones.
//
//    0   "tal"                           26   address, four groups of three digits and a dot
//    3   Linux interface name, 4 wide    41   128 pattern bytes as hex
//    8   AAA selector, request kind     297   up to three options
//   10   VLAN id, 4 wide
//   14   MAC address, 12 hex digits
//
// A number that cannot be read leaves its target alone. The bytes of the MAC address share one
// target and the octets of the address another, so such a byte repeats the one before it.
//
// The line is walked with views, without copies and without sscanf; tests/oracle/ decodes it the
// slow, literal way and the two are compared on random and mutated lines.
#include "tal/event_line.h"

#include "tal/scan_number.h"

namespace tal_text {

namespace {

constexpr size_t nameAt = 3;
constexpr size_t nameWidth = 4;
constexpr size_t nameNeeds = 8;
constexpr size_t vlanAt = 10;
constexpr size_t vlanNeeds = eventLineHasTraffic;
constexpr size_t macAt = 14;
constexpr size_t macNeeds = 26;
constexpr size_t addressAt = 26;
constexpr size_t addressNeeds = 41;
constexpr size_t patternAt = 41;
constexpr size_t patternNeeds = 297;
constexpr size_t optionsAt = 297;
constexpr size_t optionsNeeds = 300;

constexpr unsigned optionRemoteId = 2;
constexpr unsigned optionVendorId = 60;
constexpr unsigned optionClientId = 61;
constexpr size_t mostOptions = 3;
constexpr size_t longestIdentifier = 254;

void decodeMac(std::string_view line, EventFields& fields) {
    uint32_t byte = 0;
    for (size_t k = 0; k < 6; ++k) {
        // Kept: one digit per byte, the first of each pair.
        byte = scanHex(line.substr(macAt + 2 * k, 1)).value_or(byte);
        fields.sourceMac[k] = static_cast<unsigned char>(byte);
    }
}

void decodeAddress(std::string_view line, EventFields& fields) {
    uint32_t octet = 0;
    for (size_t i = 0; i < 4; ++i) {
        // Kept: two digits per octet, the first of each group.
        octet = scanDecimal(line.substr(addressAt + 4 * i, 2)).value_or(octet);
        fields.sourceIp |= (octet & 0xFF) << (24 - 8 * i);
    }
}

void decodePattern(std::string_view line, EventFields& fields) {
    // Kept: the field ends one digit early, so the last word has seven.
    scanHexWords(line.substr(patternAt, 255), fields.pattern);
    fields.patternPresent = true;
}

// Three characters at the front of `rest`, taken off it; none when fewer are left.
std::optional<int32_t> takeNumber(std::string_view& rest) {
    if (rest.size() < 3)
        return std::nullopt;
    const uint32_t number = scanDecimal(rest.substr(0, 3), 3).value_or(0);
    rest.remove_prefix(3);
    return static_cast<int32_t>(number);
}

std::string_view* identifierOf(int32_t code, EventFields& fields) {
    switch (code) {
        case optionRemoteId:
            return &fields.remoteId;
        case optionVendorId:
            return &fields.vendorId;
        case optionClientId:
            return &fields.clientId;
        default:
            return nullptr;
    }
}

void decodeOptions(std::string_view rest, EventFields& fields) {
    for (size_t n = 0; n < mostOptions; ++n) {
        const std::optional<int32_t> code = takeNumber(rest);
        if (!code)
            return;
        std::string_view* const identifier = identifierOf(*code, fields);
        if (identifier == nullptr)
            return;
        const std::optional<int32_t> length = takeNumber(rest);
        if (!length)
            return;
        // The type of a client id says whether its data are hex pairs; they are kept as text
        // either way.
        if (*code == optionClientId && !takeNumber(rest))
            return;
        if (*length < 0 || rest.size() < static_cast<size_t>(*length))
            return;
        const std::string_view data = rest.substr(0, static_cast<size_t>(*length));
        if (data.size() <= longestIdentifier)
            *identifier = data;
        rest.remove_prefix(data.size());
    }
}

}  // namespace

std::optional<std::string_view> eventLineInterface(std::string_view line) {
    if (!line.starts_with("tal") || line.size() < nameNeeds)
        return std::nullopt;
    return line.substr(nameAt, nameWidth);
}

EventFields decodeEventFields(std::string_view line) {
    EventFields fields;
    if (line.size() < vlanNeeds)
        return fields;
    // Kept: three of the field's four characters.
    fields.vlanId = static_cast<uint16_t>(scanDecimal(line.substr(vlanAt, 3)).value_or(0));
    if (line.size() < macNeeds)
        return fields;
    decodeMac(line, fields);
    if (line.size() < addressNeeds)
        return fields;
    decodeAddress(line, fields);
    if (line.size() < patternNeeds)
        return fields;
    decodePattern(line, fields);
    if (line.size() >= optionsNeeds)
        decodeOptions(line.substr(optionsAt), fields);
    return fields;
}

std::optional<unsigned char> loginAaaType(unsigned selector) {
    switch (selector) {
        case 0:
            return 1;
        case 1:
            return 2;
        default:
            return std::nullopt;
    }
}

}  // namespace tal_text
