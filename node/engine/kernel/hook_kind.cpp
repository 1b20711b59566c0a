// libbpf asks for no qdisc's kind; one request and its answer are enough. Without "echo" the answer
// goes only to those who listen to all changes; with "ack" there is one even if there is no qdisc.
#include "node/engine/kernel/hook_kind.h"

#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "node/engine/kernel/fd.h"

namespace node {
namespace {

struct Request {
    nlmsghdr header;
    tcmsg body;
};
static_assert(sizeof(Request) == NLMSG_LENGTH(sizeof(tcmsg)));

constexpr size_t answerBytes = 1 << 14;

// The first attribute of that type; empty: none.
std::string attributeOf(const uint8_t* bytes, size_t size, unsigned short type) {
    while (size >= sizeof(rtattr)) {
        rtattr head;
        std::memcpy(&head, bytes, sizeof head);
        if (head.rta_len < sizeof head || head.rta_len > size) {
            break;
        }
        if (head.rta_type == type) {
            const auto* text = reinterpret_cast<const char*>(bytes) + RTA_LENGTH(0);
            return {text, strnlen(text, head.rta_len - RTA_LENGTH(0))};
        }
        const size_t whole = RTA_ALIGN(head.rta_len);
        if (whole >= size) {
            break;
        }
        bytes += whole;
        size -= whole;
    }
    return {};
}

std::string kindIn(const uint8_t* answer, size_t size, int& failure) {
    nlmsghdr header;
    failure = EBADMSG;
    if (size < sizeof header) {
        return {};
    }
    std::memcpy(&header, answer, sizeof header);
    if (header.nlmsg_len > size) {
        return {};
    }
    if (header.nlmsg_type == NLMSG_ERROR && header.nlmsg_len >= NLMSG_LENGTH(sizeof(nlmsgerr))) {
        nlmsgerr refused;
        std::memcpy(&refused, answer + NLMSG_HDRLEN, sizeof refused);
        failure = -refused.error;
        return {};
    }
    if (header.nlmsg_type != RTM_NEWQDISC || header.nlmsg_len < NLMSG_SPACE(sizeof(tcmsg))) {
        return {};
    }
    const size_t before = NLMSG_SPACE(sizeof(tcmsg));
    return attributeOf(answer + before, header.nlmsg_len - before, TCA_KIND);
}

}  // namespace

std::string hookKind(unsigned ifIndex, std::string& error) {
    Request request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETQDISC;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ECHO | NLM_F_ACK;
    request.body.tcm_family = AF_UNSPEC;
    request.body.tcm_ifindex = static_cast<int>(ifIndex);
    request.body.tcm_parent = TC_H_CLSACT;
    std::array<uint8_t, answerBytes> answer{};
    const Fd netlink(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    ssize_t size = -1;
    const timeval patience{2, 0};
    if (netlink &&
        setsockopt(netlink.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) == 0 &&
        send(netlink.get(), &request, sizeof request, 0) > 0) {
        size = recv(netlink.get(), answer.data(), answer.size(), 0);
    }
    int failure = errno;
    std::string kind;
    if (size >= 0) {
        kind = kindIn(answer.data(), static_cast<size_t>(size), failure);
    }
    if (kind.empty()) {
        error = std::string("qdisc: ") + std::strerror(failure);
    }
    return kind;
}

}  // namespace node
