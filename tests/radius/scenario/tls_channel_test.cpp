// The channel against peers that do what no server should.
#include "node/isa/radius/client/tls_channel.h"

#include <gtest/gtest.h>
#include <openssl/ssl.h>
#include <signal.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "tests/radius/hex.h"
#include "tests/radius/scenario/epoll_reactor.h"
#include "tests/radius/scenario/free_radius.h"

namespace {

using namespace node::radius;
using radius_test::rawPacket;

constexpr std::chrono::milliseconds patience{20'000};

class TlsChannelTest : public ::testing::Test {
protected:
    TlsChannelTest() : listener_(::socket(AF_INET, SOCK_STREAM, 0)) {
        std::string name = ::testing::TempDir() + "tls.XXXXXX";
        EXPECT_NE(nullptr, mkdtemp(name.data()));
        directory_ = name;
        radius_test::makeCertificates(directory_);
        address_ = *SocketAddress::parse("127.0.0.1", 0);
        EXPECT_EQ(0, bind(listener_.get(), address_.get(), address_.size));
        EXPECT_EQ(0, listen(listener_.get(), 4));
        EXPECT_EQ(0, getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&address_.storage),
                                 &address_.size));
    }
    ~TlsChannelTest() override {
        channel_.reset();
        if (peer_.joinable()) {
            peer_.join();
        }
        std::filesystem::remove_all(directory_);
    }

    void connect(node::Time setUp = node::Time(15'000'000)) {
        TlsSettings settings;
        settings.context = makeTlsContext(
            {directory_ + "/ca.pem", directory_ + "/client.pem", directory_ + "/client.key"});
        settings.server = address_;
        settings.peerName = "127.0.0.1";
        settings.setUp = setUp;
        Channel::Events events;
        events.received = [this](Bytes packet) {
            received_.emplace_back(packet.begin(), packet.end());
        };
        events.broken = [this] { ++broken_; };
        channel_ = tlsChannels(reactor_, settings)(std::move(events));
        ASSERT_TRUE(channel_);
    }

    // A peer on a thread of its own: accepts once, and closes after `talk`.
    void plainPeer(std::function<void(int fd)> talk) {
        peer_ = std::thread([this, talk = std::move(talk)] {
            // Of the peer's writing only; the channel must not raise it at all.
            sigset_t pipe;
            sigemptyset(&pipe);
            sigaddset(&pipe, SIGPIPE);
            pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
            const Socket accepted(accept(listener_.get(), nullptr, nullptr));
            talk(accepted.get());
        });
    }

    void tlsPeer(std::function<void(SSL*)> talk) {
        plainPeer([this, talk = std::move(talk)](int fd) {
            const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(
                SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
            EXPECT_EQ(1, SSL_CTX_use_certificate_chain_file(context.get(),
                                                            (directory_ + "/server.pem").c_str()));
            EXPECT_EQ(
                1, SSL_CTX_use_PrivateKey_file(context.get(), (directory_ + "/server.key").c_str(),
                                               SSL_FILETYPE_PEM));
            const std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(context.get()), SSL_free);
            SSL_set_fd(ssl.get(), fd);
            if (SSL_accept(ssl.get()) == 1) {
                talk(ssl.get());
            }
        });
    }

    static void write(SSL* ssl, const Buffer& bytes) {
        EXPECT_EQ(static_cast<int>(bytes.size()),
                  SSL_write(ssl, bytes.data(), static_cast<int>(bytes.size())));
    }

    bool untilBroken() {
        return reactor_.runUntil([this] { return broken_ > 0; }, patience);
    }

    std::string directory_;
    Socket listener_;
    SocketAddress address_;
    radius_test::EpollReactor reactor_;
    std::unique_ptr<Channel> channel_;
    std::vector<Buffer> received_;
    int broken_ = 0;
    std::thread peer_;
};

