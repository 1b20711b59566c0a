// Columns of text for people.
#pragma once

#include <string>
#include <vector>

namespace node::ctl {

class Table {
public:
    // An empty heading for all: none is written.
    explicit Table(std::vector<std::string> heading) : heading_(std::move(heading)) {}

    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    bool empty() const { return rows_.empty(); }

    // As wide as needed, two blanks between columns, none at the end of a line.
    std::string text() const;

private:
    std::vector<std::string> heading_;
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace node::ctl
