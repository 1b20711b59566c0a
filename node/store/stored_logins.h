// What the storage file says, as far as the node shows it: which interfaces have a stored
// login. The module owns the file and tells nobody. Pure but for reading; any thread.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace node {

extern const char storedLoginsFile[];

// The text of each interface's block, by interface id. What does not look like a block is
// left out.
std::map<unsigned, std::string> storedLogins(std::string_view contents);

// Of the file; empty when it cannot be read.
std::map<unsigned, std::string> readStoredLogins(const std::string& path);

}  // namespace node
