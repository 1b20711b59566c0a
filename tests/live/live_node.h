// A talnode process on the lines of a test's namespace, and what a case does with it.
// Test code, one thread.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "tests/kernel/line_net.h"
#include "tests/unit/node_host/temp_dir.h"

namespace node_test {

using Words = std::vector<std::string>;

constexpr auto longest = std::chrono::seconds(40);

// Polls until the condition holds, on machines that do other things too; whether it held.
bool within(const std::function<bool()>& condition);

// What another process said and how it ended; -1: by a signal.
struct Ended {
    int code = -1;
    std::string text;  // standard output and standard error
};
Ended runToEnd(const Words& command);

class LiveNode {
public:
    // Starts it, behind `prefix` (setpriv ...), and waits until frames of its lines may ask for
    // logins. The control socket lies in `dir`.
    explicit LiveNode(const TempDir& dir, const std::string& config, const Words& prefix = {},
                      const std::string& program = TALNODE);
    ~LiveNode() { kill(); }
    LiveNode(const LiveNode&) = delete;
    LiveNode& operator=(const LiveNode&) = delete;

    pid_t pid() const { return pid_; }
    void kill();
    int stop();  // by SIGTERM; its exit code

    std::string log() const;
    // Waits until the text was said so many times.
    bool says(const std::string& text, size_t times = 1) const;

    std::string talctl(const Words& words) const;  // its JSON; a failure is one of the test
    std::string state(unsigned line) const;        // "open", ...
    bool reaches(unsigned line, const std::string& wanted) const;  // waits for a state
    unsigned counter(unsigned line, const std::string& name) const;

private:
    const std::string logPath_;
    const std::string socket_;
    pid_t pid_ = 0;
};

// Lines with `perLine` in each table. A frame of numbered() asks for a login.
std::string liveConfig(unsigned lines, const std::string& isa = "unknown = \"accept\"\n",
                       const std::string& perLine = "", const std::string& head = "");
std::string circuitId(unsigned line);

// A frame that asks for nothing.
Buffer other(uint32_t number);

class LiveTest : public ::testing::Test {
protected:
    void SetUp() override;

    TempDir dir;
};

// The number of the next frame to arrive, of numbered() and other() alike; 0: none.
uint32_t nextOf(RawSocket& socket, std::chrono::milliseconds wait = longest);

// A socket for everything that arrives.
RawSocket listenOn(const std::string& interface);

}  // namespace node_test
