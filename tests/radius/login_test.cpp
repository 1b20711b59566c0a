#include "node/isa/radius/packet/login.h"

#include <gtest/gtest.h>

#include "tests/radius/hex.h"

namespace {

using namespace node::radius;
using radius_test::fromHex;
using radius_test::rawPacket;
using radius_test::toHex;

Line wholeLine() {
    Line line;
    line.interfaceName = "1/3";
    line.interfaceNumber = 3;
    line.circuitId = "node atm 1/3";
    line.remoteId = "remote";
    line.mac = MacAddress{0x02, 0, 0x5e, 0, 0xab, 1};
    line.address = 0xc0000207;
    line.vlan = 42;
    line.vendorClass = "class";
    line.clientId = std::string("\x01\x00z", 3);
    return line;
}

PacketView viewOf(const Buffer& packet) {
    return *PacketView::parse(packet);
}

TEST(TextTemplate, GoodTemplatesAreFilled) {
    const Line line = wholeLine();
    const std::pair<const char*, const char*> table[] = {
        {"", ""},
        {"fixed", "fixed"},
        {"{circuit-id}", "node atm 1/3"},
        {"{remote-id}@{nas}", "remote@nas7"},
        {"{interface}.{interface-number}.{vlan}", "1/3.3.42"},
        {"{mac}", "02-00-5E-00-AB-01"},
        {"{address}", "192.0.2.7"},
        {"a}b", "a}b"},
        {"{vlan}{vlan}", "4242"},
    };
    for (const auto& [text, expected] : table) {
        const auto parsed = TextTemplate::parse(text);
        ASSERT_TRUE(parsed) << text;
        EXPECT_EQ(expected, parsed->fill(line, "nas7")) << text;
    }
}

TEST(TextTemplate, BadTemplatesAreRefused) {
    for (const char* text :
         {"{", "a{", "{}", "{circuit-id", "{unknown}", "{ vlan}", "{{vlan}}", "{circuit-id}{"}) {
        EXPECT_FALSE(TextTemplate::parse(text)) << text;
    }
}

TEST(TextTemplate, UnknownMacAndAddressAreEmpty) {
    EXPECT_EQ("[][]", TextTemplate::parse("[{mac}][{address}]")->fill(Line(), ""));
}

TEST(Login, CarriesTheAddressesOfTheNodeThatAreConfigured) {
    LoginFormat format;
    const auto carried = [&format](AttributeName name) {
        const Buffer packet =
            *packetOf(Code::accessRequest, 0, *loginAttributes(wholeLine(), format));
        const auto value = viewOf(packet).first(name);
        return value ? toHex(*value) : "none";
    };
    EXPECT_EQ("none", carried(attribute::nasIpAddress));
    EXPECT_EQ("none", carried(attribute::nasIpv6Address));
    format.nasIpAddress = fromHex("c0000207");
    EXPECT_EQ("c0000207", carried({0, 4}));
    EXPECT_EQ("none", carried(attribute::nasIpv6Address));
    format.nasIpv6Address = fromHex("20010db8000000000000000000000007");
    EXPECT_EQ("20010db8000000000000000000000007", carried({0, 95}));
}

TEST(Login, CarriesWhatIsKnownOfTheLine) {
    LoginFormat format;
    format.nasIdentifier = "nas7";
    format.vendorClass = AttributeName{9999, 60};
    format.clientId = AttributeName{9999, 61};
    const auto attributes = loginAttributes(wholeLine(), format);
    ASSERT_TRUE(attributes);
    const Buffer packet = *packetOf(Code::accessRequest, 0, *attributes);
    const PacketView view = viewOf(packet);
    EXPECT_EQ("node atm 1/3", textOf(*view.first(attribute::userName)));
    EXPECT_EQ("nas7", textOf(*view.first(attribute::nasIdentifier)));
    EXPECT_EQ(3U, numberOf(*view.first(attribute::nasPort)));
    EXPECT_EQ("1/3", textOf(*view.first(attribute::nasPortId)));
    EXPECT_EQ("node atm 1/3", textOf(*view.first(attribute::agentCircuitId)));
    EXPECT_EQ("remote", textOf(*view.first(attribute::agentRemoteId)));
    EXPECT_EQ("02-00-5E-00-AB-01", textOf(*view.first(attribute::callingStationId)));
    EXPECT_EQ(0xc0000207U, numberOf(*view.first(attribute::framedIpAddress)));
    EXPECT_EQ("class", textOf(*view.first({9999, 60})));
    EXPECT_EQ("01007a", toHex(*view.first({9999, 61})));
}

TEST(Login, LeavesOutWhatIsNotKnown) {
    Line line;
    line.circuitId = "c";
    const auto attributes = loginAttributes(line, LoginFormat());
    ASSERT_TRUE(attributes);
    EXPECT_EQ(toHex(fromHex("010363 050600000000 1a09 00000de9 010363")), toHex(*attributes));
}

TEST(Login, WithoutUserNameIsNotMade) {
    EXPECT_FALSE(loginAttributes(Line(), LoginFormat()));
}

TEST(Login, ValueTooLongForItsAttributeIsNotCutButRefused) {
    Line line = wholeLine();
    line.circuitId = std::string(247, 'c');
    EXPECT_TRUE(loginAttributes(line, LoginFormat()));
    line.circuitId = std::string(248, 'c');
    EXPECT_FALSE(loginAttributes(line, LoginFormat()));
}

TEST(Grant, GoodAnswersAreRead) {
    LoginFormat format;
    format.profiles = {9999, 1};
    EXPECT_EQ(Grant(), readGrant(viewOf(rawPacket(2, 0, "")), format));
    Grant whole;
    whole.classes = {fromHex("0001"), fromHex("ff")};
    whole.sessionTimeout = 3600;
    whole.filterIds = {"gold"};
    whole.profiles = {"fast", "quiet"};
    const Buffer packet = rawPacket(2, 0,
                                    "1904 0001 1903 ff 1b06 00000e10 0b06 676f6c64"
                                    "1a0c 0000270f 0106 66617374 1a0d 0000270f 0107 7175696574");
    EXPECT_EQ(whole, readGrant(viewOf(packet), format));
}

TEST(Grant, ProfilesMayBeFilterIds) {
    const auto grant = readGrant(viewOf(rawPacket(2, 0, "0b06 676f6c64")), LoginFormat());
    ASSERT_TRUE(grant);
    EXPECT_EQ(std::vector<std::string>{"gold"}, grant->profiles);
}

TEST(Grant, BadAnswersAreRefused) {
    LoginFormat format;
    format.profiles = {9999, 1};
    for (const char* hex : {"1b05 000e10", "1b07 0000000e10", "1b02", "0b02", "0b04 670a",
                            "0b03 7f", "1a08 0000270f 0102", "1a0a 0000270f 0104 4100"}) {
        EXPECT_FALSE(readGrant(viewOf(rawPacket(2, 0, hex)), format)) << hex;
    }
}

TEST(Accounting, StopCarriesTrafficAndCause) {
    AccountingRecord record;
    record.status = AccountingStatus::stop;
    record.sessionId = "s1";
    record.eventTime = 1700000000;
    record.classes = {fromHex("0001"), fromHex("ff")};
    record.sessionSeconds = 61;
    record.inputOctets = 0x123456789aULL;
    record.outputOctets = 5;
    record.inputPackets = 6;
    record.outputPackets = 7;
    record.cause = TerminateCause::lostCarrier;
    const auto attributes = accountingAttributes(wholeLine(), LoginFormat(), record);
    ASSERT_TRUE(attributes);
    const Buffer packet = *packetOf(Code::accountingRequest, 0, *attributes);
    const PacketView view = viewOf(packet);
    const std::pair<AttributeName, uint32_t> numbers[] = {
        {attribute::acctStatusType, 2},        {attribute::eventTimestamp, 1700000000},
        {attribute::acctSessionTime, 61},      {attribute::acctInputOctets, 0x3456789a},
        {attribute::acctInputGigawords, 0x12}, {attribute::acctOutputOctets, 5},
        {attribute::acctOutputGigawords, 0},   {attribute::acctInputPackets, 6},
        {attribute::acctOutputPackets, 7},     {attribute::acctTerminateCause, 2},
    };
    for (const auto& [name, value] : numbers) {
        ASSERT_TRUE(view.first(name)) << int{name.type};
        EXPECT_EQ(value, numberOf(*view.first(name))) << int{name.type};
    }
    EXPECT_EQ("s1", textOf(*view.first(attribute::acctSessionId)));
    EXPECT_EQ("node atm 1/3", textOf(*view.first(attribute::userName)));
    ASSERT_EQ(2U, view.all(attribute::classOfLogin).size());
    EXPECT_EQ("0001", toHex(view.all(attribute::classOfLogin)[0]));
}

TEST(Accounting, StartCarriesNeitherTrafficNorCause) {
    AccountingRecord record;
    record.sessionId = "s1";
    record.cause = TerminateCause::lostCarrier;
    const auto attributes = accountingAttributes(wholeLine(), LoginFormat(), record);
    ASSERT_TRUE(attributes);
    const Buffer packet = *packetOf(Code::accountingRequest, 0, *attributes);
    EXPECT_FALSE(viewOf(packet).first(attribute::acctSessionTime));
    EXPECT_FALSE(viewOf(packet).first(attribute::acctTerminateCause));
}

TEST(Accounting, WithoutSessionIdIsNotMade) {
    EXPECT_FALSE(accountingAttributes(wholeLine(), LoginFormat(), AccountingRecord()));
}

}  // namespace
