#include "node/store/stored_logins.h"

#include <charconv>
#include <fstream>
#include <sstream>

namespace node {

const char storedLoginsFile[] = "/var/log/tal.store.dat";

std::map<unsigned, std::string> storedLogins(std::string_view contents) {
    constexpr std::string_view label = "interface: ";
    std::map<unsigned, std::string> logins;
    std::string* block = nullptr;
    while (!contents.empty()) {
        const size_t end = contents.find('\n');
        const std::string_view line = contents.substr(0, end);
        contents.remove_prefix(end == std::string_view::npos ? contents.size() : end + 1);
        if (line.substr(0, label.size()) == label) {
            unsigned id = 0;
            const char* const last = line.data() + line.size();
            const auto [stop, error] = std::from_chars(line.data() + label.size(), last, id);
            block = error == std::errc() && stop == last ? &logins[id] : nullptr;
        }
        if (block) {
            block->append(line).append("\n");
        }
    }
    return logins;
}

std::map<unsigned, std::string> readStoredLogins(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream contents;
    contents << file.rdbuf();
    return storedLogins(contents.str());
}

}  // namespace node
