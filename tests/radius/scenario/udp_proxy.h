// Stands between the client and a server and spoils the traffic in ways that are asked for:
// loses, delays, duplicates, reorders, corrupts and forges. Seeded. One thread.
#pragma once

#include <map>
#include <memory>
#include <random>

#include "node/isa/radius/client/address.h"
#include "node/isa/radius/client/socket.h"
#include "node/isa/radius/packet/packet.h"
#include "node/loop/reactor.h"

namespace radius_test {

class UdpProxy {
public:
    struct Faults {
        double loss = 0;       // of each direction, 0 to 1
        double duplicate = 0;  // sent twice, the second time up to 20 ms later
        double corrupt = 0;    // one to eight bits changed
        double forge = 0;      // of requests: answers by somebody who lacks the secret come first
        node::Time delay{0};   // of answers
        node::Time spread{0};  // added at random to both directions, which reorders
    };

    struct Counters {
        uint64_t requests = 0;
        uint64_t answers = 0;
        uint64_t lost = 0;
        uint64_t duplicated = 0;
        uint64_t corrupted = 0;
        uint64_t forged = 0;
    };

    // Listens on a free port of 127.0.0.1.
    UdpProxy(node::Reactor& reactor, uint16_t serverPort, uint32_t seed);
    ~UdpProxy();
    UdpProxy(const UdpProxy&) = delete;
    UdpProxy& operator=(const UdpProxy&) = delete;

    uint16_t port() const { return port_; }
    void spoil(const Faults& faults) { faults_ = faults; }
    const Counters& counters() const { return counters_; }

private:
    // One of the client's sockets and the one that speaks to the server in its stead.
    struct Pair {
        node::radius::SocketAddress client;
        node::radius::Socket socket;
    };

    void fromClient();
    void fromServer(Pair& pair);
    Pair& pairOf(const node::radius::SocketAddress& client);
    void pass(node::radius::Buffer packet, node::Time delay,
              std::function<void(const node::radius::Buffer&)> send);
    void forge(const node::radius::PacketView& request, const Pair& pair);
    void answer(const Pair& pair, const node::radius::Buffer& packet);
    bool happens(double probability);
    node::Time upTo(node::Time most);

    node::Reactor& reactor_;
    node::radius::SocketAddress server_;
    node::radius::Socket socket_;
    uint16_t port_ = 0;
    std::mt19937 dice_;
    Faults faults_;
    Counters counters_;
    std::map<uint16_t, std::unique_ptr<Pair>> pairs_;  // by the client's port
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

// A port of 127.0.0.1 that was free a moment ago, over UDP and TCP, with its UDP neighbour above.
uint16_t freePort();

}  // namespace radius_test
