// A network namespace of the test's own: lines (access interface "dslN", subscriber's end "subN")
// on a bridge with an uplink (whose far end is "core"), and raw sockets to send and see
// frames with. One thread.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "node/engine/kernel/fd.h"

namespace node_test {

using Buffer = std::vector<uint8_t>;

constexpr uint16_t experimentalType = 0x88b5;
constexpr auto patience = std::chrono::seconds(10);

// Until the condition holds or patience ends; whether it held.
bool eventually(const std::function<bool()>& condition);

// Runs a command; a failure is a failure of the test.
void run(const std::string& command);

// The reason to skip a test here, empty when everything is there.
std::string missingPrivilege();

class RawSocket {
public:
    // Receives frames of this EtherType, so that the namespace's own chatter stays out.
    explicit RawSocket(const std::string& interface, uint16_t etherType = experimentalType);
    void send(std::span<const uint8_t> frame);
    bool trySend(std::span<const uint8_t> frame);
    // The next frame that arrived, the outer tag in line; empty when there is none within `wait`.
    std::optional<Buffer> receive(std::chrono::milliseconds wait = patience);

private:
    node::Fd fd_;
    unsigned ifIndex_;
};

class LineNet {
public:
    // Enters a new namespace, for good: every case runs in a process of its own.
    explicit LineNet(unsigned lines, unsigned mtu = 1500);

    // The kernel lets frames through some time after a link came up. Before a gate is attached.
    static void awaitForwarding(unsigned line);

    static std::string access(unsigned line) { return "dsl" + std::to_string(line); }
    static std::string subscriber(unsigned line) { return "sub" + std::to_string(line); }
    static unsigned index(const std::string& interface);
    static uint32_t carrierDowns(const std::string& interface);
};

// The experimental type and a number, to be recognised behind the uplink.
Buffer numbered(uint32_t number, size_t size = 64);

}  // namespace node_test
