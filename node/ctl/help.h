// The help of a command, short enough for one screen of 24 lines by 80 columns. Pure.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace node::ctl {

// One line of a list of commands, arguments or options.
struct HelpEntry {
    std::string name;  // "--vlan ID"
    std::string text;
};

std::string usageOf(const CLI::App& command);  // "talctl rule add [OPTIONS] INTERFACE"
std::vector<HelpEntry> commandsOf(const CLI::App& command);
std::vector<HelpEntry> argumentsOf(const CLI::App& command);
std::vector<HelpEntry> optionsOf(const CLI::App& command);  // without --help

class HelpFormatter : public CLI::FormatterBase {
public:
    std::string make_help(const CLI::App* command, std::string name,
                          CLI::AppFormatMode mode) const override;
};

}  // namespace node::ctl
