// What of a frame is completed, and what stays as it is.
#include "node/engine/kernel/frame_checksum.h"

#include <gtest/gtest.h>

#include "tests/unit/node/frame_builder.h"

using namespace node_test;

namespace {

constexpr unsigned udpProtocol = 17;
constexpr unsigned tcpProtocol = 6;

unsigned wordAt(const Buffer& bytes, size_t at) {
    return static_cast<unsigned>(bytes[at] << 8 | bytes[at + 1]);
}

void setWord(Buffer& bytes, size_t at, unsigned value) {
    bytes[at] = static_cast<uint8_t>(value >> 8);
    bytes[at + 1] = static_cast<uint8_t>(value);
}

unsigned folded(const Buffer& bytes) {
    unsigned sum = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        sum += i % 2 == 0 ? bytes[i] * 256U : bytes[i];
        sum = (sum & 0xffff) + (sum >> 16);
    }
    return sum;
}

// A packet taken to pieces by the builder of this file, so that it can be put together again.
struct Packet {
    bool six = false;
    unsigned protocol = udpProtocol;
    Buffer payload = {1, 2, 3, 4, 5};
    Buffer options = {};    // of IPv4, or extension headers of IPv6
    unsigned fragment = 0;  // of IPv4
    std::vector<Tag> tags = {};
    Buffer padding = {};  // behind the packet

    size_t checksumIn() const { return protocol == udpProtocol ? 6 : 16; }
    Buffer addresses() const { return six ? Buffer(32, 0x21) : Buffer{10, 1, 2, 3, 192, 0, 2, 1}; }
    Buffer segment() const {
        Buffer out = {0x12, 0x34, 0, 67};
        if (protocol == udpProtocol) {
            append16(out, static_cast<unsigned>(8 + payload.size()));
            append16(out, 0);
        } else {
            append(out, Buffer(8, 7));
            append(out, {0x50, 0x02, 1, 1, 0, 0, 0, 0});
        }
        append(out, payload);
        return out;
    }
    unsigned pseudo() const {
        Buffer out = addresses();
        append16(out, protocol);
        append16(out, static_cast<unsigned>(segment().size()));
        return folded(out);
    }
    // With this checksum, from the address on.
    Buffer frame(unsigned checksum) const {
        Buffer inner = segment();
        setWord(inner, checksumIn(), checksum);
        Buffer out;
        if (six) {
            out = {0x60, 0, 0, 0};
            append16(out, static_cast<unsigned>(options.size() + inner.size()));
            append(out, {static_cast<uint8_t>(options.empty() ? protocol : 0), 64});
        } else {
            const size_t header = 20 + options.size();
            out = {static_cast<uint8_t>(0x40 | header / 4), 0};
            append16(out, static_cast<unsigned>(header + inner.size()));
            append16(out, 1);
            append16(out, fragment);
            append(out, {64, static_cast<uint8_t>(protocol), 0, 0});
        }
        append(out, addresses());
        append(out, options);
        append(out, inner);
        append(out, padding);
        Buffer framed = ether(six ? 0x86dd : 0x0800, out);
        Buffer stack;
        for (const Tag& tag : tags) {
            append16(stack, tag.type);
            append16(stack, tag.control);
        }
        framed.insert(framed.begin() + 12, stack.begin(), stack.end());
        return framed;
    }
    unsigned sound() const {
        Buffer out = addresses();
        append16(out, protocol);
        append16(out, static_cast<unsigned>(segment().size()));
        append(out, segment());
        const unsigned checksum = ~folded(out) & 0xffff;
        return checksum == 0 && protocol == udpProtocol ? 0xffff : checksum;
    }
};

Buffer completed(Buffer frame) {
    node::completeChecksum(frame);
    return frame;
}

