// Judges CoA- and Disconnect-Requests of known servers and answers them, without any socket.
// Why: a forged or repeated request must not end anybody's login. Thread of the reactor.
#pragma once

#include <functional>
#include <map>
#include <vector>

#include "node/isa/radius/client/address.h"
#include "node/isa/radius/packet/dynamic.h"
#include "node/isa/radius/packet/signer.h"

namespace node::radius {

struct DynamicClient {
    SocketAddress host;  // its port is not looked at
    Secret secret;
};

struct DynamicSettings {
    std::vector<DynamicClient> clients;
    LoginFormat format;
    uint32_t window = 300;         // seconds that Event-Timestamp may be off
    size_t mostRemembered = 4096;  // requests of the last window; more are refused
};

struct DynamicCounters {
    uint64_t acks = 0;
    uint64_t naks = 0;
    uint64_t repeated = 0;  // answered as the first time, not done again
    // Dropped without an answer:
    uint64_t unknownClient = 0;
    uint64_t malformed = 0;
    uint64_t wrongCode = 0;
    uint64_t notProven = 0;  // authenticator or Message-Authenticator
    uint64_t untimely = 0;   // Event-Timestamp missing or outside the window
};

class DynamicAuthority {
public:
    // Nothing: done (ACK). A cause: not done (NAK).
    using Handler = std::function<std::optional<ErrorCause>(const DynamicRequest&)>;
    using WallSeconds = std::function<int64_t()>;  // since 1970

    DynamicAuthority(DynamicSettings settings, WallSeconds wall, Handler handler);

    // From here on. What was answered stays remembered; counters begin again.
    void use(DynamicSettings settings);

    // The answer to send back; empty: none.
    std::optional<Buffer> judge(const SocketAddress& from, Bytes datagram);

    const DynamicCounters& counters() const { return counters_; }
    size_t remembered() const { return answers_.size(); }

private:
    struct Asker {
        SocketAddress host;
        std::optional<Signer> signer;  // none: it may not ask any more
    };
    // Who asked, and the authenticator, which is a digest of the whole request.
    using Key = std::pair<size_t, Authenticator>;

    Buffer decide(Signer& signer, const PacketView& packet, bool full);
    void forget(int64_t now);

    DynamicSettings settings_;
    WallSeconds wall_;
    Handler handler_;
    std::vector<Asker> askers_;  // keeps its order, and whoever was in it once
    std::map<Key, Buffer> answers_;
    std::multimap<int64_t, Key> made_;  // by the time that the request says
    int64_t earliest_ = INT64_MIN;      // what was made before may have been forgotten
    DynamicCounters counters_;
};

}  // namespace node::radius
