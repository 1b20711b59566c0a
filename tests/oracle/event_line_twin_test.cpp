// Pins the twin itself to values worked out by hand.
#include "tests/oracle/event_line_oracle.h"

#include "tests/oracle/event_line_text.h"

#include <gtest/gtest.h>

#include <string.h>

namespace {

using oracle::boundedCopy;
using oracle::decodeEventLine;
using oracle::EventLineText;

TEST(BoundedCopy, SizeOneWritesOnlyTheNul) {
    char to[3] = {'a', 'b', 'c'};
    boundedCopy(to, "xyz", 1);
    EXPECT_EQ(0, memcmp(to, "\0bc", 3));
}

TEST(BoundedCopy, KeepsOneCharacterLessThanItsSize) {
    char to[6] = {'-', '-', '-', '-', '-', '-'};
    boundedCopy(to, "0100", 4);
    EXPECT_EQ(0, memcmp(to, "010\0--", 6));
}

TEST(BoundedCopy, StopsAtTheEndOfTheText) {
    char to[6] = {'-', '-', '-', '-', '-', '-'};
    boundedCopy(to, "ab", 5);
    EXPECT_EQ(0, memcmp(to, "ab\0---", 6));
}

TEST(EventTwin, DecodesAFullLine) {
    EventLineText text;
    text.options = oracle::vendorOption("home 5.0") + oracle::remoteOption("line-7") +
                   oracle::clientOption("001a2b3c4d5e", "001");
    const oracle::Event event = decodeEventLine(text.line().c_str());
    EXPECT_FALSE(event.dropped);
    EXPECT_EQ("dsl1", event.interface);
    EXPECT_EQ(10, event.vlanId);
    const unsigned char mac[6] = {0, 1, 2, 3, 4, 5};
    EXPECT_EQ(0, memcmp(mac, event.sourceMac, 6));
    EXPECT_EQ(0x13100001U, event.sourceIp);  // 19.16.0.1
    EXPECT_TRUE(event.patternPresent);
    EXPECT_EQ(0x00010203U, event.pattern[0]);
    EXPECT_EQ(0x78797a7bU, event.pattern[30]);
    EXPECT_EQ(0x07c7d7e7U, event.pattern[31]);  // 7c7d7e7f without its last digit
    EXPECT_EQ("home 5.0", event.vendorId);
    EXPECT_EQ("line-7", event.remoteId);
    EXPECT_EQ("001a2b3c4d5e", event.clientId);
}

TEST(EventTwin, DropsWhatIsShortOrForeign) {
    for (const char* line :
         {"", "t", "ta", "tal", "taldsl1", "taldsl1 ", "taldsl1 0", "TALdsl1 00", "xaldsl1 00"})
        EXPECT_TRUE(decodeEventLine(line).dropped) << line;
    EXPECT_FALSE(decodeEventLine("taldsl1 00").dropped);
}

TEST(EventTwin, UnreadableDigitTakesItsPredecessor) {
    EventLineText text;
    text.mac = "a.z.b.zzzz0.";
    text.address = "zz..12..zz..34.";
    const oracle::Event event = decodeEventLine(text.line().c_str());
    const unsigned char mac[6] = {10, 10, 11, 11, 11, 0};
    EXPECT_EQ(0, memcmp(mac, event.sourceMac, 6));
    EXPECT_EQ(0x000c0c22U, event.sourceIp);
}

TEST(EventTwin, FourthOptionIsNeverRead) {
    EventLineText text;
    text.options = oracle::vendorOption("a") + oracle::vendorOption("b") +
                   oracle::vendorOption("c") + oracle::vendorOption("d");
    EXPECT_EQ("c", decodeEventLine(text.line().c_str()).vendorId);
}

TEST(EventTwin, OptionOf255IsSkippedAndTheNextOneRead) {
    EventLineText text;
    text.options =
        oracle::vendorOption(std::string(255, 'v')) + oracle::remoteOption(std::string(254, 'r'));
    const oracle::Event event = decodeEventLine(text.line().c_str());
    EXPECT_EQ("", event.vendorId);
    EXPECT_EQ(std::string(254, 'r'), event.remoteId);
}

}  // namespace
