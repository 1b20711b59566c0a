// Lengths are the sender's claims, so every step is checked against the bytes there are. Records
// are copied out before they are read: a datagram promises no alignment to the compiler.
//
// A bridge reports a port that leaves it with the same message type as an interface that is
// gone; only messages of no particular family speak of the interface itself.
#include "node/engine/kernel/link_message.h"

#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace node {
namespace {

using Bytes = std::span<const uint8_t>;

constexpr size_t alignment = 4;

// Switched on, operational, and the link there right now: the kernel moves the second of them
// up to a second after the third.
constexpr unsigned upFlags = IFF_UP | IFF_RUNNING | IFF_LOWER_UP;

template <typename Record>
std::optional<Record> head(Bytes bytes) {
    if (bytes.size() < sizeof(Record)) {
        return std::nullopt;
    }
    Record record;
    std::memcpy(&record, bytes.data(), sizeof record);
    return record;
}

Bytes behind(Bytes bytes, size_t size) {
    const size_t aligned = (size + alignment - 1) / alignment * alignment;
    return bytes.subspan(std::min(aligned, bytes.size()));
}

// Takes the next attribute off the front; empty at the end and at a damaged one.
std::optional<std::pair<uint16_t, Bytes>> nextAttribute(Bytes& bytes) {
    const auto attribute = head<rtattr>(bytes);
    if (!attribute || attribute->rta_len < sizeof(rtattr) || attribute->rta_len > bytes.size()) {
        return std::nullopt;
    }
    const Bytes data = bytes.subspan(sizeof(rtattr), attribute->rta_len - sizeof(rtattr));
    bytes = behind(bytes, attribute->rta_len);
    return std::pair{attribute->rta_type, data};
}

std::optional<LinkMessage> decodeLink(uint16_t type, Bytes body) {
    const auto info = head<ifinfomsg>(body);
    if (!info || info->ifi_family != AF_UNSPEC || info->ifi_index <= 0) {
        return std::nullopt;
    }
    LinkMessage message;
    message.kind = type == RTM_DELLINK ? LinkMessage::Kind::gone : LinkMessage::Kind::present;
    message.ifIndex = static_cast<unsigned>(info->ifi_index);
    message.up = (info->ifi_flags & upFlags) == upFlags;
    Bytes attributes = behind(body, sizeof *info);
    while (const auto attribute = nextAttribute(attributes)) {
        const auto& [kind, data] = *attribute;
        if (kind == IFLA_IFNAME) {
            message.name.assign(data.begin(), std::find(data.begin(), data.end(), 0));
        } else if (kind == IFLA_CARRIER_DOWN_COUNT) {
            message.carrierDowns = head<uint32_t>(data).value_or(0);
        }
    }
    return message.name.empty() ? std::nullopt : std::optional(message);
}

std::optional<LinkMessage> decodeError(Bytes body) {
    const auto error = head<nlmsgerr>(body);
    if (!error || error->error == 0) {
        return std::nullopt;
    }
    LinkMessage message;
    message.kind = LinkMessage::Kind::error;
    message.error = -error->error;
    return message;
}

std::optional<LinkMessage> decode(const nlmsghdr& header, Bytes body) {
    LinkMessage end;
    switch (header.nlmsg_type) {
        case RTM_NEWLINK:
        case RTM_DELLINK:
            return decodeLink(header.nlmsg_type, body);
        case NLMSG_ERROR:
            return decodeError(body);
        case NLMSG_DONE:
            end.kind = LinkMessage::Kind::endOfList;
            return end;
        default:
            return std::nullopt;
    }
}

}  // namespace

std::vector<LinkMessage> decodeLinkMessages(Bytes datagram) {
    std::vector<LinkMessage> messages;
    while (const auto header = head<nlmsghdr>(datagram)) {
        if (header->nlmsg_len < sizeof *header || header->nlmsg_len > datagram.size()) {
            break;
        }
        const Bytes body = datagram.subspan(sizeof *header, header->nlmsg_len - sizeof *header);
        if (auto message = decode(*header, body)) {
            message->listChanged = (header->nlmsg_flags & NLM_F_DUMP_INTR) != 0;
            messages.push_back(std::move(*message));
        }
        datagram = behind(datagram, header->nlmsg_len);
    }
    return messages;
}

}  // namespace node
