#include "tests/oracle/scan_oracle.h"

#include <stdio.h>

namespace oracle {

namespace {

std::string format(size_t width, char conversion) {
    std::string text = "%";
    if (width != 0)
        text += std::to_string(width);
    text += conversion;
    return text;
}

}  // namespace

// The format is no literal here, so the compiler cannot check it; both take one unsigned.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

std::optional<uint32_t> scanDecimal(const std::string& text, size_t width) {
    int number = 0;
    if (sscanf(text.c_str(), format(width, 'd').c_str(), &number) != 1)
        return std::nullopt;
    return static_cast<uint32_t>(number);
}

std::optional<uint32_t> scanHex(const std::string& text, size_t width) {
    unsigned number = 0;
    if (sscanf(text.c_str(), format(width, 'x').c_str(), &number) != 1)
        return std::nullopt;
    return number;
}

#pragma GCC diagnostic pop

}  // namespace oracle
