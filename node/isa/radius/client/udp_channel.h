// RADIUS over UDP: a connected socket, so that the kernel lets through only what comes from the
// asked server's address and port. Thread of the reactor.
#pragma once

#include "node/isa/radius/client/address.h"
#include "node/isa/radius/client/channel.h"
#include "node/loop/reactor.h"

namespace node::radius {

struct UdpSettings {
    SocketAddress server;
    std::optional<SocketAddress> source;  // port 0; none: the kernel chooses
};

// The reactor must outlive what it makes.
MakeChannel udpChannels(Reactor& reactor, const UdpSettings& settings);

}  // namespace node::radius
