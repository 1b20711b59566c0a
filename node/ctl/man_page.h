// The manual page, written from the same words as the help. Pure.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace node::ctl {

std::string manPage(const CLI::App& app);

}  // namespace node::ctl
