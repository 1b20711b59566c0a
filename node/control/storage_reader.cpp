// The file has a reader in the module; this is another one, because a tool that looks at the
// file of a node that does not run must not need the module, and because it has to say where a
// file is broken, which the module never asks. The tests hold the two against each other.
//
// A value that is no number is shown as 0, as the module takes it.
//
// Tests: tests/control/storage_reader_test.cpp.
#include "node/control/storage_reader.h"

#include <iterator>

#include "node/text/bytes.h"

namespace node::control {

namespace {

constexpr size_t linesPerLogin = 14;
constexpr size_t longestLine = 299;
constexpr size_t longestText = 63;
constexpr size_t patternDigits = 256;
constexpr std::string_view interfaceLabel = "interface: ";

struct Line {
    size_t number = 0;
    std::string_view text;
};

uint32_t numberOr0(std::string_view hex) {
    return hexNumberOf(hex).value_or(0);
}

// The lines of a login below its first one.
struct Label {
    std::string_view text;
    size_t shortest;
    size_t longest;
    bool mayBeEmpty;
    void (*take)(std::string_view value, StoredLogin& login);
};

using Value = std::string_view;
using Login = StoredLogin;

constexpr Label labels[] = {
    {"LoginAAAtype: ", 2, 2, false, [](Value v, Login& l) { l.aaaType = numberOr0(v); }},
    {"circuitId: ", 0, longestText, true, [](Value v, Login& l) { l.circuitId = v; }},
    {"remoteId: ", 0, longestText, true, [](Value v, Login& l) { l.remoteId = v; }},
    {"vendorId: ", 0, longestText, true, [](Value v, Login& l) { l.vendorId = v; }},
    {"clientId: ", 0, longestText, true, [](Value v, Login& l) { l.clientId = v; }},
    {"sourceMac: ", 17, 17, false, [](Value v, Login& l) { l.sourceMac = v; }},
    {"sourceIP: ", 0, 8, true, [](Value v, Login& l) { l.sourceIp = numberOr0(v); }},
    {"userPatternSequence: ", patternDigits, patternDigits, true,
     [](Value v, Login& l) { l.userPatternSequence = v; }},
    {"userPatternMask: ", patternDigits, patternDigits, true,
     [](Value v, Login& l) { l.userPatternMask = v; }},
    {"extraInt: ", 8, 8, false, [](Value v, Login& l) { l.extraInt = numberOr0(v); }},
    {"extraString: ", 0, longestText, true, [](Value v, Login& l) { l.extraString = v; }},
    {"loginIdType: ", 2, 2, false, [](Value v, Login& l) { l.loginIdType = numberOr0(v); }},
    // Written as hex and read back as decimal by the module; shown as the frame had it.
    {"vlanId: ", 0, 4, true, [](Value v, Login& l) { l.vlan = numberOr0(v); }},
};

// As the module splits the file: empty lines do not count, a line counts up to its first NUL,
// one that is too long ends the reading.
std::vector<Line> linesOf(std::string_view contents) {
    std::vector<Line> lines;
    for (size_t number = 1; !contents.empty(); ++number) {
        const size_t end = contents.find('\n');
        const std::string_view whole = contents.substr(0, end);
        const std::string_view kept = whole.substr(0, longestLine);
        if (const std::string_view text = kept.substr(0, kept.find('\0')); !text.empty()) {
            lines.push_back({number, text});
        }
        if (whole.size() > longestLine || end == std::string_view::npos) {
            break;
        }
        contents.remove_prefix(end + 1);
    }
    return lines;
}

std::string at(const Line& line, const std::string& problem) {
    return "line " + std::to_string(line.number) + ": " + problem;
}

std::string badLength(const Line& line, std::string_view label, size_t length) {
    return at(line, "the value of \"" + std::string(label) + "\" has " + std::to_string(length) +
                        " characters");
}

std::string takeFirstLine(const Line& line, StoredLogin& login) {
    if (!line.text.starts_with(interfaceLabel)) {
        return at(line, "a login begins with \"interface: \"");
    }
    const std::string_view value = line.text.substr(interfaceLabel.size());
    if (value.empty() || value.size() > 2) {
        return badLength(line, interfaceLabel, value.size());
    }
    login.ifId = decimalOf(value).value_or(0);
    login.line = line.number;
    return {};
}

std::string takeLine(const Line& line, StoredLogin& login) {
    for (const Label& label : labels) {
        if (!line.text.starts_with(label.text)) {
            continue;
        }
        const std::string_view value = line.text.substr(label.text.size());
        if ((value.size() < label.shortest || value.size() > label.longest) &&
            !(label.mayBeEmpty && value.empty())) {
            return badLength(line, label.text, value.size());
        }
        label.take(value, login);
        return {};
    }
    return at(line, "no label that a login knows");
}

}  // namespace

StorageContents readStorage(std::string_view contents) {
    StorageContents read;
    StoredLogin login;
    const std::vector<Line> lines = linesOf(contents);
    for (size_t i = 0; i < lines.size(); ++i) {
        if (i % linesPerLogin == 0) {
            login = {};
            read.problem = takeFirstLine(lines[i], login);
        } else {
            read.problem = takeLine(lines[i], login);
        }
        if (!read.problem.empty()) {
            return read;
        }
        if (i % linesPerLogin == linesPerLogin - 1) {
            read.logins.push_back(login);
        }
    }
    if (lines.size() % linesPerLogin != 0) {
        read.problem =
            at(lines.back(), "the last login has " + std::to_string(lines.size() % linesPerLogin) +
                                 " of its 14 lines");
    }
    return read;
}

}  // namespace node::control
