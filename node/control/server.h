// The management server: a gRPC service over the module's service functions, on a Unix socket
// and, with mutual TLS only, on TCP. Calls arrive on threads of its own, bounded in number.
// Started and stopped by one thread; publish() may be called from any.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "node/control/certificates.h"
#include "node/control/event_hub.h"
#include "node/control/node_view.h"

namespace node::control {

struct ServiceFunctions;

struct ServerOptions {
    struct Tcp {
        std::string address;  // "192.0.2.1:7443"; port 0: any
        CertificateFiles files;
    };

    std::string socketPath = "/run/tal/control.sock";  // empty: no Unix socket
    std::string socketGroup;                           // empty: the process's own
    std::optional<Tcp> tcp;

    size_t eventsKept = 4096;  // what a client may lag behind before it is dropped
    size_t maxEventClients = 2000;
    std::chrono::milliseconds stalledFor{5000};  // then a client that is lost is cut off
    std::chrono::milliseconds keepalive{20000};  // a silent peer is asked, and given up
    std::chrono::milliseconds handshake{10000};  // a peer that says nothing is given up
    unsigned descriptors = 4096;  // the process's limit is raised to it, if it is lower
    int spareDescriptors = 64;    // left to the rest of the node
};

class ServerError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Server {
public:
    using Log = std::function<void(const std::string& line)>;  // from any thread

    // Listens on return. Everything given must outlive the server. Throws ServerError with the
    // text for the operator.
    Server(const ServiceFunctions& functions, NodeView& view, const ServerOptions& options,
           Log log);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server();  // ends streams and calls, removes the socket file; no call runs afterwards

    // Hands an event to all who listen; never waits for one of them.
    void publish(LiveEvent event);

    int tcpPort() const;  // 0: none

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace node::control
