// Where the fields lie that the rules look at, what the rules' numbers mean, and the few
// comparisons they need. Plain C on purpose: the user-space classifier and a program for the
// kernel's traffic hook take the same meaning from here. Pure; the caller checks the bounds.
#pragma once

#include <stdint.h>

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
