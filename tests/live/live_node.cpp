#include "tests/live/live_node.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "tests/scenario/private_log.h"

extern char** environ;

namespace node_test {

namespace {

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

pid_t start(const Words& command, const std::string& log) {
    std::vector<char*> arguments;
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t pid = 0;
    EXPECT_EQ(posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ), 0)
        << command[0];
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

int codeOf(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The value of the first member of that name, without quotes; empty when there is none.
std::string valueOf(const std::string& json, const std::string& name) {
    const size_t found = json.find('"' + name + "\":");
    if (found == std::string::npos) {
        return "";
    }
    const size_t begin = json.find_first_not_of(" \"", found + name.size() + 3);
    return json.substr(begin, json.find_first_of("\",}\n ", begin) - begin);
}

}  // namespace

bool within(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + longest;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
    }
    return true;
}

Ended runToEnd(const Words& command) {
    const TempDir dir;
    const std::string log = dir.path() + "/log";
    const pid_t pid = start(command, log);
    int status = 0;
    const bool ended = within([&] { return waitpid(pid, &status, WNOHANG) == pid; });
    EXPECT_TRUE(ended) << command[0];
    if (!ended) {
        ::kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
    }
    return {codeOf(status), contents(log)};
}

LiveNode::LiveNode(const TempDir& dir, const std::string& config, const Words& prefix,
                   const std::string& program)
    : logPath_(dir.path() + "/log"), socket_(dir.path() + "/control.sock") {
    std::filesystem::remove(logPath_);
    std::filesystem::remove(socket_);
    Words command = prefix;
    command.insert(command.end(),
                   {program, "--config", dir.write("node.toml", config), "--control", socket_});
    pid_ = start(command, logPath_);
    EXPECT_TRUE(says("the lines are live")) << log();
}

void LiveNode::kill() {
    if (pid_ > 0) {
        EXPECT_EQ(::kill(pid_, SIGKILL), 0);
        EXPECT_EQ(waitpid(pid_, nullptr, 0), pid_);
        pid_ = 0;
    }
    if (testing::Test::HasFailure()) {
        std::printf("---- the node said\n%s----\n", log().c_str());
    }
}

int LiveNode::stop() {
    EXPECT_EQ(::kill(pid_, SIGTERM), 0);
    int status = 0;
    EXPECT_TRUE(within([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }));
    pid_ = 0;
    return codeOf(status);
}

std::string LiveNode::log() const {
    return contents(logPath_);
}

bool LiveNode::says(const std::string& text, size_t times) const {
    return within([&] {
        const std::string said = log();
        size_t count = 0;
        for (size_t at = 0; (at = said.find(text, at)) != std::string::npos; at += text.size()) {
            ++count;
        }
        return count >= times;
    });
}

std::string LiveNode::talctl(const Words& words) const {
    Words command{TALCTL, "--server", "unix:" + socket_, "--json"};
    command.insert(command.end(), words.begin(), words.end());
    const Ended ended = runToEnd(command);
    EXPECT_EQ(ended.code, 0) << words[0] << ": " << ended.text;
    return ended.text;
}

std::string LiveNode::state(unsigned line) const {
    return valueOf(talctl({"interface", "show", "1/" + std::to_string(line)}), "port_state");
}

bool LiveNode::reaches(unsigned line, const std::string& wanted) const {
    return within([&] { return state(line) == wanted; });
}

unsigned LiveNode::counter(unsigned line, const std::string& name) const {
    const std::string json = talctl({"stats", "1/" + std::to_string(line)});
    const std::string value = valueOf(json, name);
    EXPECT_FALSE(value.empty()) << name << " in " << json;
    return value.empty() ? 0 : static_cast<unsigned>(std::stoul(value));
}

std::string circuitId(unsigned line) {
    return "KORVALIN:1 eth 1/1/" + std::to_string(line);
}

std::string liveConfig(unsigned lines, const std::string& isa, const std::string& perLine,
                       const std::string& head) {
    std::string text = head + "[isa]\n" + isa;
    for (unsigned line = 1; line <= lines; ++line) {
        const std::string number = std::to_string(line);
        char kernelName[5];
        std::snprintf(kernelName, sizeof kernelName, "ds%02u", line % 100);
        text += "[[interface]]\nid = " + number + "\nname = \"1/" + number +
                "\"\nkernel-name = \"" + kernelName + "\"\ndevice = \"" + LineNet::access(line) +
                "\"\n" + perLine + "[[interface.rule]]\nethertype = 0x88b5\n";
    }
    return text;
}

Buffer other(uint32_t number) {
    Buffer frame = numbered(number);
    frame[13] = 0xb7;
    return frame;
}

void LiveTest::SetUp() {
    if (const std::string missing = missingPrivilege(); !missing.empty()) {
        GTEST_SKIP() << missing;
    }
    if (!privateLogMissing().empty()) {
        GTEST_SKIP() << privateLogMissing();
    }
}

uint32_t nextOf(RawSocket& socket, std::chrono::milliseconds wait) {
    const auto frame = socket.receive(wait);
    if (!frame || frame->size() < 18) {
        return 0;
    }
    uint32_t number = 0;
    for (size_t i = 14; i < 18; ++i) {
        number = number << 8 | (*frame)[i];
    }
    return number;
}

RawSocket listenOn(const std::string& interface) {
    constexpr uint16_t everything = 3;
    return RawSocket(interface, everything);
}

}  // namespace node_test
