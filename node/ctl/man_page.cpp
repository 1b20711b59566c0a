#include "node/ctl/man_page.h"

#include "node/ctl/help.h"

namespace node::ctl {

namespace {

// Text as roff takes it literally.
std::string roff(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\\') {
            out += "\\e";
        } else if (c == '-') {
            out += "\\-";
        } else if ((c == '.' || c == '\'') && (out.empty() || out.back() == '\n')) {
            out += std::string("\\&") + c;
        } else {
            out += c;
        }
    }
    return out;
}

std::string entriesOf(const std::vector<HelpEntry>& entries) {
    std::string text;
    for (const HelpEntry& entry : entries) {
        text += ".TP\n\\fB" + roff(entry.name) + "\\fR\n" + roff(entry.text) + "\n";
    }
    return text;
}

// A command without commands below it, or all that are below it.
std::string commandText(const CLI::App& command) {
    const auto below = command.get_subcommands([](const CLI::App*) { return true; });
    if (below.empty()) {
        const std::string footer = command.get_footer();
        return ".SS " + roff(usageOf(command)) + "\n" + roff(command.get_description()) + ".\n" +
               (footer.empty() ? "" : roff(footer) + "\n") + entriesOf(argumentsOf(command)) +
               entriesOf(optionsOf(command));
    }
    std::string text;
    for (const CLI::App* each : below) {
        text += commandText(*each);
    }
    return text;
}

constexpr char exitStatus[] = R"(.SH EXIT STATUS
.TP
.B 0
The node has done what was asked.
.TP
.B 1
The node refused, and says why; or a file of stored logins is corrupt.
.TP
.B 2
The command line cannot be meant.
.TP
.B 3
No node answers at that address.
.TP
.B 4
The command began and could not be finished.
)";

constexpr char files[] = R"(.SH FILES
.TP
.I /run/tal/control.sock
Where a node listens unless its configuration says otherwise. Its owner and group may use it.
.TP
.I /var/log/tal.store.dat
The stored logins of a node.
)";

}  // namespace

std::string manPage(const CLI::App& app) {
    return ".TH TALCTL 1 \"\" \"talctl " TAL_VERSION "\" \"User Commands\"\n.SH NAME\n" +
           roff(app.get_name()) + " \\- manage a TAL node\n.SH SYNOPSIS\n" + roff(usageOf(app)) +
           "\n.SH DESCRIPTION\n" + roff(app.get_description()) + "\n.SH OPTIONS\n" +
           entriesOf(optionsOf(app)) + ".SH COMMANDS\n" + commandText(app) + exitStatus + files;
}

}  // namespace node::ctl
