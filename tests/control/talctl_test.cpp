// talctl against a server in the same process: what it asks for, what it prints, how it ends.
#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <sstream>

#include "node/control/listener.h"
#include "node/ctl/commands.h"
#include "node/ctl/json.h"
#include "node/ctl/table.h"
#include "tests/control/server_fixture.h"

namespace node::control {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class TalctlTest : public ServerTest {
protected:
    // The words of a command line; quotes are not needed here.
    int talctl(const std::string& line) { return run(line, {"--server", target()}); }
    int run(const std::string& line, std::vector<std::string> arguments = {}) {
        std::istringstream words(line);
        arguments.insert(arguments.end(), std::istream_iterator<std::string>(words), {});
        std::ostringstream outText;
        std::ostringstream errText;
        const int code = ctl::run(arguments, outText, errText);
        out = outText.str();
        err = errText.str();
        return code;
    }

    std::string out;
    std::string err;
};

TEST_F(TalctlTest, SettersReachTheNodeByAnyNameOfAnInterface) {
    start();
    EXPECT_EQ(0, talctl("admin on"));
    EXPECT_EQ("done\n", out);
    EXPECT_EQ(0, talctl("interface set 2 --admin on --authentication off"));
    EXPECT_EQ(0, talctl("interface set 1/2 --authorization off"));
    EXPECT_EQ(0, talctl("interface set dsl2 --auto-request on"));
    EXPECT_EQ(0, talctl("interface set all --admin off"));
    EXPECT_EQ(0, talctl("profiles convert"));
    EXPECT_EQ(0, talctl("isa clear"));
    EXPECT_EQ("", err);
    EXPECT_THAT(
        node.calls(),
        ElementsAre("rpcTalAdminStateSet(1)", "rpcTalIntfAdminStateSet(2, 1)",
                    "rpcTalIntfAuthenAdminStateSet(2, 0)", "rpcTalIntfAuthorAdminStateSet(2, 0)",
                    "rpcTalIntfAutoReqAdminStateSet(2, 1)", "rpcTalIntfAdminStateSet(0, 0)",
                    "rpcTalConvertAllDynamicProfilesToStatic()", "clearIsaConfiguration()"));
}

TEST_F(TalctlTest, ProfilesAreListedByTheNamesThatTheConfigurationUses) {
    start();
    EXPECT_EQ(0, talctl("profiles list"));
    EXPECT_EQ("no profiles\n", out);
    std::vector<ProfileInfo> profiles;
    for (size_t kind = 0; kind < profileKindCount; ++kind) {
        profiles.push_back({.kind = static_cast<ProfileKind>(kind),
                            .name = "p",
                            .state = static_cast<ProfileState>(kind % 3),
                            .isProtected = kind == 0,
                            .interfaces = {}});
    }
    profiles[0].interfaces = {1, 2};
    node.setProfiles(profiles);
    EXPECT_EQ(0, talctl("profiles list"));
    std::istringstream lines(out);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ("KIND         NAME  STATE     PROTECTED  INTERFACES", line);
    for (const ProfileInfo& profile : profiles) {
        std::string kind;
        std::string name;
        std::string state;
        std::string rest;
        lines >> kind >> name >> state;
        std::getline(lines, rest);
        EXPECT_EQ(profileKindName(profile.kind), kind);
        EXPECT_EQ(profileStateName(profile.state), state);
        EXPECT_THAT(rest, HasSubstr(profile.isProtected ? "yes        1, 2" : "no         -"));
    }
    EXPECT_EQ("", err);
}

TEST_F(TalctlTest, RulesAreAddedShownDeletedAndBundled) {
    start();
    EXPECT_EQ(0, talctl("rule add 1/1 --vendor-id acme*"));
    EXPECT_EQ(0, talctl("rule add 1/1 --mac 00:11:22:00:00:00/ff:ff:ff:00:00:00"));
    EXPECT_EQ(0, talctl("rule add 1/1 --any"));
    EXPECT_EQ(0, talctl("rule show 1/1"));
    EXPECT_EQ(
        "KIND       VALUE\n"
        "any\n"
        "vendor-id  acme*\n"
        "mac        00:11:22:00:00:00/ff:ff:ff:00:00:00\n",
        out);
    EXPECT_EQ(0, talctl("rule delete 1/1 mac"));
    EXPECT_EQ(0, talctl("rule show 1/1 --json"));
    EXPECT_THAT(out, AllOf(HasSubstr("\"acme*\""), testing::Not(HasSubstr("mac"))));
    EXPECT_EQ(0, talctl("rule delete 1/1 all"));
    EXPECT_EQ(0, talctl("rule show 1/1"));
    EXPECT_EQ("no rules\n", out);
    EXPECT_EQ(0, talctl("rule bundle 1/1 --dhcp discover --ethertype ipv4"));
    EXPECT_EQ(0, talctl("rule show 1/1"));
    EXPECT_EQ("KIND       VALUE\nethertype  0x0800\ndhcp       discover\n", out);
}

TEST_F(TalctlTest, StatusTellsNodeInterfacesLoginsAndServers) {
    node.setFile(storedLogin(1));
    node.setInterface({.id = 2,
                       .name = "1/2",
                       .kernelName = "dsl2",
                       .portState = PortState::open,
                       .gateOpen = true});
    node.setServers({{.name = "first", .address = "192.0.2.1:1812", .role = "both", .note = ""}});
    start();
    EXPECT_EQ(0, talctl("status"));
    EXPECT_THAT(out, AllOf(HasSubstr("shelf 2, board 5"), HasSubstr("01:01:01"),
                           HasSubstr("2: 1 open, 0 pending, 1 blocked, 0 rejected"),
                           HasSubstr("stored logins  1\n"), HasSubstr("TAL            off\n"),
                           HasSubstr("192.0.2.1:1812")));
}

TEST_F(TalctlTest, ServersAreShownWithTheirCounters) {
    start();
    EXPECT_EQ(0, talctl("servers"));
    EXPECT_EQ("no servers: ISA answers from a list of users\n", out);
    node::control::ServerView first;
    first.name = "first";
    first.address = "192.0.2.1:1812";
    first.role = "authentication";
    first.state = "trial";
    first.transport = "udp";
    first.counters.requests = uint64_t{1} << 40;
    first.counters.accepts = 3;
    first.counters.rejects = 4;
    first.dropped.late = 5;
    first.dropped.malformed = 6;
    first.roundTrip = {7, 1500, 20000, 123456};
    node.setServers({first});
    EXPECT_EQ(0, talctl("servers"));
    EXPECT_THAT(out, HasSubstr("first   192.0.2.1:1812  authentication  trial  1099511627776  3"));
    EXPECT_THAT(out, HasSubstr(" 11       1.5     20.0    123.5\n"));
    EXPECT_EQ(0, talctl("servers --json"));
    EXPECT_THAT(out, AllOf(HasSubstr("\"requests\": 1099511627776"), HasSubstr("\"late\": 5"),
                           HasSubstr("\"p99_us\": 123456")));
}

TEST_F(TalctlTest, InterfaceIsShownWithWhatCouldNotBeReadAsAQuestionMark) {
    node.refuse("rpcTalIntfAdminStateGet", 1);
    node.refuse("rpcTalRuleGet", 1);
    start();
    EXPECT_EQ(0, talctl("interface show 1/1"));
    EXPECT_THAT(out, AllOf(HasSubstr("admin              ?\n"), HasSubstr("rules              ?\n"),
                           HasSubstr("authentication     on, up\n")));
    EXPECT_EQ(0, talctl("interface show 1 --json"));
    EXPECT_THAT(out, AllOf(HasSubstr("\"admin\": null"), HasSubstr("\"rules\": null")));
}

TEST_F(TalctlTest, StatisticsAreReadOnceOrWatched) {
    start();
    EXPECT_EQ(0, talctl("stats"));
    EXPECT_THAT(out, AllOf(StartsWith("COUNTER           1/1  1/2\nframes-seen       101  201\n"),
                           HasSubstr("forwarded         113  213\n")));
    EXPECT_EQ(0, talctl("stats 1/2 --watch 1 --count 2 --json"));
    const size_t end = out.find('\n');
    EXPECT_EQ(out.substr(0, end + 1), out.substr(end + 1));
    EXPECT_THAT(out, StartsWith("{\"interfaces\": [{\"id\": 2, \"name\": \"1/2\", \"counters\": "
                                "{\"frames_seen\": 201, "));
}

TEST_F(TalctlTest, EventsArriveLive) {
    start();
    std::thread listener([this] { EXPECT_EQ(0, talctl("events 1/2 --kind gate --count 1")); });
    const auto stub = client();
    EXPECT_TRUE(eventually([&] {
        v1::NodeInfoResponse info;
        call(*stub, &v1::Management::Stub::NodeInfo, v1::NodeInfoRequest(), info);
        return info.event_clients() == 1;
    }));
    server->publish({.kind = EventKind::trap, .ifId = 2, .interfaceName = "1/2", .text = "not"});
    server->publish({.kind = EventKind::gate, .ifId = 2, .interfaceName = "1/2", .text = "open"});
    listener.join();
    EXPECT_THAT(out, testing::MatchesRegex("20[0-9T:.-]+Z  1/2  gate     open\n"));
}

TEST_F(TalctlTest, StreamThatTheNodeEndsIsToldByTheExitCode) {
    start();
    std::thread listener([this] { EXPECT_EQ(4, talctl("events")); });
    const auto stub = client();
    EXPECT_TRUE(eventually([&] {
        v1::NodeInfoResponse info;
        call(*stub, &v1::Management::Stub::NodeInfo, v1::NodeInfoRequest(), info);
        return info.event_clients() == 1;
    }));
    server.reset();
    listener.join();
    EXPECT_THAT(err, HasSubstr("ended: the node stops"));
}

TEST_F(TalctlTest, StoredFilesAreReadWithoutANode) {
    const std::string file = scratch.file("store");
    std::ofstream(file) << storedLogin(7);
    EXPECT_EQ(0, run("store show " + file));
    EXPECT_THAT(out, AllOf(HasSubstr("192.0.2.7"), HasSubstr("node2 atm 5/1")));
    EXPECT_EQ(0, run("store verify " + file));
    EXPECT_THAT(out, HasSubstr("1 stored logins, no fault"));
    std::ofstream(file, std::ios::app) << "nonsense\n";
    EXPECT_EQ(1, run("store verify " + file));
    EXPECT_THAT(err, HasSubstr("is corrupt: line 15: "));
    EXPECT_EQ(0, run("store show " + file));
    EXPECT_THAT(out, HasSubstr("The file is corrupt: line 15: "));
    EXPECT_EQ(2, run("store show " + scratch.file("none")));
    EXPECT_THAT(err, HasSubstr("cannot be read"));
}

TEST_F(TalctlTest, RefusalIsOneWithTheSentenceAndTheNumber) {
    start();
    EXPECT_EQ(1, talctl("rule add 77 --vlan 100 --json"));
    EXPECT_EQ("talctl: there is no interface 77\n", err);
    EXPECT_THAT(out, AllOf(HasSubstr("\"exit_code\": 1"), HasSubstr("\"rpc_tal_res\": 3")));
    EXPECT_EQ(1, talctl("interface show nosuch"));
    EXPECT_THAT(err, HasSubstr("known are 1/1, 1/2"));
    node.refuse("rpcTalRuleSet", 2);
    EXPECT_EQ(1, talctl("rule add 1 --ethertype arp"));
    EXPECT_THAT(err, HasSubstr("do not go together"));
    node.refuse("rpcTalAdminStateSet", 4);
    EXPECT_EQ(1, talctl("admin on"));
    EXPECT_THAT(err, HasSubstr("ISA"));
    EXPECT_THAT(out, IsEmpty());
}

TEST_F(TalctlTest, LineThatCannotBeMeantIsTwoAndReachesNobody) {
    start();
    const std::pair<const char*, const char*> lines[] = {
        {"", "required"},
        {"nonsense", "what is nonsense?"},
        {"rule nonsense", "what is nonsense?"},
        {"status extra", "what is extra?"},
        {"status --nonsense", "what is --nonsense?"},
        {"admin", "required"},
        {"admin maybe", "on,off"},
        {"interface set 1", "name a setting"},
        {"interface set --admin on", "required"},
        {"interface set 1 --admin yes", "on,off"},
        {"interface show 0", "counted from 1"},
        {"rule add 1", "exactly one rule"},
        {"rule add 1 --vlan 100 --any", "exactly one rule"},
        {"rule add 1 --vlan 5000", "--vlan must be a VLAN id, 0 to 4094"},
        {"rule add 1 --vendor-id ac*me", "--vendor-id must have its star at the end"},
        {"rule bundle 1 --vlan 100", "DHCP"},
        {"rule bundle 1 --dhcp any --vendor-id acme*", "pattern"},
        {"rule bundle 1 --dhcp any --any", "what is --any?"},
        {"rule delete 1", "required"},
        {"rule delete 1 vlans", "vlans"},
        {"rule show all", "there is no interface all"},
        {"events --kind nonsense", "nonsense"},
        {"stats --watch 0", "0"},
        {"completion fish", "fish"},
        {"--timeout 0 status", "0"},
    };
    for (const auto& [line, words] : lines) {
        const int code = talctl(line);
        EXPECT_EQ(std::string(line) == "rule show all" ? 1 : 2, code) << line;
        EXPECT_THAT(err, HasSubstr(words)) << line;
    }
    EXPECT_EQ(2, run("--server nonsense status"));
    EXPECT_EQ(2, run("--server localhost:7443 status"));
    EXPECT_THAT(err, HasSubstr("needs --ca"));
    EXPECT_THAT(node.calls(), IsEmpty());
}

TEST_F(TalctlTest, NodeThatIsNotThereIsThree) {
    EXPECT_EQ(3, talctl("status"));
    EXPECT_THAT(err, AllOf(HasSubstr("no node at unix:"), HasSubstr("No such file")));
    const std::string other = scratch.file("silent");
    const Descriptor silent = listenUnix(other, "");
    EXPECT_EQ(3, run("--timeout 1 --server " + other + " status"));
    EXPECT_THAT(err, HasSubstr("did not answer within 1 s"));
}

TEST(Json, IsWrittenInOrderAndEscaped) {
    ctl::Json list = ctl::Json::array();
    list.add(ctl::Json::of(uint32_t{1})).add(ctl::Json::null()).add(ctl::Json::array());
    const ctl::Json json =
        ctl::Json::object().add("b", "a\"\\\n\x01").add("a", true).add("list", std::move(list));
    EXPECT_EQ("{\"b\": \"a\\\"\\\\\\u000a\\u0001\", \"a\": true, \"list\": [1, null, []]}",
              json.line());
    EXPECT_EQ("{\n  \"x\": []\n}\n", ctl::Json::object().add("x", ctl::Json::array()).text());
}

TEST(Table, ColumnsAreAsWideAsNeededWithoutBlanksAtTheEnd) {
    ctl::Table table({"A", "BB"});
    table.add({"long", ""});
    table.add({"x", "y"});
    EXPECT_EQ("A     BB\nlong\nx     y\n", table.text());
}

}  // namespace
}  // namespace node::control
