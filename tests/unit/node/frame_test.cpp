// The outer layers of a frame: addresses, tags, EtherType, ARP and IPv4.
#include "node/engine/frame.h"

#include <gtest/gtest.h>

#include "tests/unit/node/frame_builder.h"

using namespace node_test;
using node::parseFrame;

namespace {

TEST(Frame, ShorterThanAnEthernetHeaderIsNoFrame) {
    Buffer frame = ether(0x88b5, {});
    ASSERT_EQ(frame.size(), 14U);
    EXPECT_TRUE(parseFrame(frame));
    for (frame.pop_back(); !frame.empty(); frame.pop_back()) {
        EXPECT_FALSE(parseFrame(frame)) << frame.size();
    }
    EXPECT_FALSE(parseFrame({}));
}

TEST(Frame, AddressesTypeAndBytesAreTaken) {
    const Buffer bytes = ether(0x88b5, {1, 2, 3});
    const auto frame = parseFrame(bytes);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->bytes.data(), bytes.data());
    EXPECT_EQ(frame->bytes.size(), bytes.size());
    EXPECT_EQ(frame->destinationMac, (std::array<uint8_t, 6>{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}));
    EXPECT_EQ(frame->sourceMac, (std::array<uint8_t, 6>{0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e}));
    EXPECT_EQ(frame->etherType, 0x88b5);
    EXPECT_FALSE(frame->outerVlan);
    EXPECT_FALSE(frame->ipv4Source);
    EXPECT_FALSE(frame->dhcp);
}

TEST(Frame, OuterVlanIsTheFirstTagsIdAndTheTypeIsBehindAllTags) {
    const struct {
        std::initializer_list<Tag> tags;
        unsigned vlan;
    } rows[] = {
        {{{0x8100, 100}}, 100},
        {{{0x88a8, 200}}, 200},
        {{{0x9100, 300}}, 300},
        {{{0x8100, 0}}, 0},
        {{{0x8100, 0xf064}}, 100},
        {{{0x8100, 4095}}, 4095},
        {{{0x88a8, 7}, {0x8100, 8}}, 7},
        {{{0x8100, 7}, {0x8100, 8}}, 7},
        {{{0x9100, 1}, {0x88a8, 2}, {0x8100, 3}, {0x8100, 4}}, 1},
    };
    for (const auto& row : rows) {
        const Buffer bytes = ether(0x0800, ipv4({}), row.tags);
        const auto frame = parseFrame(bytes);
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->outerVlan, row.vlan);
        EXPECT_EQ(frame->etherType, 0x0800);
        EXPECT_EQ(frame->ipv4Source, 0x0a010203U);
    }
}

TEST(Frame, TypesNextToTheTagTypesAreNoTags) {
    for (const unsigned type : {0x80ffU, 0x8101U, 0x88a7U, 0x88a9U, 0x9101U, 0x9200U}) {
        const Buffer bytes = ether(type, {0, 5, 8, 0});
        const auto frame = parseFrame(bytes);
        ASSERT_TRUE(frame);
        EXPECT_FALSE(frame->outerVlan);
        EXPECT_EQ(frame->etherType, type);
    }
}

TEST(Frame, CutInsideTheTagsKeepsWhatIsWhole) {
    const Buffer whole = ether(0x0806, {}, {{0x88a8, 7}, {0x8100, 8}});
    ASSERT_EQ(whole.size(), 22U);
    for (size_t size = 14; size <= whole.size(); ++size) {
        const auto frame = parseFrame(std::span(whole).first(size));
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->outerVlan.has_value(), size >= 16) << size;
        EXPECT_EQ(frame->etherType, size == 22 ? 0x0806 : 0) << size;
    }
}

TEST(Frame, ArpNamesItsSender) {
    const Buffer bytes = ether(0x0806, arp(0xc0a80101));
    const auto frame = parseFrame(bytes);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->ipv4Source, 0xc0a80101U);
    EXPECT_FALSE(frame->dhcp);
}

TEST(Frame, ArpThatIsCutOrNotIpv4OverEthernetNamesNobody) {
    const Buffer sound = arp(0xc0a80101);
    for (size_t size = 0; size < sound.size(); ++size) {
        const Buffer bytes =
            ether(0x0806, Buffer(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(size)));
        EXPECT_FALSE(parseFrame(bytes)->ipv4Source) << size;
    }
    for (size_t field = 0; field < 6; ++field) {  // hardware, protocol and their sizes
        Buffer damaged = sound;
        damaged[field] ^= 0x10;
        EXPECT_FALSE(parseFrame(ether(0x0806, damaged))->ipv4Source) << field;
    }
    EXPECT_FALSE(parseFrame(ether(0x8035, sound))->ipv4Source);  // reverse ARP
}

TEST(Frame, Ipv4SourceIsReadFromWholeHeadersOfAnyLength) {
    for (size_t options = 0; options <= 40; options += 4) {
        const Buffer packet = ipv4({}, {.source = 0xdeadbeef, .options = Buffer(options, 1)});
        EXPECT_EQ(parseFrame(ether(0x0800, packet))->ipv4Source, 0xdeadbeefU) << options;
        for (size_t size = 0; size < packet.size(); ++size) {
            const Buffer cut(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_FALSE(parseFrame(ether(0x0800, cut))->ipv4Source) << options << ' ' << size;
        }
    }
}

TEST(Frame, DamagedIpv4HeadersHaveNoSource) {
    const Buffer payload(60, 0);
    const struct {
        const char* what;
        size_t offset;
        uint8_t value;
    } rows[] = {
        {"version 6", 0, 0x65},         {"version 0", 0, 0x05},     {"header of 16 bytes", 0, 0x44},
        {"header of 0 bytes", 0, 0x40}, {"total length 19", 3, 19},
    };
    for (const auto& row : rows) {
        Buffer packet = ipv4(payload);
        packet[2] = 0;
        packet[row.offset] = row.value;
        EXPECT_FALSE(parseFrame(ether(0x0800, packet))->ipv4Source) << row.what;
    }
}

TEST(Frame, Ipv4BehindAnotherTypeIsNotIpv4) {
    EXPECT_FALSE(parseFrame(ether(0x86dd, ipv4({})))->ipv4Source);
    EXPECT_FALSE(parseFrame(ether(0x0801, ipv4({})))->ipv4Source);
}

TEST(Frame, FragmentsStillNameTheirSource) {
    for (const unsigned fragment : {0x2000U, 0x0001U, 0x2001U, 0x1fffU}) {
        const auto frame = parseFrame(ether(0x0800, ipv4(Buffer(16, 0), {.fragment = fragment})));
        EXPECT_EQ(frame->ipv4Source, 0x0a010203U) << fragment;
    }
}

}  // namespace
