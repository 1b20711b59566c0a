// Rules that come, change and go while the node runs: what is left in the engine, what is left in
// the storage file, and what asks for a login afterwards.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "node/node.h"
#include "node/store/stored_logins.h"
#include "tests/scenario/private_log.h"
#include "tests/unit/node_host/temp_dir.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using Names = std::vector<std::string>;

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

class RuleReload : public testing::Test {
protected:
    void SetUp() override {
        if (!privateLogMissing().empty()) {
            GTEST_SKIP() << privateLogMissing();
        }
        std::filesystem::remove(node::storedLoginsFile);
    }

    // A line whose client asks for an address one second into the run and is accepted, and a
    // second one like it that nothing is ever done to. `head` precedes the tables.
    std::string config(const std::string& line, const std::string& head = "") const {
        return head + "[isa]\nunknown = \"accept\"\n" + interface(1, 1000) + line +
               interface(2, 1000) + "[[interface.rule]]\ndhcp = \"discover\"\n";
    }
    static std::string interface(int id, int start) {
        const std::string number = std::to_string(id);
        return "[[interface]]\nid = " + number + "\nname = \"1/" + number +
               "\"\nkernel-name = \"dsl" + number + "\"\ncapture = \"" SAMPLES "/udhcpc.pcap\"\n" +
               "start-ms = " + std::to_string(start) + "\n";
    }
    static std::string rule(const std::string& said) {
        return "[[interface.rule]]\n" + said + "\n";
    }

    // Ten seconds into the run `next` takes the place of the configuration.
    node::RunReport runWithChange(const std::string& now, const std::string& next) {
        dir.write("next.toml", next);
        return run(now + "[[change]]\nat-ms = 10000\nconfig = \"next.toml\"\n");
    }
    node::RunReport run(const std::string& text) {
        const std::string path = dir.write("node.toml", text);
        std::ostringstream out;
        node::Node node(node::loadConfig(path), {TAL_LIBRARY, false, false}, out);
        node::RunReport report = node.run();
        log = out.str();
        return report;
    }
    // What the log says from the change on.
    std::string sinceChange() const {
        const size_t at = log.find("\n   10.000000");
        return at == std::string::npos ? "" : log.substr(at + 1);
    }

    void expectSecondLineUntouched(const node::RunReport& report) {
        EXPECT_THAT(report.lines.at(1).rules, ElementsAre("dhcp discover"));
        EXPECT_TRUE(report.lines.at(1).stored);
        EXPECT_EQ(report.lines.at(1).gate, "open");
        EXPECT_THAT(sinceChange(), Not(HasSubstr("dsl2")));
    }

    node_test::TempDir dir;
    std::string log;
};

TEST_F(RuleReload, RemovedRuleTakesItsConditionAndTheStoredLoginAlong) {
    const node::RunReport report = runWithChange(
        config(rule("dhcp = \"discover\"") + rule("vlan = 7")), config(rule("vlan = 7")));
    EXPECT_EQ(report.lines[0].rule, "dhcp discover");
    EXPECT_THAT(report.lines[0].rules, ElementsAre("vlan 7"));
    EXPECT_FALSE(report.lines[0].stored);
    EXPECT_EQ(report.lines[0].gate, "open") << "the login that stands is not taken back";
    EXPECT_THAT(contents(node::storedLoginsFile), Not(HasSubstr("interface: 1\n")));
    EXPECT_THAT(sinceChange(), HasSubstr("dsl1 1/1    rule      dhcp removed\n"));
    EXPECT_THAT(sinceChange(), HasSubstr("dsl1 1/1    stored    deleted from"));
    expectSecondLineUntouched(report);
}

