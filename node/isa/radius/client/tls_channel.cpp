// TLS runs on memory: what arrives is put into OpenSSL, what OpenSSL wants sent is kept in a
// buffer until the socket takes it. So there is one place that reads the socket and one that
// writes it, no call of OpenSSL waits for a direction of the socket, and a connection that the
// server has closed raises no SIGPIPE. Packets given before the connection stands wait inside.
// Whatever goes wrong breaks the channel; the server's rules decide what follows. A break that
// shows while sending is told from a timer, since send must not call back.
// Tested by tests/radius/channel_test.cpp, tests/radius/scenario/tls_channel_test.cpp, and against
// FreeRADIUS by the scenario tests.
#include "node/isa/radius/client/tls_channel.h"

#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <array>
#include <cerrno>
#include <stdexcept>

#include "node/isa/radius/client/socket.h"
#include "node/isa/radius/secret_file.h"

namespace node::radius {

namespace {

constexpr size_t readSize = 16 * 1024;
constexpr int readsPerTurn = 16;
constexpr size_t longestBacklog = 2 * 256 * longestPacket;

struct Free {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
    void operator()(BIO* bio) const { BIO_free(bio); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};

[[noreturn]] void fail(const std::string& what) {
    const char* const reason = ERR_reason_error_string(ERR_get_error());
    ERR_clear_error();
    throw std::runtime_error(reason ? what + ": " + reason : what);
}

class TlsChannel : public Channel {
public:
    TlsChannel(Reactor& reactor, const TlsSettings& settings, Socket socket,
               std::unique_ptr<SSL, Free> ssl, Events events);
    ~TlsChannel() override;

    void send(Bytes packet) override;
    bool reliable() const override { return true; }

private:
    enum class State { connecting, handshaking, open, broken };

    void readable();
    void writable();
    void handshake();
    void open();
    void readPackets();
    bool takePackets();
    bool collect();  // what OpenSSL wants sent
    void flush();
    void breakSoon();
    void breakNow();

