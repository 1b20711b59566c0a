// Strict on purpose: a key that is misspelt, misplaced or of the wrong type must not become a
// default without a word. The first thing wrong ends the reading.
// Tested by tests/unit/node_host/config_test.cpp with a table of good and one of bad files.
#include "node/config/config.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <map>
#include <utility>

#include "node/config/live_keys.h"
#include "node/config/section.h"
#include "node/rules/rule_text.h"
#include "node/text/bytes.h"

namespace node {

namespace {

constexpr size_t longestFile = 1 << 20;
constexpr int64_t longestDelay = 24 * 3600 * 1000;
constexpr size_t longestCircuitId = 63;
constexpr size_t kernelNameLength = 4;
constexpr size_t longestPath = 4096;
constexpr size_t longestSocketPath = 107;

Config::Milliseconds milliseconds(Section& section, const std::string& key) {
    return Config::Milliseconds(section.integer(key, 0, longestDelay, 0));
}

MacAddress macAddress(Section& section, const std::string& key) {
    const std::optional<MacAddress> mac = macOf(section.text(key, 64));
    if (!mac) {
        section.fail(key, "must be six pairs of hex digits joined by \":\"");
    }
    return *mac;
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

// "192.0.2.1:7443" or "[2001:db8::1]:7443".
bool isListenAddress(const std::string& text) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        return false;
    }
    std::string host = text.substr(0, colon);
    const std::string port = text.substr(colon + 1);
    const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (bracketed) {
        host = host.substr(1, host.size() - 2);
    }
    in6_addr address{};
    if (inet_pton(bracketed ? AF_INET6 : AF_INET, host.c_str(), &address) != 1) {
        return false;
    }
    uint16_t number = 0;
    const char* const end = port.data() + port.size();
    const auto [stop, error] = std::from_chars(port.data(), end, number);
    return error == std::errc() && stop == end && number != 0;
}

// The files of TCP are read when the server starts, which says how to make them.
Config::Control readControl(Section section, const std::string& directory) {
    const auto path = [&](const char* key, size_t longest) -> std::string {
        return section.has(key)
                   ? (std::filesystem::path(directory) / section.text(key, longest)).string()
                   : "";
    };
    Config::Control control;
    control.socket = path("socket", longestPath);
    if (control.socket.size() > longestSocketPath) {
        section.fail("socket", "must be a path of at most " + std::to_string(longestSocketPath) +
                                   " characters, is " + control.socket);
    }
    control.socketGroup = section.has("socket-group") ? section.text("socket-group", 32) : "";
    if (section.has("listen")) {
        control.listen = section.text("listen", 64);
        if (!isListenAddress(control.listen)) {
            section.fail("listen",
                         "must be an address and a port in numbers, as \"192.0.2.1:7443\" or "
                         "\"[::1]:7443\", is \"" +
                             control.listen + "\"");
        }
    }
    control.certificate = path("certificate", longestPath);
    control.key = path("key", longestPath);
    control.clientCa = path("client-ca", longestPath);
    section.refuseUnknown();
    for (const char* key : {"certificate", "key", "client-ca"}) {
        if (section.has(key) && control.listen.empty()) {
            section.fail(key, "has no meaning without listen");
        }
    }
    return control;
}

Config::Verdict verdict(Section& section, const std::string& key, Config::Verdict fallback) {
    return static_cast<Config::Verdict>(
        section.choice(key, {"accept", "reject", "never"}, static_cast<size_t>(fallback)));
}

// The profile names that an accepted user's login brings, each under a key of its own.
LoginProfiles readLoginProfiles(Section& entry, Config::Verdict verdict) {
    LoginProfiles profiles;
    for (size_t i = 0; i < profileKindCount; ++i) {
        std::string key(profileKindNames[i]);
        if (static_cast<ProfileKind>(i) != ProfileKind::accessList) {
            key += "-profile";
        }
        profiles.names[i] = entry.text(key, longestProfileName, "");
        if (verdict != Config::Verdict::accept && entry.has(key)) {
            entry.fail(key, "has no meaning for a user who is not accepted");
        }
    }
    return profiles;
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
        user.profiles = readLoginProfiles(entry, user.verdict);
        if (!seen.emplace(user.circuitId, seen.size()).second) {
            entry.fail("circuit-id", "\"" + user.circuitId + "\" is listed twice");
        }
        entry.refuseUnknown();
        isa.users.push_back(user);
    }
    section.refuseUnknown();
    return isa;
}

Config::Profiles readProfiles(Section section, const std::string& directory) {
    const std::string name = section.text("file", 4096);
    Config::Profiles profiles;
    profiles.file = (std::filesystem::path(directory) / name).string();
    std::error_code error;
    if (std::filesystem::is_directory(profiles.file, error)) {
        section.fail("file", profiles.file + " is a directory");
    }
    section.refuseUnknown();
    return profiles;
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

// The path of a file that is there.
std::string filePath(Section& section, const std::string& key, const std::string& directory) {
    const std::string name = section.text(key, longestPath);
    const std::filesystem::path path = std::filesystem::path(directory) / name;
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status)) {
        section.fail(key, "there is no file " + path.string());
    }
    if (!std::filesystem::is_regular_file(status)) {
        section.fail(key, path.string() + " is not a regular file");
    }
    return path.string();
}

