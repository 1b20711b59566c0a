#include "node/config/config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

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

Config parse(const std::string& text) {
    return node::parseConfig(text, "node.toml", ".");
}

std::string errorOf(const std::string& text) {
    try {
        parse(text);
    } catch (const ConfigError& error) {
        return error.what();
    }
    return "no error";
}

TEST(Config, DefaultsFillWhatIsNotSaid) {
    const Config config = parse(minimal);
    EXPECT_EQ(config.node.shelf, "1");
    EXPECT_EQ(config.node.boardPosition, 1);
    EXPECT_EQ(config.node.boardType, 2u);
    EXPECT_TRUE(config.node.tal);
    EXPECT_FALSE(config.node.mac);
    EXPECT_EQ(config.control, Config::Control{});
    EXPECT_EQ(config.isa.unknown, Config::Verdict::reject);
    EXPECT_EQ(config.profiles.file, "");
    ASSERT_EQ(config.interfaces.size(), 1u);
    const Config::Interface& interface = config.interfaces[0];
    EXPECT_TRUE(interface.capture.empty());
    EXPECT_EQ(interface.start.count(), 0);
    EXPECT_TRUE(interface.admin);
    EXPECT_TRUE(interface.authentication);
    EXPECT_TRUE(interface.authorization);
    EXPECT_FALSE(interface.autoRequest);
    EXPECT_EQ(interface.timeout, 120u);
    EXPECT_EQ(interface.maxQueueSize, 1u);
}

TEST(Config, EveryKeyIsRead) {
    const node_test::TempDir dir;
    dir.write("a.pcap", "x");
    const Config config = node::parseConfig(R"(
[node]
shelf = "7"
board-position = 255
board-type = 5
tal = false
mac = "02:aB:00:00:00:ff"
[isa]
unknown = "accept"
[[isa.user]]
circuit-id = "one"
verdict = "reject"
delay-ms = 12
[[isa.user]]
circuit-id = "two"
verdict = "never"
[[isa.user]]
circuit-id = "three"
verdict = "accept"
service-profile = "a"
vlan-profile = "b"
flow-profile = "c"
multicast-profile = "d"
security-profile = "e"
l2cp-profile = "f"
access-list = "g"
dsl-profile = "h"
alarm-profile = "i"
[profiles]
file = "node.profiles"
[[interface]]
id = 99
name = "x"
kernel-name = "eth9"
capture = "a.pcap"
start-ms = 5
tal = false
authentication = false
authorization = false
auto-request = true
timeout = 300
max-queue-size = 100
outage = [{from-ms = 1, to-ms = 2}, {from-ms = 3, to-ms = 4}]
)",
                                            "node.toml", dir.path());
    EXPECT_EQ(config.node.shelf, "7");
    EXPECT_EQ(config.node.boardPosition, 255);
    EXPECT_EQ(config.node.boardType, 5u);
    EXPECT_FALSE(config.node.tal);
    EXPECT_EQ(config.node.mac, (std::array<uint8_t, 6>{0x02, 0xab, 0, 0, 0, 0xff}));
    EXPECT_EQ(config.isa.unknown, Config::Verdict::accept);
    ASSERT_EQ(config.isa.users.size(), 3u);
    EXPECT_EQ(config.isa.users[0].circuitId, "one");
    EXPECT_EQ(config.isa.users[0].verdict, Config::Verdict::reject);
    EXPECT_EQ(config.isa.users[0].delay.count(), 12);
    EXPECT_TRUE(config.isa.users[0].profiles.empty());
    EXPECT_EQ(config.isa.users[1].verdict, Config::Verdict::never);
    using Names = std::array<std::string, node::profileKindCount>;
    EXPECT_EQ(config.isa.users[2].profiles.names,
              (Names{"a", "b", "c", "d", "e", "f", "g", "h", "i"}));
    EXPECT_EQ(config.profiles.file, dir.path() + "/node.profiles");
    ASSERT_EQ(config.interfaces.size(), 1u);
    const Config::Interface& interface = config.interfaces[0];
    EXPECT_EQ(interface.id, 99u);
    EXPECT_EQ(interface.kernelName, "eth9");
    EXPECT_EQ(interface.capture, dir.path() + "/a.pcap");
    EXPECT_EQ(interface.start.count(), 5);
    EXPECT_FALSE(interface.admin);
    EXPECT_FALSE(interface.authentication);
    EXPECT_FALSE(interface.authorization);
    EXPECT_TRUE(interface.autoRequest);
    EXPECT_EQ(interface.timeout, 300u);
    EXPECT_EQ(interface.maxQueueSize, 100u);
    ASSERT_EQ(interface.outages.size(), 2u);
    EXPECT_EQ(interface.outages[1].from.count(), 3);
    EXPECT_EQ(interface.outages[1].to.count(), 4);
}

