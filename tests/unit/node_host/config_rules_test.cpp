// Rules, changes and what a running node can follow, in the configuration.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "node/config/config.h"
#include "node/config/reload.h"
#include "node/rules/rule_text.h"
#include "tests/unit/node_host/temp_dir.h"

namespace {

using node::Config;
using node::ConfigError;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* minimal = R"([[interface]]
id = 1
name = "1/1"
kernel-name = "dsl1"
)";

Config parse(const std::string& text, const std::string& directory = ".") {
    return node::parseConfig(text, "node.toml", directory);
}

std::string errorOf(const std::string& text) {
    try {
        parse(text);
    } catch (const ConfigError& error) {
        return error.what();
    }
    return "no error";
}

std::string rules(const std::string& said) {
    return minimal + said;
}

std::string rule(const std::string& said) {
    return std::string(minimal) + "[[interface.rule]]\n" + said + "\n";
}

std::string textOf(const std::vector<Config::Rule>& given) {
    std::string text;
    for (const Config::Rule& entry : given) {
        text += node::ruleText(node::ruleType(entry.record), entry.record) + "; ";
    }
    return text;
}

TEST(ConfigRules, LineHasNoneUnlessItIsSaid) {
    EXPECT_TRUE(parse(minimal).interfaces[0].rules.empty());
    EXPECT_TRUE(parse(rules("rule = []\n")).interfaces[0].rules.empty());
}

