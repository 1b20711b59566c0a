// The comparisons that user space and kernel share: each row is asked of the header compiled
// as C++ and of the same header compiled as C.
#include "node/engine/match_rules.h"

#include <gtest/gtest.h>

#include "tests/unit/node/match_rules_in_c.h"

namespace {

TEST(MatchRules, NumbersAreReadFirstByteHighest) {
    const uint8_t bytes[] = {0xfe, 0xdc, 0xba, 0x98};
    EXPECT_EQ(matchBe16(bytes), 0xfedcU);
    EXPECT_EQ(be16InC(bytes), 0xfedcU);
    EXPECT_EQ(matchBe32(bytes), 0xfedcba98U);
    EXPECT_EQ(be32InC(bytes), 0xfedcba98U);
}

TEST(MatchRules, ThreeTypesOpenATag) {
    for (uint32_t type = 0; type <= 0xffff; ++type) {
        const bool tag = type == 0x8100 || type == 0x88a8 || type == 0x9100;
        ASSERT_EQ(matchIsTag(type) != 0, tag) << type;
        ASSERT_EQ(isTagInC(type) != 0, tag) << type;
    }
}

TEST(MatchRules, EachTypeHasOneCode) {
    const struct {
        uint32_t type, code, subCode;
        bool known;
    } rows[] = {
        {0, 0, 0, true},    {1, 5, 0, true},   {2, 29, 0, true},  {3, 29, 1, true},
        {4, 29, 2, true},   {5, 29, 4, true},  {6, 3, 0, true},   {7, 11, 0, true},
        {8, 6, 0, true},    {9, 34, 0, true},  {1, 5, 77, true},  {9, 34, 77, true},
        {10, 0, 0, false},  {11, 0, 0, false}, {0, 5, 0, false},  {1, 6, 0, false},
        {5, 29, 3, false},  {2, 29, 1, false}, {3, 29, 2, false}, {8, 5, 0, false},
        {~0U, 0, 0, false}, {2, 0, 0, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(matchKindIsKnown(row.type, row.code, row.subCode) != 0, row.known)
            << row.type << ' ' << row.code << ' ' << row.subCode;
        EXPECT_EQ(kindIsKnownInC(row.type, row.code, row.subCode) != 0, row.known)
            << row.type << ' ' << row.code << ' ' << row.subCode;
    }
}

TEST(MatchRules, SelectionOneIsAnyMessageAndThreeIsDiscover) {
    for (uint32_t selection = 0; selection < 256; ++selection) {
        for (uint32_t message = 1; message < 20; ++message) {
            const bool taken = selection == 1 || (selection == 3 && message == 1);
            EXPECT_EQ(matchSelection(selection, message) != 0, taken)
                << selection << ' ' << message;
            EXPECT_EQ(selectionInC(selection, message) != 0, taken) << selection << ' ' << message;
        }
    }
}

TEST(MatchRules, PrefixesAreComparedAsBytes) {
    const uint8_t data[] = {0x00, 0x7f, 0x80, 0xff};
    const struct {
        uint32_t size;
        const char* pattern;
        uint32_t length;
        bool begins;
    } rows[] = {
        {4, "\x00\x7f\x80\xff", 4, true},
        {4, "\x00\x7f\x80\xfe", 4, false},
        {4, "\x00\x7f\x80", 3, true},
        {3, "\x00\x7f\x80\xff", 4, false},
        {4, "\x01", 1, false},
        {4, "", 0, true},
        {0, "", 0, true},
        {0, "a", 1, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(matchPrefix(data, row.size, row.pattern, row.length) != 0, row.begins);
        EXPECT_EQ(prefixInC(data, row.size, row.pattern, row.length) != 0, row.begins);
    }
}

TEST(MatchRules, AddressesAreComparedUnderTheirMask) {
    const uint8_t mac[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    const struct {
        uint8_t wanted[6], mask[6];
        bool taken;
    } rows[] = {
        {{0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e}, {0xff, 0xff, 0xff, 0xff, 0xff, 0xff}, true},
        {{0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5f}, {0xff, 0xff, 0xff, 0xff, 0xff, 0xff}, false},
        {{0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5f}, {0xff, 0xff, 0xff, 0xff, 0xff, 0xfe}, true},
        {{0x80, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e}, {0xff, 0xff, 0xff, 0, 0, 0}, false},
        {{0x00, 0x1a, 0x2b, 9, 9, 9}, {0xff, 0xff, 0xff, 0, 0, 0}, true},
        {{9, 9, 9, 9, 9, 9}, {0, 0, 0, 0, 0, 0}, true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(matchMac(mac, row.wanted, row.mask) != 0, row.taken);
        EXPECT_EQ(macInC(mac, row.wanted, row.mask) != 0, row.taken);
    }
}

TEST(MatchRules, WordsAreComparedUnderTheirMask) {
    const struct {
        uint32_t value, wanted, mask;
        bool taken;
    } rows[] = {
        {0xfedcba98, 0xfedcba98, ~0U, true},
        {0xfedcba98, 0xfedcba99, ~0U, false},
        {0xfedcba98, 0xfedcba99, ~1U, true},
        {0xfedcba98, 0x7edcba98, 0x80000000, false},
        {0xfedcba98, 0, 0, true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(matchWord(row.value, row.wanted, row.mask) != 0, row.taken) << row.wanted;
        EXPECT_EQ(wordInC(row.value, row.wanted, row.mask) != 0, row.taken) << row.wanted;
    }
}

TEST(MatchRules, AWordAtTheFramesEndIsPresentAsFarAsTheFrameGoes) {
    const struct {
        uint32_t size, offset, bits;
    } rows[] = {
        {20, 12, 0xffffffff}, {16, 12, 0xffffffff}, {15, 12, 0xffffff00}, {14, 12, 0xffff0000},
        {13, 12, 0xff000000}, {12, 12, 0},          {5, 12, 0},           {0, 0, 0},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(matchPresentBits(row.size, row.offset), row.bits) << row.size;
        EXPECT_EQ(presentBitsInC(row.size, row.offset), row.bits) << row.size;
    }
}

}  // namespace
