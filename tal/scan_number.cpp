// The formats were once read with sscanf, and the files and event lines in the field rely on its
// habits. The scan is written out because it runs some fifty times per event line, where sscanf
// measures and parses the text anew each time. tests/oracle/ keeps the literal twin;
// tests/unit/scan_number_test.cpp compares the two.
//
// What counts: white space of the C locale is skipped without counting towards the width; sign
// and "0x" count; "0x" without a digit behind it reads as 0; a value saturates at 64 bits (with
// its sign for decimal, without for hexadecimal) before its low 32 bits are kept.
#include "tal/scan_number.h"

#include <limits>

namespace tal_text {

namespace {

bool isSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

unsigned digitValue(char c) {
    if (c >= '0' && c <= '9')
        return static_cast<unsigned>(c - '0');
    if (c >= 'a' && c <= 'f')
        return static_cast<unsigned>(c - 'a') + 10;
    if (c >= 'A' && c <= 'F')
        return static_cast<unsigned>(c - 'A') + 10;
    return 16;
}

struct Scanned {
    bool negative = false;
    bool overflow = false;
    uint64_t magnitude = 0;
    size_t length = 0;  // characters read, blanks included
};

std::optional<Scanned> scan(std::string_view text, size_t width, unsigned base) {
    size_t blanks = 0;
    while (blanks < text.size() && isSpace(text[blanks]))
        ++blanks;
    text = text.substr(blanks, width);

    Scanned number;
    size_t at = 0;
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) {
        number.negative = text[at] == '-';
        ++at;
    }
    bool anyDigit = false;
    if (base == 16 && at + 1 < text.size() && text[at] == '0' && (text[at + 1] | 0x20) == 'x') {
        anyDigit = true;
        at += 2;
    }
    constexpr uint64_t most = std::numeric_limits<uint64_t>::max();
    for (; at < text.size(); ++at) {
        const unsigned digit = digitValue(text[at]);
        if (digit >= base)
            break;
        anyDigit = true;
        if (number.magnitude > (most - digit) / base)
            number.overflow = true;
        else
            number.magnitude = number.magnitude * base + digit;
    }
    if (!anyDigit)
        return std::nullopt;
    number.length = blanks + at;
    return number;
}

uint32_t hexValue(const Scanned& number) {
    if (number.overflow)
        return std::numeric_limits<uint32_t>::max();
    return static_cast<uint32_t>(number.negative ? 0 - number.magnitude : number.magnitude);
}

}  // namespace

std::optional<uint32_t> scanDecimal(std::string_view text, size_t width) {
    const std::optional<Scanned> number = scan(text, width, 10);
    if (!number)
        return std::nullopt;
    constexpr uint64_t highest = std::numeric_limits<int64_t>::max();
    const bool tooLarge = number->overflow || number->magnitude > highest;
    if (number->negative)
        return tooLarge ? 0 : static_cast<uint32_t>(0 - number->magnitude);
    return static_cast<uint32_t>(tooLarge ? highest : number->magnitude);
}

std::optional<uint32_t> scanHex(std::string_view text, size_t width) {
    return takeHex(text, width);
}

std::optional<uint32_t> takeHex(std::string_view& text, size_t width) {
    const std::optional<Scanned> number = scan(text, width, 16);
    if (!number)
        return std::nullopt;
    text.remove_prefix(number->length);
    return hexValue(*number);
}

}  // namespace tal_text