TEST(Config, ManagementIsRead) {
    const auto control = [](const std::string& keys) {
        return node::parseConfig("[control]\n" + keys + minimal, "node.toml", "/etc/tal").control;
    };
    const Config::Control all = control(R"(
socket = "/run/tal/control.sock"
socket-group = "operators"
listen = "192.0.2.1:7443"
certificate = "node.crt"
key = "/secret/node.key"
client-ca = "ca.crt"
)");
    EXPECT_EQ(all.socket, "/run/tal/control.sock");
    EXPECT_EQ(all.socketGroup, "operators");
    EXPECT_EQ(all.listen, "192.0.2.1:7443");
    EXPECT_EQ(all.certificate, "/etc/tal/node.crt");
    EXPECT_EQ(all.key, "/secret/node.key");
    EXPECT_EQ(all.clientCa, "/etc/tal/ca.crt");
    EXPECT_EQ(control(""), Config::Control{});
    EXPECT_EQ(control("socket = \"control.sock\"\n").socket, "/etc/tal/control.sock");
    EXPECT_EQ(control("socket = \"/" + std::string(106, 's') + "\"\n").socket.size(), 107u);
    for (const std::string address : {"[::1]:7443", "[2001:db8::7]:1", "0.0.0.0:65535"}) {
        EXPECT_EQ(control("listen = \"" + address + "\"\n").listen, address);
    }
}

TEST(Config, ListenAddressInOtherWordsIsRefused) {
    for (const std::string address :
         {"localhost:7443", "192.0.2.1", "192.0.2.1:", "192.0.2.1:0", "192.0.2.1:65536", ":7443",
          "192.0.2.1:+1", "192.0.2.1:7443 ", "192.0.2:7443", "::1:7443", "[::1]", "[::1:7443",
          "[192.0.2.1]:7443", "[]:7443", "192.0.2.1:74x3", "192.0.2.1 :7443"}) {
        EXPECT_THAT(errorOf("[control]\nlisten = \"" + address + "\"\n" + minimal),
                    StartsWith("node.toml:2: control.listen: must be an address and a port in "
                               "numbers"))
            << address;
    }
}

struct BadFile {
    const char* what;
    std::string text;
    const char* error;  // its start
};

void PrintTo(const BadFile& file, std::ostream* out) {
    *out << file.what;
}

class BadConfig : public testing::TestWithParam<BadFile> {};

TEST_P(BadConfig, IsRefusedWithFileLineAndKey) {
    const std::string error = errorOf(GetParam().text);
    EXPECT_THAT(error, StartsWith(GetParam().error));
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
}