TEST(ConfigRules, EveryKindIsReadAndKeptInTheOrderOfTheTypes) {
    const Config config = parse(rules(R"(
[[interface.rule]]
user-pattern = "00ff/00ff"
[[interface.rule]]
vlan = 100
[[interface.rule]]
ip = "192.0.2.0/24"
[[interface.rule]]
mac = "00:11:22:00:00:00/ff:ff:ff:00:00:00"
[[interface.rule]]
client-id = "hex:01aa*"
[[interface.rule]]
remote-id = "line-007"
[[interface.rule]]
vendor-id = "udhcp*"
[[interface.rule]]
dhcp = "discover"
[[interface.rule]]
ethertype = 0x0800
[[interface.rule]]
any = true
)"));
    EXPECT_EQ(textOf(config.interfaces[0].rules),
              "any; ethertype 0x0800; dhcp discover; vendor-id udhcp*; remote-id line-007*; "
              "client-id hex:01aa*; mac 00:11:22:00:00:00/ff:ff:ff:00:00:00; ip 192.0.2.0/24; "
              "vlan 100; user-pattern 00ff/00ff; ");
    EXPECT_EQ(config.interfaces[0].rules.front().where, "node.toml:25: interface.rule.any");
    EXPECT_EQ(config.interfaces[0].where, "node.toml:1: interface");
}

TEST(ConfigRules, NumbersMayBeTexts) {
    EXPECT_EQ(textOf(parse(rule("ethertype = \"arp\"")).interfaces[0].rules), "ethertype 0x0806; ");
    EXPECT_EQ(textOf(parse(rule("ethertype = \"0x88cc\"")).interfaces[0].rules),
              "ethertype 0x88cc; ");
    EXPECT_EQ(textOf(parse(rule("vlan = \"7\"")).interfaces[0].rules), "vlan 7; ");
}

TEST(ConfigRules, IncompatibleRulesOfTwoInterfacesDoNotMeet) {
    const Config config = parse(rule("ethertype = \"arp\"") +
                                "[[interface]]\nid = 2\nname = \"1/2\"\nkernel-name = \"dsl2\"\n"
                                "[[interface.rule]]\ndhcp = \"any\"\n");
    EXPECT_EQ(textOf(config.interfaces[1].rules), "dhcp any; ");
}

TEST(ConfigRules, RulesWithoutIpv4StandBesideAnyEtherType) {
    EXPECT_EQ(errorOf(rules("rule = [{ethertype = \"arp\"}, {any = true}, {vlan = 1}, "
                            "{mac = \"02:00:00:00:00:01\"}, {user-pattern = \"01\"}]\n")),
              "no error");
}

struct BadFile {
    const char* what;
    std::string text;
    const char* error;  // its start
};

void PrintTo(const BadFile& file, std::ostream* out) {
    *out << file.what;
}

class BadRules : public testing::TestWithParam<BadFile> {};

TEST_P(BadRules, AreRefusedWithFileLineAndKey) {
    const std::string error = errorOf(GetParam().text);
    EXPECT_THAT(error, StartsWith(GetParam().error));
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadRules,
    testing::Values(
        BadFile{"UnknownKind", rule("colour = \"red\""),
                "node.toml:6: interface.rule.colour: is not a known key"},
        BadFile{"EmptyRule", rule(""), "node.toml:5: interface.rule: must say one thing"},
        BadFile{"TwoConditions", rule("vlan = 1\ndhcp = \"any\""),
                "node.toml:5: interface.rule: must say one thing: the rules of an interface are "
                "alternatives"},
        BadFile{"NoTables", rules("rule = [\"any\"]\n"),
                "node.toml:5: interface.rule: must hold tables, holds a text"},
        BadFile{"NotAny", rule("any = false"), "node.toml:6: interface.rule.any: must be true"},
        BadFile{"AnyIsText", rule("any = \"yes\""),
                "node.toml:6: interface.rule.any: must be true or false, is a text"},
        BadFile{"EtherTypeIsALength", rule("ethertype = 1500"),
                "node.toml:6: interface.rule.ethertype: must be an EtherType"},
        BadFile{"EtherTypeIsNegative", rule("ethertype = -1"),
                "node.toml:6: interface.rule.ethertype: must be an EtherType"},
        BadFile{"EtherTypeIsFraction", rule("ethertype = 1.5"),
                "node.toml:6: interface.rule.ethertype: must be a text in quotes, is a fraction"},
        BadFile{"EtherTypeIsTag", rule("ethertype = 0x8100"),
                "node.toml:6: interface.rule.ethertype: must not be the type of a VLAN tag"},
        BadFile{"DhcpWord", rule("dhcp = \"offer\""),
                "node.toml:6: interface.rule.dhcp: must be \"any\" or \"discover\""},
        BadFile{"DhcpIsFlag", rule("dhcp = true"),
                "node.toml:6: interface.rule.dhcp: must be a text in quotes, is true or false"},
        BadFile{"VendorIdEmpty", rule("vendor-id = \"\""),
                "node.toml:6: interface.rule.vendor-id: must not be empty"},
        BadFile{"StarInside", rule("vendor-id = \"a*b\""),
                "node.toml:6: interface.rule.vendor-id: must have its star at the end"},
        BadFile{"ClientIdIsAnAddress", rule("client-id = \"00:1a:2b:3c:4d:5e\""),
                "node.toml:6: interface.rule.client-id: must be written as \"mac:"},
        BadFile{"RemoteIdOddHex", rule("remote-id = \"hex:123\""),
                "node.toml:6: interface.rule.remote-id: must be at most 255 pairs"},
        BadFile{"MacShort", rule("mac = \"00:11:22\""),
                "node.toml:6: interface.rule.mac: must be a MAC address"},
        BadFile{"IpPrefix", rule("ip = \"192.0.2.0/33\""),
                "node.toml:6: interface.rule.ip: must be an IPv4 address"},
        BadFile{"VlanTooHigh", rule("vlan = 4095"),
                "node.toml:6: interface.rule.vlan: must be a VLAN id"},
        BadFile{"UserPatternMask", rule("user-pattern = \"00ff/ff\""),
                "node.toml:6: interface.rule.user-pattern: must be at most 128 pairs"},
        BadFile{"TextTooLong", rule("user-pattern = \"" + std::string(601, '0') + "\""),
                "node.toml:6: interface.rule.user-pattern: must be at most 600 characters"},
        BadFile{"KindTwice", rule("vlan = 1\n[[interface.rule]]\nvlan = 2"),
                "node.toml:8: interface.rule.vlan: the interface has such a rule already"},
        BadFile{"DhcpBesideArp", rule("ethertype = \"arp\"\n[[interface.rule]]\ndhcp = \"any\""),
                "node.toml:8: interface.rule.dhcp: looks into IPv4 and cannot stand beside "
                "ethertype 0x0806"},
        BadFile{"ArpBesideIp", rule("ip = \"192.0.2.1\"\n[[interface.rule]]\nethertype = \"arp\""),
                "node.toml:6: interface.rule.ip: looks into IPv4 and cannot stand beside"},
        BadFile{"PatternsBesideIpv6",
                rule("ethertype = \"ipv6\"\n[[interface.rule]]\nremote-id = \"a\""),
                "node.toml:8: interface.rule.remote-id: looks into IPv4"},
        BadFile{"ChangeWithoutTime", std::string(minimal) + "[[change]]\nconfig = \"a.toml\"\n",
                "node.toml:5: change.at-ms: is missing"},
        BadFile{"ChangeWithoutFile", std::string(minimal) + "[[change]]\nat-ms = 1\n",
                "node.toml:5: change.config: is missing"},
        BadFile{"ChangeToNoFile",
                std::string(minimal) + "[[change]]\nat-ms = 1\nconfig = \"none.toml\"\n",
                "node.toml:7: change.config: there is no file ./none.toml"},
        BadFile{"ChangeKey", std::string(minimal) + "[[change]]\nat = 1\nat-ms = 1\nconfig = \".\"",
                "node.toml:8: change.config: ./. is not a regular file"}),
    [](const testing::TestParamInfo<BadFile>& file) { return std::string(file.param.what); });

TEST(ConfigChanges, AreReadInTheirOrder) {
    const node_test::TempDir dir;
    dir.write("a.toml", "x");
    const std::string both = std::string(minimal) +
                             "[[change]]\nat-ms = 1\nconfig = \"a.toml\"\n"
                             "[[change]]\nat-ms = 2\nconfig = \"a.toml\"\n";
    const Config config = parse(both, dir.path());
    ASSERT_EQ(config.changes.size(), 2u);
    EXPECT_EQ(config.changes[1].at.count(), 2);
    EXPECT_EQ(config.changes[1].config, dir.path() + "/a.toml");
    EXPECT_THROW(parse(both + "[[change]]\nat-ms = 2\nconfig = \"a.toml\"\n", dir.path()),
                 ConfigError);
    EXPECT_THROW(parse(both + "colour = 1\n", dir.path()), ConfigError);
}

class Reload : public testing::Test {
protected:
    std::string difference(const std::string& next) {
        return node::needsRestart(parse(now, dir.path()),
                                  node::parseConfig(next, "next.toml", dir.path()));
    }
    std::string changed(const std::string& from, const std::string& to) {
        std::string next = now;
        return next.replace(next.find(from), from.size(), to);
    }
    static std::string emptyFile(const node_test::TempDir& dir, const std::string& name) {
        dir.write(name, "");
        return name;
    }

    node_test::TempDir dir;
    std::string first = emptyFile(dir, "a.pcap");
    std::string second = emptyFile(dir, "b.pcap");
    std::string now = R"([node]
shelf = "2"
board-position = 5
board-type = 1
mac = "02:00:00:00:00:01"
[[interface]]
id = 1
name = "1/1"
kernel-name = "dsl1"
capture = "a.pcap"
start-ms = 5
outage = [{from-ms = 7, to-ms = 9}]
[[interface]]
id = 2
name = "1/2"
kernel-name = "dsl2"
)";
};

