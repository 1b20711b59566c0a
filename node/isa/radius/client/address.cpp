#include "node/isa/radius/client/address.h"

#include <arpa/inet.h>

#include <cstring>

namespace node::radius {

namespace {

const sockaddr_in& v4(const SocketAddress& address) {
    return *reinterpret_cast<const sockaddr_in*>(&address.storage);
}

const sockaddr_in6& v6(const SocketAddress& address) {
    return *reinterpret_cast<const sockaddr_in6*>(&address.storage);
}

// IPv4 as a socket of IPv6 shows it: "::ffff:192.0.2.1".
in6_addr asIpv6(const SocketAddress& address) {
    if (address.family() == AF_INET6) {
        return v6(address).sin6_addr;
    }
    in6_addr mapped{};
    mapped.s6_addr[10] = mapped.s6_addr[11] = 0xff;
    memcpy(mapped.s6_addr + 12, &v4(address).sin_addr, sizeof(in_addr));
    return mapped;
}

}  // namespace

uint16_t SocketAddress::port() const {
    return ntohs(family() == AF_INET6 ? v6(*this).sin6_port : v4(*this).sin_port);
}

std::vector<uint8_t> SocketAddress::bytes() const {
    const in6_addr all = asIpv6(*this);
    return {all.s6_addr + (family() == AF_INET6 ? 0 : 12), all.s6_addr + sizeof all.s6_addr};
}

bool SocketAddress::sameHost(const SocketAddress& other) const {
    const in6_addr own = asIpv6(*this);
    const in6_addr others = asIpv6(other);
    return memcmp(&own, &others, sizeof own) == 0;
}

std::optional<SocketAddress> SocketAddress::parse(const std::string& address, uint16_t port) {
    SocketAddress result;
    auto* const four = reinterpret_cast<sockaddr_in*>(&result.storage);
    auto* const six = reinterpret_cast<sockaddr_in6*>(&result.storage);
    if (inet_pton(AF_INET, address.c_str(), &four->sin_addr) == 1) {
        four->sin_family = AF_INET;
        four->sin_port = htons(port);
        result.size = sizeof *four;
        return result;
    }
    if (inet_pton(AF_INET6, address.c_str(), &six->sin6_addr) == 1) {
        six->sin6_family = AF_INET6;
        six->sin6_port = htons(port);
        result.size = sizeof *six;
        return result;
    }
    return std::nullopt;
}

}  // namespace node::radius
