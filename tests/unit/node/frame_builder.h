// Builds the frames of the classifier's unit tests byte by byte, sound by default; a test
// changes the one field that it is about. Test code, one thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <vector>

namespace node_test {

using Buffer = std::vector<uint8_t>;

inline void append16(Buffer& out, unsigned value) {
    out.push_back(static_cast<uint8_t>(value >> 8));
    out.push_back(static_cast<uint8_t>(value));
}

inline void append32(Buffer& out, uint32_t value) {
    append16(out, value >> 16);
    append16(out, value & 0xffff);
}

inline void append(Buffer& out, const Buffer& more) {
    out.insert(out.end(), more.begin(), more.end());
}

inline Buffer bytesOf(std::string_view text) {
    return Buffer(text.begin(), text.end());
}

struct Tag {
    unsigned type;
    unsigned control;  // priority, drop bit and VLAN id
};

inline Buffer ether(unsigned etherType, const Buffer& payload,
                    std::initializer_list<Tag> tags = {}) {
    Buffer out = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    for (const Tag& tag : tags) {
        append16(out, tag.type);
        append16(out, tag.control);
    }
    append16(out, etherType);
    append(out, payload);
    return out;
}

struct Ip {
    uint32_t source = 0x0a010203;
    unsigned protocol = 17;
    unsigned fragment = 0;  // the 16 bits of flags and offset
    Buffer options = {};    // a multiple of 4 bytes, at most 40
};

inline Buffer ipv4(const Buffer& payload, const Ip& ip = {}) {
    const size_t header = 20 + ip.options.size();
    Buffer out = {static_cast<uint8_t>(0x40 | header / 4), 0};
    append16(out, static_cast<unsigned>(header + payload.size()));
    append16(out, 0x1234);
    append16(out, ip.fragment);
    out.push_back(64);
    out.push_back(static_cast<uint8_t>(ip.protocol));
    append16(out, 0);
    append32(out, ip.source);
    append32(out, 0xffffffff);
    append(out, ip.options);
    append(out, payload);
    return out;
}

inline Buffer udp(const Buffer& payload, unsigned destination = 67, unsigned source = 68) {
    Buffer out;
    append16(out, source);
    append16(out, destination);
    append16(out, static_cast<unsigned>(8 + payload.size()));
    append16(out, 0);
    append(out, payload);
    return out;
}

struct Dhcp {
    unsigned operation = 1;
    unsigned hardwareSize = 6;
    uint32_t cookie = 0x63825363;
    Buffer serverName = {};  // at most 64 bytes
    Buffer file = {};        // at most 128 bytes
    Buffer options = {};     // with the end option where the test wants one
};

inline Buffer dhcp(const Dhcp& message) {
    Buffer out = {static_cast<uint8_t>(message.operation), 1,
                  static_cast<uint8_t>(message.hardwareSize), 0};
    append32(out, 0x3903f326);
    out.resize(28);
    append(out, {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5f});
    out.resize(44);
    append(out, message.serverName);
    out.resize(108);
    append(out, message.file);
    out.resize(236);
    append32(out, message.cookie);
    append(out, message.options);
    return out;
}

inline Buffer option(unsigned code, const Buffer& data) {
    Buffer out = {static_cast<uint8_t>(code), static_cast<uint8_t>(data.size())};
    append(out, data);
    return out;
}

inline Buffer join(std::initializer_list<Buffer> parts) {
    Buffer out;
    for (const Buffer& part : parts) {
        append(out, part);
    }
    return out;
}

// A whole client frame around the given options.
inline Buffer dhcpFrame(const Buffer& options, const Ip& ip = {}) {
    return ether(0x0800, ipv4(udp(dhcp({.options = options})), ip));
}

inline Buffer arp(uint32_t sender) {
    Buffer out = {0, 1, 8, 0, 6, 4, 0, 1, 0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    append32(out, sender);
    out.resize(28);
    return out;
}

}  // namespace node_test
