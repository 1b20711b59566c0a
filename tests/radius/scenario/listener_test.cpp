// On which addresses the listener is asked, and from which it answers.
#include "node/isa/radius/dynamic/listener.h"

#include <gtest/gtest.h>

#include "tests/radius/scenario/epoll_reactor.h"

namespace {

using namespace node::radius;

constexpr std::chrono::milliseconds patience{10'000};
constexpr int64_t noon = 1'700'000'000;

class Listener : public ::testing::Test {
protected:
    Listener()
        : authority_(
              settings(), [] { return noon; },
              [](const DynamicRequest&) { return std::optional<ErrorCause>(); }) {}

    static DynamicSettings settings() {
        DynamicSettings settings;
        for (const char* host : {"127.0.0.1", "::1"}) {
            settings.clients.push_back({*SocketAddress::parse(host, 0), Secret("the secret")});
        }
        return settings;
    }

    // The code that comes back to a socket connected to `address`, which hears nobody else.
    std::optional<Code> asked(const std::string& from, const std::string& address) {
        const SocketAddress own = *SocketAddress::parse(from, 0);
        const SocketAddress to = *SocketAddress::parse(address, listener_->port());
        const Socket socket(::socket(to.family(), SOCK_DGRAM | SOCK_NONBLOCK, 0));
        EXPECT_EQ(0, bind(socket.get(), own.get(), own.size));
        EXPECT_EQ(0, connect(socket.get(), to.get(), to.size));
        AttributeWriter writer;
        writer.addText(attribute::userName, "line-1");
        writer.addNumber(attribute::eventTimestamp, static_cast<uint32_t>(noon));
        Buffer packet = *packetOf(Code::disconnectRequest, 1, writer.bytes());
        Signer(Secret("the secret")).signRequest(packet, {});
        EXPECT_EQ(static_cast<ssize_t>(packet.size()),
                  send(socket.get(), packet.data(), packet.size(), 0));
        Buffer answer(longestPacket);
        ssize_t size = -1;
        const auto answered = [&] {
            size = recv(socket.get(), answer.data(), answer.size(), 0);
            return size >= 0;
        };
        const uint64_t before = authority_.counters().unknownClient;
        EXPECT_TRUE(reactor_.runUntil(
            [&] { return answered() || authority_.counters().unknownClient > before; }, patience));
        if (size < 0) {
            return std::nullopt;
        }
        answer.resize(static_cast<size_t>(size));
        const auto view = PacketView::parse(answer);
        return view ? std::optional(view->code()) : std::nullopt;
    }

    static bool hasIpv6() {
        const SocketAddress own = *SocketAddress::parse("::1", 0);
        const Socket socket(::socket(AF_INET6, SOCK_DGRAM, 0));
        return bind(socket.get(), own.get(), own.size) == 0;
    }

    void listen(const std::string& address) {
        listener_ = std::make_unique<DynamicListener>(reactor_, *SocketAddress::parse(address, 0),
                                                      authority_);
    }

    radius_test::EpollReactor reactor_;
    DynamicAuthority authority_;
    std::unique_ptr<DynamicListener> listener_;
};

TEST_F(Listener, AnswersFromTheAddressThatWasAsked) {
    listen("0.0.0.0");
    for (const char* address : {"127.0.0.1", "127.0.0.2", "127.1.2.3"}) {
        EXPECT_EQ(Code::disconnectAck, asked("127.0.0.1", address)) << address;
    }
}

TEST_F(Listener, OnAllAddressesOfIpv6HearsIpv4Too) {
    if (!hasIpv6()) {
        GTEST_SKIP() << "this host has no ::1";
    }
    listen("::");
    EXPECT_EQ(Code::disconnectAck, asked("::1", "::1"));
    EXPECT_EQ(Code::disconnectAck, asked("127.0.0.1", "127.0.0.1"));
    EXPECT_EQ(Code::disconnectAck, asked("127.0.0.1", "127.0.0.2"));
    EXPECT_EQ(0U, authority_.counters().unknownClient);
    EXPECT_EQ(std::nullopt, asked("127.0.0.9", "127.0.0.1"));
    EXPECT_EQ(1U, authority_.counters().unknownClient);
}

}  // namespace
