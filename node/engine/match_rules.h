// Where the fields lie that the rules look at, what the rules' numbers mean, and the few
// comparisons they need. Plain C on purpose: the user-space classifier and a program for the
// kernel's traffic hook take the same meaning from here. Pure; the caller checks the bounds.
#pragma once

#include <stdint.h>

#define MATCH_ALL_BITS 0xffffffffU

// One enumeration, so that the numbers can be added to each other without a cast.
enum {
    // Ethernet: destination 0, source 6, then tags, then the type. A tag is the tag's own type,
    // two bytes whose low 12 bits are the VLAN id, and again a type.
    MATCH_ETHER_DESTINATION = 0,
    MATCH_ETHER_SOURCE = 6,
    MATCH_ETHER_TYPE = 12,
    MATCH_ETHER_HEADER = 14,
    MATCH_MAC_SIZE = 6,
    MATCH_TAG_SIZE = 4,
    MATCH_VLAN_ID = 0x0fff,
    MATCH_TYPE_IPV4 = 0x0800,
    MATCH_TYPE_ARP = 0x0806,
    MATCH_TYPE_VLAN = 0x8100,
    MATCH_TYPE_SERVICE_VLAN = 0x88a8,
    MATCH_TYPE_OLD_QINQ = 0x9100,

    // ARP for IPv4 over Ethernet; offsets from its first byte.
    MATCH_ARP_HARDWARE = 0,
    MATCH_ARP_PROTOCOL = 2,
    MATCH_ARP_HARDWARE_SIZE = 4,
    MATCH_ARP_PROTOCOL_SIZE = 5,
    MATCH_ARP_SENDER = 14,
    MATCH_ARP_SIZE = 28,
    MATCH_ARP_ETHERNET = 1,

    // IPv4 and UDP; offsets from the first byte of their headers.
    MATCH_IP_MIN_HEADER = 20,
    MATCH_IP_TOTAL_LENGTH = 2,
    MATCH_IP_FRAGMENT = 6,
    MATCH_IP_PROTOCOL = 9,
    MATCH_IP_SOURCE = 12,
    MATCH_IP_FRAGMENT_BITS = 0x3fff,  // more fragments, or an offset
    MATCH_IP_UDP = 17,
    MATCH_UDP_DESTINATION = 2,
    MATCH_UDP_LENGTH = 4,
    MATCH_UDP_HEADER = 8,
    MATCH_UDP_DHCP_SERVER = 67,
    MATCH_UDP_DHCP_CLIENT = 68,

    // DHCP; offsets from the first byte of the message.
    MATCH_DHCP_OPERATION = 0,
    MATCH_DHCP_HARDWARE_SIZE = 2,
    MATCH_DHCP_CLIENT_MAC = 28,
    MATCH_DHCP_SERVER_NAME = 44,
    MATCH_DHCP_SERVER_NAME_SIZE = 64,
    MATCH_DHCP_FILE = 108,
    MATCH_DHCP_FILE_SIZE = 128,
    MATCH_DHCP_COOKIE = 236,
    MATCH_DHCP_OPTIONS = 240,
    MATCH_DHCP_COOKIE_VALUE = 0x63825363,
    MATCH_DHCP_REQUEST = 1,
    MATCH_DHCP_DISCOVER = 1,
    MATCH_OPTION_PAD = 0,
    MATCH_OPTION_OVERLOAD = 52,
    MATCH_OPTION_MESSAGE_TYPE = 53,
    MATCH_OPTION_VENDOR_ID = 60,
    MATCH_OPTION_CLIENT_ID = 61,
    MATCH_OPTION_RELAY = 82,
    MATCH_OPTION_END = 255,
    MATCH_RELAY_REMOTE_ID = 2,
    MATCH_OVERLOAD_FILE = 1,  // bits of option 52
    MATCH_OVERLOAD_SERVER_NAME = 2,

