// Numbers as the C library's sscanf reads them. Pure; any thread.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <optional>
#include <string>

namespace oracle {

// The text up to its first NUL, with "%<width>d" or "%<width>x"; width 0 stands for none.
std::optional<uint32_t> scanDecimal(const std::string& text, size_t width = 0);
std::optional<uint32_t> scanHex(const std::string& text, size_t width = 0);

}  // namespace oracle
