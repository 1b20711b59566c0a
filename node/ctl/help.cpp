#include "node/ctl/help.h"

#include <algorithm>

namespace node::ctl {

namespace {

std::string listOf(const std::string& title, const std::vector<HelpEntry>& entries) {
    if (entries.empty()) {
        return "";
    }
    size_t width = 0;
    for (const HelpEntry& entry : entries) {
        width = std::max(width, entry.name.size());
    }
    std::string text = title + ":\n";
    for (const HelpEntry& entry : entries) {
        text +=
            "  " + entry.name + std::string(width - entry.name.size() + 2, ' ') + entry.text + "\n";
    }
    return text;
}

std::string namesOf(const CLI::Option& option) {
    std::string names;
    for (const std::string& name : option.get_snames()) {
        names += (names.empty() ? "-" : ", -") + name;
    }
    for (const std::string& name : option.get_lnames()) {
        names += (names.empty() ? "--" : ", --") + name;
    }
    return names;
}

std::string valueOf(const CLI::Option& option) {
    if (option.get_items_expected_max() == 0) {
        return "";
    }
    const std::string type = option.get_type_name();
    return option.get_items_expected_min() == 0 ? " [" + type + "]" : " " + type;
}

std::string textOf(const CLI::Option& option) {
    const std::string environment = option.get_envname();
    return option.get_description() + (environment.empty() ? "" : " ($" + environment + ")");
}

}  // namespace

std::string usageOf(const CLI::App& command) {
    std::string usage = command.get_name();
    for (const CLI::App* above = command.get_parent(); above != nullptr;
         above = above->get_parent()) {
        usage.insert(0, above->get_name() + " ");
    }
    if (!optionsOf(command).empty()) {
        usage += " [OPTIONS]";
    }
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_positional()) {
            const std::string type = option->get_type_name();
            usage += option->get_required() ? " " + type : " [" + type + "]";
        }
    }
    return usage + (commandsOf(command).empty() ? "" : " COMMAND");
}

std::vector<HelpEntry> commandsOf(const CLI::App& command) {
    std::vector<HelpEntry> entries;
    for (const CLI::App* each : command.get_subcommands([](const CLI::App*) { return true; })) {
        entries.push_back({each->get_name(), each->get_description()});
    }
    return entries;
}

std::vector<HelpEntry> argumentsOf(const CLI::App& command) {
    std::vector<HelpEntry> entries;
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_positional()) {
            entries.push_back({option->get_type_name(), option->get_description()});
        }
    }
    return entries;
}

std::vector<HelpEntry> optionsOf(const CLI::App& command) {
    std::vector<HelpEntry> entries;
    for (const CLI::Option* option : command.get_options()) {
        if (!option->get_positional() && option != command.get_help_ptr()) {
            entries.push_back({namesOf(*option) + valueOf(*option), textOf(*option)});
        }
    }
    return entries;
}

std::string HelpFormatter::make_help(const CLI::App* command, std::string,
                                     CLI::AppFormatMode) const {
    const std::string footer = command->get_footer();
    return "Usage: " + usageOf(*command) + "\n" + command->get_description() + "\n" +
           listOf("Arguments", argumentsOf(*command)) + listOf("Commands", commandsOf(*command)) +
           listOf("Options", optionsOf(*command)) + (footer.empty() ? "" : footer + "\n");
}

}  // namespace node::ctl
