// The number scanner against tables worked out by hand and against the C library.
#include "tal/scan_number.h"
#include "tests/oracle/random_text.h"
#include "tests/oracle/scan_oracle.h"

#include <gtest/gtest.h>

#include <string.h>

#include <algorithm>
#include <iterator>
#include <memory>

namespace {

using tal_text::anyWidth;
using tal_text::scanDecimal;
using tal_text::scanHex;
using tal_text::scanHexWords;
using tal_text::takeHex;

struct Good {
    const char* text;
    size_t width;
    uint32_t number;
};

TEST(ScanDecimal, GoodTable) {
    const Good table[] = {
        {"0", anyWidth, 0},
        {"7", anyWidth, 7},
        {"007", anyWidth, 7},
        {"42abc", anyWidth, 42},
        {"  42", anyWidth, 42},
        {"\t\n\v\f\r 42", anyWidth, 42},
        {"+5", anyWidth, 5},
        {"-5", anyWidth, 0xfffffffb},
        {"-0", anyWidth, 0},
        {"4294967295", anyWidth, 0xffffffff},
        {"4294967296", anyWidth, 0},
        {"4294967297", anyWidth, 1},
        {"-4294967297", anyWidth, 0xffffffff},
        {"9223372036854775807", anyWidth, 0xffffffff},
        {"9223372036854775808", anyWidth, 0xffffffff},  // saturates at the 64-bit maximum
        {"-9223372036854775808", anyWidth, 0},
        {"-99999999999999999999999999", anyWidth, 0},
        {"99999999999999999999999999", anyWidth, 0xffffffff},
        {"0x12", anyWidth, 0},  // decimal knows no prefix
        {"1234", 3, 123},
        {"   1234", 3, 123},  // blanks do not count towards the width
        {"-123", 3, 0xfffffff4},
        {"+123", 3, 12},
        {"060", 3, 60},
        {" 60", 3, 60},
        {"6 0", 3, 6},
        {"2  ", 3, 2},
    };
    for (const Good& row : table)
        EXPECT_EQ(row.number, scanDecimal(row.text, row.width)) << row.text << " " << row.width;
}

TEST(ScanDecimal, BadTable) {
    for (const char* text : {"", " ", "   \t", "-", "+", "--5", "+-5", "- 5", "+ 5", "a1", ".5",
                             "x", "\xe9", "\xa0\x31"})
        EXPECT_EQ(std::nullopt, scanDecimal(text)) << text;
    EXPECT_EQ(std::nullopt, scanDecimal("-5", 1));  // the sign uses the width up
    EXPECT_EQ(std::nullopt, scanDecimal("+5", 1));
}

TEST(ScanHex, GoodTable) {
    const Good table[] = {
        {"0", anyWidth, 0},
        {"f", anyWidth, 15},
        {"F", anyWidth, 15},
        {"fF", anyWidth, 255},
        {"00ff", anyWidth, 255},
        {"ffffffff", anyWidth, 0xffffffff},
        {"100000000", anyWidth, 0},
        {"123456789", anyWidth, 0x23456789},
        {"ffffffffffffffff", anyWidth, 0xffffffff},
        {"123456789abcdef012", anyWidth, 0xffffffff},  // saturates at the 64-bit maximum
        {"-1", anyWidth, 0xffffffff},
        {"+1f", anyWidth, 0x1f},
        {" \t1f", anyWidth, 0x1f},
        {"0x1f", anyWidth, 0x1f},
        {"0X1F", anyWidth, 0x1f},
        {"-0x1", anyWidth, 0xffffffff},
        {"0x", anyWidth, 0},  // the zero counts, the prefix is taken with it
        {"0xg", anyWidth, 0},
        {"0x0x1", anyWidth, 0},
        {"1g", anyWidth, 1},
        {"0x1f", 3, 1},
        {"0x1f", 2, 0},
        {"0x1f", 1, 0},
        {"  abc", 2, 0xab},
        {"0123456789", 8, 0x01234567},
    };
    for (const Good& row : table)
        EXPECT_EQ(row.number, scanHex(row.text, row.width)) << row.text << " " << row.width;
}

TEST(ScanHex, BadTable) {
    for (const char* text : {"", " ", "-", "+", "g", "x1", "--1", "- 1", ":", "-x1", "\xff"})
        EXPECT_EQ(std::nullopt, scanHex(text)) << text;
    EXPECT_EQ(std::nullopt, scanHex("-1", 1));
}

TEST(ScanNumber, ReadsInsideTheTextOnly) {
    // The digit behind the view must not count.
    const std::string_view text = "1234";
    EXPECT_EQ(12U, scanDecimal(text.substr(0, 2)));
    EXPECT_EQ(0x12U, scanHex(text.substr(0, 2)));
    EXPECT_EQ(std::nullopt, scanHex(text.substr(0, 0)));
    EXPECT_EQ(0U, scanHex(std::string_view("0x12").substr(0, 2)));
    EXPECT_EQ(std::nullopt, scanDecimal(std::string_view()));
}

TEST(ScanNumber, EveryWidthAgreesWithTheLibrary) {
    oracle::RandomText random(20240901);
    for (int i = 0; i < 200000; i++) {
        const std::string text = random.numberText(random.below(random.chance(20) ? 40 : 10));
        // An exact copy on the heap, so that a sanitizer sees a read beyond the end.
        const std::unique_ptr<char[]> copy(new char[text.size()]);
        memcpy(copy.get(), text.data(), text.size());
        const std::string_view view(copy.get(), text.size());
        const size_t width = random.below(12);  // the twin's 0 is "no width"
        const size_t ours = width == 0 ? anyWidth : width;
        ASSERT_EQ(oracle::scanDecimal(text, width), scanDecimal(view, ours))
            << text << " " << width;
        ASSERT_EQ(oracle::scanHex(text, width), scanHex(view, ours)) << text << " " << width;
    }
}

TEST(TakeHex, TakesWhatItReadAndNothingAfterAFailure) {
    std::string_view text = " 1f:02";
    EXPECT_EQ(0x1fU, takeHex(text, 2));
    EXPECT_EQ(":02", text);
    EXPECT_EQ(std::nullopt, takeHex(text, 2));
    EXPECT_EQ(":02", text);
    text.remove_prefix(1);
    EXPECT_EQ(2U, takeHex(text, 2));
    EXPECT_EQ("", text);
    EXPECT_EQ(std::nullopt, takeHex(text));
}

TEST(TakeHex, PrefixIsTakenWithItsZero) {
    std::string_view text = "0xzz";
    EXPECT_EQ(0U, takeHex(text));
    EXPECT_EQ("zz", text);
    text = "0xff";
    EXPECT_EQ(0U, takeHex(text, 2));
    EXPECT_EQ("ff", text);
}

TEST(ScanHexWords, EveryPieceIsScannedOnItsOwn) {
    std::string text = "0123456789abcdefABCDEF01";  // words 0 to 2: digits only
    text += " 1234567";                             // 3: blanks do not count
    text += "-0000001";                             // 4: a sign
    text += "0x0000ff";                             // 5: a prefix
    text += "12g45678";                             // 6: ends at the first other character
    text += "zzzzzzzz";                             // 7: no digit, stays
    text += "7f";                                   // 8: the text ends
    uint32_t words[32];
    std::fill(std::begin(words), std::end(words), 77U);
    scanHexWords(text, words);
    const uint32_t expected[] = {0x01234567, 0x89abcdef, 0xabcdef01, 0x1234567, 0xffffffff,
                                 0xff,       0x12,       77,         0x7f};
    for (size_t i = 0; i < 32; i++)
        EXPECT_EQ(i < std::size(expected) ? expected[i] : 77U, words[i]) << i;
}

TEST(ScanHexWords, AgreesWithTheLibraryPieceByPiece) {
    oracle::RandomText random(20240902);
    for (int i = 0; i < 20000; i++) {
        std::string text = random.digits(256, "0123456789abcdefABCDEF");
        if (random.chance(80))
            random.mutate(text);
        text.resize(std::min<size_t>(text.size(), 256));
        const std::unique_ptr<char[]> copy(new char[text.size()]);
        memcpy(copy.get(), text.data(), text.size());
        uint32_t words[32] = {};
        scanHexWords(std::string_view(copy.get(), text.size()), words);
        for (size_t k = 0; k < 32; k++) {
            const std::string piece = 8 * k < text.size() ? text.substr(8 * k, 8) : "";
            ASSERT_EQ(oracle::scanHex(piece, 8).value_or(0), words[k]) << text << " " << k;
        }
    }
}

}  // namespace
