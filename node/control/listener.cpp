// The lowest free number is given to a new descriptor, so a number close to the process's limit
// says that nearly all are taken: such a connection is closed at once, which needs no count of
// connections that come and go. With no number left at all the connection waits in the backlog;
// the thread then looks again after a moment instead of spinning.
//
// Tests: tests/control/listener_test.cpp.
#include "node/control/listener.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "node/text/bytes.h"

namespace node::control {

namespace {

constexpr int backlog = 1024;
constexpr uint32_t highestPort = 65535;
constexpr mode_t socketMode = 0660;
constexpr int exhaustedPauseMs = 50;

[[noreturn]] void fail(const std::string& what, const std::string& why) {
    throw ListenError(what + ": " + why);
}

[[noreturn]] void failErrno(const std::string& what) {
    fail(what, std::strerror(errno));
}

// The socket interface takes every kind of address through one pointer type.
template <class Address>
const sockaddr* anyAddress(const Address& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

sockaddr_un unixAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        fail("management socket " + path,
             "the path has 1 to " + std::to_string(sizeof address.sun_path - 1) + " characters");
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

// A socket of a node that has gone must not keep the next one from starting.
void removeLeftover(const std::string& path, const sockaddr_un& address) {
    struct stat found {};
    if (lstat(path.c_str(), &found) != 0) {
        return;
    }
    if (!S_ISSOCK(found.st_mode)) {
        fail("management socket " + path, "there is a file of that name that is no socket");
    }
    const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connect(probe.get(), anyAddress(address), sizeof address) == 0 || errno != ECONNREFUSED) {
        fail("management socket " + path, "another process listens there");
    }
    if (unlink(path.c_str()) != 0) {
        failErrno("management socket " + path);
    }
}

gid_t groupId(const std::string& name) {
    const group* const found = getgrnam(name.c_str());
    if (found == nullptr) {
        fail("management socket", "there is no group " + name);
    }
    return found->gr_gid;
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    Descriptor old(std::exchange(fd_, other.release()));
    return *this;
}

Descriptor::~Descriptor() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

int Descriptor::release() {
    return std::exchange(fd_, -1);
}

Descriptor listenUnix(const std::string& path, const std::string& group) {
    const std::string what = "management socket " + path;
    const sockaddr_un address = unixAddress(path);
    const gid_t owner = group.empty() ? getegid() : groupId(group);
    removeLeftover(path, address);
    Descriptor listening(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (listening.get() < 0 || bind(listening.get(), anyAddress(address), sizeof address) != 0) {
        failErrno(what);
    }
    // Nobody can connect before listen(), so there is no moment with another mode.
    if ((!group.empty() && chown(path.c_str(), geteuid(), owner) != 0) ||
        chmod(path.c_str(), socketMode) != 0 || listen(listening.get(), backlog) != 0) {
        const int error = errno;
        unlink(path.c_str());
        fail(what, std::strerror(error));
    }
    return listening;
}

Descriptor listenTcp(const std::string& address) {
    const std::string what = "management address " + address;
    const size_t colon = address.rfind(':');
    const auto port = decimalOf(colon == std::string::npos ? "" : address.substr(colon + 1));
    if (colon == 0 || !port || *port > highestPort) {
        fail(what, "expected ADDRESS:PORT or [ADDRESS]:PORT");
    }
    std::string host = address.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    const int error = getaddrinfo(host.c_str(), address.c_str() + colon + 1, &hints, &list);
    if (error != 0) {
        fail(what, std::string("expected ADDRESS:PORT in numbers: ") + gai_strerror(error));
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> found(list, freeaddrinfo);
    Descriptor listening(
        socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP));
    const int on = 1;
    if (listening.get() < 0 ||
        setsockopt(listening.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(listening.get(), found->ai_addr, found->ai_addrlen) != 0 ||
        listen(listening.get(), backlog) != 0) {
        failErrno(what);
    }
    return listening;
}

int portOf(const Descriptor& listening) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (getsockname(listening.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        failErrno("management address");
    }
    char port[NI_MAXSERV] = "";
    const int error =
        getnameinfo(anyAddress(address), length, nullptr, 0, port, sizeof port, NI_NUMERICSERV);
    return error == 0 ? std::stoi(port) : 0;
}

void allowDescriptors(unsigned wanted) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < wanted) {
        limit.rlim_cur = std::min<rlim_t>(wanted, limit.rlim_max);
        (void)setrlimit(RLIMIT_NOFILE, &limit);  // fewer clients can connect then
    }
}

Acceptor::Acceptor(std::vector<Listener> listeners, int spare)
    : listeners_(std::move(listeners)), spare_(spare), stop_(eventfd(0, EFD_CLOEXEC)) {
    thread_ = std::thread([this] { run(); });
}

Acceptor::~Acceptor() {
    eventfd_write(stop_.get(), 1);
    thread_.join();
}

void Acceptor::run() {
    std::vector<pollfd> polled;
    for (const Listener& listener : listeners_) {
        polled.push_back({listener.socket.get(), POLLIN, 0});
    }
    polled.push_back({stop_.get(), POLLIN, 0});
    while (true) {
        if (poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR) {
            return;
        }
        if (polled.back().revents != 0) {
            return;
        }
        for (size_t i = 0; i < listeners_.size(); ++i) {
            if (polled[i].revents != 0 && !acceptOne(listeners_[i])) {
                poll(&polled.back(), 1, exhaustedPauseMs);
            }
        }
    }
}

// False: nothing could be accepted for want of resources.
bool Acceptor::acceptOne(const Listener& listener) {
    Descriptor connection(
        accept4(listener.socket.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (connection.get() < 0) {
        return errno != EMFILE && errno != ENFILE && errno != ENOBUFS && errno != ENOMEM;
    }
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (static_cast<rlim_t>(connection.get()) + static_cast<rlim_t>(spare_) >= limit.rlim_cur) {
        ++refused_;
        return true;
    }
    listener.onConnection(connection.release());
    return true;
}

}  // namespace node::control
