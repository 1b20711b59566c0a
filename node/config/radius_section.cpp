// As strict as the rest of the configuration. Files are named here and read when the node starts,
// so that a configuration can be checked by somebody who may not read the secrets.
// Tested by tests/unit/node_host/config_radius_test.cpp.
#include "node/config/radius_section.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <optional>
#include <utility>

#include "node/isa/radius/client/address.h"
#include "node/isa/radius/client/retry.h"
#include "node/isa/radius/packet/packet.h"
#include "node/isa/radius/packet/text_template.h"

namespace node {

namespace {

constexpr size_t longestName = 32;
constexpr size_t longestPath = 4096;
constexpr size_t longestAddress = 45;
constexpr size_t longestPeerName = 253;
constexpr int64_t longestWait = 3600 * 1000;
constexpr int64_t mostRequests = 16384;
constexpr size_t mostServers = 32;

using Milliseconds = RadiusConfig::Milliseconds;

std::string path(Section& section, const std::string& key, const std::string& directory) {
    return (std::filesystem::path(directory) / section.text(key, longestPath)).string();
}

Milliseconds waiting(Section& section, const std::string& key, int64_t least,
                     Milliseconds fallback) {
    return Milliseconds(section.integer(key, least, longestWait, fallback.count()));
}

std::string address(Section& section, const std::string& key) {
    const std::string text = section.text(key, longestAddress);
    if (!radius::SocketAddress::parse(text, 1)) {
        section.fail(key, "must be an address in digits, is \"" + text + "\"");
    }
    return text;
}

// Empty when there is none.
std::string ownAddress(Section& section, const std::string& key, int family, const char* kind) {
    const std::string text = section.has(key) ? address(section, key) : "";
    if (!text.empty() && radius::SocketAddress::parse(text, 0)->family() != family) {
        section.fail(key, std::string("must be an address of ") + kind + ", is \"" + text + "\"");
    }
    return text;
}

// "192.0.2.1:3799" or "[2001:db8::1]:3799".
RadiusConfig::Address addressAndPort(Section& section, const std::string& key) {
    const std::string text = section.text(key, longestAddress + 8);
    const size_t colon = text.rfind(':');
    std::string host = text.substr(0, colon == std::string::npos ? 0 : colon);
    const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    host = bracketed ? host.substr(1, host.size() - 2) : host;
    uint16_t port = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(end - (text.size() - colon - 1), end, port);
    const auto parsed = radius::SocketAddress::parse(host, port);
    if (colon == std::string::npos || error != std::errc() || stop != end || port == 0 || !parsed ||
        (parsed->family() == AF_INET6) != bracketed) {
        section.fail(key,
                     "must be an address and a port in digits, as \"192.0.2.1:3799\" or "
                     "\"[::1]:3799\", is \"" +
                         text + "\"");
    }
    return {host, port};
}

std::string filled(Section& section, const std::string& key, const std::string& fallback) {
    const std::string text = section.text(key, radius::longestValue, fallback);
    if (!radius::TextTemplate::parse(text)) {
        section.fail(key, "holds a place that is not known, is \"" + text + "\"");
    }
    return text;
}

std::string attributeName(Section& section, const std::string& key, const std::string& fallback) {
    const std::string text =
        section.has(key) ? section.textOrNumber(key, 16) : std::string(fallback);
    if (!text.empty() && !radius::attributeNameFromText(text)) {
        section.fail(key,
                     "must be a number or vendor and number, as \"3561:5\", is \"" + text + "\"");
    }
    return text;
}

uint16_t port(Section& section, const std::string& key, uint16_t fallback) {
    return static_cast<uint16_t>(section.integer(key, 1, 65535, fallback));
}

void refuseWithout(const Section& section, bool condition, std::initializer_list<const char*> keys,
                   const std::string& what) {
    for (const char* key : keys) {
        if (!condition && section.has(key)) {
            section.fail(key, "has no meaning " + what);
        }
    }
}

RadiusConfig::Tls readTls(Section& section, const std::string& directory) {
    RadiusConfig::Tls tls;
    tls.authorities = path(section, "authorities", directory);
    tls.peerName = section.text("peer-name", longestPeerName);
    if (section.has("certificate") != section.has("key")) {
        section.fail(section.has("key") ? "certificate" : "key", "is missing");
    }
    if (section.has("certificate")) {
        tls.certificate = path(section, "certificate", directory);
        tls.key = path(section, "key", directory);
    }
    return tls;
}

RadiusConfig::Server readServer(Section& section, const std::string& directory) {
    RadiusConfig::Server server;
    server.name = section.text("name", longestName);
    if (server.name.find(' ') != std::string::npos || server.name.front() == '#') {
        section.fail("name",
                     "must hold no blank and begin with no \"#\", as the file of secrets "
                     "names it");
    }
    server.host = address(section, "address");
    server.tls = section.choice("transport", {"udp", "tls"}, 0) == 1;
    refuseWithout(section, server.tls, {"authorities", "certificate", "key", "peer-name"},
                  "without transport = \"tls\"");
    refuseWithout(section, !server.tls, {"accounting-port", "source"}, "with transport = \"tls\"");
    server.port = port(section, "port", server.tls ? 2083 : server.port);
    server.accountingPort =
        server.tls ? server.port : port(section, "accounting-port", server.accountingPort);
    if (server.tls) {
        server.files = readTls(section, directory);
    }
    if (section.has("source")) {
        server.source = address(section, "source");
        if (radius::SocketAddress::parse(server.source, 0)->family() !=
            radius::SocketAddress::parse(server.host, 0)->family()) {
            section.fail("source", "must be of the same kind as address");
        }
    }
    server.signsAccounting = section.flag("accounting-signed", server.signsAccounting);
    server.weight = static_cast<unsigned>(section.integer("weight", 1, 1000, server.weight));
    server.window =
        static_cast<unsigned>(section.integer("window", 1, mostRequests, server.window));
    server.tries = static_cast<unsigned>(section.integer("tries", 1, 10, server.tries));
    server.firstWait = waiting(section, "first-wait-ms", 10, server.firstWait);
    server.longestWait = waiting(section, "longest-wait-ms", 10, server.longestWait);
    server.statusServer = section.flag("status-server", server.statusServer);
    refuseWithout(section, server.statusServer, {"probe-interval-ms"}, "without status-server");
    refuseWithout(section, !server.statusServer, {"rest-ms"}, "with status-server");
    server.probeInterval = waiting(section, "probe-interval-ms", 100, server.probeInterval);
    server.rest = waiting(section, "rest-ms", 100, server.rest);
    section.refuseUnknown();
    return server;
}

std::vector<RadiusConfig::Server> readServers(Section& section, const std::string& directory) {
    std::vector<RadiusConfig::Server> servers;
    for (Section& entry : section.sections("server")) {
        RadiusConfig::Server server = readServer(entry, directory);
        const auto same = [&server](const RadiusConfig::Server& other) {
            return other.name == server.name;
        };
        if (std::any_of(servers.begin(), servers.end(), same)) {
            entry.fail("name", "\"" + server.name + "\" is used twice");
        }
        servers.push_back(std::move(server));
    }
    if (servers.empty() || servers.size() > mostServers) {
        section.fail("server", "there must be 1 to 32 [[radius.server]]");
    }
    return servers;
}

// A login whose patience ends at one server never comes to the next.
void refuseShortPatience(const Section& section, const RadiusConfig& radius) {
    if (radius.servers.size() < 2) {
        return;
    }
    for (const RadiusConfig::Server& server : radius.servers) {
        const auto givenUp = std::chrono::duration_cast<Milliseconds>(
            radius::retryTotal({server.firstWait, server.longestWait, server.tries}));
        if (radius.patience <= givenUp) {
            section.fail("patience-ms", "must be longer than the " +
                                            std::to_string(givenUp.count()) +
                                            " ms after which server \"" + server.name +
                                            "\" is given up, or no other is asked in time; is " +
                                            std::to_string(radius.patience.count()));
        }
    }
}

RadiusConfig::Accounting readAccounting(Section section) {
    RadiusConfig::Accounting accounting;
    accounting.on = true;
    const int64_t interim = section.integer("interim-seconds", 0, 86'400, 0);
    if (interim != 0 && interim < 10) {
        section.fail("interim-seconds", "must be 0, for none, or at least 10");
    }
    accounting.interim = std::chrono::seconds(interim);
    section.refuseUnknown();
    return accounting;
}

RadiusConfig::Dynamic readDynamic(Section section) {
    RadiusConfig::Dynamic dynamic;
    dynamic.listen = addressAndPort(section, "listen");
    dynamic.window =
        std::chrono::seconds(section.integer("window-seconds", 10, 3600, dynamic.window.count()));
    for (Section& entry : section.sections("client")) {
        RadiusConfig::DynamicClient client{entry.text("name", longestName),
                                           address(entry, "address")};
        const auto same = [&client](const RadiusConfig::DynamicClient& other) {
            return other.host == client.host;
        };
        if (std::any_of(dynamic.clients.begin(), dynamic.clients.end(), same)) {
            entry.fail("address", client.host + " is used twice");
        }
        entry.refuseUnknown();
        dynamic.clients.push_back(std::move(client));
    }
    if (dynamic.clients.empty()) {
        section.fail("client", "there must be at least one [[radius.dynamic.client]]");
    }
    section.refuseUnknown();
    return dynamic;
}

}  // namespace

RadiusConfig readRadius(Section section, const std::string& directory) {
    RadiusConfig radius;
    radius.secretFile = path(section, "secret-file", directory);
    radius.weighted = section.choice("order", {"listed", "weighted"}, 0) == 1;
    radius.userName = filled(section, "user-name", radius.userName);
    radius.passwordEntry = section.text("password-entry", longestName, "");
    radius.nasIdentifier = section.text("nas-identifier", radius::longestValue);
    radius.nasIpAddress = ownAddress(section, "nas-ip-address", AF_INET, "IPv4");
    radius.nasIpv6Address = ownAddress(section, "nas-ipv6-address", AF_INET6, "IPv6");
    radius.nasPortId = filled(section, "nas-port-id", radius.nasPortId);
    radius.vendorClassAttribute = attributeName(section, "vendor-class-attribute", "");
    radius.clientIdAttribute = attributeName(section, "client-id-attribute", "");
    radius.profileAttribute = attributeName(section, "profile-attribute", radius.profileAttribute);
    radius.onFailure =
        static_cast<RadiusConfig::OnFailure>(section.choice("on-failure", {"block", "keep"}, 0));
    radius.patience = waiting(section, "patience-ms", 100, radius.patience);
    radius.askAgain = waiting(section, "ask-again-ms", 100, radius.askAgain);
    radius.pacedRate =
        static_cast<uint32_t>(section.integer("paced-rate", 0, 100'000, radius.pacedRate));
    radius.pacedBurst =
        static_cast<uint32_t>(section.integer("paced-burst", 1, 100'000, radius.pacedBurst));
    radius.servers = readServers(section, directory);
    refuseShortPatience(section, radius);
    if (std::optional<Section> accounting = section.section("accounting")) {
        radius.accounting = readAccounting(std::move(*accounting));
    }
    if (std::optional<Section> dynamic = section.section("dynamic")) {
        radius.dynamic = readDynamic(std::move(*dynamic));
    }
    const bool remembers =
        radius.accounting.on || radius.onFailure == RadiusConfig::OnFailure::keep;
    if (section.has("session-file")) {
        radius.sessionFile = path(section, "session-file", directory);
    } else if (remembers) {
        section.fail("session-file", radius.accounting.on
                                         ? "is missing, accounting needs it"
                                         : "is missing, on-failure = \"keep\" needs it");
    }
    section.refuseUnknown();
    return radius;
}

std::string radiusNeedsRestart(const RadiusConfig& now, const RadiusConfig& next) {
    return now.dynamic.listen != next.dynamic.listen ? "dynamic.listen"
           : now.sessionFile != next.sessionFile     ? "session-file"
                                                     : "";
}

}  // namespace node
