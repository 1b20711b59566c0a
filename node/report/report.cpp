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

}  // namespace

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
    return text + "run: " + number(report.seconds) + " s, ended because " + report.end + '\n';
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
        json += "}}";
    }
    return json + "\n  ]\n}\n";
}

}  // namespace node
