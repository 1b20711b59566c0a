// Channels on a reactor that refuses their descriptors.
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <cerrno>
#include <system_error>

#include "node/isa/radius/client/socket.h"
#include "node/isa/radius/client/tls_channel.h"
#include "node/isa/radius/client/udp_channel.h"
#include "tests/radius/virtual_reactor.h"

namespace {

using namespace node::radius;

class RefusingReactor : public radius_test::VirtualReactor {
public:
    explicit RefusingReactor(bool onlyWriting) : onlyWriting_(onlyWriting) {}

    void watch(int, node::Task) override {
        if (!onlyWriting_) {
            refuse();
        }
        ++watched;
    }
    void watchWritable(int, node::Task) override { refuse(); }
    void unwatch(int) override { --watched; }

    int watched = 0;

private:
    [[noreturn]] static void refuse() {
        throw std::system_error(ENOSPC, std::generic_category(), "epoll_ctl");
    }

    bool onlyWriting_;
};

TEST(ChannelThatCannotBeWatched, LeavesNothingOfUdpBehind) {
    RefusingReactor reactor(false);
    const MakeChannel make =
        udpChannels(reactor, {*SocketAddress::parse("127.0.0.1", 1812), std::nullopt});
    EXPECT_THROW(make({}), std::system_error);
    EXPECT_EQ(0U, reactor.timers());
}

TEST(ChannelThatCannotBeWatched, LeavesNothingOfTlsBehind) {
    const Socket server(::socket(AF_INET, SOCK_STREAM, 0));
    SocketAddress address = *SocketAddress::parse("127.0.0.1", 0);
    ASSERT_EQ(0, bind(server.get(), address.get(), address.size));
    ASSERT_EQ(0, listen(server.get(), 1));
    ASSERT_EQ(
        0, getsockname(server.get(), reinterpret_cast<sockaddr*>(&address.storage), &address.size));
    for (const bool onlyWriting : {false, true}) {
        RefusingReactor reactor(onlyWriting);
        TlsSettings settings;
        settings.context = TlsContext(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
        settings.server = address;
        settings.peerName = "127.0.0.1";
        EXPECT_THROW(tlsChannels(reactor, settings)({}), std::system_error);
        EXPECT_EQ(0U, reactor.timers()) << "a timer of a channel that is gone";
        EXPECT_EQ(0, reactor.watched);
    }
}

}  // namespace
