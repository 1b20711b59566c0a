// [radius] of the configuration: what it means, what is refused and where, what needs a restart.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "node/config/config.h"
#include "node/config/reload.h"

namespace {

using namespace std::chrono_literals;
using node::Config;
using node::ConfigError;
using node::RadiusConfig;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* interface = R"([[interface]]
id = 1
name = "1/1"
kernel-name = "dsl1"
)";

// Line 5 is [radius], line 9 [[radius.server]].
std::string file(const std::string& radius = "", const std::string& server = "",
                 const std::string& more = "") {
    return std::string(interface) + "[radius]\nsecret-file = \"secrets\"\n" +
           "nas-identifier = \"node-7\"\n" + radius + "\n[[radius.server]]\nname = \"first\"\n" +
           "address = \"192.0.2.1\"\n" + server + "\n" + more;
}

Config parse(const std::string& text) {
    return node::parseConfig(text, "node.toml", "/etc/tal");
}

std::string errorOf(const std::string& text) {
    try {
        parse(text);
    } catch (const ConfigError& error) {
        return error.what();
    }
    return "no error";
}

TEST(ConfigRadius, DefaultsAreThoseOfTheDocument) {
    const Config config = parse(file());
    ASSERT_TRUE(config.radius);
    const RadiusConfig& radius = *config.radius;
    EXPECT_EQ("/etc/tal/secrets", radius.secretFile);
    EXPECT_EQ("", radius.sessionFile);
    EXPECT_FALSE(radius.weighted);
    EXPECT_EQ("{circuit-id}", radius.userName);
    EXPECT_EQ("{interface}", radius.nasPortId);
    EXPECT_EQ("node-7", radius.nasIdentifier);
    EXPECT_EQ("", radius.nasIpAddress);
    EXPECT_EQ("", radius.nasIpv6Address);
    EXPECT_EQ("", radius.passwordEntry);
    EXPECT_EQ("11", radius.profileAttribute);
    EXPECT_EQ(RadiusConfig::OnFailure::block, radius.onFailure);
    EXPECT_EQ(30s, radius.patience);
    EXPECT_EQ(30s, radius.askAgain);
    EXPECT_EQ(50U, radius.pacedRate);
    EXPECT_EQ(10U, radius.pacedBurst);
    EXPECT_FALSE(radius.accounting.on);
    EXPECT_EQ(0, radius.dynamic.listen.port);
    ASSERT_EQ(1U, radius.servers.size());
    const RadiusConfig::Server& server = radius.servers[0];
    EXPECT_EQ("first", server.name);
    EXPECT_EQ("192.0.2.1", server.host);
    EXPECT_FALSE(server.tls);
    EXPECT_EQ(1812, server.port);
    EXPECT_EQ(1813, server.accountingPort);
    EXPECT_EQ(256U, server.window);
    EXPECT_EQ(3U, server.tries);
    EXPECT_EQ(1s, server.firstWait);
    EXPECT_EQ(8s, server.longestWait);
    EXPECT_TRUE(server.statusServer);
    EXPECT_EQ(5s, server.probeInterval);
    EXPECT_EQ(30s, server.rest);
    EXPECT_TRUE(server.signsAccounting);
    EXPECT_FALSE(parse(interface).radius);
}

