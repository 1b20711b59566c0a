// Strict on purpose: a key that is misspelt, misplaced or of the wrong type must not become a
// default without a word. The first thing wrong ends the reading.
// Tested by tests/unit/node_host/config_test.cpp with a table of good and one of bad files.
#include "node/config/config.h"

#include <charconv>
#include <filesystem>
#include <fstream>
#include <map>
#include <utility>

#include "node/config/section.h"

namespace node {

namespace {

constexpr size_t longestFile = 1 << 20;
constexpr int64_t longestDelay = 24 * 3600 * 1000;
constexpr size_t longestCircuitId = 63;
constexpr size_t kernelNameLength = 4;

Config::Milliseconds milliseconds(Section& section, const std::string& key) {
    return Config::Milliseconds(section.integer(key, 0, longestDelay, 0));
}

std::array<uint8_t, 6> macAddress(Section& section, const std::string& key) {
    const std::string text = section.text(key, 64);
    std::array<uint8_t, 6> mac{};
    bool good = text.size() == 17;
    for (size_t i = 0; good && i < mac.size(); ++i) {
        const char* const pair = text.data() + 3 * i;
        const auto [end, error] = std::from_chars(pair, pair + 2, mac[i], 16);
        good = error == std::errc() && end == pair + 2 && (i == 5 || pair[2] == ':');
    }
    if (!good) {
        section.fail(key, "must be six pairs of hex digits joined by \":\"");
    }
    return mac;
}

Config::Node readNode(Section section) {
    Config::Node node;
    node.shelf = section.text("shelf", 32, node.shelf);
    node.boardPosition =
        static_cast<uint8_t>(section.integer("board-position", 0, 255, node.boardPosition));
    node.boardType = static_cast<unsigned>(section.integer("board-type", 0, 255, node.boardType));
    node.tal = section.flag("tal", node.tal);
    if (section.has("mac")) {
        node.mac = macAddress(section, "mac");
    }
    section.refuseUnknown();
    return node;
}

Config::Verdict verdict(Section& section, const std::string& key, Config::Verdict fallback) {
    return static_cast<Config::Verdict>(
        section.choice(key, {"accept", "reject", "never"}, static_cast<size_t>(fallback)));
}

Config::Isa readIsa(Section section) {
    Config::Isa isa;
    isa.unknown = verdict(section, "unknown", isa.unknown);
    std::map<std::string, size_t> seen;
    for (Section& entry : section.sections("user")) {
        Config::User user;
        user.circuitId = entry.text("circuit-id", longestCircuitId);
        if (!entry.has("verdict")) {
            entry.fail("verdict", "is missing");
        }
        user.verdict = verdict(entry, "verdict", user.verdict);
        user.delay = milliseconds(entry, "delay-ms");
        if (user.verdict == Config::Verdict::never && entry.has("delay-ms")) {
            entry.fail("delay-ms", "has no meaning for a user who is never answered");
        }
        if (!seen.emplace(user.circuitId, seen.size()).second) {
            entry.fail("circuit-id", "\"" + user.circuitId + "\" is listed twice");
        }
        entry.refuseUnknown();
        isa.users.push_back(user);
    }
    section.refuseUnknown();
    return isa;
}

std::vector<Config::Outage> readOutages(Section& section) {
    std::vector<Config::Outage> outages;
    for (Section& entry : section.sections("outage")) {
        if (!entry.has("from-ms") || !entry.has("to-ms")) {
            entry.fail(entry.has("from-ms") ? "to-ms" : "from-ms", "is missing");
        }
        const Config::Outage outage{milliseconds(entry, "from-ms"), milliseconds(entry, "to-ms")};
        if (outage.to <= outage.from) {
            entry.fail("to-ms", "must be later than from-ms");
        }
        if (!outages.empty() && outage.from <= outages.back().to) {
            entry.fail("from-ms", "must be later than the outage before it");
        }
        entry.refuseUnknown();
        outages.push_back(outage);
    }
    return outages;
}

std::string capturePath(Section& section, const std::string& directory) {
    if (!section.has("capture")) {
        return {};
    }
    const std::string name = section.text("capture", 4096);
    const std::filesystem::path path = std::filesystem::path(directory) / name;
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status)) {
        section.fail("capture", "there is no file " + path.string());
    }
    if (!std::filesystem::is_regular_file(status)) {
        section.fail("capture", path.string() + " is not a regular file");
    }
    return path.string();
}