TEST_F(Reload, SettingsRulesAndUsersCanChange) {
    EXPECT_EQ(difference(now), "");
    EXPECT_EQ(difference(now + "tal = false\nauthentication = false\nauthorization = false\n"
                               "auto-request = true\ntimeout = 3\nmax-queue-size = 7\n"
                               "[[interface.rule]]\nany = true\n[isa]\nunknown = \"accept\"\n"),
              "");
    EXPECT_EQ(difference(changed("shelf", "tal = false\nshelf")), "");
}

TEST_F(Reload, WhatIsReadAtTheStartCannot) {
    EXPECT_EQ(difference(changed("\"2\"", "\"3\"")),
              "next.toml: node.shelf cannot change while the node runs");
    EXPECT_THAT(difference(changed("= 5", "= 6")), HasSubstr("node.board-position cannot change"));
    EXPECT_THAT(difference(changed("board-type = 1", "")), HasSubstr("node.board-type cannot"));
    EXPECT_EQ(difference(now + "[control]\nsocket = \"a\"\n"),
              "next.toml: control cannot change while the node runs");
    EXPECT_THAT(difference(changed("00:01", "00:02")), HasSubstr("node.mac cannot change"));
    EXPECT_EQ(difference(now + "[profiles]\nfile = \"p\"\n"),
              "next.toml: profiles.file cannot change while the node runs");
    EXPECT_EQ(difference(changed("\"1/1\"", "\"1/3\"")),
              "next.toml:6: interface.name cannot change while the node runs");
    EXPECT_THAT(difference(changed("dsl2", "dsl3")),
                StartsWith("next.toml:13: interface.kernel-name cannot"));
    EXPECT_THAT(difference(changed("a.pcap", "b.pcap")), HasSubstr("interface.capture cannot"));
    EXPECT_THAT(difference(changed("start-ms = 5", "")), HasSubstr("interface.start-ms cannot"));
    EXPECT_THAT(difference(changed("to-ms = 9", "to-ms = 8")),
                HasSubstr("interface.outage cannot"));
}

TEST_F(Reload, LinesNeitherComeNorGo) {
    EXPECT_EQ(difference(now + "[[interface]]\nid = 3\nname = \"1/3\"\nkernel-name = \"dsl3\"\n"),
              "next.toml:17: interface: an interface cannot be added while the node runs");
    EXPECT_EQ(difference(now.substr(0, now.rfind("[[interface]]"))),
              "next.toml: interface 1/2 is missing, an interface cannot be removed while the node "
              "runs");
}

}  // namespace
