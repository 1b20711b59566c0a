#include "tests/radius/scenario/udp_proxy.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace radius_test {

using namespace node::radius;
using node::Time;

namespace {

Socket udpSocket() {
    Socket socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int size = 4 << 20;
    (void)setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    return socket;
}

uint16_t portOf(const Socket& socket) {
    SocketAddress own;
    own.size = sizeof own.storage;
    if (getsockname(socket.get(), reinterpret_cast<sockaddr*>(&own.storage), &own.size) != 0) {
        throw std::system_error(errno, std::generic_category(), "getsockname");
    }
    return own.port();
}

bool bound(const Socket& socket, uint16_t port) {
    const SocketAddress address = *SocketAddress::parse("127.0.0.1", port);
    return bind(socket.get(), address.get(), address.size) == 0;
}

}  // namespace

uint16_t freePort() {
    for (int i = 0; i < 100; ++i) {
        const Socket udp = udpSocket();
        if (!bound(udp, 0) || portOf(udp) > 65000) {
            continue;
        }
        const uint16_t port = portOf(udp);
        const Socket tcp(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const Socket next = udpSocket();
        if (bound(tcp, port) && bound(next, static_cast<uint16_t>(port + 1))) {
            return port;
        }
    }
    throw std::runtime_error("no free ports");
}

UdpProxy::UdpProxy(node::Reactor& reactor, uint16_t serverPort, uint32_t seed)
    : reactor_(reactor),
      server_(*SocketAddress::parse("127.0.0.1", serverPort)),
      socket_(udpSocket()),
      dice_(seed) {
    if (!bound(socket_, 0)) {
        throw std::system_error(errno, std::generic_category(), "proxy");
    }
    port_ = portOf(socket_);
    reactor_.watch(socket_.get(), [this] { fromClient(); });
}

UdpProxy::~UdpProxy() {
    *alive_ = false;
    reactor_.unwatch(socket_.get());
    for (const auto& [port, pair] : pairs_) {
        reactor_.unwatch(pair->socket.get());
    }
}

bool UdpProxy::happens(double probability) {
    return probability > 0 && std::uniform_real_distribution<double>(0, 1)(dice_) < probability;
}

Time UdpProxy::upTo(Time most) {
    return Time(std::uniform_int_distribution<Time::rep>(0, most.count())(dice_));
}

UdpProxy::Pair& UdpProxy::pairOf(const SocketAddress& client) {
    std::unique_ptr<Pair>& pair = pairs_[client.port()];
    if (!pair) {
        pair = std::make_unique<Pair>(Pair{client, udpSocket()});
        if (connect(pair->socket.get(), server_.get(), server_.size) != 0) {
            throw std::system_error(errno, std::generic_category(), "proxy");
        }
        reactor_.watch(pair->socket.get(), [this, raw = pair.get()] { fromServer(*raw); });
    }
    return *pair;
}

void UdpProxy::pass(Buffer packet, Time delay, std::function<void(const Buffer&)> send) {
    if (happens(faults_.loss)) {
        ++counters_.lost;
        return;
    }
    if (happens(faults_.corrupt)) {
        ++counters_.corrupted;
        for (size_t i = std::uniform_int_distribution<size_t>(1, 8)(dice_); i > 0; --i) {
            const size_t bit =
                std::uniform_int_distribution<size_t>(0, 8 * packet.size() - 1)(dice_);
            packet[bit / 8] = static_cast<uint8_t>(packet[bit / 8] ^ 1 << bit % 8);
        }
    }
    const auto later = [&](Time time) {
        reactor_.at(reactor_.now() + time, [alive = alive_, packet, send] {
            if (*alive) {
                send(packet);
            }
        });
    };
    if (happens(faults_.duplicate)) {
        ++counters_.duplicated;
        later(delay + upTo(Time(20'000)));
    }
    delay += upTo(faults_.spread);
    if (delay == Time(0)) {
        send(packet);
    } else {
        later(delay);
    }
}

void UdpProxy::fromClient() {
    std::array<uint8_t, longestPacket> buffer;
    for (int i = 0; i < 256; ++i) {
        SocketAddress from;
        from.size = sizeof from.storage;
        const ssize_t size = recvfrom(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT,
                                      reinterpret_cast<sockaddr*>(&from.storage), &from.size);
        if (size < 0) {
            return;
        }
        ++counters_.requests;
        Pair& pair = pairOf(from);
        const Buffer packet(buffer.begin(), buffer.begin() + size);
        if (happens(faults_.forge)) {
            if (const auto request = PacketView::parse(packet)) {
                forge(*request, pair);
            }
        }
        pass(packet, Time(0), [raw = &pair](const Buffer& bytes) {
            (void)::send(raw->socket.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
        });
    }
}

void UdpProxy::fromServer(Pair& pair) {
    std::array<uint8_t, longestPacket> buffer;
    for (int i = 0; i < 256; ++i) {
        const ssize_t size = recv(pair.socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (size < 0) {
            return;
        }
        ++counters_.answers;
        pass(Buffer(buffer.begin(), buffer.begin() + size), faults_.delay,
             [this, raw = &pair](const Buffer& bytes) { answer(*raw, bytes); });
    }
}

void UdpProxy::answer(const Pair& pair, const Buffer& packet) {
    (void)sendto(socket_.get(), packet.data(), packet.size(), MSG_DONTWAIT, pair.client.get(),
                 pair.client.size);
}

// What somebody on the path without the secret would try: an accept and a reject with a random
// authenticator, one that repeats the request's, and one without Message-Authenticator.
void UdpProxy::forge(const PacketView& request, const Pair& pair) {
    counters_.forged += 4;
    for (const Code code : {Code::accessAccept, Code::accessReject}) {
        Buffer packet = packetOf(code, request.id(), {}).value();
        for (size_t i = authenticatorOffset; i < packet.size(); ++i) {
            if (i < headerSize || i >= headerSize + 2) {
                packet[i] = static_cast<uint8_t>(dice_());
            }
        }
        answer(pair, packet);
    }
    Buffer packet = packetOf(Code::accessAccept, request.id(), {}).value();
    const Authenticator asked = request.authenticator();
    std::copy(asked.begin(), asked.end(), packet.begin() + authenticatorOffset);
    answer(pair, packet);
    packet.resize(headerSize);
    packet[3] = headerSize;
    answer(pair, packet);
}

}  // namespace radius_test