const Packet rows[] = {
    {},
    {.payload = {}},
    {.payload = {9, 9, 9, 9}},
    {.protocol = tcpProtocol},
    {.protocol = tcpProtocol, .payload = {}},
    {.options = {1, 1, 1, 0, 7, 7, 7, 7}},
    {.fragment = 0x4000},
    {.tags = {{0x8100, 0xe064}}},
    {.tags = {{0x88a8, 5}, {0x8100, 7}}},
    {.padding = Buffer(13, 0xee)},
    {.six = true},
    {.six = true, .protocol = tcpProtocol, .payload = {1}},
    {.six = true, .options = {udpProtocol, 0, 1, 4, 0, 0, 0, 0}},
    {.six = true, .options = {60, 0, 1, 4, 0, 0, 0, 0, udpProtocol, 1, 1, 12,
                              0,  0, 0, 0, 0, 0, 0, 0, 0,           0, 0, 0}},
    {.six = true, .tags = {{0x8100, 5}}, .padding = {1, 2, 3}},
};

TEST(FrameChecksum, UnfinishedOnesAreCompleted) {
    for (const Packet& packet : rows) {
        EXPECT_EQ(completed(packet.frame(packet.pseudo())), packet.frame(packet.sound()))
            << "row " << &packet - rows;
    }
}

TEST(FrameChecksum, SoundOnesStayAndWrongOnesAreNotRepaired) {
    for (const Packet& packet : rows) {
        for (const unsigned there : {packet.sound(), packet.sound() ^ 1, ~packet.pseudo() & 0xffff,
                                     packet.pseudo() ^ 0x100, 0U}) {
            const Buffer frame = packet.frame(there);
            EXPECT_EQ(completed(frame), frame) << "row " << &packet - rows;
        }
    }
}

// The sum over all of such a segment is 0 or 0xffff whatever else it holds.
TEST(FrameChecksum, ZeroIsWrittenAsOnesForUdpOnly) {
    for (const unsigned protocol : {udpProtocol, tcpProtocol}) {
        Packet packet{.protocol = protocol, .payload = {0, 0}};
        setWord(packet.payload, 0, packet.sound());
        const unsigned expected = protocol == udpProtocol ? 0xffff : 0;
        EXPECT_EQ(packet.sound(), expected);
        EXPECT_EQ(completed(packet.frame(packet.pseudo())), packet.frame(expected));
    }
}

TEST(FrameChecksum, FragmentsAndOtherProtocolsStay) {
    const Packet others[] = {{.fragment = 0x2000},
                             {.fragment = 0x0001},
                             {.protocol = 132, .payload = Buffer(30, 1)},
                             {.six = true, .options = {44, 0, 0, 0, 0, 0, 0, 0}},
                             {.six = true, .options = {43, 0, 0, 0, 0, 0, 0, 0}}};
    for (const Packet& packet : others) {
        const Buffer frame = packet.frame(packet.pseudo());
        EXPECT_EQ(completed(frame), frame) << "row " << &packet - others;
    }
}

// Whatever is cut off, what is left is not taken for a whole packet, and not read beyond its end.
TEST(FrameChecksum, CutFramesStay) {
    for (const Packet& packet : rows) {
        const Buffer whole = packet.frame(packet.pseudo());
        for (size_t size = 0; size + packet.padding.size() < whole.size(); ++size) {
            const Buffer frame(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_EQ(completed(frame), frame) << "row " << &packet - rows << ", " << size;
        }
    }
}

TEST(FrameChecksum, LengthsThatDisagreeStay) {
    constexpr size_t udpLength = 14 + 20 + 4;
    const Packet packet;
    for (const unsigned length : {0U, 7U, 8U, 12U, 14U, 0xffffU}) {
        Buffer frame = packet.frame(packet.pseudo());
        setWord(frame, udpLength, length);
        EXPECT_EQ(completed(frame), frame) << length;
        ASSERT_NE(length, wordAt(packet.frame(0), udpLength));
    }
    Buffer shortHeader = packet.frame(packet.pseudo());
    shortHeader[14] = 0x44;
    EXPECT_EQ(completed(shortHeader), shortHeader);
}

}  // namespace
