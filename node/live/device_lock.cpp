// An abstract Unix socket's name belongs to one socket of the network namespace, as the device
// does, needs no directory and no privilege, and is free again when its process is gone. A file
// would need a place that every user of the three capabilities may write, and the namespace in
// its name. Nobody is ever accepted on the socket; it listens so that whoever is refused can ask
// the kernel for the process behind it.
//
// Tests: tests/unit/node_host/second_node_test.cpp.
#include "node/live/device_lock.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

namespace node {

namespace {

constexpr char prefix[] = "talnode device ";

struct Name {
    sockaddr_un address{};
    socklen_t size = 0;
};

Name nameOf(const std::string& what) {
    Name name;
    name.address.sun_family = AF_UNIX;
    const std::string text = prefix + what;
    const size_t length = std::min(text.size(), sizeof name.address.sun_path - 1);
    // The end of a long path tells more than its beginning.
    std::copy(text.end() - static_cast<std::ptrdiff_t>(length), text.end(),
              name.address.sun_path + 1);
    name.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
    return name;
}

const sockaddr* plain(const Name& name) {
    return reinterpret_cast<const sockaddr*>(&name.address);
}

// The process that has the name; 0 when it cannot be told.
pid_t ownerOf(const Name& name) {
    const Fd asking(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    ucred peer{};
    socklen_t size = sizeof peer;
    if (!asking || connect(asking.get(), plain(name), name.size) != 0 ||
        getsockopt(asking.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        return 0;
    }
    return peer.pid;
}

}  // namespace

std::optional<DeviceLock> DeviceLock::take(const std::string& what, std::string& error) {
    const Name name = nameOf(what);
    Fd own(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (own && bind(own.get(), plain(name), name.size) == 0 && listen(own.get(), 1) == 0) {
        return DeviceLock(std::move(own));
    }
    const int failure = errno;
    error = what + ": ";
    if (failure == EADDRINUSE) {
        const pid_t owner = ownerOf(name);
        error += "another talnode is running on it";
        error += owner > 0 ? " (process " + std::to_string(owner) + ")" : "";
    } else {
        error += std::string("cannot be locked: ") + std::strerror(failure);
    }
    return std::nullopt;
}

}  // namespace node
