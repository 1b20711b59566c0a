// Profiles through the lives of a node: the real node with the real library, logins of its lines,
// and management that calls the library's service functions from its own thread.
#include "node/node.h"
#include "node/profiles/profile_database.h"
#include "tests/scenario/private_log.h"
#include "tests/unit/node_host/temp_dir.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <mutex>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

constexpr auto patience = 20s;

// What the node prints, readable while it runs.
class Output : public std::streambuf {
public:
    std::string text() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return text_;
    }

protected:
    int_type overflow(int_type c) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        text_ += traits_type::to_char_type(c);
        return c;
    }
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        text_.append(text, static_cast<size_t>(size));
        return size;
    }

private:
    mutable std::mutex mutex_;
    std::string text_;
};

// One life of a node, from load to unload.
class RunningNode {
public:
    explicit RunningNode(const node::Config& config)
        : stream_(&output_),
          node_(config, {TAL_LIBRARY, false, true}, stream_),
          thread_([this] { run(); }) {}
    ~RunningNode() {
        if (thread_.joinable()) {
            stop();
        }
    }

    node::RunReport stop() {
        kill(getpid(), SIGTERM);  // blocked in every thread: the node's loop reads it
        thread_.join();
        EXPECT_EQ(error_, "");
        return report_;
    }
    // Waits until the node has printed this.
    bool says(const std::string& what) const {
        const auto end = std::chrono::steady_clock::now() + patience;
        while (output_.text().find(what) == std::string::npos) {
            if (std::chrono::steady_clock::now() > end) {
                ADD_FAILURE() << "never said: " << what << "\n" << output_.text();
                return false;
            }
            std::this_thread::sleep_for(2ms);
        }
        return true;
    }
    // The texts of the lines about profiles since the last look, with the line they are about.
    Lines saidOfProfiles() {
        const std::string all = output_.text();
        std::istringstream text(all.substr(seen_));
        seen_ = all.size();
        Lines lines;
        for (std::string line; std::getline(text, line);) {
            if (line.substr(26, 8) == "profile ") {
                const std::string who = line.substr(14, 4);
                lines.push_back((who == "-   " ? "" : who + ": ") + line.substr(36));
            }
        }
        return lines;
    }
    // All profiles but built-in ones, a line each: kind, name, state, interfaces.
    Lines profiles() const {
        Lines lines;
        for (const node::ProfileInfo& info : node_.profiles()) {
            if (info.state == node::ProfileState::builtIn) {
                continue;
            }
            lines.push_back(std::string(node::profileKindName(info.kind)) + ' ' + info.name + ' ' +
                            std::string(node::profileStateName(info.state)));
            for (const unsigned interface : info.interfaces) {
                lines.back() += ' ' + std::to_string(interface);
            }
        }
        return lines;
    }
    template <class... Values>
    uint32_t call(const char* name, Values... values) const {
        void* const library = dlopen(TAL_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
        if (!library) {
            ADD_FAILURE() << "the library is not loaded";
            return 4711;
        }
        const auto function = reinterpret_cast<uint32_t (*)(Values...)>(dlsym(library, name));
        const uint32_t result = function ? function(values...) : 4712;
        dlclose(library);
        return result;
    }

private:
    void run() {
        try {
            report_ = node_.run();
        } catch (const std::exception& error) {
            error_ = error.what();
        }
    }

    Output output_;
    std::ostream stream_;
    node::Node node_;
    node::RunReport report_;
    std::string error_;
    size_t seen_ = 0;
    std::thread thread_;  // last: runs on all of the above
};

class ProfilesScenario : public testing::Test {
protected:
    void SetUp() override {
        if (!privateLogMissing().empty()) {
            GTEST_SKIP() << privateLogMissing();
        }
        std::filesystem::remove("/var/log/tal.store.dat");
    }
    // Two lines that log in by themselves as soon as their link is up.
    node::Config config(unsigned boardType, const std::string& users) const {
        std::string text =
            "[node]\nshelf = \"2\"\nboard-position = 5\nboard-type = " + std::to_string(boardType) +
            "\n[profiles]\nfile = \"profiles\"\n" + users;
        for (const char* id : {"1", "2"}) {
            text += std::string("[[interface]]\nid = ") + id + "\nname = \"1/" + id +
                    "\"\nkernel-name = \"dsl" + id + "\"\nauto-request = true\n";
        }
        return node::parseConfig(text, "node.toml", dir.path());
    }
    static std::string user(const char* line, const std::string& profiles) {
        return std::string("[[isa.user]]\ncircuit-id = \"KORVALIN:2 eth 5/1/") + line +
               "\"\nverdict = \"accept\"\n" + profiles;
    }
    static std::string everyKind(const std::string& suffix) {
        std::string text;
        for (const char* kind :
             {"service-profile", "vlan-profile", "flow-profile", "multicast-profile",
              "security-profile", "l2cp-profile", "access-list", "dsl-profile", "alarm-profile"}) {
            text += std::string(kind) + " = \"" + kind[0] + suffix + "\"\n";
        }
        return text;
    }
    static void awaitLogins(const RunningNode& node) {
        ASSERT_TRUE(node.says("dsl1 1/1    profile   "));
        ASSERT_TRUE(node.says("dsl2 1/2    profile   "));
    }
    Lines inTheFile() const {
        Lines lines;
        for (const node::ProfileInfo& info :
             node::ProfileDatabase(dir.path() + "/profiles").load()) {
            lines.push_back(std::string(node::profileKindName(info.kind)) + ' ' + info.name + ' ' +
                            std::string(node::profileStateName(info.state)));
        }
        return lines;
    }

