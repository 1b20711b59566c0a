// The kernel's half of the classifier: a frame in per-processor scratch memory, taken apart as
// frame.cpp does it, and compared as classify.cpp does it with the same comparisons. It differs
// only in shape: loops are bounded for the verifier, and places are offsets instead of views.
#pragma once

#include <linux/bpf.h>

#include <bpf/bpf_helpers.h>

#include "node/engine/kernel/layout.h"
#include "node/engine/match_rules.h"

// A stretch of the frame; size 0 stands for absent.
struct Stretch {
    uint32_t at;
    uint32_t size;
};

enum OptionField { FIELD_OPTIONS, FIELD_FILE, FIELD_SERVER_NAME };

struct Scratch {
    struct KernelTrap trap;  // directly in front of the frame: both are handed up as one
    uint8_t frame[KERNEL_FRAME + KERNEL_FRAME_SLACK];
    uint32_t size;

    // What the rules look at.
    uint32_t etherType;
    uint32_t outerVlan;
    uint32_t hasOuterVlan;
    uint32_t ipv4Source;
    uint32_t hasIpv4Source;
    uint32_t messageType;
    struct Stretch vendorId;
    struct Stretch remoteId;
    struct Stretch clientId;

    // Where the walks are.
    uint32_t at;
    uint32_t end;
    uint32_t relayEnd;  // inside option 82 until there; 0: outside
    uint32_t field;
    uint32_t overload;
    uint32_t dhcp;
};
KERNEL_ASSERT(sizeof(struct KernelTrap) == offsetof(struct Scratch, frame));

// bpf_loop hands a context on the stack to its callbacks.
struct Walk {
    struct Scratch* scratch;
};

// The mask costs one instruction and shows the verifier that no offset leaves the frame.
static __always_inline const uint8_t* byteAt(const struct Scratch* scratch, uint32_t at) {
    return &scratch->frame[at & (KERNEL_FRAME - 1)];
}

static long passTag(uint32_t turn, struct Walk* walk) {
    struct Scratch* scratch = walk->scratch;
    uint32_t at = scratch->at;
    (void)turn;
    if (scratch->size - at < 2 || !matchIsTag(matchBe16(byteAt(scratch, at)))) {
        return 1;
    }
    at += 2;
    if (scratch->size - at < 2) {
        scratch->at = scratch->size;
        return 1;
    }
    if (!scratch->hasOuterVlan) {
        scratch->outerVlan = matchBe16(byteAt(scratch, at)) & MATCH_VLAN_ID;
        scratch->hasOuterVlan = 1;
    }
    scratch->at = at + 2;
    return 0;
}

static __always_inline void nextField(struct Scratch* scratch, long* done) {
    if (scratch->field == FIELD_OPTIONS && (scratch->overload & MATCH_OVERLOAD_FILE)) {
        scratch->field = FIELD_FILE;
        scratch->at = scratch->dhcp + MATCH_DHCP_FILE;
        scratch->end = scratch->at + MATCH_DHCP_FILE_SIZE;
    } else if (scratch->field != FIELD_SERVER_NAME &&
               (scratch->overload & MATCH_OVERLOAD_SERVER_NAME)) {
        scratch->field = FIELD_SERVER_NAME;
        scratch->at = scratch->dhcp + MATCH_DHCP_SERVER_NAME;
        scratch->end = scratch->at + MATCH_DHCP_SERVER_NAME_SIZE;
    } else {
        *done = 1;
    }
}

static __always_inline void keepFirst(struct Stretch* kept, uint32_t at, uint32_t size) {
    if (kept->size == 0) {
        kept->at = at;
        kept->size = size;
    }
}

// One sub-option of option 82, or the end of that option.
static __always_inline void passSubOption(struct Scratch* scratch) {
    const uint32_t end = scratch->relayEnd;
    uint32_t at = scratch->at;
    if (at < end) {
        const uint32_t code = *byteAt(scratch, at);
        ++at;
        if (at < end) {
            const uint32_t length = *byteAt(scratch, at);
            if (end - at - 1 >= length) {
                ++at;
                if (code == MATCH_RELAY_REMOTE_ID) {
                    keepFirst(&scratch->remoteId, at, length);
                }
                scratch->at = at + length;
                return;
            }
        }
    }
    scratch->at = end;
    scratch->relayEnd = 0;
}

