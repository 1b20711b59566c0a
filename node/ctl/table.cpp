#include "node/ctl/table.h"

#include <algorithm>

namespace node::ctl {

namespace {

using Row = std::vector<std::string>;

void widen(const Row& row, std::vector<size_t>& widths) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) {
        widths[i] = std::max(widths[i], row[i].size());
    }
}

std::string lineOf(const Row& row, const std::vector<size_t>& widths) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
        line += row[i];
        line.append(widths[i] - row[i].size() + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line + "\n";
}

}  // namespace

std::string Table::text() const {
    std::vector<size_t> widths;
    widen(heading_, widths);
    for (const Row& row : rows_) {
        widen(row, widths);
    }
    const bool headed = std::any_of(heading_.begin(), heading_.end(),
                                    [](const std::string& title) { return !title.empty(); });
    std::string text = headed ? lineOf(heading_, widths) : "";
    for (const Row& row : rows_) {
        text += lineOf(row, widths);
    }
    return text;
}

}  // namespace node::ctl
