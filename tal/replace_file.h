// Reads and replaces small files so that a crash at any instant leaves old or new contents.
// No lock of its own: callers that share a file serialise themselves.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tal_file {

// The contents, read up to the end, the first error or the first line of `tooLong` characters.
// A missing file is created empty, mode 0600; empty when it cannot be opened to read and append.
std::optional<std::string> readOrCreate(const std::string& path, size_t tooLong);

// Puts `contents` in the place of the file's. True when they are there.
bool replace(const std::string& path, std::string_view contents);

}  // namespace tal_file
