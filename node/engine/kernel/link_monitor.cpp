// One socket: it is a member of the group for changes before the list of what is there is asked
// for, so nothing falls between. When the kernel had to drop changes (ENOBUFS), or says that the
// list changed while it was made, the list is asked for again, and what is no longer on it is
// gone. It is asked for only when nothing is left to read: until then the kernel drops changes
// without saying so again. An interface is followed by name; the index decides which messages
// belong together, so a renamed interface is gone under one name and there under the other.
//
// A link that is lost and back between two reads leaves only one message "up", but its count of
// losses has moved: that is reported as `down` and `up`.
//
// Tests: tests/kernel/link_message_test.cpp, link_monitor_test.cpp.
#include "node/engine/kernel/link_monitor.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

namespace node {
namespace {

constexpr int receiveBuffer = 1 << 20;
constexpr size_t datagramBytes = 1 << 16;

}  // namespace

std::unique_ptr<LinkMonitor> LinkMonitor::open(Changed changed, std::string& error) {
    std::unique_ptr<LinkMonitor> monitor(new LinkMonitor(std::move(changed)));
    monitor->socket_ =
        Fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK;
    if (!monitor->socket_ ||
        bind(monitor->socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
            0) {
        error = std::string("link events: ") + std::strerror(errno);
        return nullptr;
    }
    // A small buffer costs only a second list.
    (void)setsockopt(monitor->socket_.get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer,
                     sizeof receiveBuffer);
    if (!monitor->askForList(error)) {
        return nullptr;
    }
    return monitor;
}

bool LinkMonitor::askForList(std::string& error) {
    struct {
        nlmsghdr header;
        ifinfomsg body;
    } request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETLINK;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.header.nlmsg_seq = ++sequence_;
    request.body.ifi_family = AF_UNSPEC;
    if (send(socket_.get(), &request, sizeof request, 0) < 0) {
        error = std::string("list of interfaces: ") + std::strerror(errno);
        return false;
    }
    for (auto& [ifIndex, interface] : interfaces_) {
        interface.listed = false;
    }
    listing_ = true;
    listAgain_ = false;
    return true;
}

bool LinkMonitor::read(std::string& error) {
    std::vector<uint8_t> buffer(datagramBytes);
    while (true) {
        const ssize_t size = recv(socket_.get(), buffer.data(), buffer.size(), 0);
        const int failure = size < 0 ? errno : 0;
        if (failure == EAGAIN || failure == EWOULDBLOCK) {
            if (listing_ || !listAgain_) {
                return true;
            }
            if (!askForList(error)) {
                return false;
            }
        } else if (failure == ENOBUFS) {
            listAgain_ = true;
        } else if (failure != 0 && failure != EINTR) {
            error = std::string("link events: ") + std::strerror(failure);
            return false;
        } else if (size > 0 && !take(std::span(buffer).first(static_cast<size_t>(size)), error)) {
            return false;
        }
    }
}

bool LinkMonitor::take(std::span<const uint8_t> datagram, std::string& error) {
    for (const LinkMessage& message : decodeLinkMessages(datagram)) {
        listAgain_ = listAgain_ || message.listChanged;
        switch (message.kind) {
            case LinkMessage::Kind::present:
                present(message);
                break;
            case LinkMessage::Kind::gone:
                gone(message.ifIndex);
                break;
            case LinkMessage::Kind::endOfList:
                finishList();
                break;
            case LinkMessage::Kind::error:
                error = std::string("list of interfaces: ") + std::strerror(message.error);
                return false;
        }
    }
    return true;
}

void LinkMonitor::present(const LinkMessage& message) {
    const LinkState state{message.ifIndex, message.up, message.carrierDowns};
    const auto found = interfaces_.find(message.ifIndex);
    if (found != interfaces_.end() && found->second.name != message.name) {
        gone(message.ifIndex);
    }
    interfaces_[message.ifIndex] = Interface{message.name, state, true};
    move(message.name, state);
}

void LinkMonitor::gone(unsigned ifIndex) {
    const auto found = interfaces_.find(ifIndex);
    if (found == interfaces_.end()) {
        return;
    }
    const std::string name = found->second.name;
    interfaces_.erase(found);
    const auto watched = watched_.find(name);
    if (watched != watched_.end() && watched->second && watched->second->ifIndex == ifIndex) {
        move(name, std::nullopt);
    }
}

void LinkMonitor::finishList() {
    listing_ = false;
    std::vector<unsigned> missing;
    for (const auto& [ifIndex, interface] : interfaces_) {
        if (!interface.listed) {
            missing.push_back(ifIndex);
        }
    }
    for (const unsigned ifIndex : missing) {
        gone(ifIndex);
    }
}

void LinkMonitor::move(const std::string& name, const std::optional<LinkState>& to) {
    const auto watched = watched_.find(name);
    if (watched == watched_.end()) {
        return;
    }
    const std::optional<LinkState> from = watched->second;
    watched->second = to;
    const bool same = from && to && from->ifIndex == to->ifIndex;
    const bool flapped = same && from->up && to->up && from->carrierDowns != to->carrierDowns;
    const bool wasUp = from && from->up;
    if (wasUp && (!same || !to->up || flapped)) {
        changed_(name, LinkEvent::down, same ? *to : *from);
    }
    if (from && !same) {
        changed_(name, LinkEvent::gone, *from);
    }
    if (to && !same) {
        changed_(name, LinkEvent::appeared, *to);
    }
    if (to && to->up && (!same || !wasUp || flapped)) {
        changed_(name, LinkEvent::up, *to);
    }
}

void LinkMonitor::watch(const std::string& name) {
    if (!watched_.emplace(name, std::nullopt).second) {
        return;
    }
    for (const auto& [ifIndex, interface] : interfaces_) {
        if (interface.name == name) {
            move(name, interface.state);
            return;
        }
    }
}

std::optional<LinkState> LinkMonitor::state(const std::string& name) const {
    const auto watched = watched_.find(name);
    return watched == watched_.end() ? std::nullopt : watched->second;
}

}  // namespace node
