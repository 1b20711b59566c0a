// Numeric addresses and ports for sockets. Names are not looked up: a resolver would block.
// Pure.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace node::radius {

struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t size = 0;

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
    int family() const { return storage.ss_family; }
    uint16_t port() const;

    std::vector<uint8_t> bytes() const;  // of the address, as attributes carry it: 4 or 16

    // The address without the port; IPv4 written as IPv6 is the same.
    bool sameHost(const SocketAddress& other) const;

    // An IPv4 or IPv6 address in digits; empty when it is none.
    static std::optional<SocketAddress> parse(const std::string& address, uint16_t port);
};

}  // namespace node::radius