static long passOption(uint32_t turn, struct Walk* walk) {
    struct Scratch* scratch = walk->scratch;
    long done = 0;
    (void)turn;
    if (scratch->relayEnd != 0) {
        passSubOption(scratch);
        return 0;
    }
    uint32_t at = scratch->at;
    const uint32_t end = scratch->end;
    if (at >= end) {
        nextField(scratch, &done);
        return done;
    }
    const uint32_t code = *byteAt(scratch, at);
    ++at;
    if (code == MATCH_OPTION_PAD) {
        scratch->at = at;
        return 0;
    }
    const uint32_t length = *byteAt(scratch, at);
    if (code == MATCH_OPTION_END || at == end || end - at - 1 < length) {
        nextField(scratch, &done);
        return done;
    }
    ++at;
    scratch->at = at + length;
    switch (code) {
        case MATCH_OPTION_OVERLOAD:
            if (scratch->field == FIELD_OPTIONS && scratch->overload == 0 && length == 1) {
                scratch->overload = *byteAt(scratch, at);
            }
            break;
        case MATCH_OPTION_MESSAGE_TYPE:
            if (scratch->messageType == 0 && length == 1) {
                scratch->messageType = *byteAt(scratch, at);
            }
            break;
        case MATCH_OPTION_VENDOR_ID:
            keepFirst(&scratch->vendorId, at, length);
            break;
        case MATCH_OPTION_CLIENT_ID:
            keepFirst(&scratch->clientId, at, length);
            break;
        case MATCH_OPTION_RELAY:
            scratch->at = at;
            scratch->relayEnd = at + length;
            break;
        default:
            break;
    }
    return 0;
}

// Only messages of a client: the rules look at no others.
static __always_inline void parseUdp(struct Scratch* scratch, uint32_t udp, uint32_t size) {
    if (size < MATCH_UDP_HEADER) {
        return;
    }
    const uint8_t* header = byteAt(scratch, udp);
    const uint32_t length = matchBe16(header + MATCH_UDP_LENGTH);
    if (matchBe16(header + MATCH_UDP_DESTINATION) != MATCH_UDP_DHCP_SERVER ||
        length < MATCH_UDP_HEADER) {
        return;
    }
    const uint32_t dhcp = udp + MATCH_UDP_HEADER;
    const uint32_t end = udp + (length < size ? length : size);
    const uint8_t* message = byteAt(scratch, dhcp);
    if (end - dhcp < MATCH_DHCP_OPTIONS ||
        matchBe32(message + MATCH_DHCP_COOKIE) != MATCH_DHCP_COOKIE_VALUE ||
        message[MATCH_DHCP_OPERATION] != MATCH_DHCP_REQUEST) {
        return;
    }
    scratch->dhcp = dhcp;
    scratch->at = dhcp + MATCH_DHCP_OPTIONS;
    scratch->end = end;
    scratch->relayEnd = 0;
    scratch->field = FIELD_OPTIONS;
    scratch->overload = 0;
    struct Walk walk = {scratch};
    // Every turn passes a byte or leaves a field or an option.
    bpf_loop(2 * KERNEL_FRAME, passOption, &walk, 0);
}

static __always_inline void parseIpv4(struct Scratch* scratch, uint32_t ip, uint32_t size) {
    const uint8_t* bytes = byteAt(scratch, ip);
    if (size < MATCH_IP_MIN_HEADER || bytes[0] >> 4 != 4) {
        return;
    }
    const uint32_t header = (bytes[0] & 0x0fU) * 4;
    const uint32_t total = matchBe16(bytes + MATCH_IP_TOTAL_LENGTH);
    if (header < MATCH_IP_MIN_HEADER || header > size || header > total) {
        return;
    }
    scratch->ipv4Source = matchBe32(bytes + MATCH_IP_SOURCE);
    scratch->hasIpv4Source = 1;
    if (bytes[MATCH_IP_PROTOCOL] == MATCH_IP_UDP &&
        (matchBe16(bytes + MATCH_IP_FRAGMENT) & MATCH_IP_FRAGMENT_BITS) == 0) {
        parseUdp(scratch, ip + header, (total < size ? total : size) - header);
    }
}

static __always_inline void parseArp(struct Scratch* scratch, uint32_t arp, uint32_t size) {
    const uint8_t* bytes = byteAt(scratch, arp);
    if (size >= MATCH_ARP_SIZE && matchBe16(bytes + MATCH_ARP_HARDWARE) == MATCH_ARP_ETHERNET &&
        matchBe16(bytes + MATCH_ARP_PROTOCOL) == MATCH_TYPE_IPV4 &&
        bytes[MATCH_ARP_HARDWARE_SIZE] == MATCH_MAC_SIZE && bytes[MATCH_ARP_PROTOCOL_SIZE] == 4) {
        scratch->ipv4Source = matchBe32(bytes + MATCH_ARP_SENDER);
        scratch->hasIpv4Source = 1;
    }
}