Config::Interface readInterface(Section& section, const std::string& directory) {
    Config::Interface interface;
    interface.id = static_cast<unsigned>(section.integer("id", 1, 99));
    interface.name = section.text("name", 32);
    interface.kernelName = section.text("kernel-name", 64);
    if (interface.kernelName.size() != kernelNameLength ||
        interface.kernelName.find(' ') != std::string::npos) {
        section.fail("kernel-name", "must be exactly four characters without a blank, is \"" +
                                        interface.kernelName + "\"");
    }
    interface.capture = capturePath(section, directory);
    interface.start = milliseconds(section, "start-ms");
    interface.outages = readOutages(section);
    interface.admin = section.flag("tal", interface.admin);
    interface.authentication = section.flag("authentication", interface.authentication);
    interface.authorization = section.flag("authorization", interface.authorization);
    interface.autoRequest = section.flag("auto-request", interface.autoRequest);
    interface.timeout =
        static_cast<uint32_t>(section.integer("timeout", 1, 300, interface.timeout));
    interface.maxQueueSize =
        static_cast<uint32_t>(section.integer("max-queue-size", 1, 100, interface.maxQueueSize));
    section.refuseUnknown();
    return interface;
}

std::vector<Config::Interface> readInterfaces(Section& file, const std::string& directory) {
    std::vector<Config::Interface> interfaces;
    for (Section& section : file.sections("interface")) {
        const Config::Interface interface = readInterface(section, directory);
        for (const Config::Interface& other : interfaces) {
            if (other.id == interface.id) {
                section.fail("id", std::to_string(interface.id) + " is used twice");
            }
            if (other.name == interface.name) {
                section.fail("name", "\"" + interface.name + "\" is used twice");
            }
            if (other.kernelName == interface.kernelName) {
                section.fail("kernel-name", "\"" + interface.kernelName + "\" is used twice");
            }
        }
        interfaces.push_back(interface);
    }
    if (interfaces.empty()) {
        file.fail("interface", "there must be at least one [[interface]]");
    }
    return interfaces;
}

std::string readFile(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
        throw ConfigError(path + ": is a directory");
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw ConfigError(path + ": cannot be opened");
    }
    std::string text(longestFile + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(file.gcount()));
    if (file.bad()) {
        throw ConfigError(path + ": cannot be read");
    }
    if (text.size() > longestFile) {
        throw ConfigError(path + ": is longer than a mebibyte");
    }
    return text;
}

}  // namespace

Config parseConfig(const std::string& text, const std::string& fileName,
                   const std::string& directory) {
    toml::table table;
    try {
        table = toml::parse(text, fileName);
    } catch (const toml::parse_error& error) {
        std::string what(error.description());
        for (char& c : what) {
            c = c == '\n' ? ' ' : c;
        }
        throw ConfigError(fileName + ":" + std::to_string(error.source().begin.line) + ": " + what);
    }
    Section file(table, fileName, "");
    Config config;
    if (std::optional<Section> section = file.section("node")) {
        config.node = readNode(std::move(*section));
    }
    if (std::optional<Section> section = file.section("isa")) {
        config.isa = readIsa(std::move(*section));
    }
    config.interfaces = readInterfaces(file, directory);
    file.refuseUnknown();
    return config;
}

Config loadConfig(const std::string& path) {
    const std::string directory = std::filesystem::path(path).parent_path().string();
    return parseConfig(readFile(path), path, directory.empty() ? "." : directory);
}

}  // namespace node
