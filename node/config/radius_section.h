// What the configuration says about RADIUS: servers, timers, what is sent, accounting, who may
// end or change logins. Plain data and its reading; secrets are not part of it. Pure; any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "node/config/section.h"

namespace node {

struct RadiusConfig {
    using Milliseconds = std::chrono::milliseconds;

    struct Address {
        std::string host;  // in digits
        uint16_t port = 0;
        bool operator==(const Address&) const = default;
    };

    struct Tls {
        std::string authorities;  // paths
        std::string certificate;
        std::string key;
        std::string peerName;
        bool operator==(const Tls&) const = default;
    };

    struct Server {
        std::string name;
        std::string host;
        bool tls = false;
        uint16_t port = 1812;
        uint16_t accountingPort = 1813;  // over TLS the same as `port`
        std::string source;              // empty: the kernel chooses
        Tls files;                       // with tls
        bool signsAccounting = true;
        unsigned weight = 1;
        unsigned window = 256;
        unsigned tries = 3;
        Milliseconds firstWait{1000};
        Milliseconds longestWait{8000};
        bool statusServer = true;
        Milliseconds probeInterval{5000};
        Milliseconds rest{30'000};
        bool operator==(const Server&) const = default;
    };

    struct Accounting {
        bool on = false;
        std::chrono::seconds interim{0};  // 0: none
        bool operator==(const Accounting&) const = default;
    };

    struct DynamicClient {
        std::string name;  // of its secret
        std::string host;
        bool operator==(const DynamicClient&) const = default;
    };

    struct Dynamic {
        Address listen;  // port 0: nobody is listened to
        std::chrono::seconds window{300};
        std::vector<DynamicClient> clients;
        bool operator==(const Dynamic&) const = default;
    };

    enum class OnFailure { block, keep };

    std::string secretFile;   // paths
    std::string sessionFile;  // empty: sessions do not survive the process
    bool weighted = false;
    std::string userName = "{circuit-id}";
    std::string passwordEntry;  // its line in the file of secrets; empty: none
    std::string nasIdentifier;
    std::string nasIpAddress;  // of this node, in digits; empty: not sent, not compared
    std::string nasIpv6Address;
    std::string nasPortId = "{interface}";
    std::string vendorClassAttribute;  // "3561:5"; empty: not sent
    std::string clientIdAttribute;
    std::string profileAttribute = "11";
    OnFailure onFailure = OnFailure::block;
    Milliseconds patience{30'000};
    Milliseconds askAgain{30'000};
    uint32_t pacedRate = 50;
    uint32_t pacedBurst = 10;
    std::vector<Server> servers;
    Accounting accounting;
    Dynamic dynamic;

    bool operator==(const RadiusConfig&) const = default;
};

// The table [radius]; paths are relative to `directory`. Throws ConfigError.
RadiusConfig readRadius(Section section, const std::string& directory);

// What of `next` would need a restart of a node that runs `now`: a key; empty: nothing.
std::string radiusNeedsRestart(const RadiusConfig& now, const RadiusConfig& next);

}  // namespace node
