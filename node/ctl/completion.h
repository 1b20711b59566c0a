// Scripts that complete talctl's words in a shell, written from the tree of commands. Pure.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace node::ctl {

std::string bashCompletion(const CLI::App& app);
std::string zshCompletion(const CLI::App& app);

}  // namespace node::ctl
