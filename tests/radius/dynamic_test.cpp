#include "node/isa/radius/packet/dynamic.h"

#include <gtest/gtest.h>

#include "tests/radius/hex.h"

namespace {

using namespace node::radius;
using radius_test::rawPacket;

constexpr uint8_t disconnect = 40;
constexpr uint8_t change = 43;

LoginFormat formatOf() {
    LoginFormat format;
    format.nasIdentifier = "nas";
    format.profiles = {9999, 1};
    return format;
}

DynamicReading read(uint8_t code, const char* hex, const LoginFormat& format = formatOf()) {
    const Buffer packet = rawPacket(code, 0, hex);
    return readDynamicRequest(*PacketView::parse(packet), format);
}

TEST(DynamicRequest, GoodRequestsAreRead) {
    auto reading = read(disconnect, "0103 61 2005 6e6173 5703 62 2c03 63 3706 00000001");
    ASSERT_TRUE(reading.request);
    EXPECT_EQ(DynamicRequest::Kind::disconnect, reading.request->kind);
    EXPECT_EQ("a", reading.request->userName);
    EXPECT_EQ("b", reading.request->nasPortId);
    EXPECT_EQ("c", reading.request->sessionId);

    reading = read(disconnect,
                   "0506 00000007 0806 c0000201 1f03 6d"
                   "1a09 00000de9 0103 63 1a09 00000de9 0203 72 1903 aa");
    ASSERT_TRUE(reading.request);
    EXPECT_EQ(7U, reading.request->nasPort);
    EXPECT_EQ(0xc0000201U, reading.request->framedIpAddress);
    EXPECT_EQ("m", reading.request->callingStationId);
    EXPECT_EQ("c", reading.request->circuitId);
    EXPECT_EQ("r", reading.request->remoteId);
    EXPECT_FALSE(reading.request->userName);

    reading = read(change, "0103 61 1b06 0000003c 0b06 676f6c64 1a09 0000270f 0103 70");
    ASSERT_TRUE(reading.request);
    EXPECT_EQ(DynamicRequest::Kind::change, reading.request->kind);
    EXPECT_EQ(60U, reading.request->grant.sessionTimeout);
    EXPECT_EQ(std::vector<std::string>{"gold"}, reading.request->grant.filterIds);
    EXPECT_EQ(std::vector<std::string>{"p"}, reading.request->grant.profiles);
}

TEST(DynamicRequest, BadRequestsAreRefusedWithTheirCause) {
    const struct {
        const char* what;
        uint8_t code;
        const char* hex;
        ErrorCause cause;
    } table[] = {
        {"names no login", disconnect, "2005 6e6173", ErrorCause::missingAttribute},
        {"nothing at all", change, "", ErrorCause::missingAttribute},
        {"another node", disconnect, "0103 61 2005 6e6174", ErrorCause::nasIdentificationMismatch},
        {"an unknown attribute", disconnect, "0103 61 0606 00000001",
         ErrorCause::unsupportedAttribute},
        {"an unknown attribute of a vendor", change, "0103 61 1a09 0000270f 0203 70",
         ErrorCause::unsupportedAttribute},
        {"one that hides behind a known one", change, "0103 61 1a0c 0000270f 0103 70 0203 71",
         ErrorCause::unsupportedAttribute},
        {"a change in a disconnect", disconnect, "0103 61 1b06 0000003c",
         ErrorCause::unsupportedAttribute},
        {"another node behind this one", disconnect, "0103 61 2005 6e6173 2005 6e6174",
         ErrorCause::nasIdentificationMismatch},
        {"two user names", disconnect, "0103 61 0103 62", ErrorCause::invalidRequest},
        {"two ports", disconnect, "0506 00000001 0506 00000002", ErrorCause::invalidRequest},
        {"a port of three bytes", disconnect, "0505 000001", ErrorCause::invalidAttributeValue},
        {"a timeout of three bytes", change, "0103 61 1b05 00003c",
         ErrorCause::invalidAttributeValue},
        {"an empty filter", change, "0103 61 0b02", ErrorCause::invalidAttributeValue},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.what);
        const DynamicReading reading = read(row.code, row.hex);
        EXPECT_FALSE(reading.request);
        EXPECT_EQ(row.cause, reading.error);
    }
}

// 192.0.2.7 and 2001:db8::7.
constexpr const char* four = "0103 61 0406 c0000207";
constexpr const char* six = "0103 61 5f12 20010db8000000000000000000000007";

TEST(DynamicRequest, ConfiguredAddressOfTheNodeIsCompared) {
    LoginFormat format = formatOf();
    format.nasIpAddress = radius_test::fromHex("c0000207");
    format.nasIpv6Address = radius_test::fromHex("20010db8000000000000000000000007");
    for (const uint8_t code : {disconnect, change}) {
        EXPECT_TRUE(read(code, four, format).request);
        EXPECT_TRUE(read(code, six, format).request);
        for (const char* other :
             {"0103 61 0406 c0000208", "0103 61 5f12 20010db8000000000000000000000008",
              "0103 61 0406 c0000207 0406 c0000208", "0103 61 2005 6e6173 0406 c0000208"}) {
            const DynamicReading reading = read(code, other, format);
            EXPECT_FALSE(reading.request) << other;
            EXPECT_EQ(ErrorCause::nasIdentificationMismatch, reading.error) << other;
        }
    }
}

TEST(DynamicRequest, AddressOfTheNodeThatIsNotConfiguredIsNotLookedAt) {
    LoginFormat format = formatOf();
    EXPECT_TRUE(read(disconnect, four, format).request);
    EXPECT_TRUE(read(change, six, format).request);
    format.nasIpAddress = radius_test::fromHex("c0000208");
    EXPECT_TRUE(read(disconnect, six, format).request) << "it is of the other kind";
    EXPECT_EQ(ErrorCause::missingAttribute, read(disconnect, "0406 c0000208", format).error)
        << "an address of the node names no login";
}

TEST(DynamicRequest, AddressOfTheNodeHasItsLength) {
    for (const char* bad : {"0103 61 0405 c00002", "0103 61 5f06 c0000207"}) {
        const DynamicReading reading = read(disconnect, bad);
        EXPECT_FALSE(reading.request) << bad;
        EXPECT_EQ(ErrorCause::invalidAttributeValue, reading.error) << bad;
    }
}

TEST(DynamicRequest, ReasonsOfADisconnectAreAllowedAndThoseOfAChangeAreNot) {
    for (const char* reason : {"0103 61 1204 6f6b", "0103 61 3106 00000006"}) {
        EXPECT_TRUE(read(disconnect, reason).request) << reason;
        EXPECT_EQ(ErrorCause::unsupportedAttribute, read(change, reason).error) << reason;
    }
}

TEST(DynamicRequest, EventTimestampHasFourBytes) {
    const Buffer good = rawPacket(disconnect, 0, "3706 00000102");
    const Buffer bad = rawPacket(disconnect, 0, "3705 000001");
    const Buffer none = rawPacket(disconnect, 0, "");
    EXPECT_EQ(0x102U, eventTimestamp(*PacketView::parse(good)));
    EXPECT_FALSE(eventTimestamp(*PacketView::parse(bad)));
    EXPECT_FALSE(eventTimestamp(*PacketView::parse(none)));
}

}  // namespace