// Takes apart the `size` bytes in `frame`; 0 when they hold no Ethernet header.
static __always_inline int parseFrame(struct Scratch* scratch) {
    if (scratch->size < MATCH_ETHER_HEADER || scratch->size > KERNEL_FRAME) {
        return 0;
    }
    scratch->etherType = 0;
    scratch->hasOuterVlan = 0;
    scratch->hasIpv4Source = 0;
    scratch->messageType = 0;
    scratch->vendorId.size = 0;
    scratch->remoteId.size = 0;
    scratch->clientId.size = 0;
    scratch->at = MATCH_ETHER_TYPE;
    struct Walk walk = {scratch};
    bpf_loop(KERNEL_FRAME / MATCH_TAG_SIZE, passTag, &walk, 0);
    const uint32_t at = scratch->at;
    if (scratch->size - at < 2) {
        return 1;
    }
    scratch->etherType = matchBe16(byteAt(scratch, at));
    if (scratch->etherType == MATCH_TYPE_ARP) {
        parseArp(scratch, at + 2, scratch->size - at - 2);
    } else if (scratch->etherType == MATCH_TYPE_IPV4) {
        parseIpv4(scratch, at + 2, scratch->size - at - 2);
    }
    return 1;
}

// Global functions are looked at by the verifier once and not once per call: here the loop over
// a pattern's bytes, below the rule types.
__attribute__((noinline)) int optionBegins(struct Scratch* scratch, struct KernelRule* rule,
                                           uint32_t at, uint32_t size) {
    if (!scratch || !rule || size == 0) {
        return 0;
    }
    return matchPrefix(byteAt(scratch, at), size, rule->u.match.pattern, rule->u.match.length);
}

static __always_inline int matchOption(struct Scratch* scratch, struct KernelRule* rule) {
    if (rule->type == MATCH_VENDOR_ID_RULE) {
        return optionBegins(scratch, rule, scratch->vendorId.at, scratch->vendorId.size);
    }
    if (rule->type == MATCH_REMOTE_ID_RULE) {
        return optionBegins(scratch, rule, scratch->remoteId.at, scratch->remoteId.size);
    }
    const uint32_t at = scratch->clientId.at;
    const uint32_t size = scratch->clientId.size;
    return optionBegins(scratch, rule, at, size) ||
           (size > 1 && optionBegins(scratch, rule, at + 1, size - 1));
}

static __always_inline int matchUserPattern(const struct Scratch* scratch,
                                            const struct KernelRule* rule) {
    for (uint32_t i = 0; i < MATCH_PATTERN_WORDS; ++i) {
        const uint32_t mask = rule->u.user.mask[i];
        if ((mask & ~matchPresentBits(scratch->size, 4 * i)) != 0 ||
            !matchWord(matchBe32(&scratch->frame[4 * i]), rule->u.user.sequence[i], mask)) {
            return 0;
        }
    }
    return 1;
}

__attribute__((noinline)) int ruleMatches(struct Scratch* scratch, struct KernelRule* rule) {
    if (!scratch || !rule || !matchKindIsKnown(rule->type, rule->code, rule->u.match.subCode)) {
        return 0;
    }
    switch (rule->type) {
        case MATCH_ANY_FRAME:
            return 1;
        case MATCH_ETHER_TYPE_RULE:
            return scratch->etherType != 0 && scratch->etherType == rule->u.value;
        case MATCH_SOURCE_MAC_RULE:
            return matchMac(&scratch->frame[MATCH_ETHER_SOURCE], rule->u.mac.addr,
                            rule->u.mac.mask);
        case MATCH_SOURCE_IP_RULE:
            return scratch->hasIpv4Source &&
                   matchWord(scratch->ipv4Source, rule->u.ip.addr, rule->u.ip.mask);
        case MATCH_OUTER_VLAN_RULE:
            return scratch->hasOuterVlan && scratch->outerVlan == rule->u.value;
        case MATCH_USER_PATTERN_RULE:
            return matchUserPattern(scratch, rule);
        case MATCH_DHCP_RULE:
            return scratch->messageType != 0 &&
                   matchSelection(rule->u.match.selection, scratch->messageType);
        default:
            return scratch->messageType != 0 && matchOption(scratch, rule);
    }
}
