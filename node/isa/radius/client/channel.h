// One association with a server, which carries up to 256 requests at a time: a UDP socket, a TLS
// connection, or what a test makes of it. Thread of the reactor.
#pragma once

#include <functional>
#include <memory>

#include "node/isa/radius/packet/packet.h"

namespace node::radius {

class Channel {
public:
    // Called from the reactor, never from inside send; the channel must not be destroyed in them.
    struct Events {
        std::function<void(Bytes datagram)> received;
        std::function<void()> failed;  // something could not be sent or received; it goes on
        std::function<void()> broken;  // nothing goes through any more; the last call
    };

    virtual ~Channel() = default;
    virtual void send(Bytes packet) = 0;  // may get lost
    virtual bool reliable() const = 0;    // what gets lost breaks the channel
};

// Null when it cannot be made now, or std::system_error when the reactor cannot watch it.
using MakeChannel = std::function<std::unique_ptr<Channel>(Channel::Events)>;

}  // namespace node::radius