std::string with(const std::string& more) {
    return minimal + more;
}
std::string before(const std::string& more) {
    return more + minimal;
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadConfig,
    testing::Values(
        BadFile{"NoInterface", "", "node.toml:1: interface: there must be at least one"},
        BadFile{"EmptyInterfaces", "interface = []", "node.toml:1: interface: there must be"},
        BadFile{"Syntax", "[[interface]\nid = 1", "node.toml:1: "},
        BadFile{"SyntaxInLineThree", "[node]\ntal = true\nshelf = \"2", "node.toml:3: "},
        BadFile{"KeyTwice", with("id = 2\n"), "node.toml:5: "},
        BadFile{"UnknownTable", before("[nodes]\n"), "node.toml:1: nodes: is not a known key"},
        BadFile{"UnknownNodeKey", before("[node]\n\nshelfs = \"1\"\n"),
                "node.toml:3: node.shelfs: is not a known key"},
        BadFile{"UnknownInterfaceKey", with("colour = 1\n"),
                "node.toml:5: interface.colour: is not a known key"},
        BadFile{"UnknownIsaKey", before("[isa]\nusers = []\n"),
                "node.toml:2: isa.users: is not a known key"},
        BadFile{"NodeIsNoTable", before("node = 3\n"), "node.toml:1: node: must be a table"},
        BadFile{"InterfaceIsNoArray", "[interface]\nid = 1\n",
                "node.toml:1: interface: must be written as [[interface]]"},
        BadFile{"InterfaceHoldsNumbers", "interface = [1]\n",
                "node.toml:1: interface: must hold tables"},
        BadFile{"NoId", "[[interface]]\nname = \"1/1\"\nkernel-name = \"dsl1\"\n",
                "node.toml:1: interface.id: is missing"},
        BadFile{"IdIsText", "[[interface]]\nid = \"1\"\n",
                "node.toml:2: interface.id: must be a whole number, is a text"},
        BadFile{"IdIsFraction", "[[interface]]\nid = 1.0\n",
                "node.toml:2: interface.id: must be a whole number, is a fraction"},
        BadFile{"IdZero", "[[interface]]\nid = 0\n",
                "node.toml:2: interface.id: must be 1 to 99, is 0"},
        BadFile{"IdHundred", "[[interface]]\nid = 100\n",
                "node.toml:2: interface.id: must be 1 to 99, is 100"},
        BadFile{"IdNegative", "[[interface]]\nid = -1\n",
                "node.toml:2: interface.id: must be 1 to 99, is -1"},
        BadFile{"NameEmpty", "[[interface]]\nid = 1\nname = \"\"\n",
                "node.toml:3: interface.name: must not be empty"},
        BadFile{"NameWithControlCharacter", "[[interface]]\nid = 1\nname = \"a\\nb\"\n",
                "node.toml:3: interface.name: must be printable ASCII"},
        BadFile{"NameTooLong", "[[interface]]\nid = 1\nname = \"" + std::string(33, 'a') + "\"\n",
                "node.toml:3: interface.name: must be at most 32 characters, is 33"},
        BadFile{"KernelNameOfFive",
                "[[interface]]\nid = 1\nname = \"a\"\nkernel-name = \"dsl10\"\n",
                "node.toml:4: interface.kernel-name: must be exactly four characters"},
        BadFile{"KernelNameOfThree", "[[interface]]\nid = 1\nname = \"a\"\nkernel-name = \"dsl\"\n",
                "node.toml:4: interface.kernel-name: must be exactly four characters"},
        BadFile{"KernelNameWithBlank",
                "[[interface]]\nid = 1\nname = \"a\"\nkernel-name = \"ds 1\"\n",
                "node.toml:4: interface.kernel-name: must be exactly four characters"},
        BadFile{"MissingCapture", with("capture = \"none.pcap\"\n"),
                "node.toml:5: interface.capture: there is no file ./none.pcap"},
        BadFile{"CaptureIsDirectory", with("capture = \".\"\n"),
                "node.toml:5: interface.capture: ./. is not a regular file"},
        BadFile{"CaptureIsNumber", with("capture = 7\n"),
                "node.toml:5: interface.capture: must be a text in quotes, is a whole number"},
        BadFile{"TimeoutZero", with("timeout = 0\n"),
                "node.toml:5: interface.timeout: must be 1 to 300, is 0"},
        BadFile{"TimeoutTooLong", with("timeout = 301\n"),
                "node.toml:5: interface.timeout: must be 1 to 300, is 301"},
        BadFile{"QueueZero", with("max-queue-size = 0\n"),
                "node.toml:5: interface.max-queue-size: must be 1 to 100, is 0"},
        BadFile{"QueueTooLong", with("max-queue-size = 101\n"),
                "node.toml:5: interface.max-queue-size: must be 1 to 100, is 101"},
        BadFile{"FlagIsNumber", with("tal = 1\n"),
                "node.toml:5: interface.tal: must be true or false, is a whole number"},
        BadFile{"NegativeStart", with("start-ms = -1\n"),
                "node.toml:5: interface.start-ms: must be 0"},
        BadFile{"OutageWithoutEnd", with("outage = [{from-ms = 1}]\n"),
                "node.toml:5: interface.outage.to-ms: is missing"},
        BadFile{"OutageBackwards", with("outage = [{from-ms = 2, to-ms = 2}]\n"),
                "node.toml:5: interface.outage.to-ms: must be later than from-ms"},
        BadFile{"OutagesOverlap",
                with("outage = [{from-ms = 1, to-ms = 5}, {from-ms = 5, to-ms = 6}]\n"),
                "node.toml:5: interface.outage.from-ms: must be later than the outage before"},
        BadFile{"SecondIdTheSame",
                with("[[interface]]\nid = 1\nname = \"1/2\"\nkernel-name = \"dsl2\"\n"),
                "node.toml:6: interface.id: 1 is used twice"},
        BadFile{"SecondNameTheSame",
                with("[[interface]]\nid = 2\nname = \"1/1\"\nkernel-name = \"dsl2\"\n"),
                "node.toml:7: interface.name: \"1/1\" is used twice"},
        BadFile{"SecondKernelNameTheSame",
                with("[[interface]]\nid = 2\nname = \"1/2\"\nkernel-name = \"dsl1\"\n"),
                "node.toml:8: interface.kernel-name: \"dsl1\" is used twice"},
        BadFile{"BoardPositionTooHigh", before("[node]\nboard-position = 256\n"),
                "node.toml:2: node.board-position: must be 0 to 255, is 256"},
        BadFile{"MacTooShort", before("[node]\nmac = \"02:00:00:00:00:0\"\n"),
                "node.toml:2: node.mac: must be six pairs of hex digits"},
        BadFile{"MacWithSigns", before("[node]\nmac = \"+2:00:00:00:00:00\"\n"),
                "node.toml:2: node.mac: must be six pairs of hex digits"},
        BadFile{"UnknownControlKey", before("[control]\nsocket_group = \"a\"\n"),
                "node.toml:2: control.socket_group: is not a known key"},
        BadFile{"ControlIsNoTable", before("control = \"/run/a\"\n"),
                "node.toml:1: control: must be a table"},
        BadFile{"SocketEmpty", before("[control]\nsocket = \"\"\n"),
                "node.toml:2: control.socket: must not be empty"},
        BadFile{"SocketTooLong", before("[control]\nsocket = \"/" + std::string(107, 's') + "\"\n"),
                "node.toml:2: control.socket: must be a path of at most 107 characters"},
        BadFile{"SocketGroupIsNumber", before("[control]\n\nsocket-group = 7\n"),
                "node.toml:3: control.socket-group: must be a text in quotes"},
        BadFile{"ListenIsNumber", before("[control]\nlisten = 7443\n"),
                "node.toml:2: control.listen: must be a text in quotes"},
        BadFile{"CertificateWithoutListen", before("[control]\ncertificate = \"a\"\n"),
                "node.toml:2: control.certificate: has no meaning without listen"},
        BadFile{"KeyWithoutListen", before("[control]\nkey = \"a\"\n"),
                "node.toml:2: control.key: has no meaning without listen"},
        BadFile{"ClientCaWithoutListen", before("[control]\nclient-ca = \"a\"\n"),
                "node.toml:2: control.client-ca: has no meaning without listen"},
        BadFile{"UnknownVerdict", before("[[isa.user]]\ncircuit-id = \"a\"\nverdict = \"maybe\"\n"),
                "node.toml:3: isa.user.verdict: must be \"accept\", \"reject\" or \"never\", is "
                "\"maybe\""},
        BadFile{"NoVerdict", before("[[isa.user]]\ncircuit-id = \"a\"\n"),
                "node.toml:1: isa.user.verdict: is missing"},
        BadFile{"NoCircuitId", before("[[isa.user]]\nverdict = \"accept\"\n"),
                "node.toml:1: isa.user.circuit-id: is missing"},
        BadFile{"CircuitIdTooLong",
                before("[[isa.user]]\ncircuit-id = \"" + std::string(64, 'a') + "\"\n"),
                "node.toml:2: isa.user.circuit-id: must be at most 63 characters, is 64"},
        BadFile{"UserTwice",
                before("[[isa.user]]\ncircuit-id = \"a\"\nverdict = \"accept\"\n"
                       "[[isa.user]]\ncircuit-id = \"a\"\nverdict = \"reject\"\n"),
                "node.toml:5: isa.user.circuit-id: \"a\" is listed twice"},
        BadFile{"DelayOfNobody",
                before("[[isa.user]]\ncircuit-id = \"a\"\nverdict = \"never\"\ndelay-ms = 1\n"),
                "node.toml:4: isa.user.delay-ms: has no meaning"},
        BadFile{"ProfileOfNobody",
                before("[[isa.user]]\ncircuit-id = \"a\"\nverdict = \"reject\"\n"
                       "access-list = \"b\"\n"),
                "node.toml:4: isa.user.access-list: has no meaning for a user who is not accepted"},
        BadFile{"ProfileNameTooLong",
                before("[[isa.user]]\ncircuit-id = \"a\"\nverdict = \"accept\"\n"
                       "dsl-profile = \"" +
                       std::string(65, 'd') + "\"\n"),
                "node.toml:4: isa.user.dsl-profile: must be at most 64 characters, is 65"},
        BadFile{"ProfileNameEmpty",
                before("[[isa.user]]\ncircuit-id = \"a\"\nverdict = \"accept\"\n"
                       "flow-profile = \"\"\n"),
                "node.toml:4: isa.user.flow-profile: must not be empty"},
        BadFile{"AccessListProfile",
                before("[[isa.user]]\ncircuit-id = \"a\"\nverdict = \"accept\"\n"
                       "access-list-profile = \"b\"\n"),
                "node.toml:4: isa.user.access-list-profile: is not a known key"},
        BadFile{"ProfilesWithoutFile", before("[profiles]\n"),
                "node.toml:1: profiles.file: is missing"},
        BadFile{"ProfilesFileIsDirectory", before("[profiles]\nfile = \".\"\n"),
                "node.toml:2: profiles.file: ./. is a directory"},
        BadFile{"UnknownProfilesKey", before("[profiles]\nfile = \"a\"\nsize = 3\n"),
                "node.toml:3: profiles.size: is not a known key"},
        BadFile{"UnknownUserKey",
                before("[[isa.user]]\ncircuit-id = \"a\"\nverdict = \"never\"\nname = \"b\"\n"),
                "node.toml:4: isa.user.name: is not a known key"}),
    [](const testing::TestParamInfo<BadFile>& file) { return std::string(file.param.what); });

