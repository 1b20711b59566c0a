#include "node/report/report.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace node {

namespace {

constexpr size_t columnCount = 9;
using Row = std::array<std::string, columnCount>;

Row rowOf(const LineReport& line) {
    return {line.kernelName + " " + line.name,
            std::to_string(line.frames),
            std::to_string(line.traps),
            std::to_string(line.replayed),
            line.verdict,
            line.gate,
            line.stored ? "yes" : "no",
            std::to_string(line.counters.empty() ? 0 : line.counters.back().second),
            line.rule};
}

bool isNumber(size_t column) {
    return column == 1 || column == 2 || column == 3 || column == 7;
}

std::string number(double value) {
    char text[40];
    std::snprintf(text, sizeof text, "%.6f", value);
    return text;
}

std::string profilesText(const std::vector<ProfileInfo>& profiles) {
    std::string text;
    for (const ProfileInfo& profile : profiles) {
        text += (text.empty() ? "" : ", ") + std::string(profileKindName(profile.kind)) + ' ' +
                jsonText(profile.name) + ' ' + std::string(profileStateName(profile.state));
    }
    return text;
}

std::string profilesJson(const std::vector<ProfileInfo>& profiles) {
    std::string json;
    for (const ProfileInfo& profile : profiles) {
        json += (json.empty() ? "" : ", ") + std::string("{\"kind\": ") +
                jsonText(std::string(profileKindName(profile.kind))) +
                ", \"name\": " + jsonText(profile.name) +
                ", \"state\": " + jsonText(std::string(profileStateName(profile.state))) + '}';
    }
    return '[' + json + ']';
}

// One row for each line that has profiles, and one for those without a line.
std::string profileRows(const RunReport& report) {
    std::string text;
    for (const LineReport& line : report.lines) {
        if (!line.profiles.empty()) {
            text += "profiles of " + line.kernelName + ' ' + line.name + ": " +
                    profilesText(line.profiles) + '\n';
        }
    }
    if (!report.profiles.empty()) {
        text += "profiles of no line: " + profilesText(report.profiles) + '\n';
    }
    return text;
}

}  // namespace

void addProfiles(RunReport& report, const std::vector<ProfileInfo>& profiles) {
    for (const ProfileInfo& profile : profiles) {
        if (profile.state == ProfileState::builtIn) {
            continue;
        }
        bool placed = false;
        for (LineReport& line : report.lines) {
            if (std::count(profile.interfaces.begin(), profile.interfaces.end(), line.id) != 0) {
                line.profiles.push_back(profile);
                placed = true;
            }
        }
        if (!placed) {
            report.profiles.push_back(profile);
        }
    }
}

std::string reportTable(const RunReport& report) {
    std::vector<Row> rows{
        {"line", "frames", "traps", "replayed", "verdict", "gate", "stored", "forwarded", "rule"}};
    LineReport total;
    uint64_t stored = 0;
    uint64_t open = 0;
    uint64_t forwarded = 0;
    for (const LineReport& line : report.lines) {
        rows.push_back(rowOf(line));
        total.frames += line.frames;
        total.traps += line.traps;
        total.replayed += line.replayed;
        stored += line.stored ? 1 : 0;
        open += line.gate == "open" ? 1 : 0;
        forwarded += line.counters.empty() ? 0 : line.counters.back().second;
    }
    rows.push_back({std::to_string(report.lines.size()) + " lines", std::to_string(total.frames),
                    std::to_string(total.traps), std::to_string(total.replayed), "",
                    std::to_string(open) + " open", std::to_string(stored),
                    std::to_string(forwarded), ""});
    std::array<size_t, columnCount> widths{};
    for (const Row& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    std::string text;
    for (const Row& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            const std::string fill(widths[i] - row[i].size(), ' ');
            line += (i == 0 ? "" : "  ") + (isNumber(i) ? fill + row[i] : row[i] + fill);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + '\n';
    }
    return text + profileRows(report) + "run: " + number(report.seconds) + " s, ended because " +
           report.end + '\n';
}

std::string jsonText(const std::string& text) {
    std::string result = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            result += '\\';
            result += c;
        } else if (byte < 0x20 || byte > 0x7e) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
            result += escaped;
        } else {
            result += c;
        }
    }
    return result + '"';
}

std::string reportJson(const RunReport& report) {
    std::string json = "{\n  \"end\": " + jsonText(report.end) +
                       ",\n  \"seconds\": " + number(report.seconds) + ",\n  \"lines\": [";
    for (size_t i = 0; i < report.lines.size(); ++i) {
        const LineReport& line = report.lines[i];
        json += i == 0 ? "\n" : ",\n";
        json += "    {\"id\": " + std::to_string(line.id) + ", \"name\": " + jsonText(line.name) +
                ", \"kernel-name\": " + jsonText(line.kernelName) +
                ", \"frames\": " + std::to_string(line.frames) +
                ", \"traps\": " + std::to_string(line.traps) +
                ", \"replayed\": " + std::to_string(line.replayed) +
                ", \"verdict\": " + jsonText(line.verdict) + ", \"gate\": " + jsonText(line.gate) +
                ", \"stored\": " + (line.stored ? "true" : "false") +
                ", \"damage\": " + jsonText(line.damage) +
                ",\n     \"rule\": " + jsonText(line.rule) + ", \"rules\": [";
        for (size_t k = 0; k < line.rules.size(); ++k) {
            json += (k == 0 ? "" : ", ") + jsonText(line.rules[k]);
        }
        json += "],\n     \"counters\": {";
        for (size_t k = 0; k < line.counters.size(); ++k) {
            json += (k == 0 ? "" : ", ") + jsonText(line.counters[k].first) + ": " +
                    std::to_string(line.counters[k].second);
        }
        json += "},\n     \"request\": {";
        for (size_t k = 0; k < line.request.size(); ++k) {
            json += (k == 0 ? "" : ", ") + jsonText(line.request[k].first) + ": " +
                    jsonText(line.request[k].second);
        }
        json += "},\n     \"profiles\": " + profilesJson(line.profiles) + '}';
    }
    return json + "\n  ],\n  \"profiles\": " + profilesJson(report.profiles) + "\n}\n";
}

}  // namespace node
