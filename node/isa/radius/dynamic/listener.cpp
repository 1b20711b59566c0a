// An answer leaves from the address that was asked, which matters when the listener has all
// addresses of a host: the kernel tells the address with each request and takes it back with the
// answer. All addresses of IPv6 are those of IPv4 too, whatever the host's default.
// Tested by tests/radius/scenario/listener_test.cpp and dynamic_test.cpp.
#include "node/isa/radius/dynamic/listener.h"

#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace node::radius {

namespace {

constexpr int packetsPerTurn = 64;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// A datagram, whence it came and, in the kernel's own form, to which address.
class Message {
public:
    ssize_t receive(int socket) {
        part_ = {buffer_.data(), buffer_.size()};
        from.size = sizeof from.storage;
        header_ = {};
        header_.msg_name = &from.storage;
        header_.msg_namelen = from.size;
        header_.msg_iov = &part_;
        header_.msg_iovlen = 1;
        header_.msg_control = control_;
        header_.msg_controllen = sizeof control_;
        const ssize_t size = recvmsg(socket, &header_, MSG_DONTWAIT);
        from.size = header_.msg_namelen;
        datagram = Bytes(buffer_).first(static_cast<size_t>(std::max<ssize_t>(size, 0)));
        return size;
    }

    void answer(int socket, Buffer& answer) {
        part_ = {answer.data(), answer.size()};
        forgetInterface();
        // What is not sent is asked for again.
        (void)sendmsg(socket, &header_, MSG_DONTWAIT);
    }

    SocketAddress from;
    Bytes datagram;

private:
    // The answer's way is the kernel's choice, only its source is not.
    void forgetInterface() {
        for (cmsghdr* head = CMSG_FIRSTHDR(&header_); head; head = CMSG_NXTHDR(&header_, head)) {
            if (head->cmsg_level == IPPROTO_IP && head->cmsg_type == IP_PKTINFO) {
                change<in_pktinfo>(head, [](in_pktinfo& info) { info.ipi_ifindex = 0; });
            } else if (head->cmsg_level == IPPROTO_IPV6 && head->cmsg_type == IPV6_PKTINFO) {
                change<in6_pktinfo>(head, [](in6_pktinfo& info) { info.ipi6_ifindex = 0; });
            }
        }
    }

    template <typename Info, typename Change>
    static void change(cmsghdr* head, Change change) {
        Info info;
        std::memcpy(&info, CMSG_DATA(head), sizeof info);
        change(info);
        std::memcpy(CMSG_DATA(head), &info, sizeof info);
    }

    std::array<uint8_t, longestPacket> buffer_;
    alignas(cmsghdr) char control_[CMSG_SPACE(sizeof(in6_pktinfo))];
    iovec part_{};
    msghdr header_{};
};

void option(const Socket& socket, int level, int name, int value) {
    if (setsockopt(socket.get(), level, name, &value, sizeof value) != 0) {
        fail("option of the socket for CoA and Disconnect");
    }
}

}  // namespace

DynamicListener::DynamicListener(Reactor& reactor, const SocketAddress& address,
                                 DynamicAuthority& authority)
    : reactor_(reactor),
      authority_(authority),
      socket_(::socket(address.family(), SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    if (!socket_) {
        fail("socket for CoA and Disconnect");
    }
    if (address.family() == AF_INET6) {
        option(socket_, IPPROTO_IPV6, IPV6_V6ONLY, 0);
        option(socket_, IPPROTO_IPV6, IPV6_RECVPKTINFO, 1);
    } else {
        option(socket_, IPPROTO_IP, IP_PKTINFO, 1);
    }
    if (bind(socket_.get(), address.get(), address.size) != 0) {
        fail("address for CoA and Disconnect");
    }
    reactor_.watch(socket_.get(), [this] { receive(); });
}

DynamicListener::~DynamicListener() {
    reactor_.unwatch(socket_.get());
}

uint16_t DynamicListener::port() const {
    SocketAddress own;
    own.size = sizeof own.storage;
    if (getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&own.storage), &own.size) != 0) {
        fail("port for CoA and Disconnect");
    }
    return own.port();
}

void DynamicListener::receive() {
    Message message;
    for (int i = 0; i < packetsPerTurn; ++i) {
        if (message.receive(socket_.get()) < 0) {
            return;  // nothing more, or an error that a send earned; the next turn goes on
        }
        if (auto answer = authority_.judge(message.from, message.datagram)) {
            message.answer(socket_.get(), *answer);
        }
    }
}

}  // namespace node::radius