TEST(Config, MissingFileIsNamed) {
    const node_test::TempDir dir;
    try {
        node::loadConfig(dir.path() + "/none.toml");
        FAIL();
    } catch (const ConfigError& error) {
        EXPECT_EQ(error.what(), dir.path() + "/none.toml: cannot be opened");
    }
}

TEST(Config, DirectoryIsNoFile) {
    const node_test::TempDir dir;
    EXPECT_THROW(node::loadConfig(dir.path()), ConfigError);
}

TEST(Config, FileWithoutEndIsRefused) {
    EXPECT_THROW(node::loadConfig("/dev/zero"), ConfigError);
}

TEST(Config, PathsAreRelativeToTheFile) {
    const node_test::TempDir dir;
    dir.write("a.pcap", "x");
    const std::string path =
        dir.write("node.toml", std::string(minimal) + "capture = \"a.pcap\"\n");
    EXPECT_EQ(node::loadConfig(path).interfaces[0].capture, dir.path() + "/a.pcap");
}

TEST(Config, AnyBytesEndInAnError) {
    std::string bytes;
    uint32_t seed = 7;
    for (int round = 0; round < 300; ++round) {
        bytes.clear();
        for (int i = 0; i < round; ++i) {
            seed = seed * 1664525u + 1013904223u;
            bytes += static_cast<char>(seed >> 24);
        }
        EXPECT_NE(errorOf(bytes), "no error");
    }
}

}  // namespace
