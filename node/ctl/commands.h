// The command line of talctl: its tree of commands, and what each of them does.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace node::ctl {

// Runs a command line without the program's name and returns the exit code. Answers go to
// `out`, what went wrong to `err`.
int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);

}  // namespace node::ctl