TEST_F(RuleReload, LastRuleRemovedLeavesTheLineWithoutAny) {
    for (const char* said : {"any = true", "dhcp = \"any\"", "vendor-id = \"udhcp*\"",
                             "client-id = \"mac:12:34:56:78:9a:bc\"", "ethertype = \"ipv4\"",
                             "mac = \"12:34:56:78:9a:bc\"", "user-pattern = \"ffffffffffff\""}) {
        std::filesystem::remove(node::storedLoginsFile);
        const node::RunReport report = runWithChange(config(rule(said)), config(""));
        EXPECT_EQ(report.lines[0].traps, 1u) << said;
        EXPECT_THAT(report.lines[0].rules, IsEmpty()) << said;
        EXPECT_FALSE(report.lines[0].stored) << said;
        expectSecondLineUntouched(report);
    }
}

TEST_F(RuleReload, ModifiedRuleReplacesItsConditionAndForgetsTheStoredLogin) {
    const node::RunReport report = runWithChange(config(rule("vendor-id = \"udhcp*\"")),
                                                 config(rule("vendor-id = \"udhcp 1*\"")));
    EXPECT_THAT(report.lines[0].rules, ElementsAre("vendor-id udhcp 1*"));
    EXPECT_FALSE(report.lines[0].stored);
    EXPECT_THAT(contents(node::storedLoginsFile), Not(HasSubstr("interface: 1\n")));
    expectSecondLineUntouched(report);
}

TEST_F(RuleReload, NewRuleKeepsTheStoredLogin) {
    const node::RunReport report =
        runWithChange(config(rule("dhcp = \"discover\"")),
                      config(rule("dhcp = \"discover\"") + rule("vlan = 7") + rule("any = true")));
    EXPECT_THAT(report.lines[0].rules, ElementsAre("any", "dhcp discover", "vlan 7"));
    EXPECT_TRUE(report.lines[0].stored);
    EXPECT_THAT(contents(node::storedLoginsFile), HasSubstr("interface: 1\n"));
    expectSecondLineUntouched(report);
}

TEST_F(RuleReload, SameConfigurationTouchesNothing) {
    const std::string same =
        config(rule("dhcp = \"discover\"") + rule("any = true") + rule("client-id = \"hex:01*\""));
    const node::RunReport report = runWithChange(same, same);
    EXPECT_THAT(report.lines[0].rules, ElementsAre("any", "dhcp discover", "client-id hex:01*"));
    EXPECT_TRUE(report.lines[0].stored);
    EXPECT_THAT(sinceChange(), Not(HasSubstr(" rule ")));
    EXPECT_THAT(sinceChange(), HasSubstr("next.toml applied\n"));
    expectSecondLineUntouched(report);
}

TEST_F(RuleReload, TalOffAtTheStartHasForgottenEverythingBefore) {
    const std::string discover = rule("dhcp = \"discover\"");
    ASSERT_TRUE(run(config(discover)).lines[0].stored);
    const std::string off = "tal = false\n";
    runWithChange(config(off + discover), config(off));
    EXPECT_THAT(log.substr(0, log.find("configuration applied")),
                HasSubstr("dsl1 1/1    stored    deleted from"));
    EXPECT_THAT(sinceChange(), HasSubstr("dhcp removed\n"));
    EXPECT_THAT(sinceChange(), Not(HasSubstr(" stored ")));
}

TEST_F(RuleReload, RulesComeBackAfterTheyWereRemoved) {
    dir.write("without.toml", config(""));
    dir.write("again.toml", config(rule("any = true") + rule("dhcp = \"any\"")));
    const node::RunReport report = run(config(rule("any = true")) +
                                       "[[change]]\nat-ms = 10000\nconfig = \"without.toml\"\n"
                                       "[[change]]\nat-ms = 11000\nconfig = \"again.toml\"\n");
    EXPECT_THAT(report.lines[0].rules, ElementsAre("any", "dhcp any"));
    EXPECT_THAT(log, HasSubstr("11.000000  dsl1 1/1    rule      any added\n"));
}

