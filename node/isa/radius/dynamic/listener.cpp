#include "node/isa/radius/dynamic/listener.h"

#include <cerrno>
#include <system_error>

namespace node::radius {

namespace {

constexpr int packetsPerTurn = 64;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

DynamicListener::DynamicListener(Reactor& reactor, const SocketAddress& address,
                                 DynamicAuthority& authority)
    : reactor_(reactor),
      authority_(authority),
      socket_(::socket(address.family(), SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    if (!socket_) {
        fail("socket for CoA and Disconnect");
    }
    if (bind(socket_.get(), address.get(), address.size) != 0) {
        fail("address for CoA and Disconnect");
    }
    reactor_.watch(socket_.get(), [this] { receive(); });
}

DynamicListener::~DynamicListener() {
    reactor_.unwatch(socket_.get());
}

uint16_t DynamicListener::port() const {
    SocketAddress own;
    own.size = sizeof own.storage;
    if (getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&own.storage), &own.size) != 0) {
        fail("port for CoA and Disconnect");
    }
    return own.port();
}

void DynamicListener::receive() {
    std::array<uint8_t, longestPacket> buffer;
    for (int i = 0; i < packetsPerTurn; ++i) {
        SocketAddress from;
        from.size = sizeof from.storage;
        auto* const sender = reinterpret_cast<sockaddr*>(&from.storage);
        const ssize_t size =
            recvfrom(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT, sender, &from.size);
        if (size < 0) {
            return;  // nothing more, or an error that a send earned; the next turn goes on
        }
        const auto answer = authority_.judge(from, Bytes(buffer).first(static_cast<size_t>(size)));
        if (answer) {
            // What is not sent is asked for again.
            (void)sendto(socket_.get(), answer->data(), answer->size(), MSG_DONTWAIT, sender,
                         from.size);
        }
    }
}

}  // namespace node::radius
