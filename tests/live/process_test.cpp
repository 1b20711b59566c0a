// What the process needs and gives up, and a second one beside it.
#include <bpf/bpf.h>
#include <gtest/gtest.h>
#include <linux/pkt_cls.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "node/engine/kernel/tc_hook.h"
#include "node/store/stored_logins.h"
#include "tests/live/live_node.h"

using namespace node_test;

namespace {

class LiveProcess : public LiveTest {
protected:
    static uint64_t capabilities(const std::string& status, const std::string& field) {
        std::ifstream file(status);
        std::string word, value;
        while (file >> word) {
            if (word == field + ":") {
                file >> value;
                return std::stoull(value, nullptr, 16);
            }
        }
        return ~0ULL;
    }
    // The program and the library where every user may run them, wherever this tree lies.
    std::string copyForAll() const {
        const std::filesystem::path root = dir.path(), built(TALNODE);
        std::filesystem::permissions(root, std::filesystem::perms(0755));
        for (const char* part : {"bin", "lib"}) {
            std::filesystem::create_directory(root / part);
        }
        std::filesystem::copy(built, root / "bin/talnode");
        std::filesystem::copy(built.parent_path() / "../lib/libtal.so", root / "lib");
        return root / "bin/talnode";
    }
    // The line of the same id, on the other device.
    static std::string onSecondDevice() {
        std::string config = liveConfig(1);
        config.replace(config.find("device = \"dsl1\""), 15, "device = \"dsl2\"");
        return config;
    }
    static void expectOnlyTheThree(pid_t pid) {
        unsigned threads = 0;
        for (const auto& task :
             std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
            const std::string status = task.path() / "status";
            for (const char* field : {"CapPrm", "CapEff", "CapBnd"}) {
                EXPECT_EQ(capabilities(status, field), three) << field;
            }
            EXPECT_EQ(capabilities(status, "CapAmb"), 0U);
            ++threads;
        }
        EXPECT_GT(threads, 1U) << "management has threads of its own";
    }
    static constexpr uint64_t three = 1ULL << 39 | 1ULL << 12 | 1ULL << 38;
    const Words onlyThree = {"setpriv", "--bounding-set=-all,+bpf,+net_admin,+perfmon",
                             "--inh-caps=-all"};
    const Words nobody = {"setpriv",
                          "--reuid=65534",
                          "--regid=65534",
                          "--clear-groups",
                          "--inh-caps=-all,+bpf,+net_admin,+perfmon",
                          "--ambient-caps=-all,+bpf,+net_admin,+perfmon",
                          "--bounding-set=-all,+bpf,+net_admin,+perfmon"};
};

constexpr auto aMoment = std::chrono::milliseconds(50);

// Everything a node does after giving up its privileges: storing logins, answering management,
// putting gates on devices that come back, letting kept frames in.
void expectWholeLife(const LiveNode& node, RawSocket& core) {
    {
        RawSocket subscriber(LineNet::subscriber(1));
        subscriber.send(numbered(1));
        EXPECT_EQ(nextOf(core), 1U);
    }
    ASSERT_TRUE(node.says("written to"));
    EXPECT_EQ(node.state(1), "open");
    EXPECT_EQ(node::readStoredLogins(node::storedLoginsFile).size(), 1U);
    run("ip link del dsl1 && ip link add dsl1 type veth peer name sub1");
    ASSERT_TRUE(node.says("dsl1: gate new", 2));
    run("ip link set sub1 up && ip link set dsl1 master br0 up");
    ASSERT_TRUE(node.says("link      up", 2));
    RawSocket subscriber(LineNet::subscriber(1));
    subscriber.send(other(2));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
    EXPECT_TRUE(within([&] {
        subscriber.send(numbered(3));
        return nextOf(core, aMoment) == 3;
    }));
    node.talctl({"admin", "off"});
    EXPECT_TRUE(node::readStoredLogins(node::storedLoginsFile).empty());
}

TEST_F(LiveProcess, RootGivesUpAllButThree) {
    const LineNet net(1);
    RawSocket core = listenOn("core");
    LiveNode node(dir, liveConfig(1));
    expectOnlyTheThree(node.pid());
    expectWholeLife(node, core);
    EXPECT_EQ(node.stop(), 0);
}

TEST_F(LiveProcess, TheThreeAreEnough) {
    const LineNet net(1);
    RawSocket core = listenOn("core");
    LiveNode node(dir, liveConfig(1), onlyThree);
    expectOnlyTheThree(node.pid());
    expectWholeLife(node, core);
    EXPECT_EQ(node.stop(), 0);
}

TEST_F(LiveProcess, AnotherUserWithTheThreeIsEnoughWhereItMayWriteItsFiles) {
    const LineNet net(1);
    RawSocket core = listenOn("core");
    ASSERT_EQ(chown("/var/log", 65534, 65534), 0);
    ASSERT_EQ(chown(dir.path().c_str(), 65534, 65534), 0);
    LiveNode node(dir, liveConfig(1), nobody, copyForAll());
    expectOnlyTheThree(node.pid());
    expectWholeLife(node, core);
    EXPECT_EQ(node.stop(), 0);
}

TEST_F(LiveProcess, WithTheThreePinsKeepOpenLinesOpenAcrossARestart) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    const std::string pins = dir.path() + "/pins";
    ASSERT_EQ(mkdir(pins.c_str(), 0755), 0);
    ASSERT_EQ(mount("bpf", pins.c_str(), "bpf", 0, nullptr), 0);
    const std::string isa = "[[isa.user]]\ncircuit-id = \"" + circuitId(1) +
                            "\"\nverdict = \"accept\"\ndelay-ms = 500\n";
    const std::string config =
        liveConfig(1, isa, "", "[engine]\npin-directory = \"" + pins + "\"\n");
    {
        LiveNode node(dir, config, onlyThree);
        subscriber.send(numbered(1));
        EXPECT_EQ(nextOf(core), 1U);
        ASSERT_TRUE(node.says("written to"));
    }
    {
        const LiveNode node(dir, config, onlyThree);
        ASSERT_TRUE(node.says("dsl1: gate found open"));
        ASSERT_TRUE(node.says("blocked -> pending (stored request)"));
        subscriber.send(other(2));
        EXPECT_EQ(nextOf(core), 2U);
    }
    EXPECT_EQ(umount(pins.c_str()), 0);
}

