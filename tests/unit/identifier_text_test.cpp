// The texts made from subscriber data.
#include "tal/identifier_text.h"

#include <gtest/gtest.h>

namespace {

using tal_text::circuitIdText;
using tal_text::macText;
using tal_text::signedHexText;

TEST(MacText, IsSixUpperCasePairs) {
    const unsigned char mac[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    EXPECT_EQ("00:1A:2B:3C:4D:5E", macText(mac));
    const unsigned char zeros[6] = {};
    EXPECT_EQ("00:00:00:00:00:00", macText(zeros));
    const unsigned char ones[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
    EXPECT_EQ("FF:FF:FF:FF:FF:FF", macText(ones));
    const unsigned char high[6] = {0x80, 0x0a, 0xa0, 0x7f, 0xfe, 0x01};
    EXPECT_EQ("80:0A:A0:7F:FE:01", macText(high));
}

TEST(MacText, EveryByteTakesTwoDigits) {
    for (unsigned byte = 0; byte < 256; byte++) {
        const unsigned char value = static_cast<unsigned char>(byte);
        const unsigned char mac[6] = {value, value, value, value, value, value};
        const std::string text = macText(mac);
        EXPECT_EQ(17U, text.size());
        EXPECT_EQ(byte, std::stoul(text.substr(15), nullptr, 16));
    }
}

TEST(SignedHexText, IsEmptyForNothing) {
    EXPECT_EQ("", signedHexText(""));
}

TEST(SignedHexText, KeepsWideningBytesWithTheirSignAndWithoutPadding) {
    EXPECT_EQ("41", signedHexText("A"));
    EXPECT_EQ("a", signedHexText("\n"));
    EXPECT_EQ("ffffffe9", signedHexText("\xe9"));
    EXPECT_EQ("ffffff80", signedHexText("\x80"));
    EXPECT_EQ("ffffffff", signedHexText("\xff"));
    EXPECT_EQ("7f", signedHexText("\x7f"));
    EXPECT_EQ("0", signedHexText(std::string_view("\0", 1)));
    EXPECT_EQ("41affffffe9042", signedHexText(std::string_view("A\n\xe9\0B", 5)));
}

TEST(CircuitIdText, JoinsShelfBoardAndName) {
    EXPECT_EQ("KORVALIN:2 eth 5/1/3", circuitIdText("2", 5, "1/3"));
    EXPECT_EQ("KORVALIN:shelf 1 eth 0/x", circuitIdText("shelf 1", 0, "x"));
    EXPECT_EQ("KORVALIN:1 eth 255/1/48", circuitIdText("1", 255, "1/48"));
}

TEST(CircuitIdText, EmptyPartsAreUsedAsTheyAre) {
    EXPECT_EQ("KORVALIN: eth 3/", circuitIdText("", 3, ""));
}

}  // namespace
