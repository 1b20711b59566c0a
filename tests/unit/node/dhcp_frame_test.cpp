// The DHCP message inside a frame: which UDP packets carry one, and where its options stand.
#include <gtest/gtest.h>

#include "node/engine/frame.h"
#include "tests/unit/node/frame_builder.h"

using namespace node_test;
using node::parseFrame;

namespace {

const Buffer discover = option(53, {1});
const Buffer end = {255};

Buffer toBuffer(std::span<const uint8_t> bytes) {
    return Buffer(bytes.begin(), bytes.end());
}

// The options of one message as the parser sees them; the frame lives as long as this.
struct Parsed {
    Buffer bytes;
    std::optional<node::Frame> frame;

    explicit Parsed(Buffer frameBytes) : bytes(std::move(frameBytes)), frame(parseFrame(bytes)) {}
    bool hasDhcp() const { return frame && frame->dhcp; }
    const node::DhcpMessage* operator->() const { return &*frame->dhcp; }
};

Parsed withOptions(const Buffer& options) {
    return Parsed(dhcpFrame(options));
}

TEST(DhcpFrame, FieldsOfAClientMessageAreTaken) {
    const Parsed parsed = withOptions(join(
        {discover, option(60, bytesOf("vendor")), option(61, {1, 2, 3}),
         option(82, join({option(1, bytesOf("circuit")), option(2, bytesOf("remote"))})), end}));
    ASSERT_TRUE(parsed.hasDhcp());
    EXPECT_TRUE(parsed->fromClient);
    EXPECT_EQ(parsed->messageType, 1);
    EXPECT_EQ(parsed->clientMac, (std::array<uint8_t, 6>{0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5f}));
    EXPECT_EQ(toBuffer(parsed->vendorId), bytesOf("vendor"));
    EXPECT_EQ(toBuffer(parsed->clientId), (Buffer{1, 2, 3}));
    EXPECT_EQ(toBuffer(parsed->remoteId), bytesOf("remote"));
}

TEST(DhcpFrame, OptionsMayStandInAnyOrderBetweenPads) {
    const Parsed parsed = withOptions(join({{0, 0},
                                            option(82, option(2, {9})),
                                            option(12, bytesOf("host")),
                                            {0},
                                            option(61, {7}),
                                            option(60, {6}),
                                            {0, 0, 0},
                                            discover,
                                            end,
                                            {0, 0}}));
    ASSERT_TRUE(parsed.hasDhcp());
    EXPECT_EQ(parsed->messageType, 1);
    EXPECT_EQ(toBuffer(parsed->vendorId), Buffer{6});
    EXPECT_EQ(toBuffer(parsed->clientId), Buffer{7});
    EXPECT_EQ(toBuffer(parsed->remoteId), Buffer{9});
}

TEST(DhcpFrame, NothingBehindTheEndOptionIsRead) {
    const Parsed parsed = withOptions(join({discover, end, option(60, {6})}));
    ASSERT_TRUE(parsed.hasDhcp());
    EXPECT_TRUE(parsed->vendorId.empty());
}

TEST(DhcpFrame, AMissingEndOptionIsForgiven) {
    const Parsed parsed = withOptions(join({discover, option(60, {6})}));
    ASSERT_TRUE(parsed.hasDhcp());
    EXPECT_EQ(toBuffer(parsed->vendorId), Buffer{6});
}

TEST(DhcpFrame, TheFirstOfRepeatedOptionsThatCarriesDataCounts) {
    const Parsed parsed = withOptions(
        join({option(53, {}), option(53, {1, 1}), option(53, {3}), discover, option(60, {}),
              option(60, {6}), option(60, {5}), option(61, {7}), option(61, {8}),
              option(82, option(1, {1})), option(82, join({option(2, {}), option(2, {9})})),
              option(82, option(2, {10})), end}));
    ASSERT_TRUE(parsed.hasDhcp());
    EXPECT_EQ(parsed->messageType, 3);
    EXPECT_EQ(toBuffer(parsed->vendorId), Buffer{6});
    EXPECT_EQ(toBuffer(parsed->clientId), Buffer{7});
    EXPECT_EQ(toBuffer(parsed->remoteId), Buffer{9});
}

TEST(DhcpFrame, OptionsOfFullLengthAreTakenWhole) {
    const Buffer longest(255, 0xab);
    const Parsed parsed = withOptions(join({option(60, longest), option(61, longest), end}));
    ASSERT_TRUE(parsed.hasDhcp());
    EXPECT_EQ(toBuffer(parsed->vendorId), longest);
    EXPECT_EQ(toBuffer(parsed->clientId), longest);
}

TEST(DhcpFrame, AnOptionThatDoesNotFitEndsTheWalk) {
    const Parsed noData = withOptions(join({discover, option(61, {7}), {60, 5, 1, 2, 3, 4}}));
    ASSERT_TRUE(noData.hasDhcp());
    EXPECT_TRUE(noData->vendorId.empty());
    EXPECT_EQ(toBuffer(noData->clientId), Buffer{7});
    const Parsed noLength = withOptions(join({discover, {60}}));
    ASSERT_TRUE(noLength.hasDhcp());
    EXPECT_TRUE(noLength->vendorId.empty());
    EXPECT_EQ(noLength->messageType, 1);
}

TEST(DhcpFrame, SubOptionsStayInsideTheirOption) {
    const Parsed parsed =
        withOptions(join({discover, option(82, {2, 5, 1, 2}), option(60, {6}), end}));
    ASSERT_TRUE(parsed.hasDhcp());
    EXPECT_TRUE(parsed->remoteId.empty());
    EXPECT_EQ(toBuffer(parsed->vendorId), Buffer{6});
}

TEST(DhcpFrame, SubOptionCodesZeroAnd255AreOrdinary) {
    const Parsed parsed = withOptions(join(
        {discover, option(82, join({option(0, {2, 2}), option(255, {3}), option(2, {9})})), end}));
    ASSERT_TRUE(parsed.hasDhcp());
    EXPECT_EQ(toBuffer(parsed->remoteId), Buffer{9});
}

TEST(DhcpFrame, OverloadedFieldsAreReadAfterTheOptions) {
    const struct {
        unsigned overload;
        bool file, serverName;
    } rows[] = {{0, false, false}, {1, true, false}, {2, false, true}, {3, true, true}};
    for (const auto& row : rows) {
        const Parsed parsed(
            ether(0x0800,
                  ipv4(udp(dhcp({.serverName = join({option(61, {7}), end}),
                                 .file = join({{0}, option(60, {6}), end}),
                                 .options = join({option(52, {static_cast<uint8_t>(row.overload)}),
                                                  discover, end})})))));
        ASSERT_TRUE(parsed.hasDhcp());
        EXPECT_EQ(!parsed->vendorId.empty(), row.file) << row.overload;
        EXPECT_EQ(!parsed->clientId.empty(), row.serverName) << row.overload;
    }
}

TEST(DhcpFrame, TheOptionsProperWinOverFileAndFileOverServerName) {
    const Buffer overload = option(52, {3});
    const Parsed parsed(
        ether(0x0800, ipv4(udp(dhcp({.serverName = join({option(60, {3}), option(61, {3}), end}),
                                     .file = join({option(60, {2}), option(61, {2}), end}),
                                     .options = join({overload, option(60, {1}), end})})))));
    ASSERT_TRUE(parsed.hasDhcp());
    EXPECT_EQ(toBuffer(parsed->vendorId), Buffer{1});
    EXPECT_EQ(toBuffer(parsed->clientId), Buffer{2});
}

TEST(DhcpFrame, AnOptionCannotLeaveItsOverloadedField) {
    Buffer file = join({option(12, Buffer(124, 'x')), {60, 1}});  // its data byte would be outside
    ASSERT_EQ(file.size(), 128U);
    const Parsed parsed(
        ether(0x0800, ipv4(udp(dhcp({.file = file, .options = join({option(52, {1}), end})})))));
    ASSERT_TRUE(parsed.hasDhcp());
    EXPECT_TRUE(parsed->vendorId.empty());
}

TEST(DhcpFrame, AnOverloadOptionInsideAnOverloadedFieldIsIgnored) {
    const Parsed parsed(ether(0x0800, ipv4(udp(dhcp({.serverName = join({option(60, {3}), end}),
                                                     .file = join({option(52, {2}), end}),
                                                     .options = join({option(52, {1}), end})})))));
    ASSERT_TRUE(parsed.hasDhcp());
    EXPECT_TRUE(parsed->vendorId.empty());
}

TEST(DhcpFrame, OnlyRequestsToTheServersPortComeFromAClient) {
    const struct {
        unsigned operation, source, destination;
        bool parsed, fromClient;
    } rows[] = {{1, 68, 67, true, true},   {1, 67, 67, true, true},  {1, 40000, 67, true, true},
                {1, 67, 68, true, false},  {2, 67, 68, true, false}, {2, 68, 67, true, false},
                {3, 68, 67, true, false},  {0, 68, 67, true, false}, {1, 68, 66, false, false},
                {1, 67, 69, false, false}, {1, 68, 53, false, false}};
    for (const auto& row : rows) {
        const Parsed parsed(ether(
            0x0800, ipv4(udp(dhcp({.operation = row.operation, .options = join({discover, end})}),
                             row.destination, row.source))));
        ASSERT_EQ(parsed.hasDhcp(), row.parsed) << row.source << ' ' << row.destination;
        if (row.parsed) {
            EXPECT_EQ(parsed->fromClient, row.fromClient) << row.operation << row.destination;
        }
    }
}

TEST(DhcpFrame, PlainBootpHasMessageTypeZero) {
    const Parsed parsed = withOptions(end);
    ASSERT_TRUE(parsed.hasDhcp());
    EXPECT_EQ(parsed->messageType, 0);
}

TEST(DhcpFrame, AHardwareAddressOfAnotherSizeIsLeftOut) {
    for (const unsigned size : {0U, 5U, 7U, 16U}) {
        const Parsed parsed(ether(0x0800, ipv4(udp(dhcp({.hardwareSize = size})))));
        ASSERT_TRUE(parsed.hasDhcp());
        EXPECT_EQ(parsed->clientMac, (std::array<uint8_t, 6>{})) << size;
    }
}

TEST(DhcpFrame, TagsAndIpOptionsMoveTheMessageAndNothingElse) {
    const Buffer packet =
        ipv4(udp(dhcp({.options = join({option(60, {6}), end})})), {.options = Buffer(40, 1)});
    const Parsed parsed(ether(0x0800, packet, {{0x88a8, 1}, {0x8100, 2}, {0x8100, 3}}));
    ASSERT_TRUE(parsed.hasDhcp());
    EXPECT_EQ(toBuffer(parsed->vendorId), Buffer{6});
}

TEST(DhcpFrame, FragmentsCarryNoMessage) {
    for (const unsigned fragment : {0x2000U, 0x0001U, 0x2001U, 0x1fffU, 0x1000U}) {
        EXPECT_FALSE(Parsed(dhcpFrame(end, {.fragment = fragment})).hasDhcp()) << fragment;
    }
    EXPECT_TRUE(Parsed(dhcpFrame(end, {.fragment = 0x4000})).hasDhcp());  // don't fragment
    EXPECT_TRUE(Parsed(dhcpFrame(end, {.fragment = 0x8000})).hasDhcp());  // reserved bit
}

TEST(DhcpFrame, OtherProtocolsCarryNoMessage) {
    for (const unsigned protocol : {1U, 6U, 16U, 18U, 136U}) {
        EXPECT_FALSE(Parsed(dhcpFrame(end, {.protocol = protocol})).hasDhcp()) << protocol;
    }
}

TEST(DhcpFrame, AnotherCookieIsNoMessage) {
    for (unsigned bit = 0; bit < 32; ++bit) {
        const uint32_t cookie = 0x63825363U ^ 1U << bit;
        EXPECT_FALSE(Parsed(ether(0x0800, ipv4(udp(dhcp({.cookie = cookie}))))).hasDhcp()) << bit;
    }
}

TEST(DhcpFrame, PaddingBehindThePacketIsNotRead) {
    const Buffer stray = option(60, {6});
    EXPECT_TRUE(Parsed(join({dhcpFrame(discover), stray}))->vendorId.empty());

    Buffer longIp = ipv4(join({udp(dhcp({.options = discover})), stray}));  // behind UDP's length
    EXPECT_TRUE(Parsed(ether(0x0800, longIp))->vendorId.empty());
}

TEST(DhcpFrame, LengthsBeyondTheFrameReadAsFarAsItGoes) {
    Buffer frame = dhcpFrame(join({discover, option(60, {6})}));
    frame[14 + 2] = 0xff;       // total length
    frame[14 + 20 + 4] = 0xff;  // UDP length
    const Parsed parsed(frame);
    ASSERT_TRUE(parsed.hasDhcp());
    EXPECT_EQ(toBuffer(parsed->vendorId), Buffer{6});
}

TEST(DhcpFrame, LengthsTooSmallForTheHeadersAreNoMessage) {
    Buffer shortUdp = dhcpFrame(end);
    shortUdp[14 + 20 + 4] = 0;
    shortUdp[14 + 20 + 5] = 7;
    EXPECT_FALSE(Parsed(shortUdp).hasDhcp());

    Buffer shortIp = dhcpFrame(end);
    shortIp[14 + 2] = 0;
    shortIp[14 + 3] = 27;
    EXPECT_FALSE(Parsed(shortIp).hasDhcp());
}

TEST(DhcpFrame, EveryPlaceToCutAFrameIsSurvived) {
    const Buffer whole = dhcpFrame(
        join({discover, option(60, {6}), option(61, {7, 8}), option(82, option(2, {9, 9})), end}));
    const size_t cookieEnd = 14 + 20 + 8 + 240;
    for (size_t size = 14; size <= whole.size(); ++size) {
        // A copy of exactly this size, so that a checker of memory sees a read behind it.
        const Parsed parsed(
            Buffer(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
        ASSERT_TRUE(parsed.frame);
        ASSERT_EQ(parsed.hasDhcp(), size >= cookieEnd) << size;
        if (parsed.hasDhcp()) {
            EXPECT_EQ(parsed->messageType != 0, size >= cookieEnd + 3) << size;
            EXPECT_EQ(!parsed->vendorId.empty(), size >= cookieEnd + 6) << size;
            EXPECT_EQ(!parsed->clientId.empty(), size >= cookieEnd + 10) << size;
            EXPECT_EQ(!parsed->remoteId.empty(), size >= cookieEnd + 16) << size;
        }
    }
}

}  // namespace
