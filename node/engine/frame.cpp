// Takes a frame apart from the outside in: tags, then ARP or IPv4, then UDP and DHCP. Each step
// sees only the bytes that the step before left to it, so no length inside a frame can lead out
// of the frame, and padding behind a short packet is never read as a part of it.
//
// How damage is told from absence:
// - A header counts only when it is whole. An IPv4 header must also say version 4, a length of
//   at least 20 and a total length that holds it. Checksums are not verified: offloading cards
//   hand up frames without them.
// - A packet longer than the frame (a capture cut it off) is read as far as the frame goes.
// - Option walks stop at the first option that does not fit; what was found before stays.
//
// DHCP options may stand in any order. With option 52 the fields "file" and then "sname" are
// read as further option fields, in this order, after the options proper. An option that occurs
// again is ignored: the first one that carries any data counts. Parts of one long option spread
// over several are therefore not joined; the rules compare beginnings, at most 255 bytes, and
// joining would need a buffer that a program in the kernel does not have.
//
// Tests: tests/unit/node/frame_test.cpp, dhcp_frame_test.cpp; tests/property.
#include "node/engine/frame.h"

#include <algorithm>
#include <cstddef>

#include "node/engine/match_rules.h"

namespace node {
namespace {

using Bytes = std::span<const uint8_t>;

std::array<uint8_t, 6> macAt(Bytes bytes, size_t offset) {
    std::array<uint8_t, 6> mac;
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), mac.size(), mac.begin());
    return mac;
}

// Passes the tags and leaves the EtherType behind them; returns what follows that type.
Bytes parseTags(Bytes bytes, Frame& frame) {
    size_t at = MATCH_ETHER_TYPE;
    while (bytes.size() - at >= 2 && matchIsTag(matchBe16(&bytes[at]))) {
        at += 2;
        if (bytes.size() - at < 2) {
            return {};
        }
        if (!frame.outerVlan) {
            frame.outerVlan = static_cast<uint16_t>(matchBe16(&bytes[at]) & MATCH_VLAN_ID);
        }
        at += 2;
    }
    if (bytes.size() - at < 2) {
        return {};
    }
    frame.etherType = static_cast<uint16_t>(matchBe16(&bytes[at]));
    return bytes.subspan(at + 2);
}

std::optional<uint32_t> arpSender(Bytes arp) {
    if (arp.size() < MATCH_ARP_SIZE || matchBe16(&arp[MATCH_ARP_HARDWARE]) != MATCH_ARP_ETHERNET ||
        matchBe16(&arp[MATCH_ARP_PROTOCOL]) != MATCH_TYPE_IPV4 ||
        arp[MATCH_ARP_HARDWARE_SIZE] != MATCH_MAC_SIZE ||
        arp[MATCH_ARP_PROTOCOL_SIZE] != sizeof(uint32_t)) {
        return std::nullopt;
    }
    return matchBe32(&arp[MATCH_ARP_SENDER]);
}

// Visits (code, data) of every whole option. Only a field of DHCP options knows pad and end;
// among the sub-options of option 82 their numbers are ordinary codes.
enum class Padding { padAndEnd, none };

template <typename Visit>
void walkOptions(Bytes field, Padding padding, Visit visit) {
    size_t at = 0;
    while (at < field.size()) {
        const uint8_t code = field[at++];
        if (padding == Padding::padAndEnd) {
            if (code == MATCH_OPTION_PAD) {
                continue;
            }
            if (code == MATCH_OPTION_END) {
                return;
            }
        }
        if (at == field.size() || field.size() - at - 1 < field[at]) {
            return;
        }
        const size_t length = field[at++];
        visit(code, field.subspan(at, length));
        at += length;
    }
}

void keepFirst(Bytes& kept, Bytes data) {
    if (kept.empty()) {
        kept = data;
    }
}

