// One table of the configuration file with checked access: right type, right range, nothing
// left over. Every failure is a ConfigError that names file, line and key. One thread.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <toml++/toml.h>

namespace node {

class Section {
public:
    // `name` is the prefix of the keys in messages; empty for the file itself. The empty key
    // stands for the table.
    Section(const toml::table& table, std::string file, std::string name);

    bool has(const std::string& key) const { return table_.contains(key); }
    std::vector<std::string> keys() const;
    std::string where(const std::string& key) const;  // "FILE:LINE: KEY", as in messages

    // The value of `key`, marked as known. Without one: the fallback, or an error.
    std::string text(const std::string& key,
                     size_t longest);  // 1 to `longest` printable characters
    std::string text(const std::string& key, size_t longest, const std::string& fallback);
    std::string textOrNumber(const std::string& key, size_t longest);  // a number in decimal
    int64_t integer(const std::string& key, int64_t least, int64_t most);
    int64_t integer(const std::string& key, int64_t least, int64_t most, int64_t fallback);
    bool flag(const std::string& key, bool fallback);
    // Index of the text among `words`.
    size_t choice(const std::string& key, const std::vector<std::string>& words, size_t fallback);
    std::optional<Section> section(const std::string& key);
    std::vector<Section> sections(const std::string& key);  // [[key]]

    void refuseUnknown() const;  // any key not asked for above

    [[noreturn]] void fail(const std::string& key, const std::string& what) const;

private:
    const toml::node* find(const std::string& key);
    std::string keyName(const std::string& key) const;

    const toml::table& table_;
    std::string file_;
    std::string name_;
    std::set<std::string> known_;
};

}  // namespace node