TEST_F(RuleReload, EtherTypeAndTheRulesThatNeedIpv4ChangePlaces) {
    const std::string arp = config(rule("ethertype = \"arp\""));
    const std::string ipv4 = config(rule("ethertype = \"ipv4\"") + rule("ip = \"192.0.2.0/24\"") +
                                    rule("remote-id = \"a*\""));
    EXPECT_THAT(runWithChange(arp, ipv4).lines[0].rules,
                ElementsAre("ethertype 0x0800", "remote-id a*", "ip 192.0.2.0/24"));
    EXPECT_THAT(runWithChange(ipv4, arp).lines[0].rules, ElementsAre("ethertype 0x0806"));
}

TEST_F(RuleReload, TrafficAfterTheChangeMeetsTheNewRules) {
    const auto lines = [](const std::string& third, const std::string& fourth) {
        return "[isa]\nunknown = \"accept\"\n" + interface(3, 20000) + third + interface(4, 20000) +
               fourth;
    };
    const std::string discover = rule("dhcp = \"discover\"");
    const node::RunReport report = runWithChange(lines(discover, ""), lines("", discover));
    EXPECT_EQ(report.lines[0].traps, 0u);
    EXPECT_EQ(report.lines[0].gate, "blocked");
    EXPECT_EQ(report.lines[1].traps, 1u);
    EXPECT_EQ(report.lines[1].rule, "dhcp discover");
    EXPECT_EQ(report.lines[1].gate, "open");
}

TEST_F(RuleReload, SettingsAndUsersFollowToo) {
    const std::string now = config(rule("dhcp = \"discover\""));
    std::string next = now;
    next.replace(next.find("accept"), 6, "reject");
    const node::RunReport report =
        runWithChange(now + interface(3, 20000) + rule("any = true"),
                      next + interface(3, 20000) + "authentication = false\n" + rule("any = true"));
    EXPECT_EQ(report.lines[0].verdict, "accepted");
    EXPECT_EQ(report.lines[2].verdict, "rejected");
    EXPECT_THAT(sinceChange(), HasSubstr("dsl3 1/3    verdict   authorization rejected\n"));
    EXPECT_THAT(sinceChange(), Not(HasSubstr("authentication rejected")));
}

TEST_F(RuleReload, MistakeKeepsTheConfigurationAndIsNamed) {
    const std::string now = config(rule("dhcp = \"discover\""));
    const std::pair<std::string, std::string> mistakes[] = {
        {config(rule("dhcp = \"sometimes\"")), "interface.rule.dhcp: must be"},
        {config(rule("ethertype = \"arp\"") + rule("dhcp = \"any\"")),
         "interface.rule.dhcp: looks into IPv4 and cannot stand beside ethertype 0x0806"},
        {config("", "[node]\nshelf = \"9\"\n"), "node.shelf cannot change while the node runs"},
        {"", "interface: there must be at least one"},
    };
    for (const auto& [next, why] : mistakes) {
        const node::RunReport report = runWithChange(now, next);
        EXPECT_THAT(sinceChange(), HasSubstr("reload    refused: " + dir.path() + "/next.toml"));
        EXPECT_THAT(sinceChange(), HasSubstr(why));
        EXPECT_THAT(report.lines[0].rules, ElementsAre("dhcp discover"));
        EXPECT_TRUE(report.lines[0].stored);
        expectSecondLineUntouched(report);
    }
}

TEST_F(RuleReload, AutomaticRequestOfALineWithRulesKeepsItsStoredLogin) {
    const std::string with = config("auto-request = true\n" + rule("dhcp = \"discover\""));
    ASSERT_TRUE(run(with).lines[0].stored);
    const node::RunReport report = run(with);
    EXPECT_EQ(report.lines[0].replayed, 1u);
    const node::RunReport without = run(config("auto-request = true\n"));
    EXPECT_EQ(without.lines[0].replayed, 0u);
}

// ---- the program and its signal

