// The storage file as a list of lines: splitting, validity and lookup. Pure; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tal_text {

// Appends the non-empty lines of the file's contents. A line ends at a newline and counts up
// to its first NUL; one of 300 or more characters is cut to 299 and ends the reading.
void appendStorageLines(std::string_view contents, std::vector<std::string>& lines);

// True for a file of whole blocks whose lines all carry a known label and a value of
// permitted length.
bool storageLinesValid(const std::vector<std::string>& lines);

// Index of the first "interface: " line with this id; lines need not be aligned to blocks.
std::optional<unsigned> findInterfaceLine(const std::vector<std::string>& lines,
                                          unsigned interfaceId);

}  // namespace tal_text
