// The server as clients good and bad meet it: start and end, streams, silence, floods.
#include "node/control/server.h"

#include <gmock/gmock.h>
#include <malloc.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>

#include "node/control/listener.h"
#include "tests/control/server_fixture.h"

namespace node::control {
namespace {

using grpc::StatusCode;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using namespace std::chrono_literals;

LiveEvent event(unsigned ifId, EventKind kind, const std::string& text) {
    return {.kind = kind, .ifId = ifId, .interfaceName = "1/" + std::to_string(ifId), .text = text};
}

// A stream of events that is known to be subscribed.
class Listening {
public:
    explicit Listening(const std::shared_ptr<grpc::Channel>& channel,
                       const v1::EventsRequest& request = {})
        : stub_(v1::Management::NewStub(channel)), reader_(stub_->Events(&context_, request)) {
        reader_->WaitForInitialMetadata();
    }
    ~Listening() { context_.TryCancel(); }

    bool read(v1::Event& message) { return reader_->Read(&message); }
    grpc::Status finish() {
        v1::Event ignored;
        while (reader_->Read(&ignored)) {
        }
        return reader_->Finish();
    }

private:
    std::unique_ptr<v1::Management::Stub> stub_;
    grpc::ClientContext context_;
    std::unique_ptr<grpc::ClientReader<v1::Event>> reader_;
};

// A connection without a protocol.
class RawConnection {
public:
    explicit RawConnection(const std::string& path)
        : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.data(), path.size());
        connected_ = connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address),
                             sizeof address) == 0;
    }
    bool connected() const { return connected_; }
    bool send(const std::string& bytes) {
        return ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }
    // Whether the other side closes within ten seconds.
    bool closed() {
        char buffer[4096];
        pollfd polled{socket_.get(), POLLIN, 0};
        const auto end = std::chrono::steady_clock::now() + 10s;
        while (std::chrono::steady_clock::now() < end) {
            if (poll(&polled, 1, 1000) == 1 && recv(socket_.get(), buffer, sizeof buffer, 0) <= 0) {
                return true;
            }
        }
        return false;
    }
    // Closed already, without waiting.
    bool closedNow() {
        pollfd polled{socket_.get(), POLLIN, 0};
        char byte = 0;
        return poll(&polled, 1, 0) == 1 && recv(socket_.get(), &byte, 1, MSG_PEEK) <= 0;
    }

private:
    Descriptor socket_;
    bool connected_ = false;
};

class ControlServer : public ServerTest {
protected:
    StatusCode askNode() {
        const auto stub = client();
        v1::NodeInfoResponse info;
        return call(*stub, &v1::Management::Stub::NodeInfo, v1::NodeInfoRequest(), info)
            .error_code();
    }
    std::string startProblem() {
        try {
            start();
        } catch (const ServerError& error) {
            return error.what();
        }
        return "none";
    }
};

// Start and end.

TEST_F(ControlServer, SocketIsForItsOwnerAndGroupOnlyAndGoesWithTheServer) {
    start();
    struct stat found {};
    ASSERT_EQ(0, stat(options.socketPath.c_str(), &found));
    EXPECT_TRUE(S_ISSOCK(found.st_mode));
    EXPECT_EQ(0660u, found.st_mode & 07777);
    server.reset();
    EXPECT_NE(0, stat(options.socketPath.c_str(), &found));
}

TEST_F(ControlServer, SocketThatADeadNodeLeftIsReplaced) {
    { Descriptor left = listenUnix(options.socketPath, ""); }
    ASSERT_TRUE(std::filesystem::exists(options.socketPath));
    EXPECT_EQ("none", startProblem());
    EXPECT_EQ(StatusCode::OK, askNode());
}

TEST_F(ControlServer, SocketThatSomebodyListensOnIsLeftAlone) {
    const Descriptor other = listenUnix(options.socketPath, "");
    EXPECT_THAT(startProblem(), HasSubstr("another process listens there"));
    EXPECT_TRUE(std::filesystem::exists(options.socketPath));
}

TEST_F(ControlServer, FileThatIsNoSocketIsLeftAlone) {
    std::ofstream(options.socketPath) << "precious";
    EXPECT_THAT(startProblem(), HasSubstr("no socket"));
    EXPECT_EQ(8u, std::filesystem::file_size(options.socketPath));
}

