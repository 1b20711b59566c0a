// Reads one number from a text by the rules of the scanf family: leading white space is
// skipped and not counted, then at most `width` characters of sign, prefix and digits.
// Pure; any thread. Empty when no digit was found: the caller's value then stays as it was.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <optional>
#include <string_view>

namespace tal_text {

constexpr size_t anyWidth = static_cast<size_t>(-1);

// As "%d", taken as the low 32 bits; up to 18 digits "%u" reads the same bits.
std::optional<uint32_t> scanDecimal(std::string_view text, size_t width = anyWidth);

// As "%x": an optional "0x" counts towards the width.
std::optional<uint32_t> scanHex(std::string_view text, size_t width = anyWidth);

// As scanHex, and takes what was read off the front of the text; a failed read takes nothing.
std::optional<uint32_t> takeHex(std::string_view& text, size_t width = anyWidth);

// Reads pieces of eight characters, each as scanHex does, the last one as long as the text lasts.
// A word without a piece, or whose piece has no digit, stays as it was.
void scanHexWords(std::string_view text, uint32_t (&words)[32]);

}  // namespace tal_text