    Reactor& reactor_;
    const Events events_;
    Socket socket_;
    std::unique_ptr<SSL, Free> ssl_;
    State state_ = State::connecting;
    bool waitsToWrite_ = false;
    Reactor::Timer setUpTimer_;
    std::optional<Reactor::Timer> breakTimer_;
    Buffer waiting_;  // packets for when the connection stands
    Buffer out_;      // for the socket
    Buffer in_;       // the beginning of a packet
};

TlsChannel::TlsChannel(Reactor& reactor, const TlsSettings& settings, Socket socket,
                       std::unique_ptr<SSL, Free> ssl, Events events)
    : reactor_(reactor),
      events_(std::move(events)),
      socket_(std::move(socket)),
      ssl_(std::move(ssl)) {
    // What throws comes first or is taken back: the reactor must not call what was never made.
    reactor_.watch(socket_.get(), [this] { readable(); });
    try {
        reactor_.watchWritable(socket_.get(), [this] { writable(); });
    } catch (...) {
        reactor_.unwatch(socket_.get());
        throw;
    }
    waitsToWrite_ = true;
    setUpTimer_ = reactor_.at(reactor_.now() + settings.setUp, [this] { breakNow(); });
}

TlsChannel::~TlsChannel() {
    if (state_ == State::broken) {
        return;
    }
    if (state_ == State::open) {
        ERR_clear_error();
        // A farewell is polite, not needed.
        (void)SSL_shutdown(ssl_.get());
        (void)collect();
        (void)::send(socket_.get(), out_.data(), out_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    reactor_.cancel(setUpTimer_);
    if (breakTimer_) {
        reactor_.cancel(*breakTimer_);
    }
    reactor_.unwatch(socket_.get());
}

void TlsChannel::breakNow() {
    state_ = State::broken;
    reactor_.cancel(setUpTimer_);
    if (breakTimer_) {
        reactor_.cancel(*breakTimer_);
    }
    reactor_.unwatch(socket_.get());
    events_.broken();
}

void TlsChannel::breakSoon() {
    if (!breakTimer_) {
        breakTimer_ = reactor_.at(reactor_.now(), [this] { breakNow(); });
    }
}

void TlsChannel::send(Bytes packet) {
    if (state_ == State::broken || breakTimer_) {
        return;
    }
    if (state_ != State::open) {
        waiting_.insert(waiting_.end(), packet.begin(), packet.end());
        return;
    }
    ERR_clear_error();
    if (out_.size() > longestBacklog ||
        SSL_write(ssl_.get(), packet.data(), static_cast<int>(packet.size())) <= 0) {
        breakSoon();
        return;
    }
    flush();
}

bool TlsChannel::collect() {
    BIO* const bio = SSL_get_wbio(ssl_.get());
    const size_t pending = BIO_ctrl_pending(bio);
    if (pending == 0) {
        return false;
    }
    const size_t before = out_.size();
    out_.resize(before + pending);
    const int got = BIO_read(bio, out_.data() + before, static_cast<int>(pending));
    out_.resize(before + static_cast<size_t>(got > 0 ? got : 0));
    return got > 0;
}

void TlsChannel::flush() {
    while (collect()) {
    }
    while (!out_.empty()) {
        const ssize_t sent =
            ::send(socket_.get(), out_.data(), out_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0) {
            break;
        }
        out_.erase(out_.begin(), out_.begin() + sent);
    }
    if (!out_.empty() && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
        breakSoon();
        return;
    }
    const bool wait = !out_.empty();
    if (wait && !waitsToWrite_) {
        reactor_.watchWritable(socket_.get(), [this] { writable(); });
    } else if (!wait && waitsToWrite_) {
        reactor_.unwatchWritable(socket_.get());
    }
    waitsToWrite_ = wait;
}

void TlsChannel::writable() {
    if (state_ != State::connecting) {
        flush();
        return;
    }
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0) {
        breakNow();
        return;
    }
    state_ = State::handshaking;
    handshake();
}

void TlsChannel::handshake() {
    ERR_clear_error();
    const int done = SSL_do_handshake(ssl_.get());
    flush();
    if (done == 1) {
        open();
    } else if (SSL_get_error(ssl_.get(), done) != SSL_ERROR_WANT_READ) {
        breakNow();
    }
}

void TlsChannel::open() {
    state_ = State::open;
    reactor_.cancel(setUpTimer_);
    const Buffer packets = std::move(waiting_);
    waiting_.clear();
    for (size_t at = 0; at < packets.size();) {
        const size_t length = size_t{packets[at + 2]} << 8 | packets[at + 3];
        send(Bytes(packets).subspan(at, length));
        at += length;
    }
    readPackets();
}

void TlsChannel::readable() {
    if (state_ == State::connecting) {
        return;  // an error; the other direction reports it, too
    }
    std::array<uint8_t, readSize> buffer;
    for (int i = 0; i < readsPerTurn; ++i) {
        const ssize_t got = recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
            return;
        }
        if (got <= 0 || BIO_write(SSL_get_rbio(ssl_.get()), buffer.data(), static_cast<int>(got)) !=
                            static_cast<int>(got)) {
            breakNow();
            return;
        }
        if (state_ == State::handshaking) {
            handshake();
        } else {
            readPackets();
        }
        if (state_ == State::broken) {
            return;
        }
    }
}

void TlsChannel::readPackets() {
    std::array<uint8_t, readSize> buffer;
    while (true) {
        ERR_clear_error();
        const int got = SSL_read(ssl_.get(), buffer.data(), static_cast<int>(buffer.size()));
        if (got <= 0) {
            const bool more = SSL_get_error(ssl_.get(), got) == SSL_ERROR_WANT_READ;
            flush();  // an answer of TLS itself
            if (!more) {
                breakNow();
            }
            return;
        }
        in_.insert(in_.end(), buffer.begin(), buffer.begin() + got);
        if (!takePackets()) {
            breakNow();
            return;
        }
    }
}

// False when a length cannot be right, after which no packet can be told from the next.
bool TlsChannel::takePackets() {
    size_t at = 0;
    while (in_.size() - at >= 4) {
        const size_t length = size_t{in_[at + 2]} << 8 | in_[at + 3];
        if (length < headerSize || length > longestPacket) {
            return false;
        }
        if (in_.size() - at < length) {
            break;
        }
        events_.received(Bytes(in_).subspan(at, length));
        at += length;
    }
    in_.erase(in_.begin(), in_.begin() + static_cast<ptrdiff_t>(at));
    return true;
}

void useKey(SSL_CTX* context, const TlsFiles& files) {
    const Secret text = readGuardedFile(files.key);
    const std::unique_ptr<BIO, Free> bio(
        BIO_new_mem_buf(text.reveal().data(), static_cast<int>(text.reveal().size())));
    // No callback: a key with a passphrase is refused rather than asked for on a terminal.
    const std::unique_ptr<EVP_PKEY, Free> key(
        bio ? PEM_read_bio_PrivateKey(
                  bio.get(), nullptr, [](char*, int, int, void*) { return -1; }, nullptr)
            : nullptr);
    if (!key || SSL_CTX_use_PrivateKey(context, key.get()) != 1) {
        fail(files.key);
    }
}

std::unique_ptr<SSL, Free> makeSsl(const TlsSettings& settings) {
    std::unique_ptr<SSL, Free> ssl(SSL_new(settings.context.get()));
    std::unique_ptr<BIO, Free> in(BIO_new(BIO_s_mem()));
    std::unique_ptr<BIO, Free> out(BIO_new(BIO_s_mem()));
    if (!ssl || !in || !out) {
        return nullptr;
    }
    X509_VERIFY_PARAM* const verify = SSL_get0_param(ssl.get());
    const char* const name = settings.peerName.c_str();
    if (X509_VERIFY_PARAM_set1_ip_asc(verify, name) != 1) {
        // What SSL_set_tlsext_host_name does, whose macro holds a cast of the old kind.
        std::string shown = settings.peerName;
        if (settings.peerName.empty() || SSL_set1_host(ssl.get(), name) != 1 ||
            SSL_ctrl(ssl.get(), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                     shown.data()) != 1) {
            return nullptr;
        }
    }
    SSL_set_bio(ssl.get(), in.release(), out.release());
    SSL_set_connect_state(ssl.get());
    return ssl;
}

}  // namespace

TlsContext makeTlsContext(const TlsFiles& files) {
    ERR_clear_error();
    const TlsContext context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    if (!context || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1) {
        fail("TLS");
    }
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    if (SSL_CTX_load_verify_locations(context.get(), files.authorities.c_str(), nullptr) != 1) {
        fail(files.authorities);
    }
    if (!files.certificate.empty()) {
        if (SSL_CTX_use_certificate_chain_file(context.get(), files.certificate.c_str()) != 1) {
            fail(files.certificate);
        }
        useKey(context.get(), files);
    }
    return context;
}

MakeChannel tlsChannels(Reactor& reactor, const TlsSettings& settings) {
    return [&reactor, settings](Channel::Events events) -> std::unique_ptr<Channel> {
        std::unique_ptr<SSL, Free> ssl = makeSsl(settings);
        Socket socket(
            ::socket(settings.server.family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (!ssl || !socket) {
            return nullptr;
        }
        const int on = 1;
        // Slower without it, but no failure.
        (void)setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        if (connect(socket.get(), settings.server.get(), settings.server.size) != 0 &&
            errno != EINPROGRESS) {
            return nullptr;
        }
        return std::make_unique<TlsChannel>(reactor, settings, std::move(socket), std::move(ssl),
                                            std::move(events));
    };
}

}  // namespace node::radius
