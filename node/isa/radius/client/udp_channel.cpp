// A full buffer and an unreachable server are loss like any other: retransmission deals with
// both, so errors are only counted. An error that an earlier packet earned is reported by the
// next call, which then does nothing; sending is therefore tried twice. What an unreachable
// server's router says is not proven and changes no server's state.
// Tested by tests/radius/scenario/udp_channel_test.cpp.
#include "node/isa/radius/client/udp_channel.h"

#include <sys/socket.h>

#include <cerrno>

#include "node/isa/radius/client/socket.h"

namespace node::radius {

namespace {

constexpr int receiveBuffer = 1 << 20;  // as far as the kernel allows; answers come in bursts
constexpr int packetsPerTurn = 64;      // then the loop may look after others

class UdpChannel : public Channel {
public:
    UdpChannel(Reactor& reactor, Socket socket, Events events)
        : reactor_(reactor), socket_(std::move(socket)), events_(std::move(events)) {
        reactor_.watch(socket_.get(), [this] { receive(); });
    }
    ~UdpChannel() override { reactor_.unwatch(socket_.get()); }

    void send(Bytes packet) override {
        for (int i = 0; i < 2; ++i) {
            if (::send(socket_.get(), packet.data(), packet.size(), MSG_DONTWAIT) >= 0) {
                return;
            }
            events_.failed();
        }
    }

    bool reliable() const override { return false; }

private:
    void receive() {
        for (int i = 0; i < packetsPerTurn; ++i) {
            const ssize_t size = recv(socket_.get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT);
            if (size >= 0) {
                events_.received(Bytes(buffer_).first(static_cast<size_t>(size)));
            } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
                return;
            } else {
                events_.failed();
            }
        }
    }

    Reactor& reactor_;
    Socket socket_;
    const Events events_;
    std::array<uint8_t, longestPacket> buffer_;
};

}  // namespace

MakeChannel udpChannels(Reactor& reactor, const UdpSettings& settings) {
    return [&reactor, settings](Channel::Events events) -> std::unique_ptr<Channel> {
        Socket socket(
            ::socket(settings.server.family(), SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (!socket) {
            return nullptr;
        }
        // A smaller buffer than asked for still works.
        (void)setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        if ((settings.source &&
             bind(socket.get(), settings.source->get(), settings.source->size) != 0) ||
            connect(socket.get(), settings.server.get(), settings.server.size) != 0) {
            return nullptr;
        }
        return std::make_unique<UdpChannel>(reactor, std::move(socket), std::move(events));
    };
}

}  // namespace node::radius
