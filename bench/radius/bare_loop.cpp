#include "bench/radius/bare_loop.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <stdexcept>

#include "node/isa/radius/client/address.h"
#include "node/isa/radius/client/random.h"
#include "node/isa/radius/client/socket.h"
#include "node/isa/radius/packet/signer.h"

namespace bench {

using namespace node::radius;

double bareLoop(uint16_t port, const std::string& secret, const Buffer& attributes,
                const std::string& password, uint64_t count, unsigned underWay) {
    const Secret shared(secret);
    Signer signer(shared);
    Random random(0);
    const SocketAddress server = *SocketAddress::parse("127.0.0.1", port);
    const Socket socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int size = 1 << 20;
    (void)setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    if (connect(socket.get(), server.get(), server.size) != 0) {
        throw std::runtime_error("the bare loop cannot reach the server");
    }
    std::array<Authenticator, 256> asked{};
    uint64_t sent = 0;
    const auto send = [&](uint8_t id) {
        asked[id] = random.authenticator();
        AttributeWriter writer;
        writer.add(attribute::userPassword, signer.hidden(password, asked[id]).value());
        writer.addRaw(attributes);
        Buffer packet = packetOf(Code::accessRequest, id, writer.bytes()).value();
        signer.signRequest(packet, asked[id]);
        (void)::send(socket.get(), packet.data(), packet.size(), 0);
        ++sent;
    };
    const auto began = std::chrono::steady_clock::now();
    for (unsigned id = 0; id < underWay && sent < count; ++id) {
        send(static_cast<uint8_t>(id));
    }
    std::array<uint8_t, longestPacket> buffer;
    for (uint64_t answered = 0; answered < count;) {
        pollfd ready{socket.get(), POLLIN, 0};
        if (poll(&ready, 1, 5000) <= 0) {
            throw std::runtime_error("the bare loop misses an answer");
        }
        ssize_t got = 0;
        while ((got = recv(socket.get(), buffer.data(), buffer.size(), 0)) >= 0) {
            const auto answer = PacketView::parse(Bytes(buffer).first(static_cast<size_t>(got)));
            if (!answer || answer->code() != Code::accessAccept ||
                signer.proveAnswer(*answer, asked[answer->id()], Demand::messageAuthenticator) !=
                    Proof::good) {
                throw std::runtime_error("the bare loop got something else than an accept");
            }
            ++answered;
            if (sent < count) {
                send(answer->id());
            }
        }
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
}

}  // namespace bench
