#include "node/isa/radius/packet/packet.h"

#include <gtest/gtest.h>

#include "tests/radius/hex.h"

namespace {

using namespace node::radius;
using radius_test::fromHex;
using radius_test::rawPacket;
using radius_test::toHex;

struct GoodAttributes {
    const char* what;
    const char* hex;
    std::vector<std::string> userNames;   // of attribute 1
    std::vector<std::string> circuitIds;  // of vendor 3561, type 1
};

TEST(Packet, GoodAttributesAreFound) {
    const GoodAttributes table[] = {
        {"none", "", {}, {}},
        {"an empty value", "0102", {""}, {}},
        {"one", "0103 61", {"a"}, {}},
        {"two of one type, apart", "0103 61 0203 7a 0103 62", {"a", "b"}, {}},
        {"one of a vendor", "1a0a 00000de9 0104 6162", {}, {"ab"}},
        {"two in one value", "1a0d 00000de9 0103 61 0104 6263", {}, {"a", "bc"}},
        {"two values", "1a09 00000de9 0103 61 1a09 00000de9 0103 62", {}, {"a", "b"}},
        {"another type of the vendor", "1a09 00000de9 0203 61", {}, {}},
        {"another vendor", "1a09 00000001 0103 61", {}, {}},
        {"a vendor without attributes", "1a06 00000de9", {}, {}},
        {"a value shorter than a vendor", "1a05 00000d", {}, {}},
        {"a vendor's empty value", "1a08 00000de9 0102", {}, {""}},
        {"a vendor's own form: length 1", "1a09 00000de9 0101 61", {}, {}},
        {"a vendor's own form: length 0", "1a08 00000de9 0100", {}, {}},
        {"a vendor's own form: beyond the end", "1a09 00000de9 0104 61", {}, {}},
        {"a vendor's own form: a byte left over", "1a0a 00000de9 0103 61 01", {}, {}},
        {"an own form beside the usual one", "1a07 00000de9 01 1a09 00000de9 0103 61", {}, {"a"}},
    };
    for (const GoodAttributes& row : table) {
        SCOPED_TRACE(row.what);
        const Buffer packet = rawPacket(2, 7, row.hex);
        const auto view = PacketView::parse(packet);
        ASSERT_TRUE(view);
        std::vector<std::string> names;
        for (const Bytes value : view->all(attribute::userName)) {
            names.push_back(textOf(value));
        }
        std::vector<std::string> circuits;
        for (const Bytes value : view->all(attribute::agentCircuitId)) {
            circuits.push_back(textOf(value));
        }
        EXPECT_EQ(row.userNames, names);
        EXPECT_EQ(row.circuitIds, circuits);
        EXPECT_EQ(row.userNames.empty(), !view->first(attribute::userName));
        EXPECT_EQ(row.circuitIds.empty(), !view->first(attribute::agentCircuitId));
        if (!circuits.empty()) {
            EXPECT_EQ(circuits.front(), textOf(*view->first(attribute::agentCircuitId)));
        }
        EXPECT_EQ(names.size(), view->count(1));
        EXPECT_EQ(Code::accessAccept, view->code());
        EXPECT_EQ(7, view->id());
    }
}

TEST(Packet, BadLengthsAreRefused) {
    const std::string header = "02070000";
    const std::string zeros(32, '0');
    const auto sized = [&](const std::string& length, const std::string& rest) {
        return fromHex("0207" + length + zeros + rest);
    };
    const struct {
        const char* what;
        Buffer packet;
        PacketError error;
    } table[] = {
        {"nothing", {}, PacketError::tooShort},
        {"19 bytes", Buffer(19, 0), PacketError::tooShort},
        {"states 0", sized("0000", ""), PacketError::badLength},
        {"states 19", sized("0013", ""), PacketError::badLength},
        {"states 21 of 20", sized("0015", ""), PacketError::tooShort},
        {"states 4097", sized("1001", std::string(2 * 4077, '0')), PacketError::badLength},
        {"states 65535", sized("ffff", ""), PacketError::badLength},
        {"a type without length", sized("0015", "01"), PacketError::badAttribute},
        {"an attribute of length 0", sized("0016", "0100"), PacketError::badAttribute},
        {"an attribute of length 1", sized("0016", "0101"), PacketError::badAttribute},
        {"an attribute beyond the end", sized("0017", "010461"), PacketError::badAttribute},
        {"an attribute into the padding", sized("0016", "010361"), PacketError::badAttribute},
        {"a second attribute beyond the end", sized("001a", "010361 0104 61"),
         PacketError::badAttribute},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.what);
        PacketError error = PacketError::none;
        EXPECT_FALSE(PacketView::parse(row.packet, &error));
        EXPECT_EQ(row.error, error);
    }
}

