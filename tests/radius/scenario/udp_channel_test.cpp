#include "node/isa/radius/client/udp_channel.h"

#include <gtest/gtest.h>

#include "tests/radius/scenario/epoll_reactor.h"
#include "tests/radius/scenario/udp_proxy.h"

namespace {

using namespace node::radius;

constexpr std::chrono::milliseconds patience{20'000};

class UdpChannelTest : public ::testing::Test {
protected:
    UdpChannelTest() : server_(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
        address_ = *SocketAddress::parse("127.0.0.1", radius_test::freePort());
        EXPECT_EQ(0, bind(server_.get(), address_.get(), address_.size));
    }

    std::unique_ptr<Channel> make(const UdpSettings& settings) {
        Channel::Events events;
        events.received = [this](Bytes datagram) {
            received_.emplace_back(datagram.begin(), datagram.end());
        };
        events.failed = [this] { ++failures_; };
        return udpChannels(reactor_, settings)(std::move(events));
    }

    // One datagram at the server, and who sent it.
    Buffer atServer(SocketAddress& from) {
        Buffer packet(4096);
        ssize_t size = -1;
        EXPECT_TRUE(reactor_.runUntil(
            [&] {
                from.size = sizeof from.storage;
                size = recvfrom(server_.get(), packet.data(), packet.size(), 0,
                                reinterpret_cast<sockaddr*>(&from.storage), &from.size);
                return size >= 0;
            },
            patience));
        packet.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
        return packet;
    }

    void answer(const Socket& socket, const SocketAddress& to, const Buffer& packet) {
        EXPECT_EQ(static_cast<ssize_t>(packet.size()),
                  sendto(socket.get(), packet.data(), packet.size(), 0, to.get(), to.size));
    }

    radius_test::EpollReactor reactor_;
    Socket server_;
    SocketAddress address_;
    std::vector<Buffer> received_;
    int failures_ = 0;
};

TEST_F(UdpChannelTest, OnlyTheAskedServerIsHeard) {
    const auto channel = make({address_, std::nullopt});
    ASSERT_TRUE(channel);
    channel->send(Buffer{1, 2, 3});
    SocketAddress client;
    EXPECT_EQ((Buffer{1, 2, 3}), atServer(client));
    const Socket stranger(::socket(AF_INET, SOCK_DGRAM, 0));
    answer(stranger, client, {9});
    answer(server_, client, {4});
    ASSERT_TRUE(reactor_.runUntil([&] { return !received_.empty(); }, patience));
    EXPECT_EQ((std::vector<Buffer>{{4}}), received_);
}

TEST_F(UdpChannelTest, DatagramsOfAnyLengthAreHanded) {
    const auto channel = make({address_, std::nullopt});
    channel->send(Buffer{1});
    SocketAddress client;
    atServer(client);
    answer(server_, client, {});
    answer(server_, client, Buffer(5000, 7));
    ASSERT_TRUE(reactor_.runUntil([&] { return received_.size() == 2; }, patience));
    EXPECT_EQ(0U, received_[0].size());
    EXPECT_EQ(Buffer(4096, 7), received_[1]);
}

TEST_F(UdpChannelTest, ErrorOfAnEarlierPacketDoesNotSwallowTheNext) {
    server_ = Socket();  // nobody listens: the first packet comes back as an error
    const auto channel = make({address_, std::nullopt});
    channel->send(Buffer{1});
    const Socket again(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0));
    ASSERT_EQ(0, bind(again.get(), address_.get(), address_.size));
    channel->send(Buffer{2});
    EXPECT_EQ(1, failures_);
    Buffer packet(10);
    ssize_t size = -1;
    ASSERT_TRUE(reactor_.runUntil(
        [&] {
            size = recv(again.get(), packet.data(), packet.size(), 0);
            return size >= 0;
        },
        patience));
    EXPECT_EQ(1, size);
    EXPECT_EQ(2, packet[0]);
}

TEST_F(UdpChannelTest, SourceAddressIsUsed) {
    const auto channel = make({address_, SocketAddress::parse("127.0.0.9", 0)});
    ASSERT_TRUE(channel);
    channel->send(Buffer{1});
    SocketAddress client;
    atServer(client);
    EXPECT_TRUE(client.sameHost(*SocketAddress::parse("127.0.0.9", 0)));
}

TEST_F(UdpChannelTest, ForeignSourceAddressMakesNoChannel) {
    EXPECT_FALSE(make({address_, SocketAddress::parse("192.0.2.1", 0)}));
    EXPECT_EQ(0U, reactor_.watches());
}

}  // namespace
