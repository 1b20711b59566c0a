// The event decoder, field by field and at every length.
#include "tal/event_line.h"
#include "tests/oracle/event_line_text.h"

#include <gtest/gtest.h>

#include <string.h>

#include <string>
#include <vector>

namespace {

using oracle::clientOption;
using oracle::EventLineText;
using oracle::remoteOption;
using oracle::vendorOption;
using tal_text::decodeEventFields;
using tal_text::EventFields;
using tal_text::eventLineInterface;

// Fields with their identifiers copied out of the line.
struct Decoded {
    explicit Decoded(const std::string& line) : fields(decodeEventFields(line)) {
        remoteId = fields.remoteId;
        vendorId = fields.vendorId;
        clientId = fields.clientId;
    }
    EventFields fields;
    std::string remoteId, vendorId, clientId;
};

Decoded withOptions(const std::string& options) {
    EventLineText text;
    text.options = options;
    return Decoded(text.line());
}

std::vector<int> macOf(const std::string& mac) {
    EventLineText text;
    text.mac = mac;
    const EventFields fields = decodeEventFields(text.line());
    return std::vector<int>(fields.sourceMac, fields.sourceMac + 6);
}

uint32_t addressOf(const std::string& address) {
    EventLineText text;
    text.address = address;
    return decodeEventFields(text.line()).sourceIp;
}

int vlanOf(const std::string& vlan) {
    EventLineText text;
    text.vlan = vlan;
    return decodeEventFields(text.line()).vlanId;
}

uint32_t wordOf(const std::string& eight) {
    EventLineText text;
    text.pattern.replace(0, 8, eight);
    return decodeEventFields(text.line()).pattern[0];
}

TEST(EventLineInterface, TakesTheFourCharactersBehindTal) {
    EXPECT_EQ("dsl1", eventLineInterface("taldsl1 00"));
    EXPECT_EQ("dsl1", eventLineInterface("taldsl1x"));
    EXPECT_EQ("a  b", eventLineInterface("tala  b 00"));
    EXPECT_EQ("    ", eventLineInterface("tal     00"));
    EXPECT_EQ("\xff\x01\x7f.", eventLineInterface("tal\xff\x01\x7f. 00"));
    EXPECT_EQ("tal ", eventLineInterface("taltal 00000"));
}

TEST(EventLineInterface, NoneForShortAndForeignLines) {
    for (const char* line : {"", "t", "ta", "tal", "tald", "talds", "taldsl", "taldsl1",
                             "Taldsl1 00", "tAldsl1 00", "taLdsl1 00", " taldsl1 00", "xaldsl1 00"})
        EXPECT_EQ(std::nullopt, eventLineInterface(line)) << line;
}

TEST(LoginAaaType, KnowsTwoServices) {
    EXPECT_EQ(1, tal_text::loginAaaType(0));
    EXPECT_EQ(2, tal_text::loginAaaType(1));
    for (unsigned selector : {2U, 3U, 9U, 255U, 256U, 0xffffffffU})
        EXPECT_EQ(std::nullopt, tal_text::loginAaaType(selector)) << selector;
}

// Each step needs its length; one character less and its field stays empty.
TEST(EventLine, EveryLengthReachesExactlyItsFields) {
    EventLineText text;
    text.options = vendorOption("abc") + remoteOption("de");
    const std::string full = text.line();
    ASSERT_EQ(297U + 9U + 8U, full.size());
    for (size_t length = 0; length <= full.size(); length++) {
        SCOPED_TRACE(length);
        const std::string line = full.substr(0, length);
        const Decoded event(line);
        EXPECT_EQ(length >= 8, eventLineInterface(line).has_value());
        EXPECT_EQ(length >= 14 ? 10 : 0, event.fields.vlanId);
        EXPECT_EQ(length >= 26 ? 5 : 0, event.fields.sourceMac[5]);
        EXPECT_EQ(length >= 41 ? 0x13100001U : 0U, event.fields.sourceIp);
        EXPECT_EQ(length >= 297, event.fields.patternPresent);
        EXPECT_EQ(length >= 297 ? 0x00010203U : 0U, event.fields.pattern[0]);
        EXPECT_EQ(length >= 306 ? "abc" : "", event.vendorId);
        EXPECT_EQ(length >= 314 ? "de" : "", event.remoteId);
    }
}

TEST(EventLine, LengthsUpTo320WithEveryOptionShapeStayInsideTheLine) {
    for (const std::string& options :
         {clientOption("0123456789abc", "001"), vendorOption(std::string(17, 'v')),
          std::string("060000060000060000060000"), std::string("0600001"), std::string(23, ' ')}) {
        EventLineText text;
        text.options = options;
        std::string full = text.line();
        full.resize(320, 'z');
        for (size_t length = 0; length <= full.size(); length++) {
            const std::string line = full.substr(0, length);
            const EventFields fields = decodeEventFields(line);
            for (const std::string_view id : {fields.remoteId, fields.vendorId, fields.clientId}) {
                if (id.empty())
                    continue;
                EXPECT_GE(id.data(), line.data() + 303);
                EXPECT_LE(id.data() + id.size(), line.data() + line.size());
            }
        }
    }
}

TEST(EventLine, LineOf296CarriesNeitherPatternNorOptionsAnd299NoOptions) {
    EventLineText text;
    text.options = vendorOption("abc");
    const std::string full = text.line();
    EXPECT_FALSE(Decoded(full.substr(0, 296)).fields.patternPresent);
    for (size_t length : {297U, 298U, 299U}) {
        const Decoded event(full.substr(0, length));
        EXPECT_TRUE(event.fields.patternPresent);
        EXPECT_EQ("", event.vendorId);
    }
}

TEST(EventLine, KeepsLosingTheLastVlanDigit) {
    EXPECT_EQ(10, vlanOf("0100"));
    EXPECT_EQ(409, vlanOf("4094"));
    EXPECT_EQ(100, vlanOf("100 "));
}

TEST(EventLine, VlanFollowsTheScanner) {
    EXPECT_EQ(0, vlanOf("0000"));
    EXPECT_EQ(0, vlanOf("0009"));
    EXPECT_EQ(5, vlanOf("  5 "));
    EXPECT_EQ(0, vlanOf("   5"));
    EXPECT_EQ(5, vlanOf("5xyz"));
    EXPECT_EQ(65535, vlanOf(" -1 "));
    EXPECT_EQ(65437, vlanOf("-999"));  // -99
    EXPECT_EQ(12, vlanOf("+123"));
    EXPECT_EQ(0, vlanOf("zzzz"));
    EXPECT_EQ(0, vlanOf("0x12"));
}

TEST(EventLine, KeepsReadingOneDigitOfEachMacPair) {
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4, 5}), macOf("001a2b3c4d5e"));
    EXPECT_EQ((std::vector<int>{15, 15, 15, 15, 15, 15}), macOf("ffFfFfFfFfff"));
    EXPECT_EQ((std::vector<int>{0, 0, 0, 0, 0, 0}), macOf("0f0f0f0f0f0f"));
}

