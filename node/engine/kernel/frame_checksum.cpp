// A socket's frame that crosses only virtual interfaces reaches the gate as its sender made it
// for a card that adds the checksum: the field holds the sum of the pseudo-header, not
// complemented. The kernel notes beside the frame what is missing; a copy of the bytes loses that
// note, and the frame would be dropped at its end. So it is completed before it is let in again.
// A sound checksum that happens to equal that sum is computed anew and comes out the same.
//
// Tests: tests/kernel/frame_checksum_test.cpp, reinject_test.cpp.
#include "node/engine/kernel/frame_checksum.h"

#include <cstddef>
#include <optional>

#include "node/engine/match_rules.h"

namespace node {
namespace {

using Bytes = std::span<uint8_t>;

constexpr unsigned typeIpv6 = 0x86dd;
constexpr unsigned tcp = 6;
constexpr unsigned udp = MATCH_IP_UDP;
constexpr size_t tcpHeader = 20;
constexpr size_t ipv4Source = MATCH_IP_SOURCE;
constexpr size_t ipv4Address = 4;
constexpr size_t ipv6Header = 40;
constexpr size_t ipv6Length = 4;
constexpr size_t ipv6Next = 6;
constexpr size_t ipv6Source = 8;
constexpr size_t ipv6Address = 16;
constexpr unsigned hopByHop = 0;
constexpr unsigned destinationOptions = 60;

// What a checksum covers.
struct Segment {
    unsigned protocol;
    Bytes addresses;  // source and destination
    Bytes bytes;
};

uint32_t fold(uint64_t sum) {
    while (sum > 0xffff) {
        sum = (sum & 0xffff) + (sum >> 16);
    }
    return static_cast<uint32_t>(sum);
}

uint64_t sumOf(Bytes bytes) {
    uint64_t sum = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        sum += i % 2 == 0 ? static_cast<unsigned>(bytes[i]) << 8 : bytes[i];
    }
    return sum;
}

std::optional<Segment> segmentOfIpv4(Bytes packet) {
    if (packet.size() < MATCH_IP_MIN_HEADER || packet[0] >> 4 != 4) {
        return std::nullopt;
    }
    const size_t header = (packet[0] & 0x0fU) * 4;
    const size_t total = matchBe16(&packet[MATCH_IP_TOTAL_LENGTH]);
    if (header < MATCH_IP_MIN_HEADER || header > total || total > packet.size() ||
        (matchBe16(&packet[MATCH_IP_FRAGMENT]) & MATCH_IP_FRAGMENT_BITS) != 0) {
        return std::nullopt;
    }
    return Segment{packet[MATCH_IP_PROTOCOL], packet.subspan(ipv4Source, 2 * ipv4Address),
                   packet.subspan(header, total - header)};
}

// Extension headers other than options change what the addresses mean, or the packet's extent.
std::optional<Segment> segmentOfIpv6(Bytes packet) {
    if (packet.size() < ipv6Header || packet[0] >> 4 != 6) {
        return std::nullopt;
    }
    const size_t length = matchBe16(&packet[ipv6Length]);
    if (length > packet.size() - ipv6Header) {
        return std::nullopt;
    }
    unsigned next = packet[ipv6Next];
    Bytes rest = packet.subspan(ipv6Header, length);
    while (next == hopByHop || next == destinationOptions) {
        const size_t size = rest.size() < 2 ? 8 : (rest[1] + 1U) * 8;
        if (rest.size() < size) {
            return std::nullopt;
        }
        next = rest[0];
        rest = rest.subspan(size);
    }
    return Segment{next, packet.subspan(ipv6Source, 2 * ipv6Address), rest};
}

std::optional<Segment> segmentOf(Bytes frame) {
    size_t at = MATCH_ETHER_TYPE;
    while (frame.size() >= at + 2 && matchIsTag(matchBe16(&frame[at]))) {
        at += MATCH_TAG_SIZE;
    }
    if (frame.size() < at + 2) {
        return std::nullopt;
    }
    const unsigned type = matchBe16(&frame[at]);
    const Bytes packet = frame.subspan(at + 2);
    return type == MATCH_TYPE_IPV4 ? segmentOfIpv4(packet)
           : type == typeIpv6      ? segmentOfIpv6(packet)
                                   : std::nullopt;
}

// Where the checksum is; empty: there is none to complete.
std::optional<size_t> placeIn(const Segment& segment) {
    constexpr size_t inUdp = 6;
    constexpr size_t inTcp = 16;
    if (segment.protocol == udp && segment.bytes.size() >= MATCH_UDP_HEADER &&
        matchBe16(&segment.bytes[MATCH_UDP_LENGTH]) == segment.bytes.size()) {
        return inUdp;
    }
    if (segment.protocol == tcp && segment.bytes.size() >= tcpHeader) {
        return inTcp;
    }
    return std::nullopt;
}

}  // namespace

void completeChecksum(std::span<uint8_t> frame) {
    const auto segment = segmentOf(frame);
    const auto place = segment ? placeIn(*segment) : std::nullopt;
    if (!place) {
        return;
    }
    const Bytes bytes = segment->bytes;
    const uint32_t pseudo = fold(sumOf(segment->addresses) + segment->protocol + bytes.size());
    if (matchBe16(&bytes[*place]) != pseudo) {
        return;
    }
    // The sum of the pseudo-header is in its place already.
    uint32_t checksum = ~fold(sumOf(bytes)) & 0xffff;
    if (checksum == 0 && segment->protocol == udp) {
        checksum = 0xffff;  // 0 says that there is none
    }
    bytes[*place] = static_cast<uint8_t>(checksum >> 8);
    bytes[*place + 1] = static_cast<uint8_t>(checksum);
}

}  // namespace node
