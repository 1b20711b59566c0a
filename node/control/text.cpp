// Tests: tests/control/text_test.cpp.
#include "node/control/text.h"

#include <charconv>

namespace node::control {

namespace {

constexpr char digits[] = "0123456789abcdef";

int digitValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

template <class Number>
std::optional<Number> wholeNumber(std::string_view text, int base) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, base);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

void appendHex(unsigned char byte, std::string& text) {
    text += digits[byte >> 4];
    text += digits[byte & 0x0F];
}

}  // namespace

std::string escaped(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        if (c == '\\') {
            text += "\\\\";
        } else if (c >= ' ' && c <= '~') {
            text += c;
        } else {
            text += "\\x";
            appendHex(static_cast<unsigned char>(c), text);
        }
    }
    return text;
}

std::string hexOf(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        appendHex(static_cast<unsigned char>(c), text);
    }
    return text;
}

std::string macText(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        text += text.empty() ? "" : ":";
        appendHex(static_cast<unsigned char>(c), text);
    }
    return text;
}

std::string ipText(std::string_view fourBytes) {
    std::string text;
    for (const char c : fourBytes) {
        text += text.empty() ? "" : ".";
        text += std::to_string(static_cast<unsigned char>(c));
    }
    return text;
}

std::optional<std::string> bytesOfHex(std::string_view text) {
    if (text.size() % 2 != 0) {
        return std::nullopt;
    }
    std::string bytes;
    for (size_t i = 0; i < text.size(); i += 2) {
        const int high = digitValue(text[i]);
        const int low = digitValue(text[i + 1]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        bytes += static_cast<char>(high << 4 | low);
    }
    return bytes;
}

std::optional<std::string> bytesOfMac(std::string_view text) {
    constexpr size_t length = 17;
    if (text.size() != length || (text[2] != ':' && text[2] != '-')) {
        return std::nullopt;
    }
    std::string hex;
    for (size_t i = 0; i < length; ++i) {
        if (i % 3 != 2) {
            hex += text[i];
        } else if (text[i] != text[2]) {
            return std::nullopt;
        }
    }
    return bytesOfHex(hex);
}

std::optional<std::string> bytesOfIp(std::string_view text) {
    std::string bytes;
    for (int i = 0; i < 4; ++i) {
        const size_t dot = i < 3 ? text.find('.') : text.size();
        if (dot == std::string_view::npos) {
            return std::nullopt;
        }
        const auto octet = wholeNumber<uint8_t>(text.substr(0, dot), 10);
        if (!octet) {
            return std::nullopt;
        }
        bytes += static_cast<char>(*octet);
        text.remove_prefix(i < 3 ? dot + 1 : dot);
    }
    return bytes;
}

std::optional<uint32_t> decimal(std::string_view text) {
    return wholeNumber<uint32_t>(text, 10);
}

std::optional<uint32_t> hexNumber(std::string_view text) {
    return wholeNumber<uint32_t>(text, 16);
}

}  // namespace node::control