class RunningNode {
public:
    RunningNode(const std::string& config, const std::string& output) : output_(output) {
        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_addopen(&files, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0600);
        posix_spawn_file_actions_adddup2(&files, 1, 2);
        std::string words[] = {TALNODE, "--config", config};
        char* const arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
        EXPECT_EQ(posix_spawn(&pid_, TALNODE, &files, nullptr, arguments, environ), 0);
        posix_spawn_file_actions_destroy(&files);
    }
    ~RunningNode() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    RunningNode(const RunningNode&) = delete;
    RunningNode& operator=(const RunningNode&) = delete;

    void signal(int number) const { EXPECT_EQ(kill(pid_, number), 0); }

    // Whether the output holds the text, that many times, within half a minute.
    bool says(const std::string& text, size_t times = 1) const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (count(contents(output_), text) < times) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return true;
    }
    static size_t count(const std::string& where, const std::string& text) {
        size_t found = 0;
        for (size_t at = 0; (at = where.find(text, at)) != std::string::npos; at += text.size()) {
            ++found;
        }
        return found;
    }
    int end() {
        int status = -1;
        waitpid(pid_, &status, 0);
        pid_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    const std::string output_;
    pid_t pid_ = 0;
};

TEST_F(RuleReload, HangupReadsTheFileAgain) {
    constexpr char line[] = "[[interface]]\nid = 1\nname = \"1/1\"\nkernel-name = \"dsl1\"\n";
    const std::string path = dir.write("node.toml", line + rule("dhcp = \"any\""));
    RunningNode node(path, dir.path() + "/out");
    ASSERT_TRUE(node.says("link      up"));
    dir.write("node.toml", line + rule("vlan = 4095"));
    node.signal(SIGHUP);
    EXPECT_TRUE(node.says("reload    refused: " + path + ":6: interface.rule.vlan: must be"));
    dir.write("node.toml", line + rule("vlan = 7"));
    node.signal(SIGHUP);
    EXPECT_TRUE(node.says("rule      dhcp removed\n"));
    EXPECT_TRUE(node.says("rule      vlan 7 added\n"));
    EXPECT_TRUE(node.says("reload    " + path + " applied\n"));
    node.signal(SIGTERM);
    EXPECT_TRUE(node.says("ended because of SIGTERM"));
    EXPECT_EQ(node.end(), 0);
}

// The module deletes stored logins itself when TAL is off at the start, so this one is put into
// the file afterwards, as if restored from a copy.
TEST_F(RuleReload, RulesForgetNothingWhileTalIsOff) {
    ASSERT_TRUE(run(config(rule("dhcp = \"discover\""))).lines[0].stored);
    const std::string stored = contents(node::storedLoginsFile);
    constexpr char line[] = "[[interface]]\nid = 1\nname = \"1/1\"\nkernel-name = \"dsl1\"\n";
    const struct {
        std::string head, settings;
        bool kept;
    } cases[] = {{"", "", false}, {"", "tal = false\n", true}, {"[node]\ntal = false\n", "", true}};
    for (const auto& [head, settings, kept] : cases) {
        const std::string now = head + line + settings;
        std::filesystem::remove(node::storedLoginsFile);
        const std::string path =
            dir.write("node.toml", now + rule("dhcp = \"any\"") + rule("vlan = 7"));
        RunningNode node(path, dir.path() + "/out");
        ASSERT_TRUE(node.says("link      up"));
        size_t reloads = 0;
        for (const std::string& next :
             {now + rule("dhcp = \"any\""), now + rule("dhcp = \"discover\"")}) {
            std::ofstream(node::storedLoginsFile) << stored;
            dir.write("node.toml", next);
            node.signal(SIGHUP);
            ASSERT_TRUE(node.says("reload    " + path + " applied\n", ++reloads));
            EXPECT_EQ(contents(node::storedLoginsFile) == stored, kept) << next;
        }
        EXPECT_TRUE(node.says("vlan removed\n"));
        EXPECT_TRUE(node.says("changed to dhcp discover\n"));
        node.signal(SIGTERM);
        EXPECT_EQ(node.end(), 0);
    }
}

}  // namespace

int main(int argc, char** argv) {
    enterPrivateLog(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
