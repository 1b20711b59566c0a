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

}  // namespace

uint16_t SocketAddress::port() const {
    return ntohs(family() == AF_INET6 ? v6(*this).sin6_port : v4(*this).sin_port);
}

bool SocketAddress::sameHost(const SocketAddress& other) const {
    if (family() != other.family()) {
        return false;
    }
    if (family() == AF_INET6) {
        return memcmp(&v6(*this).sin6_addr, &v6(other).sin6_addr, sizeof(in6_addr)) == 0;
    }
    return v4(*this).sin_addr.s_addr == v4(other).sin_addr.s_addr;
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
