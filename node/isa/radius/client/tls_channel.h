// RADIUS over TLS: one connection to a server that both sides prove by certificate.
// Thread of the reactor.
#pragma once

#include "node/isa/radius/client/address.h"
#include "node/isa/radius/client/channel.h"
#include "node/loop/reactor.h"

struct ssl_ctx_st;

namespace node::radius {

struct TlsFiles {
    std::string authorities;  // PEM; who may have signed the server's certificate
    std::string certificate;  // PEM chain of ours; empty: none
    std::string key;          // PEM; guarded like a file of secrets
};

using TlsContext = std::shared_ptr<ssl_ctx_st>;

// TLS 1.2 or newer. Throws std::runtime_error or SecretFileError with the file's name.
TlsContext makeTlsContext(const TlsFiles& files);

struct TlsSettings {
    TlsContext context;
    SocketAddress server;
    std::string peerName;   // name or address that its certificate must carry
    Time setUp{5'000'000};  // until the connection must stand
};

// The secret to use with it is "radsec" unless the server has another.
MakeChannel tlsChannels(Reactor& reactor, const TlsSettings& settings);

}  // namespace node::radius
