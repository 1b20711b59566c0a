// The socket on which servers ask to end or change logins. Thread of the reactor.
#pragma once

#include "node/isa/radius/client/socket.h"
#include "node/isa/radius/dynamic/authority.h"
#include "node/loop/reactor.h"

namespace node::radius {

class DynamicListener {
public:
    // Port 0: any free one. Throws std::system_error when it cannot listen.
    DynamicListener(Reactor& reactor, const SocketAddress& address, DynamicAuthority& authority);
    ~DynamicListener();
    DynamicListener(const DynamicListener&) = delete;
    DynamicListener& operator=(const DynamicListener&) = delete;

    uint16_t port() const;

private:
    void receive();

    Reactor& reactor_;
    DynamicAuthority& authority_;
    Socket socket_;
};

}  // namespace node::radius