// Returns the overload bits of the field (option 52), 0 when it has none.
unsigned parseOptions(Bytes field, DhcpMessage& message) {
    unsigned overload = 0;
    walkOptions(field, Padding::padAndEnd, [&](uint8_t code, Bytes data) {
        switch (code) {
            case MATCH_OPTION_OVERLOAD:
                if (overload == 0 && data.size() == 1) {
                    overload = data[0];
                }
                break;
            case MATCH_OPTION_MESSAGE_TYPE:
                if (message.messageType == 0 && data.size() == 1) {
                    message.messageType = data[0];
                }
                break;
            case MATCH_OPTION_VENDOR_ID:
                keepFirst(message.vendorId, data);
                break;
            case MATCH_OPTION_CLIENT_ID:
                keepFirst(message.clientId, data);
                break;
            case MATCH_OPTION_RELAY:
                walkOptions(data, Padding::none, [&](uint8_t subCode, Bytes subData) {
                    if (subCode == MATCH_RELAY_REMOTE_ID) {
                        keepFirst(message.remoteId, subData);
                    }
                });
                break;
            default:
                break;
        }
    });
    return overload;
}

std::optional<DhcpMessage> parseDhcp(Bytes bytes, uint32_t destinationPort) {
    if (bytes.size() < MATCH_DHCP_OPTIONS ||
        matchBe32(&bytes[MATCH_DHCP_COOKIE]) != MATCH_DHCP_COOKIE_VALUE) {
        return std::nullopt;
    }
    DhcpMessage message;
    message.fromClient = bytes[MATCH_DHCP_OPERATION] == MATCH_DHCP_REQUEST &&
                         destinationPort == MATCH_UDP_DHCP_SERVER;
    if (bytes[MATCH_DHCP_HARDWARE_SIZE] == MATCH_MAC_SIZE) {
        message.clientMac = macAt(bytes, MATCH_DHCP_CLIENT_MAC);
    }
    const unsigned overload = parseOptions(bytes.subspan(MATCH_DHCP_OPTIONS), message);
    if ((overload & MATCH_OVERLOAD_FILE) != 0) {
        parseOptions(bytes.subspan(MATCH_DHCP_FILE, MATCH_DHCP_FILE_SIZE), message);
    }
    if ((overload & MATCH_OVERLOAD_SERVER_NAME) != 0) {
        parseOptions(bytes.subspan(MATCH_DHCP_SERVER_NAME, MATCH_DHCP_SERVER_NAME_SIZE), message);
    }
    return message;
}

std::optional<DhcpMessage> parseUdp(Bytes udp) {
    if (udp.size() < MATCH_UDP_HEADER) {
        return std::nullopt;
    }
    const uint32_t port = matchBe16(&udp[MATCH_UDP_DESTINATION]);
    const size_t length = matchBe16(&udp[MATCH_UDP_LENGTH]);
    if ((port != MATCH_UDP_DHCP_SERVER && port != MATCH_UDP_DHCP_CLIENT) ||
        length < MATCH_UDP_HEADER) {
        return std::nullopt;
    }
    return parseDhcp(udp.first(std::min(length, udp.size())).subspan(MATCH_UDP_HEADER), port);
}

void parseIpv4(Bytes ip, Frame& frame) {
    if (ip.size() < MATCH_IP_MIN_HEADER || ip[0] >> 4 != 4) {
        return;
    }
    const size_t header = (ip[0] & 0x0fU) * sizeof(uint32_t);
    const size_t total = matchBe16(&ip[MATCH_IP_TOTAL_LENGTH]);
    if (header < MATCH_IP_MIN_HEADER || header > ip.size() || header > total) {
        return;
    }
    frame.ipv4Source = matchBe32(&ip[MATCH_IP_SOURCE]);
    if (ip[MATCH_IP_PROTOCOL] == MATCH_IP_UDP &&
        (matchBe16(&ip[MATCH_IP_FRAGMENT]) & MATCH_IP_FRAGMENT_BITS) == 0) {
        frame.dhcp = parseUdp(ip.first(std::min(total, ip.size())).subspan(header));
    }
}

}  // namespace

std::optional<Frame> parseFrame(std::span<const uint8_t> bytes) {
    if (bytes.size() < MATCH_ETHER_HEADER) {
        return std::nullopt;
    }
    Frame frame;
    frame.bytes = bytes;
    frame.destinationMac = macAt(bytes, MATCH_ETHER_DESTINATION);
    frame.sourceMac = macAt(bytes, MATCH_ETHER_SOURCE);
    const Bytes payload = parseTags(bytes, frame);
    if (frame.etherType == MATCH_TYPE_ARP) {
        frame.ipv4Source = arpSender(payload);
    } else if (frame.etherType == MATCH_TYPE_IPV4) {
        parseIpv4(payload, frame);
    }
    return frame;
}

}  // namespace node
