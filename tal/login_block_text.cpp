// Writer and reader of a stored block stand side by side because they differ on purpose in one
// place: the VLAN id is written in hexadecimal and read as decimal. The file format has always
// been so; 100 is written "64" and comes back as 64.
//
// A value of a length that the format forbids makes the block corrupt. A value of permitted
// length that cannot be read as a number gives 0, or leaves the field alone where that has always
// been so; the table in overlayLine shows which is which.
#include "tal/login_block_text.h"

#include "tal/identifier_text.h"
#include "tal/scan_number.h"
#include "tal/storage_format.h"

#include <string.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string_view>

namespace tal_text {

namespace {

// Lower case, padded with zeros to `digits`.
std::string hexText(uint32_t value, size_t digits) {
    char text[8];
    const char* const end = std::to_chars(text, text + sizeof text, value, 16).ptr;
    const size_t length = static_cast<size_t>(end - text);
    std::string padded(digits > length ? digits - length : 0, '0');
    return padded.append(text, length);
}

std::string patternText(const uint32_t (&words)[32]) {
    std::string text;
    text.reserve(patternTextLength);
    for (const uint32_t word : words)
        text += hexText(word, 8);
    return text;
}

std::string_view fieldText(const char (&field)[64]) {
    return {field, strnlen(field, longestText)};
}

bool readText(std::string_view value, char (&field)[64]) {
    if (value.size() > longestText)
        return false;
    std::fill(std::begin(field), std::end(field), '\0');
    value.copy(field, value.size());
    return true;
}

// Six hex numbers of at most two digits joined by ":"; what follows them is not looked at.
std::optional<std::array<unsigned char, 6>> readMac(std::string_view value) {
    std::array<unsigned char, 6> mac{};
    for (size_t i = 0; i < mac.size(); ++i) {
        if (i > 0) {
            if (!value.starts_with(':'))
                return std::nullopt;
            value.remove_prefix(1);
        }
        const std::optional<uint32_t> byte = takeHex(value, 2);
        if (!byte)
            return std::nullopt;
        mac[i] = static_cast<unsigned char>(*byte);
    }
    return mac;
}

bool readPattern(std::string_view value, uint32_t (&words)[32]) {
    if (value.empty())
        return true;
    if (value.size() != patternTextLength)
        return false;
    scanHexWords(value, words);
    return true;
}

// False when the line is corrupt.
bool overlayLine(std::string_view line, rpcTalLoginBlockBll& block) {
    std::string_view value;
    const auto is = [&line, &value](std::string_view label) {
        if (!line.starts_with(label))
            return false;
        value = line.substr(label.size());
        return true;
    };

    if (is(labelAaaType)) {
        const std::optional<uint32_t> type = scanHex(value, 2);
        if (value.size() != 2 || !type)
            return false;
        block.LoginAAAtype = static_cast<unsigned char>(*type);
    } else if (is(labelCircuitId)) {
        return readText(value, block.circuitId);
    } else if (is(labelRemoteId)) {
        return readText(value, block.remoteId);
    } else if (is(labelVendorId)) {
        return readText(value, block.vendorId);
    } else if (is(labelClientId)) {
        return readText(value, block.clientId);
    } else if (is(labelExtraString)) {
        return readText(value, block.extraString);
    } else if (is(labelSourceMac)) {
        if (value.size() != macTextLength)
            return false;
        const std::array<unsigned char, 6> none{};
        const std::array<unsigned char, 6> mac = readMac(value).value_or(none);
        std::copy(mac.begin(), mac.end(), block.sourceMac);
    } else if (is(labelSourceIp)) {
        if (value.size() > 8)
            return false;
        block.sourceIP = scanHex(value).value_or(block.sourceIP);
    } else if (is(labelUserPatternSequence)) {
        return readPattern(value, block.userPatternSequence);
    } else if (is(labelUserPatternMask)) {
        return readPattern(value, block.userPatternMask);
    } else if (is(labelExtraInt)) {
        if (value.size() != 8)
            return false;
        block.extraInt = scanHex(value).value_or(0);
    } else if (is(labelLoginIdType)) {
        if (value.size() != 2)
            return false;
        block.loginIdType = static_cast<unsigned char>(scanHex(value).value_or(0));
    } else if (is(labelVlanId)) {
        if (value.size() > 4)
            return false;
        // Kept: written in hexadecimal, read as decimal.
        block.vlanId = scanDecimal(value).value_or(0);
    }
    return true;
}

}  // namespace

std::string composeLoginBlock(const rpcTalLoginBlockBll& block) {
    std::string text;
    const auto add = [&text](std::string_view label, std::string_view value) {
        if (!text.empty())
            text += '\n';
        text += label;
        text += value;
    };
    add(labelInterface, std::to_string(block.interface));
    add(labelAaaType, hexText(block.LoginAAAtype, 2));
    add(labelCircuitId, fieldText(block.circuitId));
    add(labelRemoteId, fieldText(block.remoteId));
    add(labelVendorId, fieldText(block.vendorId));
    add(labelClientId, fieldText(block.clientId));
    add(labelSourceMac, macText(block.sourceMac));
    add(labelSourceIp, hexText(block.sourceIP, 8));
    add(labelUserPatternSequence, patternText(block.userPatternSequence));
    add(labelUserPatternMask, patternText(block.userPatternMask));
    add(labelExtraInt, hexText(block.extraInt, 8));
    add(labelExtraString, fieldText(block.extraString));
    add(labelLoginIdType, hexText(block.loginIdType, 2));
    // Kept: the only number without padding, and in hexadecimal though it is read as decimal.
    add(labelVlanId, hexText(block.vlanId, 1));
    return text;
}

bool overlayLoginBlock(const std::vector<std::string>& lines, size_t index,
                       rpcTalLoginBlockBll& block) {
    const size_t end = std::min(lines.size(), index + linesPerBlock);
    for (; index < end; ++index) {
        if (!overlayLine(lines[index], block))
            return false;
    }
    return true;
}

}  // namespace tal_text
