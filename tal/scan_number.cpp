// The formats were once read with sscanf, and the files and event lines in the field rely on its
// habits. The scan is written out because it runs some fifty times per event line, where sscanf
// measures and parses the text anew each time. Most of those numbers are words of a pattern, eight
// digits each, which are read without a branch on any digit. tests/oracle/ keeps the literal twin;
// tests/unit/scan_number_test.cpp compares the two.
//
// What counts: white space of the C locale is skipped without counting towards the width; sign
// and "0x" count; "0x" without a digit behind it reads as 0; a value saturates at 64 bits (with
// its sign for decimal, without for hexadecimal) before its low 32 bits are kept.
#include "tal/scan_number.h"

#include <array>
#include <limits>

namespace tal_text {

namespace {

bool isSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr unsigned char noDigit = 16;  // has a bit that no digit has

// Looked up instead of compared: which range a random hex digit falls in cannot be predicted.
constexpr std::array<unsigned char, 256> digitValues = [] {
    std::array<unsigned char, 256> values;
    values.fill(noDigit);
    for (unsigned char i = 0; i < 10; ++i)
        values['0' + i] = i;
    for (unsigned char i = 10; i < 16; ++i)
        values['a' + i - 10] = values['A' + i - 10] = i;
    return values;
}();

struct Scanned {
    bool negative = false;
    bool overflow = false;
    uint64_t magnitude = 0;
    size_t length = 0;  // characters read, blanks included
};

// The base is known when this is compiled, so that the check for overflow divides nothing.
template <unsigned base>
std::optional<Scanned> scan(std::string_view text, size_t width) {
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
        const unsigned digit = digitValues[static_cast<unsigned char>(text[at])];
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

// Eight digits and nothing else, which is what words look like; empty for any other text.
std::optional<uint32_t> plainHexWord(std::string_view text) {
    if (text.size() != 8)
        return std::nullopt;
    uint32_t value = 0;
    unsigned seen = 0;
    for (size_t i = 0; i < 8; ++i) {
        const unsigned digit = digitValues[static_cast<unsigned char>(text[i])];
        seen |= digit;
        value = value << 4 | digit;
    }
    if (seen >= noDigit)
        return std::nullopt;
    return value;
}

uint32_t hexValue(const Scanned& number) {
    if (number.overflow)
        return std::numeric_limits<uint32_t>::max();
    return static_cast<uint32_t>(number.negative ? 0 - number.magnitude : number.magnitude);
}

}  // namespace

std::optional<uint32_t> scanDecimal(std::string_view text, size_t width) {
    const std::optional<Scanned> number = scan<10>(text, width);
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
    const std::optional<Scanned> number = scan<16>(text, width);
    if (!number)
        return std::nullopt;
    text.remove_prefix(number->length);
    return hexValue(*number);
}

void scanHexWords(std::string_view text, uint32_t (&words)[32]) {
    for (uint32_t& word : words) {
        const std::string_view piece = text.substr(0, 8);
        text.remove_prefix(piece.size());
        const std::optional<uint32_t> plain = plainHexWord(piece);
        word = plain ? *plain : scanHex(piece).value_or(word);
    }
}

}  // namespace tal_text