TEST_F(ControlServer, UnusableSocketPathsAreToldInWords) {
    options.socketPath = scratch.file("no/such/directory");
    EXPECT_THAT(startProblem(), HasSubstr("No such file or directory"));
    options.socketPath = "/" + std::string(200, 'a');
    EXPECT_THAT(startProblem(), HasSubstr("1 to 107 characters"));
    options.socketPath = scratch.file("s");
    options.socketGroup = "no-such-group";
    EXPECT_THAT(startProblem(), HasSubstr("there is no group no-such-group"));
    options.socketPath.clear();
    EXPECT_THAT(startProblem(), HasSubstr("neither"));
}

TEST_F(ControlServer, TcpAddressesAreToldInWords) {
    for (const char* address : {"", "7443", ":7443", "127.0.0.1:", "localhost:7443", "127.0.0.1:x",
                                "[::1:7443", "127.0.0.1:70000"}) {
        EXPECT_THROW(listenTcp(address), ListenError) << address;
    }
    EXPECT_GT(portOf(listenTcp("127.0.0.1:0")), 0);
    EXPECT_GT(portOf(listenTcp("[::1]:0")), 0);
}

TEST_F(ControlServer, FunctionThatTheModuleLacksIsNamed) {
    try {
        const Server incomplete(TestNode::functionsWithoutRuleGet(), node, options, [](auto&) {});
        ADD_FAILURE() << "it starts";
    } catch (const ServerError& error) {
        EXPECT_THAT(error.what(), HasSubstr("rpcTalRuleGet"));
    }
}

TEST_F(ControlServer, EndOfTheServerEndsTheStreamsWithAReason) {
    start();
    Listening listening(channelTo(target()));
    std::thread stopper([this] { server.reset(); });
    const grpc::Status status = listening.finish();
    stopper.join();
    EXPECT_EQ(StatusCode::UNAVAILABLE, status.error_code());
    EXPECT_EQ("the node stops", status.error_message());
}

// Events.

TEST_F(ControlServer, EventsArriveLiveAndInOrder) {
    start();
    Listening listening(channelTo(target()));
    server->publish(event(1, EventKind::trap, "trapped"));
    server->publish(event(1, EventKind::gate, "a\nb"));
    v1::Event message;
    ASSERT_TRUE(listening.read(message));
    EXPECT_EQ(v1::EVENT_KIND_TRAP, message.kind());
    EXPECT_EQ(1u, message.interface());
    EXPECT_EQ("1/1", message.interface_name());
    EXPECT_EQ("trapped", message.text());
    EXPECT_EQ(1u, message.number());
    EXPECT_GT(message.time().seconds(), 1600000000);
    ASSERT_TRUE(listening.read(message));
    EXPECT_EQ(v1::EVENT_KIND_GATE, message.kind());
    EXPECT_EQ("a\\x0ab", message.text());
}

TEST_F(ControlServer, StreamLeavesOutWhatWasNotAskedFor) {
    start();
    v1::EventsRequest request;
    request.set_interface(2);
    request.add_kinds(v1::EVENT_KIND_STORE);
    Listening listening(channelTo(target()), request);
    server->publish(event(1, EventKind::store, "other interface"));
    server->publish(event(2, EventKind::trap, "other kind"));
    server->publish(event(2, EventKind::store, "this one"));
    v1::Event message;
    ASSERT_TRUE(listening.read(message));
    EXPECT_EQ("this one", message.text());
}

TEST_F(ControlServer, StreamOfAnUnknownInterfaceOrKindIsRefused) {
    start();
    v1::EventsRequest request;
    request.set_interface(77);
    EXPECT_EQ(StatusCode::NOT_FOUND, Listening(channelTo(target()), request).finish().error_code());
    request.set_interface(0);
    request.add_kinds(static_cast<v1::EventKind>(9));
    EXPECT_EQ(StatusCode::INVALID_ARGUMENT,
              Listening(channelTo(target()), request).finish().error_code());
}

TEST_F(ControlServer, MoreEventClientsThanAllowedAreRefused) {
    options.maxEventClients = 1;
    start();
    Listening first(channelTo(target()));
    EXPECT_EQ(StatusCode::RESOURCE_EXHAUSTED, Listening(channelTo(target())).finish().error_code());
    EXPECT_EQ(StatusCode::OK, askNode());
}

