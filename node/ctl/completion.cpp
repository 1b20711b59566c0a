// The script knows the words that may follow each path of commands, and what each option and
// argument takes: fixed words, a file, or something that only the user knows. The zsh script is
// the same one under zsh's own emulation of bash's completion.
//
// Tests: tests/control/talctl_shell.py.
#include "node/ctl/completion.h"

#include <algorithm>
#include <vector>

namespace node::ctl {

namespace {

using Commands = std::vector<const CLI::App*>;

Commands below(const CLI::App& command) {
    return command.get_subcommands([](const CLI::App*) { return true; });
}

std::string pathOf(const CLI::App& command) {
    const CLI::App* const above = command.get_parent();
    if (above == nullptr) {
        return "";
    }
    const std::string path = pathOf(*above);
    return path + (path.empty() ? "" : " ") + command.get_name();
}

// The fixed words of an option or argument: "on|off" is two, FILE stands for a file.
std::string valuesOf(const CLI::Option& option) {
    std::string type = option.get_type_name();
    if (type == "FILE") {
        return "@file";
    }
    if (type.find('|') == std::string::npos) {
        return "";
    }
    std::replace(type.begin(), type.end(), '|', ' ');
    return type;
}

std::string wordsOf(const CLI::App& command) {
    std::string words;
    const auto append = [&](const std::string& word) {
        words += (words.empty() ? "" : " ") + word;
    };
    for (const CLI::App* each : below(command)) {
        append(each->get_name());
    }
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_positional()) {
            const std::string values = valuesOf(*option);
            if (!values.empty()) {
                append(values);
            }
        }
        for (const std::string& name : option->get_lnames()) {
            append("--" + name);
        }
    }
    return words;
}

std::string commandCases(const CLI::App& command) {
    std::string cases =
        "        \"" + pathOf(command) + "\") words=\"" + wordsOf(command) + "\" ;;\n";
    for (const CLI::App* each : below(command)) {
        cases += commandCases(*each);
    }
    return cases;
}

std::string optionCases(const CLI::App& command) {
    std::string cases;
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_items_expected_min() > 0) {
            for (const std::string& name : option->get_lnames()) {
                cases += "        \"" + pathOf(command) + " --" + name + "\") words=\"" +
                         valuesOf(*option) + "\" ;;\n";
            }
        }
    }
    for (const CLI::App* each : below(command)) {
        cases += optionCases(*each);
    }
    return cases;
}

// The commands, as the script finds its way among the words already typed.
std::string commandPaths(const CLI::App& command) {
    std::string paths;
    for (const CLI::App* each : below(command)) {
        paths += (paths.empty() ? "" : "|") + ("\"" + pathOf(*each) + "\"");
        const std::string inner = commandPaths(*each);
        paths += inner.empty() ? "" : "|" + inner;
    }
    return paths;
}

}  // namespace

std::string bashCompletion(const CLI::App& app) {
    return R"sh(# Completion of talctl: eval "$(talctl completion bash)"
_talctl() {
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]}
    local path="" words="" i next
    for ((i = 1; i < COMP_CWORD; i++)); do
        next="${path:+$path }${COMP_WORDS[i]}"
        case "$next" in
        )sh" +
           commandPaths(app) +
           R"sh() path=$next ;;
        esac
    done
    case "$path" in
)sh" + commandCases(app) +
           R"sh(    esac
    # Behind an option its values come instead; talctl's own options may stand anywhere.
    for next in "$path $before" " $before"; do
        case "$next" in
)sh" + optionCases(app) +
           R"sh(        *) continue ;;
        esac
        break
    done
    case "$words" in
        *@file*) COMPREPLY=($(compgen -f -- "$current")) ;;
        *) COMPREPLY=($(compgen -W "$words" -- "$current")) ;;
    esac
}
complete -F _talctl talctl
)sh";
}

std::string zshCompletion(const CLI::App& app) {
    return "#compdef talctl\nautoload -U +X bashcompinit && bashcompinit\n" + bashCompletion(app);
}

}  // namespace node::ctl