TEST(ConfigRadius, EverythingCanBeSaid) {
    const RadiusConfig radius = *parse(file(R"(
order = "weighted"
user-name = "{mac}@{nas}"
password-entry = "lines"
nas-ip-address = "192.0.2.7"
nas-ipv6-address = "2001:db8::7"
nas-port-id = "{interface}:{vlan}"
vendor-class-attribute = "3561:5"
client-id-attribute = 61
profile-attribute = "9999:1"
on-failure = "keep"
patience-ms = 8000
ask-again-ms = 100
paced-rate = 0
paced-burst = 5
session-file = "/var/lib/tal/sessions"
)",
                                            R"(
source = "192.0.2.9"
port = 1645
accounting-port = 1646
accounting-signed = false
weight = 3
window = 1000
tries = 5
first-wait-ms = 250
longest-wait-ms = 4000
status-server = false
rest-ms = 60000
)",
                                            R"(
[[radius.server]]
name = "second"
address = "2001:db8::1"
transport = "tls"
authorities = "ca.pem"
certificate = "node.pem"
key = "/etc/ssl/node.key"
peer-name = "radius.example"
[radius.accounting]
interim-seconds = 600
[radius.dynamic]
listen = "[2001:db8::9]:3799"
window-seconds = 60
[[radius.dynamic.client]]
name = "centre"
address = "2001:db8::2"
)"))
                                     .radius;
    EXPECT_TRUE(radius.weighted);
    EXPECT_EQ("192.0.2.7", radius.nasIpAddress);
    EXPECT_EQ("2001:db8::7", radius.nasIpv6Address);
    EXPECT_EQ(8s, radius.patience);
    EXPECT_EQ("3561:5", radius.vendorClassAttribute);
    EXPECT_EQ("61", radius.clientIdAttribute);
    EXPECT_EQ("9999:1", radius.profileAttribute);
    EXPECT_EQ(RadiusConfig::OnFailure::keep, radius.onFailure);
    EXPECT_EQ("/var/lib/tal/sessions", radius.sessionFile);
    ASSERT_EQ(2U, radius.servers.size());
    EXPECT_EQ("192.0.2.9", radius.servers[0].source);
    EXPECT_EQ(1646, radius.servers[0].accountingPort);
    EXPECT_FALSE(radius.servers[0].signsAccounting);
    EXPECT_FALSE(radius.servers[0].statusServer);
    EXPECT_EQ(60s, radius.servers[0].rest);
    EXPECT_TRUE(radius.servers[1].tls);
    EXPECT_EQ(2083, radius.servers[1].port);
    EXPECT_EQ(2083, radius.servers[1].accountingPort);
    EXPECT_EQ("/etc/tal/ca.pem", radius.servers[1].files.authorities);
    EXPECT_EQ("/etc/ssl/node.key", radius.servers[1].files.key);
    EXPECT_TRUE(radius.accounting.on);
    EXPECT_EQ(600s, radius.accounting.interim);
    EXPECT_EQ("2001:db8::9", radius.dynamic.listen.host);
    EXPECT_EQ(3799, radius.dynamic.listen.port);
    EXPECT_EQ(60s, radius.dynamic.window);
    ASSERT_EQ(1U, radius.dynamic.clients.size());
    EXPECT_EQ("centre", radius.dynamic.clients[0].name);
}

struct Bad {
    std::string text;
    std::string what;
};

TEST(ConfigRadius, MistakesAreNamedWithLineAndKey) {
    const std::string server = "[[radius.server]]\nname = \"first\"\naddress = \"192.0.2.1\"\n";
    const std::string tls = "transport = \"tls\"\n";
    const Bad table[] = {
        {file() + "[isa]\n", ": isa: cannot stand beside [radius]"},
        {file("radius = 1"), "node.toml:8: radius.radius: is not a known key"},
        {file("order = \"random\""),
         "node.toml:8: radius.order: must be \"listed\" or \"weighted\""},
        {file("user-name = \"{nobody}\""), "radius.user-name: holds a place that is not known"},
        {file("nas-port-id = \"{interface\""), "radius.nas-port-id: holds a place"},
        {file("nas-ip-address = \"node\""),
         "node.toml:8: radius.nas-ip-address: must be an address in digits, is \"node\""},
        {file("nas-ip-address = \"::1\""),
         "radius.nas-ip-address: must be an address of IPv4, is \"::1\""},
        {file("nas-ipv6-address = \"192.0.2.7\""),
         "radius.nas-ipv6-address: must be an address of IPv6, is \"192.0.2.7\""},
        {file("profile-attribute = 26"), "radius.profile-attribute: must be a number or vendor"},
        {file("client-id-attribute = \"0:1\""), "radius.client-id-attribute: must be a number"},
        {file("on-failure = \"open\""), "radius.on-failure: must be \"block\" or \"keep\""},
        {file("on-failure = \"keep\""), "radius.session-file: is missing, on-failure"},
        {file("", "", "[radius.accounting]\n"), "radius.session-file: is missing, accounting"},
        {file("patience-ms = 0"), "radius.patience-ms: must be 100 to 3600000, is 0"},
        {file("session-file = \"s\"", "", "[radius.accounting]\ninterim-seconds = 5\n"),
         "radius.accounting.interim-seconds: must be 0, for none, or at least 10"},
        {file("", "address = \"192.0.2.2\""), "node.toml:12:"},
        {file("", "port = 0"), "node.toml:12: radius.server.port: must be 1 to 65535, is 0"},
        {file("", "source = \"::1\""), "radius.server.source: must be of the same kind as address"},
        {file("", "window = 0"), "radius.server.window: must be 1 to 16384"},
        {file("", "rest-ms = 1000"), "radius.server.rest-ms: has no meaning with status-server"},
        {file("", "status-server = false\nprobe-interval-ms = 1000"),
         "radius.server.probe-interval-ms: has no meaning without status-server"},
        {file("", "peer-name = \"a\""),
         "radius.server.peer-name: has no meaning without transport = \"tls\""},
        {file("", tls), "radius.server.authorities: is missing"},
        {file("", tls + "authorities = \"a\"\npeer-name = \"b\"\nkey = \"k\""),
         "radius.server.certificate: is missing"},
        {file("", tls + "accounting-port = 1"),
         "radius.server.accounting-port: has no meaning with transport = \"tls\""},
        {file("", "", server), "radius.server.name: \"first\" is used twice"},
        {file("", "", "[radius.dynamic]\nlisten = \"127.0.0.1:3799\"\n"),
         "radius.dynamic.client: there must be at least one"},
        {std::string(interface) + "[radius]\nsecret-file = \"s\"\nnas-identifier = \"n\"\n",
         "radius.server: there must be 1 to 32 [[radius.server]]"},
        {std::string(interface) + "[radius]\nnas-identifier = \"n\"\n" + server,
         "node.toml:5: radius.secret-file: is missing"},
        {std::string(interface) + "[radius]\nsecret-file = \"s\"\n" + server,
         "node.toml:5: radius.nas-identifier: is missing"},
    };
    for (const Bad& bad : table) {
        EXPECT_THAT(errorOf(bad.text), HasSubstr(bad.what)) << bad.text;
        EXPECT_THAT(errorOf(bad.text), StartsWith("node.toml:")) << bad.text;
    }
}