    node_test::TempDir dir;
};

TEST_F(ProfilesScenario, LoginsCreateConversionKeepsRestartKnowsAndOffDeletes) {
    const std::string shared = "service-profile = \"gold\"\n";
    {
        RunningNode node(config(5, user("1", shared + "vlan-profile = \"v1\"\n"
                                                      "flow-profile = \"f1\"\n"
                                                      "alarm-profile = \"r1\"\n") +
                                       user("2", shared + "dsl-profile = \"d2\"\n")));
        awaitLogins(node);
        EXPECT_EQ(node.profiles(),
                  (Lines{"service gold dynamic 1 2", "vlan v1 dynamic 1", "flow f1 dynamic",
                         "dsl d2 dynamic 2", "alarm r1 dynamic 1"}));
        EXPECT_EQ(node.call("rpcTalConvertAllDynamicProfilesToStatic"), 0u);
        EXPECT_EQ(node.profiles(),
                  (Lines{"service gold static 1 2", "vlan v1 static 1", "flow f1 static",
                         "dsl d2 static 2", "alarm r1 static 1"}));
        EXPECT_EQ(node.call("rpcTalConvertAllDynamicProfilesToStatic"), 0u) << "again, harmlessly";
        const node::RunReport report = node.stop();
        ASSERT_EQ(report.lines.size(), 2u);
        EXPECT_EQ(report.lines[0].profiles.size(), 3u);
        EXPECT_EQ(report.lines[1].profiles.size(), 2u);
        EXPECT_EQ(report.profiles.size(), 1u);
    }
    const Lines kept{"service gold static 1 2", "vlan v1 static 1", "flow f1 static",
                     "dsl d2 static 2", "alarm r1 static 1"};
    {
        // The logins now name other profiles, so that every kind has both sorts.
        RunningNode node(config(5, user("1", everyKind("-one")) + user("2", everyKind("-two"))));
        awaitLogins(node);
        const Lines before = node.profiles();
        EXPECT_EQ(before.size(), kept.size() + 2 * node::profileKindCount);
        node.saidOfProfiles();

        EXPECT_EQ((node.call<unsigned, int>("rpcTalIntfAdminStateSet", 1, 0)), 0u);
        EXPECT_EQ(node.saidOfProfiles(),
                  (Lines{"dsl1: deleted service \"s-one\"", "dsl1: deleted vlan \"v-one\"",
                         "dsl1: deleted dsl \"d-one\"", "dsl1: deleted alarm \"a-one\"",
                         "saved 5 static and 14 dynamic in " + dir.path() + "/profiles"}));
        for (const char* gone : {"service s-one dynamic 1", "vlan v-one dynamic 1",
                                 "dsl d-one dynamic 1", "alarm a-one dynamic 1"}) {
            EXPECT_EQ(std::count(before.begin(), before.end(), gone), 1) << gone;
        }

        EXPECT_EQ((node.call<int>("rpcTalAdminStateSet", 0)), 0u);
        EXPECT_EQ(node.saidOfProfiles(),
                  (Lines{"deleted service \"s-two\"", "deleted vlan \"v-two\"",
                         "deleted flow \"f-one\", flow \"f-two\"",
                         "deleted multicast \"m-one\", multicast \"m-two\"",
                         "deleted security \"s-one\", security \"s-two\"",
                         "deleted l2cp \"l-one\", l2cp \"l-two\"",
                         "deleted access-list \"a-one\", access-list \"a-two\"",
                         "deleted dsl \"d-two\"", "deleted alarm \"a-two\"",
                         "saved 5 static and 0 dynamic in " + dir.path() + "/profiles"}));
        node.stop();
    }
    EXPECT_EQ(inTheFile(), (Lines{"alarm r1 static", "dsl d2 static", "flow f1 static",
                                  "service gold static", "vlan v1 static"}));
}

TEST_F(ProfilesScenario, InterfaceThatIsSwitchedOffLeavesTheSharedProfileToTheOther) {
    const std::string shared = "service-profile = \"gold\"\n";
    {
        RunningNode node(config(2, user("1", shared) + user("2", shared)));
        awaitLogins(node);
        EXPECT_EQ(node.profiles(), Lines{"service gold dynamic 1 2"});
        EXPECT_EQ((node.call<unsigned, int>("rpcTalIntfAdminStateSet", 1, 0)), 0u);
        EXPECT_EQ(node.profiles(), Lines{"service gold dynamic 2"});
        EXPECT_EQ((node.call<unsigned, int>("rpcTalIntfAdminStateSet", 2, 0)), 0u);
        EXPECT_EQ(node.profiles(), Lines{});
        node.stop();
    }
    EXPECT_EQ(inTheFile(), Lines{});
}

// The file comes from a board with DSL lines; this one must not touch what belongs to such.
TEST_F(ProfilesScenario, BoardWithoutDslLinesCallsNothingDsl) {
    const Lines dsl{"dsl old dynamic 1", "alarm old dynamic 1"};
    node::ProfileDatabase(dir.path() + "/profiles")
        .replaceAll({{node::ProfileKind::dsl, "old", node::ProfileState::dynamic, true, {1}},
                     {node::ProfileKind::alarm, "old", node::ProfileState::dynamic, true, {1}}});
    RunningNode node(config(2, user("1", everyKind("-one")) + user("2", everyKind("-two"))));
    awaitLogins(node);
    EXPECT_TRUE(node.says("not created: dsl \"d-one\" needs a board with DSL lines"));
    EXPECT_TRUE(node.says("not created: alarm \"a-two\" needs a board with DSL lines"));
    EXPECT_EQ(node.profiles().size(), 2 + 2 * (node::profileKindCount - 2));
    EXPECT_EQ((node.call<unsigned, int>("rpcTalIntfAdminStateSet", 1, 0)), 0u);
    EXPECT_EQ(node.call("rpcTalConvertAllDynamicProfilesToStatic"), 0u);
    Lines now = node.profiles();
    ASSERT_GE(now.size(), 2u);
    EXPECT_EQ(Lines(now.end() - 2, now.end()), dsl);
    for (auto line = now.begin(); line != now.end() - 2; ++line) {
        EXPECT_NE(line->find(" static"), std::string::npos) << *line;
    }
    EXPECT_EQ((node.call<int>("rpcTalAdminStateSet", 0)), 0u);
    EXPECT_EQ(node.profiles(), now) << "nothing dynamic was left but what needs DSL lines";
    node.stop();
}

TEST_F(ProfilesScenario, EndOfARunIsNoSaveOfDynamicProfiles) {
    const node::Config shared =
        config(2, user("1", "vlan-profile = \"v\"\n") + user("2", "flow-profile = \"f\"\n"));
    {
        RunningNode node(shared);
        awaitLogins(node);
        EXPECT_EQ(node.profiles().size(), 2u);
        node.stop();
    }
    EXPECT_EQ(inTheFile(), Lines{});
    {
        RunningNode node(shared);
        awaitLogins(node);
        EXPECT_EQ((node.call<unsigned, int>("rpcTalIntfAdminStateSet", 1, 0)), 0u);
        node.stop();
    }
    EXPECT_EQ(inTheFile(), Lines{"flow f dynamic"}) << "switching the other line off saved it";
}

}  // namespace

int main(int argc, char** argv) {
    enterPrivateLog(argc, argv);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