// Two conditions in one table would read as if both had to hold.
Config::Rule readRule(Section& section) {
    const std::vector<std::string> keys = section.keys();
    if (keys.size() != 1) {
        section.fail("", "must say one thing: " +
                             std::string(keys.empty() ? "it is empty"
                                                      : "the rules of an interface are "
                                                        "alternatives, each has its own table"));
    }
    const std::string& key = keys.front();
    const std::optional<uint32_t> named = ruleTypeNamed(key);
    if (!named) {
        section.fail(key, "is not a known key");
    }
    const uint32_t type = *named;
    std::string text;
    if (type == ruleAny) {
        if (!section.flag(key, true)) {
            section.fail(key, "must be true; a rule that is not wanted is left out");
        }
    } else if (type == ruleEtherType || type == ruleVlan) {
        text = section.textOrNumber(key, longestRuleText);
    } else {
        text = section.text(key, longestRuleText);
    }
    Config::Rule rule{unsetRule(type), section.where(key)};
    const std::string problem = ruleFromText(type, text, rule.record);
    if (!problem.empty()) {
        section.fail(key, problem);
    }
    return rule;
}

// What the module would refuse as incompatible is said here, before anything is applied.
void checkTogether(const std::vector<Config::Rule>& rules) {
    const auto etherType = std::find_if(rules.begin(), rules.end(), [](const Config::Rule& rule) {
        return ruleType(rule.record) == ruleEtherType && rule.record.ethType != etherTypeIpv4;
    });
    for (const Config::Rule& rule : rules) {
        if (etherType != rules.end() && looksIntoIpv4(ruleType(rule.record))) {
            throw ConfigError(rule.where + ": looks into IPv4 and cannot stand beside " +
                              ruleText(ruleEtherType, etherType->record));
        }
    }
}

std::vector<Config::Rule> readRules(Section& interface) {
    std::vector<Config::Rule> rules;
    for (Section& section : interface.sections("rule")) {
        Config::Rule rule = readRule(section);
        const auto place = std::lower_bound(rules.begin(), rules.end(), rule,
                                            [](const Config::Rule& a, const Config::Rule& b) {
                                                return ruleType(a.record) < ruleType(b.record);
                                            });
        if (place != rules.end() && ruleType(place->record) == ruleType(rule.record)) {
            throw ConfigError(rule.where +
                              ": the interface has such a rule already, an "
                              "interface can have one of each kind");
        }
        rules.insert(place, std::move(rule));
    }
    checkTogether(rules);
    return rules;
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
    if (section.has("capture")) {
        interface.capture = filePath(section, "capture", directory);
    }
    interface.start = milliseconds(section, "start-ms");
    interface.outages = readOutages(section);
    readDevice(section, interface);
    interface.admin = section.flag("tal", interface.admin);
    interface.authentication = section.flag("authentication", interface.authentication);
    interface.authorization = section.flag("authorization", interface.authorization);
    interface.autoRequest = section.flag("auto-request", interface.autoRequest);
    interface.timeout =
        static_cast<uint32_t>(section.integer("timeout", 1, 300, interface.timeout));
    interface.maxQueueSize =
        static_cast<uint32_t>(section.integer("max-queue-size", 1, 100, interface.maxQueueSize));
    interface.rules = readRules(section);
    interface.where = section.where("");
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
        checkDevice(section, interface, interfaces);
        interfaces.push_back(interface);
    }
    if (interfaces.empty()) {
        file.fail("interface", "there must be at least one [[interface]]");
    }
    return interfaces;
}

std::vector<Config::Change> readChanges(Section& file, const std::string& directory) {
    std::vector<Config::Change> changes;
    for (Section& entry : file.sections("change")) {
        if (!entry.has("at-ms")) {
            entry.fail("at-ms", "is missing");
        }
        const Config::Change change{milliseconds(entry, "at-ms"),
                                    filePath(entry, "config", directory)};
        if (!changes.empty() && change.at <= changes.back().at) {
            entry.fail("at-ms", "must be later than the change before it");
        }
        entry.refuseUnknown();
        changes.push_back(change);
    }
    return changes;
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
    config.file = fileName;
    if (std::optional<Section> section = file.section("node")) {
        config.node = readNode(std::move(*section));
    }
    if (std::optional<Section> section = file.section("control")) {
        config.control = readControl(std::move(*section), directory);
    }
    if (std::optional<Section> section = file.section("isa")) {
        config.isa = readIsa(std::move(*section));
    }
    if (std::optional<Section> section = file.section("radius")) {
        if (file.has("isa")) {
            file.fail("isa",
                      "cannot stand beside [radius]: logins are answered by a list of users "
                      "or by servers");
        }
        config.radius = readRadius(std::move(*section), directory);
    }
    if (std::optional<Section> section = file.section("profiles")) {
        config.profiles = readProfiles(std::move(*section), directory);
    }
    if (std::optional<Section> section = file.section("engine")) {
        config.engine = readEngine(std::move(*section), directory);
    }
    config.interfaces = readInterfaces(file, directory);
    config.changes = readChanges(file, directory);
    file.refuseUnknown();
    return config;
}

Config loadConfig(const std::string& path) {
    const std::string directory = std::filesystem::path(path).parent_path().string();
    return parseConfig(readFile(path), path, directory.empty() ? "." : directory);
}

}  // namespace node
