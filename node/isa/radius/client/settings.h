// How the client behaves; from the configuration. Times in microseconds.
#pragma once

#include <string>
#include <vector>

#include "node/isa/radius/client/channel.h"
#include "node/isa/radius/client/retry.h"
#include "node/isa/radius/packet/signer.h"
#include "node/isa/radius/secret.h"

namespace node::radius {

struct ServerSettings {
    std::string name;
    MakeChannel makeChannel;  // of udp_channel.h or tls_channel.h
    Secret secret;
    // Whether answers to accounting may come without Message-Authenticator. Others never may.
    Demand accountingDemand = Demand::messageAuthenticator;
    unsigned weight = 1;    // with Order::weighted
    unsigned window = 256;  // requests outstanding; a socket for each 256
    RetrySettings retry;
    bool statusServer = true;  // dead servers are asked by Status-Server
    Time probeInterval{5'000'000};
    Time restTime{30'000'000};  // without Status-Server: until a login is tried again
};

enum class Order { listed, weighted };

struct ClientSettings {
    std::vector<ServerSettings> servers;  // 1 to 32
    Order order = Order::listed;
    Time patience{30'000'000};    // until a request is reported as unanswered; 0: never
    size_t longestQueue = 65536;  // requests waiting; more are refused
    uint32_t pacedRate = 50;      // replays and logins after an outage, per second; 0: no limit
    uint32_t pacedBurst = 10;
    uint64_t seed = 0;  // of the jitter; 0: a random one
};

}  // namespace node::radius
