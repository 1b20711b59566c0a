#include "node/control/text.h"

#include <gtest/gtest.h>

namespace node::control {
namespace {

using namespace std::string_literals;

TEST(ControlText, OnlyPrintableAsciiIsLeftAsItIs) {
    EXPECT_EQ("acme 1.2~", escaped("acme 1.2~"));
    EXPECT_EQ("a\\\\b", escaped("a\\b"));
    EXPECT_EQ("\\x00\\x1b[2J\\x7f\\xc3\\xa9", escaped("\0\x1b[2J\x7f\xc3\xa9"s));
    EXPECT_EQ("", escaped(""));
}

TEST(ControlText, BytesAreWritten) {
    EXPECT_EQ("00ff7a", hexOf("\x00\xff\x7a"s));
    EXPECT_EQ("00:11:ff", macText("\x00\x11\xff"s));
    EXPECT_EQ("192.0.2.255", ipText("\xc0\x00\x02\xff"s));
}

TEST(ControlText, GoodBytesAreRead) {
    EXPECT_EQ("\x00\xff\xAb"s, bytesOfHex("00fFaB"));
    EXPECT_EQ(""s, bytesOfHex(""));
    EXPECT_EQ("\x00\x11\x22\xaa\xBB\x55"s, bytesOfMac("00:11:22:aa:BB:55"));
    EXPECT_EQ("\x00\x11\x22\xaa\xBB\x55"s, bytesOfMac("00-11-22-aa-BB-55"));
    EXPECT_EQ("\xc0\x00\x02\x01"s, bytesOfIp("192.0.2.1"));
    EXPECT_EQ("\xff\xff\xff\xff"s, bytesOfIp("255.255.255.255"));
    EXPECT_EQ(4294967295u, decimal("4294967295"));
    EXPECT_EQ(0x8100u, hexNumber("8100"));
}

TEST(ControlText, BadBytesAreRefused) {
    for (const char* text : {"0", "0g", "0x00", "00 11", "-1", "+1"}) {
        EXPECT_EQ(std::nullopt, bytesOfHex(text)) << text;
    }
    for (const char* text : {"", "00:11:22:33:44", "00:11:22:33:44:5", "00:11:22:33:44:55:",
                             "00:11:22:33:44-55", "00-11-22:33-44-55", "001122334455",
                             "0g:11:22:33:44:55", "00.11.22.33.44.55", "00:11:22:33:44:555"}) {
        EXPECT_EQ(std::nullopt, bytesOfMac(text)) << text;
    }
    for (const char* text : {"", "192.0.2", "192.0.2.", "192.0.2.256", "192.0.2.1.", ".192.0.2.1",
                             "192..2.1", "192.0.2.-1", "192.0.2.1 ", "a.b.c.d", "192.0.2.1.5"}) {
        EXPECT_EQ(std::nullopt, bytesOfIp(text)) << text;
    }
    for (const char* text : {"", " 1", "1 ", "-1", "+1", "0x10", "4294967296", "1a"}) {
        EXPECT_EQ(std::nullopt, decimal(text)) << text;
    }
    for (const char* text : {"", "g", "0x8100", "100000000", "-1"}) {
        EXPECT_EQ(std::nullopt, hexNumber(text)) << text;
    }
}

}  // namespace
}  // namespace node::control
