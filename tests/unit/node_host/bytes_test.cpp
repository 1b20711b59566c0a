#include "node/text/bytes.h"

#include <gtest/gtest.h>

namespace {

TEST(Bytes, GoodTextsAreRead) {
    EXPECT_EQ(node::decimalOf("0"), 0u);
    EXPECT_EQ(node::decimalOf("4294967295"), 4294967295u);
    EXPECT_EQ(node::hexNumberOf("ffffFFFF"), 0xffffffffu);
    EXPECT_EQ(node::bytesOfHex(""), std::vector<uint8_t>());
    EXPECT_EQ(node::bytesOfHex("00fFa1"), (std::vector<uint8_t>{0, 0xff, 0xa1}));
    EXPECT_EQ(node::macOf("02:aB:00:00:00:ff"), (node::MacAddress{0x02, 0xab, 0, 0, 0, 0xff}));
    EXPECT_EQ(node::macOf("02-ab-00-00-00-ff"), (node::MacAddress{0x02, 0xab, 0, 0, 0, 0xff}));
    EXPECT_EQ(node::ipOf("192.0.2.1"), 0xc0000201u);
    EXPECT_EQ(node::ipOf("255.255.255.255"), 0xffffffffu);
    EXPECT_EQ(node::ipOf("0.0.0.0"), 0u);
}

TEST(Bytes, BadTextsAreNot) {
    for (const char* text : {"", "-1", "+1", " 1", "1 ", "1a", "4294967296", "0x1"}) {
        EXPECT_FALSE(node::decimalOf(text)) << text;
    }
    for (const char* text : {"", "g", "-1", "100000000", "0x1"}) {
        EXPECT_FALSE(node::hexNumberOf(text)) << text;
    }
    for (const char* text : {"0", "0g", "00 1", "-1", "0x"}) {
        EXPECT_FALSE(node::bytesOfHex(text)) << text;
    }
    for (const char* text :
         {"", "02:00:00:00:00", "02:00:00:00:00:0", "02:00:00:00:00:00:", "02-00-00-00-00:00",
          "02.00.00.00.00.00", "02:00:00:00:00:0g", "+2:00:00:00:00:00", "02:00:00:00:00 00"}) {
        EXPECT_FALSE(node::macOf(text)) << text;
    }
    for (const char* text : {"", "1", "1.2.3", "1.2.3.", "1.2.3.4.", "1.2.3.4.5", ".1.2.3",
                             "1..2.3", "256.0.0.1", "1.2.3.0004", "1.2.3.-4", "1.2.3.4 "}) {
        EXPECT_FALSE(node::ipOf(text)) << text;
    }
}

TEST(Bytes, TextsComeBack) {
    EXPECT_EQ(node::hexText(*node::bytesOfHex("00ffa1")), "00ffa1");
    EXPECT_EQ(node::macText(*node::macOf("02:ab:00:00:00:ff")), "02:ab:00:00:00:ff");
    EXPECT_EQ(node::ipText(0xc0000201), "192.0.2.1");
}

}  // namespace