TEST(Packet, BytesBeyondTheStatedLengthAreNoPartOfIt) {
    Buffer packet = rawPacket(2, 0, "010361");
    packet.insert(packet.end(), {1, 2, 3});
    const auto view = PacketView::parse(packet);
    ASSERT_TRUE(view);
    EXPECT_EQ(23U, view->bytes().size());
    EXPECT_EQ(1U, view->all(attribute::userName).size());
}

TEST(Packet, PacketOf4096BytesIsReadAndWritten) {
    AttributeWriter writer;
    const Buffer value(253, 'x');
    for (int i = 0; i < 15; ++i) {
        ASSERT_TRUE(writer.add(attribute::classOfLogin, value));
    }
    ASSERT_TRUE(writer.add(attribute::classOfLogin, Bytes(value).first(231)));
    EXPECT_EQ(4058U, writer.bytes().size());
    const auto packet = packetOf(Code::accessRequest, 1, writer.bytes());
    ASSERT_TRUE(packet);
    EXPECT_EQ(longestPacket, packet->size());
    EXPECT_TRUE(PacketView::parse(*packet));
    ASSERT_TRUE(writer.add(attribute::classOfLogin, {}));
    EXPECT_FALSE(packetOf(Code::accessRequest, 1, writer.bytes()));
}

TEST(Packet, MessageAuthenticatorIsTheFirstAttribute) {
    AttributeWriter writer;
    ASSERT_TRUE(writer.addText(attribute::userName, "a"));
    const auto packet = packetOf(Code::accessRequest, 9, writer.bytes());
    ASSERT_TRUE(packet);
    EXPECT_EQ("01090029" + std::string(32, '0') + "5012" + std::string(32, '0') + "010361",
              toHex(*packet));
}

TEST(Packet, WrittenAttributesAreReadAgain) {
    AttributeWriter writer;
    ASSERT_TRUE(writer.addText(attribute::userName, "line 1"));
    ASSERT_TRUE(writer.addNumber(attribute::nasPort, 0xfffefdfc));
    ASSERT_TRUE(writer.addText(attribute::agentCircuitId, "circuit"));
    ASSERT_TRUE(writer.addText(attribute::agentRemoteId, ""));
    const Buffer packet = *packetOf(Code::accessRequest, 1, writer.bytes());
    const auto view = PacketView::parse(packet);
    ASSERT_TRUE(view);
    EXPECT_EQ("line 1", textOf(*view->first(attribute::userName)));
    EXPECT_EQ(0xfffefdfcU, numberOf(*view->first(attribute::nasPort)));
    EXPECT_EQ("circuit", textOf(*view->first(attribute::agentCircuitId)));
    EXPECT_EQ("", textOf(*view->first(attribute::agentRemoteId)));
    AttributeWriter again;
    ASSERT_TRUE(again.addRaw(view->attributes().subspan(18)));
    EXPECT_EQ(writer.bytes(), again.bytes());
}

TEST(Packet, ValueThatDoesNotFitIsRefusedWithoutTrace) {
    AttributeWriter writer;
    EXPECT_TRUE(writer.addText(attribute::userName, std::string(253, 'x')));
    EXPECT_TRUE(writer.addText(attribute::agentCircuitId, std::string(247, 'x')));
    const Buffer before = writer.bytes();
    EXPECT_FALSE(writer.addText(attribute::userName, std::string(254, 'x')));
    EXPECT_FALSE(writer.addText(attribute::agentCircuitId, std::string(248, 'x')));
    EXPECT_FALSE(writer.addRaw(Buffer(4000, 0)));
    EXPECT_EQ(before, writer.bytes());
    EXPECT_TRUE(PacketView::parse(*packetOf(Code::accessRequest, 0, before)));
}

TEST(Packet, NumberHasFourBytes) {
    EXPECT_EQ(1U, numberOf(fromHex("00000001")));
    EXPECT_FALSE(numberOf(fromHex("000001")));
    EXPECT_FALSE(numberOf(fromHex("0000000001")));
    EXPECT_FALSE(numberOf({}));
}

TEST(AttributeNameText, GoodNamesAreRead) {
    EXPECT_EQ((AttributeName{0, 11}), attributeNameFromText("11"));
    EXPECT_EQ((AttributeName{0, 255}), attributeNameFromText("255"));
    EXPECT_EQ((AttributeName{3561, 1}), attributeNameFromText("3561:1"));
    EXPECT_EQ((AttributeName{16777215, 26}), attributeNameFromText("16777215:26"));
}

TEST(AttributeNameText, BadNamesAreRefused) {
    for (const char* text : {"", ":", "0", "256", "26", "-1", "+1", " 1", "1 ", "a", "1:", ":1",
                             "0:1", "1:0", "1:256", "1:2:3", "16777216:1", "99999999999:1"}) {
        EXPECT_FALSE(attributeNameFromText(text)) << text;
    }
}

}  // namespace