TEST(ConfigRadius, PatienceOutlastsEachOfSeveralServers) {
    const std::string second = "[[radius.server]]\nname = \"second\"\naddress = \"192.0.2.2\"\n";
    EXPECT_EQ("no error", errorOf(file("patience-ms = 7001", "", second)));
    EXPECT_EQ(
        "node.toml:8: radius.patience-ms: must be longer than the 7000 ms after which server "
        "\"first\" is given up, or no other is asked in time; is 7000",
        errorOf(file("patience-ms = 7000", "", second)));
    EXPECT_EQ("no error", errorOf(file("patience-ms = 3600", "first-wait-ms = 500",
                                       second + "first-wait-ms = 500\n")));
    EXPECT_THAT(errorOf(file("patience-ms = 3600", "first-wait-ms = 500", second)),
                HasSubstr("7000 ms after which server \"second\""));
    EXPECT_THAT(errorOf(file("", "tries = 10", second)),
                HasSubstr("node.toml:5: radius.patience-ms: must be longer than the 63000 ms"));
    EXPECT_EQ("no error", errorOf(file("patience-ms = 100"))) << "there is no other";
}

TEST(ConfigRadius, AddressesAreDigits) {
    for (const char* address : {"localhost", "192.0.2", "192.0.2.1:1812", "[::1]"}) {
        std::string text = file();
        text.replace(text.find("192.0.2.1"), 9, address);
        EXPECT_THAT(errorOf(text), HasSubstr("radius.server.address: must be an address in digits"))
            << address;
    }
    for (const char* listen : {"3799", "127.0.0.1", "127.0.0.1:0", "127.0.0.1:99999", "::1:3799",
                               "[127.0.0.1]:3799", "localhost:3799", "127.0.0.1:37x"}) {
        const std::string text = std::string("[radius.dynamic]\nlisten = \"") + listen + "\"\n";
        EXPECT_THAT(errorOf(file("", "", text)),
                    HasSubstr("radius.dynamic.listen: must be an address and a port in digits"))
            << listen;
    }
}

TEST(ConfigRadius, ServersMayChangeWhileTheNodeRunsAndFilesMayNot) {
    const Config now = parse(file("session-file = \"s\""));
    EXPECT_EQ("",
              needsRestart(now, parse(file("session-file = \"s\"\npaced-rate = 1", "port = 5"))));
    EXPECT_THAT(needsRestart(now, parse(file())), HasSubstr("radius.session-file cannot change"));
    EXPECT_THAT(needsRestart(now, parse(interface)), HasSubstr("[isa] or [radius], cannot change"));
    const std::string dynamic =
        "[radius.dynamic]\nlisten = \"127.0.0.1:3799\"\n"
        "[[radius.dynamic.client]]\nname = \"a\"\naddress = \"192.0.2.1\"\n";
    EXPECT_THAT(needsRestart(now, parse(file("session-file = \"s\"", "", dynamic))),
                HasSubstr("radius.dynamic.listen cannot change"));
}

}  // namespace