TEST_F(ControlServer, ClientThatGoesIsForgotten) {
    start();
    {
        Listening gone(channelTo(target()));
        const auto stub = client();
        v1::NodeInfoResponse info;
        call(*stub, &v1::Management::Stub::NodeInfo, v1::NodeInfoRequest(), info);
        EXPECT_EQ(1u, info.event_clients());
    }
    const auto stub = client();
    EXPECT_TRUE(eventually([&] {
        v1::NodeInfoResponse info;
        call(*stub, &v1::Management::Stub::NodeInfo, v1::NodeInfoRequest(), info);
        return info.event_clients() == 0;
    }));
}

class SlowClients : public ControlServer {
protected:
    SlowClients() { options.eventsKept = 64; }

    void publish(size_t count) {
        for (size_t i = 0; i < count; ++i) {
            server->publish(event(1, EventKind::trap, std::string(1000, 'x')));
        }
    }
    bool logged(const std::string& words) {
        return eventually([&] {
            const std::vector<std::string> lines = log();
            return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
                return line.find(words) != std::string::npos;
            });
        });
    }
};

TEST_F(SlowClients, ClientThatNeverReadsIsCutOffAndTheLogSaysWhy) {
    options.stalledFor = 100ms;
    options.eventsKept = 1000;
    start();
    Listening never(channelTo(target()));
    Listening quick(channelTo(target()));
    // At the pace of the one that reads, so that the other's transport fills up long before it
    // is lost, and no status gets through to it.
    EXPECT_TRUE(eventually([&] {
        v1::Event message;
        for (int i = 0; i < 10; ++i) {
            publish(1);
            quick.read(message);
        }
        return !log().empty();
    }));
    EXPECT_THAT(log(), ElementsAre(AllOf(HasSubstr("dropped"), HasSubstr("does not read"))));
    EXPECT_EQ(StatusCode::CANCELLED, never.finish().error_code());
    EXPECT_EQ(StatusCode::OK, askNode());
}

TEST_F(SlowClients, FloodOfEventsTakesNoMoreMemoryThanTheRing) {
    start();
    Listening never(channelTo(target()));
    const size_t before = mallinfo2().uordblks;
    publish(200000);  // 200 MB, if anybody kept them
    EXPECT_TRUE(logged("dropped"));
    EXPECT_LT(mallinfo2().uordblks, before + (size_t{16} << 20));
    EXPECT_EQ(StatusCode::OK, askNode());
    const auto stub = client();
    EXPECT_TRUE(eventually([&] {
        v1::NodeInfoResponse info;
        call(*stub, &v1::Management::Stub::NodeInfo, v1::NodeInfoRequest(), info);
        return info.event_clients() == 0;
    }));
}

TEST_F(SlowClients, ClientThatReadsAgainIsToldWhyItWasDropped) {
    options.stalledFor = 60s;
    start();
    Listening slow(channelTo(target()));
    publish(20000);
    const grpc::Status status = slow.finish();
    EXPECT_EQ(StatusCode::RESOURCE_EXHAUSTED, status.error_code());
    EXPECT_THAT(status.error_message(), StartsWith("dropped"));
    EXPECT_TRUE(logged("dropped"));
}

TEST_F(SlowClients, SlowOneCostsTheOthersNothing) {
    options.stalledFor = 60s;
    start();
    Listening slow(channelTo(target()));
    Listening quick(channelTo(target()));
    v1::Event message;
    for (unsigned i = 1; i <= 2000; ++i) {
        publish(1);
        ASSERT_TRUE(quick.read(message)) << i;
        EXPECT_EQ(i, message.number());
    }
}

// Silence and nonsense.

TEST_F(ControlServer, PeerThatSaysNothingIsGivenUp) {
    options.handshake = 200ms;
    start();
    RawConnection silent(options.socketPath);
    ASSERT_TRUE(silent.connected());
    EXPECT_TRUE(silent.closed());
    EXPECT_EQ(StatusCode::OK, askNode());
}