TEST_F(LiveProcess, WithTheThreeAndNoPinsAnEarlierGateIsBlocked) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    {
        LiveNode node(dir, liveConfig(1), onlyThree);
        subscriber.send(numbered(1));
        EXPECT_EQ(nextOf(core), 1U);
        ASSERT_TRUE(node.says("written to"));
    }
    const LiveNode node(dir, liveConfig(1, "unknown = \"never\"\n"), onlyThree);
    ASSERT_TRUE(node.says("may not be read"));
    subscriber.send(other(2));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
}

TEST_F(LiveProcess, WhatIsMissingIsNamedAndNothingIsTouched) {
    const LineNet net(1);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    const std::string path = dir.write("node.toml", liveConfig(1));
    const std::pair<Words, const char*> rows[] = {
        {{"setpriv", "--bounding-set=-perfmon"}, "real interfaces need CAP_PERFMON, "},
        {{"setpriv", "--bounding-set=-bpf,-net_admin"}, "need CAP_BPF, CAP_NET_ADMIN, "},
        {{"setpriv", "--reuid=65534", "--clear-groups"},
         "need CAP_BPF, CAP_NET_ADMIN, CAP_PERFMON, "}};
    const std::string program = copyForAll();
    for (auto [command, said] : rows) {
        command.insert(command.end(), {program, "--config", path});
        const Ended ended = runToEnd(command);
        EXPECT_EQ(ended.code, 1) << ended.text;
        EXPECT_NE(ended.text.find(said), std::string::npos) << ended.text;
        EXPECT_NE(ended.text.find("captures work without"), std::string::npos) << ended.text;
        EXPECT_EQ(std::count(ended.text.begin(), ended.text.end(), '\n'), 1) << ended.text;
    }
    subscriber.send(other(1));
    EXPECT_EQ(nextOf(core), 1U);
}

TEST_F(LiveProcess, GroupOfTheSocketIsGivenThoughPrivilegesAreGone) {
    const LineNet net(1);
    const std::string config =
        liveConfig(1, "", "", "[control]\nsocket = \"unused.sock\"\nsocket-group = \"daemon\"\n");
    const LiveNode node(dir, config);
    struct stat info {};
    ASSERT_EQ(stat((dir.path() + "/control.sock").c_str(), &info), 0);
    EXPECT_EQ(info.st_gid, 1U);
}

TEST_F(LiveProcess, SecondNodeOnADeviceIsRefusedAndTheFirstUndisturbed) {
    const LineNet net(2);
    RawSocket subscriber(LineNet::subscriber(1)), core = listenOn("core");
    const LiveNode node(dir, liveConfig(1));
    subscriber.send(numbered(1));
    EXPECT_EQ(nextOf(core), 1U);
    const std::string path = dir.write("second.toml", liveConfig(2));
    for (const Words& more : {Words{}, Words{"--release"}}) {
        Words command{TALNODE, "--config", path};
        command.insert(command.end(), more.begin(), more.end());
        const Ended ended = runToEnd(command);
        EXPECT_EQ(ended.code, 1);
        EXPECT_NE(ended.text.find("dsl1: another talnode is running on it (process " +
                                  std::to_string(node.pid()) + ")"),
                  std::string::npos)
            << ended.text;
    }
    subscriber.send(other(2));
    EXPECT_EQ(nextOf(core), 2U);
    EXPECT_EQ(node.state(1), "open");
}