TEST(EventLine, UnreadableMacDigitTakesItsPredecessor) {
    EXPECT_EQ((std::vector<int>{0, 0, 0, 0, 0, 0}), macOf("z.z.z.z.z.z."));
    EXPECT_EQ((std::vector<int>{0, 0, 11, 11, 11, 12}), macOf("-1 1b1+1x1c1"));
}

TEST(EventLine, KeepsReadingTwoDigitsOfEachOctet) {
    EXPECT_EQ(0x13100001U, addressOf("192.168.001.010"));  // 19.16.0.1
    EXPECT_EQ(0x19191919U, addressOf("255.255.255.255"));  // 25 each
    EXPECT_EQ(0U, addressOf("000.000.000.009"));
}

TEST(EventLine, SeparatorsOfTheAddressAreNeverExamined) {
    EXPECT_EQ(0x13100001U, addressOf("192x168y001z010"));
    EXPECT_EQ(0x13100001U, addressOf("19a\xff"
                                     "16b\x01"
                                     "00c 01d"));
}

TEST(EventLine, UnreadableOctetTakesItsPredecessor) {
    EXPECT_EQ(0U, addressOf("zzz.zzz.zzz.zzz"));
    EXPECT_EQ(0x0c0c0707U, addressOf("12 .zz .7  .-- "));
    EXPECT_EQ(0x05000101U, addressOf(" 5 .0x .+10.   ."));
}

TEST(EventLine, OctetIsOneByteEvenWhenTheNumberIsNegative) {
    EXPECT_EQ(0x01ff0203U, addressOf("1  .-1 .2  .3  "));
}

