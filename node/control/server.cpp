// The transport's callback interface serves any number of clients with its few threads; a
// thread per call would make a thousand event streams a thousand threads. Connections are
// accepted here and handed over, which a socket file with the right mode and a bound on
// descriptors need. What a client may cost is bounded: message sizes, calls on one connection,
// the memory of the transport, event clients, and the time a silent peer is kept.
//
// Tests: tests/control/server_test.cpp, tls_test.cpp.
#include "node/control/server.h"

#include <grpcpp/ext/proto_server_reflection_plugin.h>
#include <grpcpp/grpcpp.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "node/control/listener.h"
#include "node/control/module_calls.h"
#include "node/control/service.h"

namespace node::control {

namespace {

constexpr int longestRequest = 64 * 1024;
constexpr int callsPerConnection = 100;
constexpr size_t transportMemory = size_t{256} << 20;
constexpr std::chrono::milliseconds hubTick{250};
constexpr std::chrono::seconds endOfCalls{2};

using ServerBuilder = grpc::ServerBuilder;
using FromFd = grpc::ServerBuilder::experimental_type::ExternalConnectionType;
using Handover = std::unique_ptr<grpc::experimental::ExternalConnectionAcceptor>;

int inMs(std::chrono::milliseconds time) {
    return static_cast<int>(time.count());
}

std::shared_ptr<grpc::ServerCredentials> mutualTls(const CertificateFiles& files) {
    const Certificates certificates = loadCertificates(files);
    grpc::SslServerCredentialsOptions options(
        GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
    options.pem_root_certs = certificates.clientCa;
    options.pem_key_cert_pairs = {{certificates.key, certificates.certificate}};
    return grpc::SslServerCredentials(options);
}

void setLimits(ServerBuilder& builder, const ServerOptions& options) {
    builder.SetMaxReceiveMessageSize(longestRequest);
    builder.SetResourceQuota(grpc::ResourceQuota("management").Resize(transportMemory));
    builder.AddChannelArgument(GRPC_ARG_MAX_CONCURRENT_STREAMS, callsPerConnection);
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIME_MS, inMs(options.keepalive));
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, inMs(options.keepalive));
    builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_PERMIT_WITHOUT_CALLS, 1);
    builder.AddChannelArgument(GRPC_ARG_SERVER_HANDSHAKE_TIMEOUT_MS, inMs(options.handshake));
}

std::function<void(int)> handTo(grpc::experimental::ExternalConnectionAcceptor* handover,
                                int listening) {
    return [handover, listening](int fd) {
        grpc::experimental::ExternalConnectionAcceptor::NewConnectionParameters connection;
        connection.listener_fd = listening;
        connection.fd = fd;
        handover->HandleNewConnection(&connection);
    };
}

}  // namespace

struct Server::Parts {
    Parts(const ServiceFunctions& functions, NodeView& view, const ServerOptions& options, Log to)
        : log(std::move(to)),
          module(functions, view),
          events(options.eventsKept, options.maxEventClients, hubTick),
          service(module, view, events, options.stalledFor, log) {}

    ~Parts() {
        if (!socketPath.empty()) {
            unlink(socketPath.c_str());
        }
    }
    Parts(const Parts&) = delete;
    Parts& operator=(const Parts&) = delete;

    void listen(ServerBuilder& builder, Descriptor socket,
                const std::shared_ptr<grpc::ServerCredentials>& credentials) {
        handovers.push_back(
            builder.experimental().AddExternalConnectionAcceptor(FromFd::FROM_FD, credentials));
        const int fd = socket.get();
        listeners.push_back({std::move(socket), handTo(handovers.back().get(), fd)});
    }

    const Log log;
    ModuleCalls module;
    EventHub events;
    Service service;
    std::string socketPath;
    int tcpPort = 0;
    std::vector<Handover> handovers;
    std::vector<Acceptor::Listener> listeners;
    std::unique_ptr<grpc::Server> server;
    std::unique_ptr<Acceptor> acceptor;
};

Server::Server(const ServiceFunctions& functions, NodeView& view, const ServerOptions& options,
               Log log)
    : parts_(std::make_unique<Parts>(functions, view, options, std::move(log))) {
    if (const std::string name = parts_->module.missing(); !name.empty()) {
        throw ServerError("the module has no service function " + name);
    }
    if (options.socketPath.empty() && !options.tcp) {
        throw ServerError("management listens neither on a socket nor on TCP");
    }
    allowDescriptors(options.descriptors);
    grpc::reflection::InitProtoReflectionServerBuilderPlugin();
    ServerBuilder builder;
    setLimits(builder, options);
    builder.RegisterService(&parts_->service);
    try {
        if (options.tcp) {
            const auto credentials = mutualTls(options.tcp->files);
            Descriptor socket = listenTcp(options.tcp->address);
            parts_->tcpPort = portOf(socket);
            parts_->listen(builder, std::move(socket), credentials);
        }
        if (!options.socketPath.empty()) {
            parts_->listen(builder, listenUnix(options.socketPath, options.socketGroup),
                           grpc::InsecureServerCredentials());
            parts_->socketPath = options.socketPath;
        }
    } catch (const CertificateError& error) {
        throw ServerError(error.what());
    } catch (const ListenError& error) {
        throw ServerError(error.what());
    }
    parts_->server = builder.BuildAndStart();
    if (!parts_->server) {
        throw ServerError("the management server does not start");
    }
    parts_->acceptor =
        std::make_unique<Acceptor>(std::move(parts_->listeners), options.spareDescriptors);
}

Server::~Server() {
    parts_->acceptor.reset();
    parts_->events.close();
    if (parts_->server) {
        parts_->server->Shutdown(std::chrono::system_clock::now() + endOfCalls);
    }
}

void Server::publish(LiveEvent event) {
    parts_->events.publish(std::move(event));
}

int Server::tcpPort() const {
    return parts_->tcpPort;
}

}  // namespace node::control