TEST_F(LiveProcess, NodesOnDifferentDevicesRunSideBySide) {
    const LineNet net(2);
    const LiveNode first(dir, liveConfig(1));
    const TempDir other;
    const LiveNode second(other, onSecondDevice());
    EXPECT_EQ(second.log().find("earlier run"), std::string::npos);
}

// The earlier node had both devices, and so both carry its maps.
TEST_F(LiveProcess, NodesOnDevicesOfOneEarlierNodeOpenOnlyTheirOwn) {
    const LineNet net(2);
    RawSocket one(LineNet::subscriber(1)), two(LineNet::subscriber(2)), core = listenOn("core");
    { const LiveNode both(dir, liveConfig(2)); }
    const TempDir otherDir;
    const LiveNode first(dir, liveConfig(1)), second(otherDir, onSecondDevice());
    one.send(numbered(1));
    EXPECT_EQ(nextOf(core), 1U);
    EXPECT_TRUE(first.reaches(1, "open"));
    EXPECT_EQ(second.state(1), "blocked");
    two.send(other(2));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
    two.send(numbered(3));
    EXPECT_EQ(nextOf(core), 3U);
    one.send(other(4));
    EXPECT_EQ(nextOf(core), 4U);
    first.talctl({"admin", "off"});
    one.send(numbered(5));
    two.send(other(6));
    EXPECT_EQ(nextOf(core), 6U);
}

TEST_F(LiveProcess, ReleasingADeviceOfAnEarlierNodeLeavesTheNodeOnTheOtherOneAlone) {
    const LineNet net(2);
    RawSocket one(LineNet::subscriber(1)), two(LineNet::subscriber(2)), core = listenOn("core");
    { const LiveNode both(dir, liveConfig(2)); }
    const LiveNode node(dir, liveConfig(1));
    one.send(numbered(1));
    EXPECT_EQ(nextOf(core), 1U);
    const std::string path = dir.write("release.toml", onSecondDevice());
    const Ended ended = runToEnd({TALNODE, "--release", "--config", path});
    EXPECT_EQ(ended.code, 0) << ended.text;
    EXPECT_NE(ended.text.find("dsl2: freed"), std::string::npos) << ended.text;
    two.send(other(2));
    EXPECT_EQ(nextOf(core), 2U);
    one.send(other(3));
    EXPECT_EQ(nextOf(core), 3U);
    node.talctl({"admin", "off"});
    one.send(other(4));
    EXPECT_EQ(nextOf(core, aMoment), 0U);
    node.talctl({"admin", "on"});
    one.send(numbered(5));
    EXPECT_EQ(nextOf(core), 5U);
}

TEST_F(LiveProcess, GateOfAnotherNodeThatIsDownIsFreedOnlyByRelease) {
    const LineNet net(2);
    RawSocket two(LineNet::subscriber(2)), core = listenOn("core");
    const TempDir otherDir;
    { const LiveNode first(dir, liveConfig(1)), second(otherDir, onSecondDevice()); }
    const std::string frees = "[engine]\nfree-removed = true\n";
    {
        const LiveNode node(dir, liveConfig(1, "unknown = \"accept\"\n", "", frees));
        ASSERT_TRUE(node.says("dsl2: keeps the gate of an earlier run, or of another node"));
        two.send(other(1));
        EXPECT_EQ(nextOf(core, aMoment), 0U);
    }
    const Ended ended =
        runToEnd({TALNODE, "--release", "--config", dir.write("node.toml", liveConfig(1))});
    EXPECT_EQ(ended.code, 0) << ended.text;
    EXPECT_NE(ended.text.find("dsl2: freed, no line has it now"), std::string::npos) << ended.text;
    two.send(other(2));
    EXPECT_EQ(nextOf(core), 2U);
}

TEST_F(LiveProcess, ProgramOfSomebodyElseInTheSamePlaceIsLeftAlone) {
    const LineNet net(1);
    const bpf_insn pass[] = {{BPF_ALU64 | BPF_MOV | BPF_K, 0, 0, 0, TC_ACT_UNSPEC},
                             {BPF_JMP | BPF_EXIT, 0, 0, 0, 0}};
    const node::Fd program(bpf_prog_load(BPF_PROG_TYPE_SCHED_CLS, "another", "unspecified", pass,
                                         std::size(pass), nullptr));
    ASSERT_TRUE(program);
    const unsigned dsl1 = LineNet::index("dsl1");
    const auto from = node::Direction::fromSubscriber;
    std::string error;
    ASSERT_TRUE(node::attachProgram(dsl1, from, program.get(), error)) << error;
    const auto before = node::attachedProgram(dsl1, from);
    const std::string path = dir.write("node.toml", liveConfig(1));
    const Ended ended = runToEnd({TALNODE, "--config", path});
    EXPECT_EQ(ended.code, 1) << ended.text;
    EXPECT_NE(ended.text.find("another program is attached"), std::string::npos) << ended.text;
    EXPECT_EQ(node::attachedProgram(dsl1, from), before);
}

}  // namespace
