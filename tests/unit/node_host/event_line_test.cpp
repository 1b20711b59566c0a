#include "node/engine/event_line.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tal/event_line.h"

namespace {

using node::DhcpMessage;
using node::Frame;

std::vector<uint8_t> bytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

// A frame of `size` bytes whose fields are set by hand.
struct TestFrame {
    explicit TestFrame(size_t size = 60) : bytes(size) {
        for (size_t i = 0; i < size; ++i) {
            bytes[i] = static_cast<uint8_t>(i);
        }
        frame.bytes = bytes;
        frame.sourceMac = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    }
    std::vector<uint8_t> bytes;
    Frame frame;
};

TEST(EventLine, HeaderAndFixedFieldsStandAtTheirPositions) {
    TestFrame test;
    test.frame.outerVlan = 100;
    test.frame.ipv4Source = 0xc0a8010a;
    const std::string line = node::trafficLine("dsl1", test.frame);
    EXPECT_EQ(line.substr(0, 10), "taldsl1 00");
    EXPECT_EQ(line.substr(10, 4), "100 ");
    EXPECT_EQ(line.substr(14, 12), "001a2b3c4d5e");
    EXPECT_EQ(line.substr(26, 15), "192.168.001.010");
    EXPECT_EQ(line.substr(41, 16), "0001020304050607");
    EXPECT_EQ(line.size(), 297u);
}

TEST(EventLine, AbsentFieldsAreZero) {
    TestFrame test;
    const std::string line = node::trafficLine("dsl1", test.frame);
    EXPECT_EQ(line.substr(10, 4), "0   ");
    EXPECT_EQ(line.substr(26, 15), "000.000.000.000");
}

TEST(EventLine, HighestVlanFillsItsField) {
    TestFrame test;
    test.frame.outerVlan = 4095;
    EXPECT_EQ(node::trafficLine("dsl1", test.frame).substr(10, 4), "4095");
}

TEST(EventLine, ShortFrameIsPaddedAndLongOneCut) {
    EXPECT_EQ(node::trafficLine("dsl1", TestFrame(16).frame).substr(41),
              "000102030405060708090a0b0c0d0e0f" + std::string(224, '0'));
    const std::string line = node::trafficLine("dsl1", TestFrame(1500).frame);
    EXPECT_EQ(line.size(), 297u);
    EXPECT_EQ(line.substr(295), "7f");
}

TEST(EventLine, OptionsFollowInTheirOrderAndForm) {
    TestFrame test;
    const auto vendor = bytesOf("udhcp 1.35.0");
    const auto remote = bytesOf("port 4");
    const std::vector<uint8_t> client{0x01, 0x12, 0x34, 0x56, 0x78, 0x9a, 0xbc};
    test.frame.dhcp = DhcpMessage{true, 1, {}, vendor, remote, client};
    EXPECT_EQ(node::trafficLine("dsl1", test.frame).substr(297),
              "060012udhcp 1.35.0"
              "002006port 4"
              "061012001123456789abc");
}

TEST(EventLine, ClientIdOfTypeZeroIsText) {
    TestFrame test;
    const auto client = bytesOf(std::string("\0home", 5));
    test.frame.dhcp = DhcpMessage{true, 1, {}, {}, {}, client};
    EXPECT_EQ(node::trafficLine("dsl1", test.frame).substr(297), "061004000home");
}

TEST(EventLine, ClientIdWithoutIdentifierIsLeftOut) {
    TestFrame test;
    const std::vector<uint8_t> client{0x01};
    test.frame.dhcp = DhcpMessage{true, 1, {}, {}, {}, client};
    EXPECT_EQ(node::trafficLine("dsl1", test.frame).size(), 297u);
}

TEST(EventLine, NothingUnprintableGetsIntoTheLine) {
    std::vector<uint8_t> all;
    for (unsigned byte = 0; byte < 256; ++byte) {
        all.push_back(static_cast<uint8_t>(byte));
    }
    for (size_t from = 0; from < all.size(); from += 64) {
        TestFrame test;
        const std::span<const uint8_t> part = std::span(all).subspan(from, 64);
        std::vector<uint8_t> client{0};
        client.insert(client.end(), part.begin(), part.end());
        test.frame.dhcp = DhcpMessage{true, 1, {}, part, part, client};
        const std::string line = node::trafficLine("dsl1", test.frame);
        EXPECT_TRUE(
            std::all_of(line.begin(), line.end(), [](char c) { return c >= 0x20 && c <= 0x7e; }));
        EXPECT_EQ(line.size(), 297u + 6 + 64 + 6 + 64 + 9 + 64);
    }
}

TEST(EventLine, UnprintableBytesBecomeDots) {
    TestFrame test;
    const auto vendor = bytesOf(std::string("a\n\0\x7f\xe9z", 6));
    test.frame.dhcp = DhcpMessage{true, 1, {}, vendor, {}, {}};
    EXPECT_EQ(node::trafficLine("dsl1", test.frame).substr(297), "060006a....z");
}

TEST(EventLine, StoredLineIsTheHeaderAlone) {
    EXPECT_EQ(node::storedLine("dsl1"), "taldsl1 02");
    EXPECT_EQ(node::storedLine("dsl1").size(), tal_text::eventLineComplete);
}

TEST(EventLine, AutomaticLineCannotBeTakenForAHeader) {
    EXPECT_EQ(node::automaticLine("dsl1"), "taldsl1 000   ");
    EXPECT_GE(node::automaticLine("dsl1").size(), tal_text::eventLineHasTraffic);
}

// What the module reads out of a composed line: the parts it is prescribed to read.
TEST(EventLine, RoundTripThroughTheModulesDecoder) {
    TestFrame test(200);
    test.frame.outerVlan = 123;
    test.frame.ipv4Source = 0x0a14220b;  // 10.20.34.11
    const auto vendor = bytesOf("vendor class");
    const auto remote = bytesOf("remote");
    const std::vector<uint8_t> client{0xff, 0xab, 0xcd};
    test.frame.dhcp = DhcpMessage{true, 1, {}, vendor, remote, client};
    const std::string line = node::trafficLine("dsl1", test.frame);
    EXPECT_EQ(tal_text::eventLineInterface(line), "dsl1");
    const tal_text::EventFields fields = tal_text::decodeEventFields(line);
    EXPECT_EQ(fields.vlanId, 123);
    const unsigned char firstDigits[6] = {0x0, 0x1, 0x2, 0x3, 0x4, 0x5};
    EXPECT_TRUE(std::equal(fields.sourceMac, fields.sourceMac + 6, firstDigits));
    EXPECT_EQ(fields.sourceIp, 0x01020301u);  // the first two digits of each group
    ASSERT_TRUE(fields.patternPresent);
    EXPECT_EQ(fields.pattern[0], 0x00010203u);
    EXPECT_EQ(fields.pattern[30], 0x78797a7bu);
    EXPECT_EQ(fields.vendorId, "vendor class");
    EXPECT_EQ(fields.remoteId, "remote");
    EXPECT_EQ(fields.clientId, "abcd");
}

TEST(EventLine, LongestOptionsAreCutToWhatTheDecoderKeeps) {
    TestFrame test;
    const std::vector<uint8_t> longest(255, 'v');
    const std::vector<uint8_t> client(255, 0x5a);
    test.frame.dhcp = DhcpMessage{true, 1, {}, longest, longest, client};
    const std::string line = node::trafficLine("dsl1", test.frame);
    const tal_text::EventFields fields = tal_text::decodeEventFields(line);
    EXPECT_EQ(fields.vendorId, std::string(254, 'v'));
    EXPECT_EQ(fields.remoteId, std::string(254, 'v'));
    EXPECT_EQ(fields.clientId.size(), 254u);
}

}  // namespace