    // A condition's type, and the code and sub-code that go with it (matchKinds).
    MATCH_ANY_FRAME = 0,
    MATCH_ETHER_TYPE_RULE = 1,
    MATCH_DHCP_RULE = 2,
    MATCH_VENDOR_ID_RULE = 3,
    MATCH_REMOTE_ID_RULE = 4,
    MATCH_CLIENT_ID_RULE = 5,
    MATCH_SOURCE_MAC_RULE = 6,
    MATCH_SOURCE_IP_RULE = 7,
    MATCH_OUTER_VLAN_RULE = 8,
    MATCH_USER_PATTERN_RULE = 9,
    MATCH_RULE_TYPES = 10,
    MATCH_DHCP_CODE = 29,

    // Selection byte of a DHCP condition.
    MATCH_SELECT_ANY_MESSAGE = 1,
    MATCH_SELECT_DISCOVER = 3,

    // The user pattern: 32 words over the first 128 bytes of the frame, tags in line. Word i
    // stands for the bytes 4i to 4i + 3, the first of them in its top 8 bits.
    MATCH_PATTERN_WORDS = 32,
    MATCH_PATTERN_BYTES = 128,
};

static inline uint32_t matchBe16(const uint8_t* bytes) {
    const uint32_t high = bytes[0];
    return high << 8 | bytes[1];
}

static inline uint32_t matchBe32(const uint8_t* bytes) {
    return matchBe16(bytes) << 16 | matchBe16(bytes + 2);
}

static inline int matchIsTag(uint32_t etherType) {
    return etherType == MATCH_TYPE_VLAN || etherType == MATCH_TYPE_SERVICE_VLAN ||
           etherType == MATCH_TYPE_OLD_QINQ;
}

// Indexed by rule type.
static const struct {
    uint32_t code;
    uint32_t subCode;  // looked at with MATCH_DHCP_CODE only
} matchKinds[MATCH_RULE_TYPES] = {{0, 0},
                                  {5, 0},
                                  {MATCH_DHCP_CODE, 0},
                                  {MATCH_DHCP_CODE, 1},
                                  {MATCH_DHCP_CODE, 2},
                                  {MATCH_DHCP_CODE, 4},
                                  {3, 0},
                                  {11, 0},
                                  {6, 0},
                                  {34, 0}};

// A condition whose numbers do not belong together describes no frame.
static inline int matchKindIsKnown(uint32_t type, uint32_t code, uint32_t subCode) {
    return type < MATCH_RULE_TYPES && code == matchKinds[type].code &&
           (code != MATCH_DHCP_CODE || subCode == matchKinds[type].subCode);
}

static inline int matchSelection(uint32_t selection, uint32_t messageType) {
    return selection == MATCH_SELECT_ANY_MESSAGE ||
           (selection == MATCH_SELECT_DISCOVER && messageType == MATCH_DHCP_DISCOVER);
}

// Whether the data begin with the pattern; a pattern of length 0 begins everything.
static inline int matchPrefix(const uint8_t* data, uint32_t size, const char* pattern,
                              uint32_t length) {
    if (size < length) {
        return 0;
    }
    for (uint32_t i = 0; i < length; ++i) {
        if (((data[i] ^ pattern[i]) & 0xff) != 0) {
            return 0;
        }
    }
    return 1;
}

static inline int matchMac(const uint8_t* mac, const uint8_t* wanted, const uint8_t* mask) {
    uint32_t difference = 0;
    for (uint32_t i = 0; i < MATCH_MAC_SIZE; ++i) {
        difference |= ((0U + mac[i]) ^ wanted[i]) & mask[i];
    }
    return difference == 0;
}

static inline int matchWord(uint32_t value, uint32_t wanted, uint32_t mask) {
    return ((value ^ wanted) & mask) == 0;
}

// The bits of the word at `offset` that a frame of `size` bytes has.
static inline uint32_t matchPresentBits(uint32_t size, uint32_t offset) {
    const uint32_t bytes = size > offset ? size - offset : 0;
    return bytes >= 4 ? MATCH_ALL_BITS : ~(MATCH_ALL_BITS >> 8 * bytes);
}
