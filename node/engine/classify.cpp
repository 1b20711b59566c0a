// One comparison per rule type. The numbers and the comparisons themselves stand in
// match_rules.h, where a program in the kernel can use them too; here they meet the frame.
//
// Decisions:
// - Types 2 to 5 look at messages that a client sends: a request to the server's port that
//   names a DHCP message type. Answers, and plain BOOTP, never trigger a login.
// - A client identifier (type 5) begins with a type byte that clients choose: 0, 1 or 255 in
//   practice. A pattern given as text or as a MAC address cannot spell it, a pattern given as
//   raw bytes may. The condition does not say how its pattern was given, so both readings
//   count: the pattern begins the option's bytes as sent, or those behind the type byte.
// - The address of type 7 is the sender's also in an ARP message. A subscriber with a fixed
//   address asks for its gateway first; were that question ignored, the gate would stay closed
//   and no IPv4 packet would ever follow.
// - Type 1 with the value 0 matches nothing: 0 stands for a frame that ends inside its tags.
//
// Tests: tests/unit/node/classify_test.cpp, match_rules_test.cpp; tests/property.
#include "node/engine/classify.h"

#include <algorithm>
#include <cstddef>

#include "node/engine/match_rules.h"

namespace node {
namespace {

using Bytes = std::span<const uint8_t>;

bool beginsWithPattern(Bytes data, const ittalCondition& condition) {
    return !data.empty() && matchPrefix(data.data(), static_cast<uint32_t>(data.size()),
                                        condition.u.match.pattern, condition.u.match.length) != 0;
}

bool matchesDhcp(const DhcpMessage& message, const ittalCondition& condition) {
    if (!message.fromClient || message.messageType == 0) {
        return false;
    }
    switch (condition.type) {
        case MATCH_DHCP_RULE:
            return matchSelection(condition.u.match.selection, message.messageType) != 0;
        case MATCH_VENDOR_ID_RULE:
            return beginsWithPattern(message.vendorId, condition);
        case MATCH_REMOTE_ID_RULE:
            return beginsWithPattern(message.remoteId, condition);
        case MATCH_CLIENT_ID_RULE:
            return beginsWithPattern(message.clientId, condition) ||
                   (!message.clientId.empty() &&
                    beginsWithPattern(message.clientId.subspan(1), condition));
        default:
            return false;
    }
}

bool matchesUserPattern(Bytes frame, const ittalCondition& condition) {
    std::array<uint8_t, MATCH_PATTERN_BYTES> view{};
    const size_t size = std::min(frame.size(), view.size());
    std::copy_n(frame.begin(), size, view.begin());
    for (uint32_t i = 0; i < MATCH_PATTERN_WORDS; ++i) {
        const uint32_t offset = 4 * i;
        const uint32_t mask = condition.u.user.mask[i];
        if ((mask & ~matchPresentBits(static_cast<uint32_t>(size), offset)) != 0 ||
            matchWord(matchBe32(&view[offset]), condition.u.user.sequence[i], mask) == 0) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool matches(const Frame& frame, const ittalCondition& condition) {
    if (matchKindIsKnown(condition.type, condition.code, condition.u.match.subCode) == 0) {
        return false;
    }
    switch (condition.type) {
        case MATCH_ANY_FRAME:
            return true;
        case MATCH_ETHER_TYPE_RULE:
            return frame.etherType != 0 && frame.etherType == condition.u.value;
        case MATCH_SOURCE_MAC_RULE:
            return matchMac(frame.sourceMac.data(), condition.u.mac.addr, condition.u.mac.mask) !=
                   0;
        case MATCH_SOURCE_IP_RULE:
            return frame.ipv4Source &&
                   matchWord(*frame.ipv4Source, condition.u.ip.addr, condition.u.ip.mask) != 0;
        case MATCH_OUTER_VLAN_RULE:
            return frame.outerVlan == condition.u.value;
        case MATCH_USER_PATTERN_RULE:
            return matchesUserPattern(frame.bytes, condition);
        default:
            return frame.dhcp && matchesDhcp(*frame.dhcp, condition);
    }
}

const ittalCondition* firstMatch(const Frame& frame, std::span<const ittalCondition> conditions) {
    const auto found =
        std::find_if(conditions.begin(), conditions.end(),
                     [&](const ittalCondition& condition) { return matches(frame, condition); });
    return found == conditions.end() ? nullptr : &*found;
}

}  // namespace node
