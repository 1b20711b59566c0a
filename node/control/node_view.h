// What management shows of a node and the service functions do not tell. The node implements
// it; the server only calls it. Every member may be called from several threads at once and
// must not wait for the main loop.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "node/profile.h"

namespace node::control {

struct Identity {
    std::string shelf;
    unsigned boardPosition = 0;
    unsigned boardType = 0;
    std::string version;
    std::chrono::system_clock::time_point started;
    std::chrono::steady_clock::duration uptime{};
};

enum class PortState { blocked, pending, open, rejected };

struct InterfaceView {
    unsigned id = 0;
    std::string name;
    std::string kernelName;
    PortState portState = PortState::blocked;
    bool gateOpen = false;
    uint32_t timeout = 0;       // seconds
    uint32_t maxQueueSize = 0;  // frames
    bool anyRule = false;       // it holds a rule for any frame
};

struct ServerCounters {
    uint64_t requests = 0;
    uint64_t retransmissions = 0;
    uint64_t accepts = 0;
    uint64_t rejects = 0;
    uint64_t challenges = 0;
    uint64_t accountingAnswers = 0;
    uint64_t timeouts = 0;
    uint64_t handedBack = 0;
    uint64_t withdrawn = 0;
    uint64_t probes = 0;
    uint64_t probeAnswers = 0;
    uint64_t deaths = 0;
    uint64_t returns = 0;
    uint64_t lineErrors = 0;
};

struct ServerDrops {
    uint64_t malformed = 0;
    uint64_t unknownId = 0;
    uint64_t badAuthenticator = 0;
    uint64_t noMessageAuthenticator = 0;
    uint64_t badMessageAuthenticator = 0;
    uint64_t wrongCode = 0;
    uint64_t late = 0;
    uint64_t duplicate = 0;
};

struct RoundTrip {  // microseconds
    uint64_t count = 0;
    uint64_t p50 = 0;
    uint64_t p90 = 0;
    uint64_t p99 = 0;
};

struct ServerView {
    std::string name;
    std::string address;
    std::string role;
    bool alive = false;
    uint32_t requests = 0;
    uint32_t timeouts = 0;
    std::string note;
    std::string state{};
    std::string transport{};
    uint32_t inFlight = 0;
    uint32_t channels = 0;
    ServerCounters counters{};
    ServerDrops dropped{};
    RoundTrip roundTrip{};
};

class NodeView {
public:
    virtual ~NodeView() = default;

    virtual Identity identity() const = 0;
    virtual std::vector<InterfaceView> interfaces() const = 0;  // ascending ids
    virtual std::vector<ServerView> servers() const = 0;        // empty: ISA has none
    virtual std::vector<ProfileInfo> profiles() const = 0;      // by kind, then name
    virtual std::string storageFile() const = 0;  // its contents, empty when there is none

    // The rule for any frame, which the record of the service functions cannot carry: a rule
    // of type 0 added there would reach the engine and stay unknown to the module, so that
    // nothing could delete it. Interface 0: all. Returns a talResultCode.
    virtual uint32_t anyRuleSet(unsigned ifId, bool present) = 0;
};

}  // namespace node::control