TEST(EventLine, PatternIs32WordsOfEightDigits) {
    EventLineText text;
    const EventFields fields = decodeEventFields(text.line());
    for (unsigned i = 0; i < 31; i++) {
        const uint32_t first = 4 * i;
        EXPECT_EQ(first << 24 | (first + 1) << 16 | (first + 2) << 8 | (first + 3),
                  fields.pattern[i]);
    }
}

TEST(EventLine, KeepsReadingTheLastPatternWordFromSevenDigits) {
    EventLineText text;
    text.pattern.replace(248, 8, "12345678");
    EXPECT_EQ(0x01234567U, decodeEventFields(text.line()).pattern[31]);
}

TEST(EventLine, PatternWordsFollowTheScanner) {
    EXPECT_EQ(0xffffffffU, wordOf("ffffffff"));
    EXPECT_EQ(0xabcdefU, wordOf("0xABCDEF"));
    EXPECT_EQ(0xffffffffU, wordOf("-1      "));
    EXPECT_EQ(0x12U, wordOf("      12"));
    EXPECT_EQ(0x12U, wordOf("12 34567"));
    EXPECT_EQ(0U, wordOf("zzzzzzzz"));
    EXPECT_EQ(0U, wordOf("        "));  // the digits behind belong to the next word
}

TEST(EventLine, UnreadablePatternWordIsZeroAndThePatternStillCounts) {
    EventLineText text;
    text.pattern = std::string(256, '.');
    const EventFields fields = decodeEventFields(text.line());
    EXPECT_TRUE(fields.patternPresent);
    for (uint32_t word : fields.pattern)
        EXPECT_EQ(0U, word);
}

TEST(EventOptions, ThreeOfAnyOrderAreRead) {
    const std::string vendor = vendorOption("vend"), remote = remoteOption("rem"),
                      client = clientOption("cli");
    for (const std::string& options :
         {vendor + remote + client, vendor + client + remote, remote + vendor + client,
          remote + client + vendor, client + vendor + remote, client + remote + vendor}) {
        const Decoded event = withOptions(options);
        EXPECT_EQ("vend", event.vendorId);
        EXPECT_EQ("rem", event.remoteId);
        EXPECT_EQ("cli", event.clientId);
    }
}

TEST(EventOptions, FourthIsNeverRead) {
    const Decoded event =
        withOptions(vendorOption("a") + vendorOption("b") + vendorOption("c") + remoteOption("d"));
    EXPECT_EQ("c", event.vendorId);
    EXPECT_EQ("", event.remoteId);
}

TEST(EventOptions, RepeatedOneOverwrites) {
    EXPECT_EQ("new", withOptions(remoteOption("older") + remoteOption("new")).remoteId);
    EXPECT_EQ("", withOptions(remoteOption("older") + remoteOption("")).remoteId);
    EXPECT_EQ("older",
              withOptions(remoteOption("older") + remoteOption(std::string(255, 'n'))).remoteId);
}

TEST(EventOptions, OtherCodeEndsTheDecoding) {
    for (const char* code :
         {"000", "001", "053", "062", "600", "082", "abc", "   ", "-60", "-2 "}) {
        const Decoded event = withOptions(vendorOption("v") + code + "001x" + remoteOption("r"));
        EXPECT_EQ("v", event.vendorId) << code;
        EXPECT_EQ("", event.remoteId) << code;
    }
}

TEST(EventOptions, CodesFollowTheScanner) {
    EXPECT_EQ("x", withOptions(" 60001x").vendorId);
    EXPECT_EQ("x", withOptions("60 001x").vendorId);
    EXPECT_EQ("x", withOptions("+60001x").vendorId);
    EXPECT_EQ("x", withOptions("  2001x").remoteId);
    EXPECT_EQ("x", withOptions("2zz001x").remoteId);
    EXPECT_EQ("x", withOptions("61 001000x").clientId);
}

TEST(EventOptions, LengthUpTo254IsKept) {
    for (size_t length : {0U, 1U, 63U, 64U, 253U, 254U}) {
        const std::string data(length, 'd');
        EXPECT_EQ(data, withOptions(vendorOption(data)).vendorId);
        EXPECT_EQ(data, withOptions(remoteOption(data)).remoteId);
        EXPECT_EQ(data, withOptions(clientOption(data)).clientId);
    }
}