TEST_F(TlsChannelTest, PacketsAreCutOutOfTheStreamWhateverTheRecords) {
    const Buffer one = rawPacket(2, 1, "0103 61");
    const Buffer two = rawPacket(3, 2, "");
    tlsPeer([&](SSL* ssl) {
        Buffer request(100);
        EXPECT_GT(SSL_read(ssl, request.data(), static_cast<int>(request.size())), 0);
        for (const uint8_t byte : one) {
            write(ssl, {byte});
        }
        Buffer both = two;
        both.insert(both.end(), one.begin(), one.end());
        write(ssl, both);
        EXPECT_LE(SSL_read(ssl, request.data(), 1), 0);
    });
    connect();
    channel_->send(rawPacket(1, 1, "0103 61"));  // before the connection stands
    ASSERT_TRUE(reactor_.runUntil([&] { return received_.size() == 3; }, patience));
    EXPECT_EQ((std::vector<Buffer>{one, two, one}), received_);
    EXPECT_EQ(0, broken_);
}

TEST_F(TlsChannelTest, LargeBacklogGoesOutWhenThePeerReadsAgain) {
    std::atomic<bool> read = false;
    std::atomic<size_t> got = 0;
    const Buffer packet = rawPacket(1, 1, "19ff" + std::string(506, 'a'));
    constexpr size_t count = 4000;
    tlsPeer([&](SSL* ssl) {
        Buffer buffer(16384);
        while (got < count * packet.size()) {
            const int size = SSL_read(ssl, buffer.data(), static_cast<int>(buffer.size()));
            if (size <= 0) {
                return;
            }
            got += static_cast<size_t>(size);
            while (!read) {
                std::this_thread::yield();
            }
        }
    });
    connect();
    for (size_t i = 0; i < count; ++i) {
        channel_->send(packet);
    }
    reactor_.runFor(std::chrono::milliseconds(100));
    read = true;
    ASSERT_TRUE(reactor_.runUntil([&] { return got == count * packet.size(); }, patience));
}

TEST_F(TlsChannelTest, LengthThatCannotBeBreaksIt) {
    for (const char* start : {"02010013", "02011001"}) {
        received_.clear();
        broken_ = 0;
        tlsPeer([&](SSL* ssl) { write(ssl, radius_test::fromHex(start)); });
        connect();
        EXPECT_TRUE(untilBroken());
        EXPECT_EQ(1, broken_);
        EXPECT_TRUE(received_.empty());
        channel_->send(rawPacket(1, 1, ""));  // into nothing
        peer_.join();
    }
}

TEST_F(TlsChannelTest, PeerThatClosesBreaksItOnce) {
    tlsPeer([](SSL*) {});
    connect();
    channel_->send(rawPacket(1, 1, ""));
    EXPECT_TRUE(untilBroken());
    reactor_.runFor(std::chrono::milliseconds(20));
    EXPECT_EQ(1, broken_);
    EXPECT_EQ(0U, reactor_.watches());
}

TEST_F(TlsChannelTest, PeerThatSpeaksNoTlsBreaksIt) {
    plainPeer([](int fd) {
        EXPECT_EQ(5, send(fd, "hello", 5, MSG_NOSIGNAL));
        char byte;
        while (recv(fd, &byte, 1, 0) > 0) {
        }
    });
    connect();
    EXPECT_TRUE(untilBroken());
}

TEST_F(TlsChannelTest, PeerThatNeverSpeaksBreaksItAfterTheTimeAllowed) {
    plainPeer([](int fd) {
        char byte;
        while (recv(fd, &byte, 1, 0) > 0) {
        }
    });
    const node::Time began = reactor_.now();
    connect(node::Time(200'000));
    EXPECT_TRUE(untilBroken());
    EXPECT_GE(reactor_.now() - began, node::Time(200'000));
    channel_.reset();
}

TEST_F(TlsChannelTest, NobodyListeningBreaksIt) {
    listener_ = Socket();
    connect();
    EXPECT_TRUE(untilBroken());
}

TEST_F(TlsChannelTest, DestructionAtAnyMomentLeavesNothing) {
    for (int turns = 0; turns < 8; ++turns) {
        tlsPeer([](SSL* ssl) {
            char byte;
            while (SSL_read(ssl, &byte, 1) > 0) {
            }
        });
        connect();
        channel_->send(rawPacket(1, 1, ""));
        const node::Time end = reactor_.now() + node::Time(turns * 1000);
        reactor_.runUntil([&] { return reactor_.now() >= end; }, patience);
        channel_.reset();
        EXPECT_EQ(0U, reactor_.watches());
        reactor_.runFor(std::chrono::milliseconds(2));
        EXPECT_EQ(0, broken_);
        peer_.join();
    }
}

}  // namespace
