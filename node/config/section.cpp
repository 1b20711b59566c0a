#include "node/config/section.h"

#include <algorithm>
#include <utility>

#include "node/config/config.h"

namespace node {

namespace {

std::string typeName(const toml::node& node) {
    switch (node.type()) {
        case toml::node_type::table:
            return "a table";
        case toml::node_type::array:
            return "an array";
        case toml::node_type::string:
            return "a text";
        case toml::node_type::integer:
            return "a whole number";
        case toml::node_type::floating_point:
            return "a fraction";
        case toml::node_type::boolean:
            return "true or false";
        default:
            return "a date or time";
    }
}

bool isPrintable(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c <= 0x7e; });
}

}  // namespace

Section::Section(const toml::table& table, std::string file, std::string name)
    : table_(table), file_(std::move(file)), name_(std::move(name)) {}

std::string Section::keyName(const std::string& key) const {
    return name_.empty() || key.empty() ? name_ + key : name_ + "." + key;
}

std::string Section::where(const std::string& key) const {
    const toml::node* node = table_.get(key);
    const auto line = (node ? node->source() : table_.source()).begin.line;
    return file_ + ":" + std::to_string(std::max<unsigned>(line, 1)) + ": " + keyName(key);
}

void Section::fail(const std::string& key, const std::string& what) const {
    throw ConfigError(where(key) + ": " + what);
}

std::vector<std::string> Section::keys() const {
    std::vector<std::string> names;
    for (const auto& [key, value] : table_) {
        names.emplace_back(key.str());
    }
    return names;
}

const toml::node* Section::find(const std::string& key) {
    known_.insert(key);
    return table_.get(key);
}

std::string Section::text(const std::string& key, size_t longest) {
    const toml::node* node = find(key);
    if (!node) {
        fail(key, "is missing");
    }
    const auto* value = node->as_string();
    if (!value) {
        fail(key, "must be a text in quotes, is " + typeName(*node));
    }
    const std::string& text = value->get();
    if (text.empty()) {
        fail(key, "must not be empty");
    }
    if (text.size() > longest) {
        fail(key, "must be at most " + std::to_string(longest) + " characters, is " +
                      std::to_string(text.size()));
    }
    if (!isPrintable(text)) {
        fail(key, "must be printable ASCII");
    }
    return text;
}

std::string Section::text(const std::string& key, size_t longest, const std::string& fallback) {
    return has(key) ? text(key, longest) : fallback;
}

std::string Section::textOrNumber(const std::string& key, size_t longest) {
    const toml::node* node = find(key);
    const auto* number = node ? node->as_integer() : nullptr;
    return number ? std::to_string(number->get()) : text(key, longest);
}

int64_t Section::integer(const std::string& key, int64_t least, int64_t most) {
    const toml::node* node = find(key);
    if (!node) {
        fail(key, "is missing");
    }
    const auto* value = node->as_integer();
    if (!value) {
        fail(key, "must be a whole number, is " + typeName(*node));
    }
    const int64_t number = value->get();
    if (number < least || number > most) {
        fail(key, "must be " + std::to_string(least) + " to " + std::to_string(most) + ", is " +
                      std::to_string(number));
    }
    return number;
}

int64_t Section::integer(const std::string& key, int64_t least, int64_t most, int64_t fallback) {
    return has(key) ? integer(key, least, most) : fallback;
}

bool Section::flag(const std::string& key, bool fallback) {
    const toml::node* node = find(key);
    if (!node) {
        return fallback;
    }
    const auto* value = node->as_boolean();
    if (!value) {
        fail(key, "must be true or false, is " + typeName(*node));
    }
    return value->get();
}

size_t Section::choice(const std::string& key, const std::vector<std::string>& words,
                       size_t fallback) {
    if (!has(key)) {
        return fallback;
    }
    const std::string word = text(key, 64);
    std::string known;
    for (size_t i = 0; i < words.size(); ++i) {
        if (word == words[i]) {
            return i;
        }
        known += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + ('"' + words[i] + '"');
    }
    fail(key, "must be " + known + ", is \"" + word + "\"");
}

std::optional<Section> Section::section(const std::string& key) {
    const toml::node* node = find(key);
    if (!node) {
        return std::nullopt;
    }
    const toml::table* table = node->as_table();
    if (!table) {
        fail(key, "must be a table, is " + typeName(*node));
    }
    return Section(*table, file_, keyName(key));
}

std::vector<Section> Section::sections(const std::string& key) {
    std::vector<Section> result;
    const toml::node* node = find(key);
    if (!node) {
        return result;
    }
    const toml::array* array = node->as_array();
    if (!array) {
        fail(key, "must be written as [[" + keyName(key) + "]], is " + typeName(*node));
    }
    for (const toml::node& element : *array) {
        const toml::table* table = element.as_table();
        if (!table) {
            fail(key, "must hold tables, holds " + typeName(element));
        }
        result.emplace_back(*table, file_, keyName(key));
    }
    return result;
}

void Section::refuseUnknown() const {
    for (const auto& [key, value] : table_) {
        const std::string name(key.str());
        if (known_.count(name) == 0) {
            fail(name, "is not a known key");
        }
    }
}

}  // namespace node