TEST(EventOptions, LengthOf255OrMoreIsSkippedAndTheNextOneRead) {
    for (size_t length : {255U, 256U, 500U, 999U}) {
        const std::string data(length, 'd');
        EXPECT_EQ("", withOptions(vendorOption(data)).vendorId);
        EXPECT_EQ("next", withOptions(vendorOption(data) + remoteOption("next")).remoteId);
        EXPECT_EQ("next", withOptions(clientOption(data, "001") + remoteOption("next")).remoteId);
    }
}

TEST(EventOptions, SkippedOnesCountTowardsTheThree) {
    const std::string skipped = vendorOption(std::string(255, 'd'));
    EXPECT_EQ("r", withOptions(skipped + skipped + remoteOption("r")).remoteId);
    EXPECT_EQ("", withOptions(skipped + skipped + skipped + remoteOption("r")).remoteId);
}

TEST(EventOptions, ShortLineEndsTheDecoding) {
    for (const char* options : {"0", "06", "060", "0600", "06000", "060001", "060002x", "061000",
                                "06100000", "061001000", "061002000x", "002005abcd"}) {
        const Decoded event = withOptions(options);
        EXPECT_EQ("", event.vendorId + event.remoteId + event.clientId) << options;
    }
    // What came before stays.
    EXPECT_EQ("v", withOptions(vendorOption("v") + "002005abcd").vendorId);
}

TEST(EventOptions, EmptyDataAtTheEndOfTheLineIsAnEmptyIdentifier) {
    EXPECT_EQ("", withOptions("060000").vendorId);
    EXPECT_EQ("r", withOptions("060000" + remoteOption("r")).remoteId);
    EXPECT_EQ("", withOptions("061000000").clientId);
}

TEST(EventOptions, UnreadableLengthIsZero) {
    EXPECT_EQ("", withOptions("060zzz" + remoteOption("r")).vendorId);
    EXPECT_EQ("r", withOptions("060zzz" + remoteOption("r")).remoteId);
    EXPECT_EQ("r", withOptions("060   " + remoteOption("r")).remoteId);
    // The length of the option before does not carry over.
    const Decoded event = withOptions(vendorOption("abc") + "002zzz" + vendorOption("xy"));
    EXPECT_EQ("", event.remoteId);
    EXPECT_EQ("xy", event.vendorId);
}

TEST(EventOptions, NegativeLengthEndsTheDecoding) {
    for (const char* length : {"-1 ", "-01", " -1", "-99", "-9x"}) {
        const Decoded event = withOptions(vendorOption("v") + "060" + length + remoteOption("r"));
        EXPECT_EQ("v", event.vendorId) << length;
        EXPECT_EQ("", event.remoteId) << length;
    }
    EXPECT_EQ("r", withOptions("060-0 " + remoteOption("r")).remoteId);  // minus nought is nought
}

TEST(EventOptions, LengthsFollowTheScanner) {
    EXPECT_EQ("abc", withOptions("060  3abc").vendorId);
    EXPECT_EQ("abc", withOptions("0603  abc").vendorId);
    EXPECT_EQ("abc", withOptions("060+03abc").vendorId);
    EXPECT_EQ("abc", withOptions("0603zzabc").vendorId);
    EXPECT_EQ("", withOptions("0600x3abc").vendorId);
}

TEST(EventOptions, KeepsTheClientIdAsTextWhateverItsType) {
    for (const char* type : {"000", "001", "255", "zzz", "   ", "-1 "}) {
        EXPECT_EQ("001a2b3c4d5e99", withOptions(clientOption("001a2b3c4d5e99", type)).clientId)
            << type;
        EXPECT_EQ("no hex", withOptions(clientOption("no hex", type)).clientId) << type;
        EXPECT_EQ("", withOptions(clientOption("", type)).clientId) << type;
    }
}

TEST(EventOptions, DataIsTakenAsItStands) {
    const std::string data =
        " \t\n\x01\x7f\x80\xff"
        "060002";
    EXPECT_EQ(data, withOptions(vendorOption(data)).vendorId);
    EXPECT_EQ(data, withOptions(remoteOption(data)).remoteId);
    EXPECT_EQ(data, withOptions(clientOption(data)).clientId);
}

TEST(EventLine, OverLongLineIsReadLikeAnyOther) {
    EventLineText text;
    text.options = vendorOption("v") + remoteOption("r") + clientOption("c");
    const Decoded event(text.line() + std::string(100000, '0'));
    EXPECT_EQ("v", event.vendorId);
    EXPECT_EQ("r", event.remoteId);
    EXPECT_EQ("c", event.clientId);
}

}  // namespace