TEST_F(ControlServer, PeerThatFallsSilentIsGivenUp) {
    options.keepalive = 200ms;
    start();
    RawConnection silent(options.socketPath);
    const std::string emptySettings("\0\0\0\4\0\0\0\0\0", 9);
    ASSERT_TRUE(silent.send("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n" + emptySettings));
    EXPECT_TRUE(silent.closed());
    EXPECT_EQ(StatusCode::OK, askNode());
}

TEST_F(ControlServer, PeerThatSpeaksAnotherLanguageIsGivenUp) {
    start();
    RawConnection other(options.socketPath);
    ASSERT_TRUE(other.send("GET / HTTP/1.1\r\nHost: node\r\n\r\n"));
    EXPECT_TRUE(other.closed());
    EXPECT_EQ(StatusCode::OK, askNode());
}

// Floods.

class Descriptors {
public:
    explicit Descriptors(rlim_t limit) {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit now{std::min(limit, before_.rlim_max), before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &now);
    }
    ~Descriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_{};
};

size_t entriesOf(const char* directory) {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

TEST_F(ControlServer, ThousandClientsListenAndAskAtOnceOnFewThreads) {
    constexpr size_t clients = 1000;
    const Descriptors many(8192);
    start();
    const size_t threadsBefore = entriesOf("/proc/self/task");
    std::vector<std::shared_ptr<grpc::Channel>> channels;
    std::vector<std::unique_ptr<Listening>> listening;
    for (size_t i = 0; i < clients; ++i) {
        channels.push_back(channelTo(target()));
        listening.push_back(std::make_unique<Listening>(channels.back()));
    }
    for (const auto& channel : channels) {
        const auto stub = v1::Management::NewStub(channel);
        v1::NodeInfoResponse info;
        ASSERT_TRUE(call(*stub, &v1::Management::Stub::NodeInfo, v1::NodeInfoRequest(), info).ok());
        EXPECT_EQ(clients, info.event_clients());
    }
    server->publish(event(1, EventKind::gate, "open"));
    for (const auto& each : listening) {
        v1::Event message;
        ASSERT_TRUE(each->read(message));
        EXPECT_EQ("open", message.text());
    }
    EXPECT_LT(entriesOf("/proc/self/task"), threadsBefore + 64);
}

TEST_F(ControlServer, LimitOfDescriptorsIsRaisedButNotLowered) {
    const auto limit = [] {
        rlimit now{};
        getrlimit(RLIMIT_NOFILE, &now);
        return now.rlim_cur;
    };
    const Descriptors few(100);
    options.descriptors = 200;
    start();
    EXPECT_EQ(200u, limit());
    server.reset();
    options.descriptors = 150;
    start();
    EXPECT_EQ(200u, limit());
}

TEST_F(ControlServer, FloodOfConnectionsLeavesTheNodeItsDescriptors) {
    constexpr size_t spare = 30;
    options.spareDescriptors = spare;
    start();
    const auto stub = client();
    v1::NodeInfoResponse info;
    ASSERT_TRUE(call(*stub, &v1::Management::Stub::NodeInfo, v1::NodeInfoRequest(), info).ok());
    {
        // Both ends of every connection count here, so the limit is met half-way.
        const Descriptors few(entriesOf("/proc/self/fd") + 100);
        std::vector<std::unique_ptr<RawConnection>> flood;
        for (int i = 0; i < 40; ++i) {
            flood.push_back(std::make_unique<RawConnection>(options.socketPath));
        }
        EXPECT_TRUE(eventually([&] { return flood.back()->closedNow(); }));
        EXPECT_FALSE(flood.front()->closedNow());
        EXPECT_TRUE(call(*stub, &v1::Management::Stub::NodeInfo, v1::NodeInfoRequest(), info).ok());
    }
    EXPECT_TRUE(eventually([&] { return askNode() == StatusCode::OK; }));
}

TEST_F(ControlServer, ServerOutlivesWantOfDescriptors) {
    options.spareDescriptors = 0;
    start();
    {
        const Descriptors few(entriesOf("/proc/self/fd") + 20);
        std::vector<std::unique_ptr<RawConnection>> flood;
        for (int i = 0; i < 40; ++i) {
            flood.push_back(std::make_unique<RawConnection>(options.socketPath));
        }
        EXPECT_FALSE(flood.back()->connected());
    }
    EXPECT_TRUE(eventually([&] { return askNode() == StatusCode::OK; }));
}

}  // namespace
}  // namespace node::control
