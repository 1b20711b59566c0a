// A login block as the storage file's 14 lines, both ways.
#include "tal/login_block_text.h"
#include "tests/unit/block_samples.h"

#include <gtest/gtest.h>

namespace {

using samples::fullBlock;
using samples::linesOf;
using tal_text::composeLoginBlock;
using tal_text::overlayLoginBlock;

using Lines = std::vector<std::string>;

// A block whose fields all hold something, to see what an overlay leaves alone.
rpcTalLoginBlockBll marked() {
    rpcTalLoginBlockBll block{};
    memset(&block, 0x2e, sizeof(block));
    for (char* field :
         {block.circuitId, block.remoteId, block.vendorId, block.clientId, block.extraString})
        field[63] = '\0';
    return block;
}

TEST(ComposeLoginBlock, WritesTheWholeBlock) {
    std::string sequence, mask;
    for (int i = 0; i < 32; i++) {
        char word[9];
        snprintf(word, sizeof(word), "100000%02x", i);
        sequence += word;
        snprintf(word, sizeof(word), "ffffff%02x", i);
        mask += word;
    }
    EXPECT_EQ(
        "interface: 42\n"
        "LoginAAAtype: 02\n"
        "circuitId: KORVALIN:2 eth 5/1/42\n"
        "remoteId: remote 7\n"
        "vendorId: home 5.0\n"
        "clientId: 001a2b3c4d5e\n"
        "sourceMac: 00:1A:2B:3C:4D:5E\n"
        "sourceIP: 0a00010b\n"
        "userPatternSequence: " +
            sequence +
            "\n"
            "userPatternMask: " +
            mask +
            "\n"
            "extraInt: 00000abc\n"
            "extraString: spare text\n"
            "loginIdType: ff\n"
            "vlanId: 64",
        composeLoginBlock(fullBlock()));
}

TEST(ComposeLoginBlock, ZeroBlockHasEmptyTextsAndPaddedNumbers) {
    const std::string zeros(256, '0');
    EXPECT_EQ(
        "interface: 0\nLoginAAAtype: 00\ncircuitId: \nremoteId: \nvendorId: \nclientId: \n"
        "sourceMac: 00:00:00:00:00:00\nsourceIP: 00000000\nuserPatternSequence: " +
            zeros + "\nuserPatternMask: " + zeros +
            "\nextraInt: 00000000\nextraString: \nloginIdType: 00\nvlanId: 0",
        composeLoginBlock(rpcTalLoginBlockBll{}));
}

TEST(ComposeLoginBlock, KeepsWritingTheVlanInHexWithoutPadding) {
    rpcTalLoginBlockBll block = fullBlock();
    const struct {
        uint32_t vlan;
        const char* line;
    } table[] = {{0, "vlanId: 0"},        {9, "vlanId: 9"},      {10, "vlanId: a"},
                 {100, "vlanId: 64"},     {4094, "vlanId: ffe"}, {65535, "vlanId: ffff"},
                 {65536, "vlanId: 10000"}};
    for (const auto& row : table) {
        block.vlanId = row.vlan;
        EXPECT_EQ(row.line, linesOf(composeLoginBlock(block)).back());
    }
}

TEST(ComposeLoginBlock, TextOf63CharactersIsWholeAndOneWithoutItsNulEndsThere) {
    rpcTalLoginBlockBll block = fullBlock();
    const std::string longest(63, 'c');
    samples::setText(block.circuitId, longest);
    EXPECT_EQ("circuitId: " + longest, linesOf(composeLoginBlock(block))[2]);
    memset(block.circuitId, 'c', sizeof(block.circuitId));
    memset(block.extraString, 'e', sizeof(block.extraString));
    const Lines lines = linesOf(composeLoginBlock(block));
    EXPECT_EQ("circuitId: " + longest, lines[2]);
    EXPECT_EQ("extraString: " + std::string(63, 'e'), lines[11]);
    EXPECT_TRUE(oracle::valid(lines));
}

TEST(ComposeLoginBlock, TextEndsAtItsFirstNul) {
    rpcTalLoginBlockBll block = fullBlock();
    memcpy(block.remoteId, "ab\0cd", 6);
    EXPECT_EQ("remoteId: ab", linesOf(composeLoginBlock(block))[3]);
}

TEST(ComposeLoginBlock, AgreesWithTheOneStreamWriterOnRandomBlocks) {
    oracle::RandomText random(1);
    for (int i = 0; i < 5000; i++) {
        rpcTalLoginBlockBll block = samples::randomBlock(random);
        if (i % 2 == 0)  // any bytes at all
            for (size_t at = 0; at < sizeof(block); at++)
                reinterpret_cast<unsigned char*>(&block)[at] =
                    static_cast<unsigned char>(random.below(256));
        ASSERT_EQ(oracle::compose(block), composeLoginBlock(block));
    }
}

TEST(OverlayLoginBlock, ReadsBackEveryFieldButTheInterface) {
    rpcTalLoginBlockBll block = marked();
    ASSERT_TRUE(overlayLoginBlock(linesOf(composeLoginBlock(fullBlock())), 0, block));
    rpcTalLoginBlockBll expected = fullBlock();
    expected.interface = 0x2e2e2e2e;
    expected.vlanId = 64;
    EXPECT_EQ("", oracle::difference(expected, block));
}

TEST(OverlayLoginBlock, KeepsReadingTheHexVlanAsDecimal) {
    const struct {
        uint32_t vlan, read;
    } table[] = {{0, 0}, {9, 9}, {10, 0}, {16, 10}, {100, 64}, {26, 1}, {4094, 0}, {0x1f5, 1}};
    for (const auto& row : table) {
        rpcTalLoginBlockBll block = fullBlock();
        block.vlanId = row.vlan;
        const Lines lines = linesOf(composeLoginBlock(block));
        ASSERT_TRUE(overlayLoginBlock(lines, 0, block));
        EXPECT_EQ(row.read, block.vlanId) << lines.back();
    }
}

TEST(OverlayLoginBlock, ComposeOverlayComposeIsTheSameTextButForTheVlan) {
    oracle::RandomText random(2);
    for (int i = 0; i < 3000; i++) {
        rpcTalLoginBlockBll first = samples::randomBlock(random);
        first.vlanId = static_cast<uint32_t>(random.below(10));  // the same in both readings
        const std::string text = composeLoginBlock(first);
        rpcTalLoginBlockBll second = marked();
        second.interface = first.interface;
        ASSERT_TRUE(overlayLoginBlock(linesOf(text), 0, second));
        ASSERT_EQ(text, composeLoginBlock(second));
        ASSERT_EQ("", oracle::difference(first, second));
    }
}

TEST(OverlayLoginBlock, StartsAtTheIndexAndStopsAfterFourteenLines) {
    Lines lines = linesOf(samples::fileOf({1, 2, 3}));
    rpcTalLoginBlockBll block = marked();
    ASSERT_TRUE(overlayLoginBlock(lines, 14, block));
    EXPECT_STREQ("KORVALIN:2 eth 5/1/2", block.circuitId);
    // The 15th line is not looked at, however bad.
    lines[28] = "vlanId: 123456789";
    EXPECT_TRUE(overlayLoginBlock(lines, 14, block));
}

TEST(OverlayLoginBlock, EndsWithTheList) {
    rpcTalLoginBlockBll block = marked();
    EXPECT_TRUE(overlayLoginBlock({"interface: 1", "remoteId: r"}, 0, block));
    EXPECT_STREQ("r", block.remoteId);
    EXPECT_TRUE(overlayLoginBlock({}, 0, block));
    EXPECT_TRUE(overlayLoginBlock({"vlanId: 123456789"}, 1, block));
}

TEST(OverlayLoginBlock, LinesWithoutADataLabelAreSkipped) {
    rpcTalLoginBlockBll block = marked();
    EXPECT_TRUE(overlayLoginBlock({"interface: 5", "unknown: 1", "", "circuitid: x", "vlanId:1",
                                   " remoteId: x", "interface: 1234567890"},
                                  0, block));
    EXPECT_EQ("", oracle::difference(marked(), block));
}

TEST(OverlayLoginBlock, FieldsWithoutALineKeepTheirValue) {
    rpcTalLoginBlockBll block = marked(), expected = marked();
    samples::setText(expected.vendorId, "v");
    EXPECT_TRUE(overlayLoginBlock({"vendorId: v"}, 0, block));
    EXPECT_EQ("", oracle::difference(expected, block));
}

TEST(OverlayLoginBlock, LastOfRepeatedLinesWins) {
    rpcTalLoginBlockBll block = marked();
    EXPECT_TRUE(overlayLoginBlock({"remoteId: longer one", "remoteId: r"}, 0, block));
    EXPECT_STREQ("r", block.remoteId);
}

TEST(OverlayLoginBlock, ShorterTextLeavesNothingOfTheLongerOne) {
    rpcTalLoginBlockBll block = marked();
    ASSERT_TRUE(overlayLoginBlock({"remoteId: r", "clientId: "}, 0, block));
    EXPECT_STREQ("r", block.remoteId);
    EXPECT_STREQ("", block.clientId);
}

// Which value goes into which field; what is not named stays as it was.
struct Reading {
    const char* line;
    void (*expect)(rpcTalLoginBlockBll&);
};

TEST(OverlayLoginBlock, GoodTable) {
    using B = rpcTalLoginBlockBll;
    const Reading table[] = {
        {"LoginAAAtype: 01", [](B& b) { b.LoginAAAtype = 1; }},
        {"LoginAAAtype: fF", [](B& b) { b.LoginAAAtype = 255; }},
        {"LoginAAAtype:  2", [](B& b) { b.LoginAAAtype = 2; }},
        {"LoginAAAtype: 2 ", [](B& b) { b.LoginAAAtype = 2; }},
        {"LoginAAAtype: 2z", [](B& b) { b.LoginAAAtype = 2; }},
        {"LoginAAAtype: -1", [](B& b) { b.LoginAAAtype = 255; }},
        {"LoginAAAtype: 0x", [](B& b) { b.LoginAAAtype = 0; }},
        {"sourceMac: 00:1A:2B:3C:4D:5E",
         [](B& b) { memcpy(b.sourceMac, "\x00\x1a\x2b\x3c\x4d\x5e", 6); }},
        {"sourceMac: 00:1a:2b:3c:4d:5e",
         [](B& b) { memcpy(b.sourceMac, "\x00\x1a\x2b\x3c\x4d\x5e", 6); }},
        {"sourceMac: 1:2:3:4:5:6      ",
         [](B& b) { memcpy(b.sourceMac, "\x01\x02\x03\x04\x05\x06", 6); }},
        {"sourceMac: 1:  2: 3: 4: 5: 6",
         [](B& b) { memcpy(b.sourceMac, "\x01\x02\x03\x04\x05\x06", 6); }},
        {"sourceMac: 00:1A:2B:3C:4D:zz", [](B& b) { memset(b.sourceMac, 0, 6); }},
        {"sourceMac: 00-1A-2B-3C-4D-5E", [](B& b) { memset(b.sourceMac, 0, 6); }},
        {"sourceMac: seventeen letters", [](B& b) { memset(b.sourceMac, 0, 6); }},
        {"sourceMac: 01 :02:03:04:05:6", [](B& b) { memset(b.sourceMac, 0, 6); }},
        {"sourceMac:                  ", [](B& b) { memset(b.sourceMac, 0, 6); }},
        {"sourceIP: 0a000001", [](B& b) { b.sourceIP = 0x0a000001; }},
        {"sourceIP: 1", [](B& b) { b.sourceIP = 1; }},
        {"sourceIP: 0xff", [](B& b) { b.sourceIP = 255; }},
        {"sourceIP: -1", [](B& b) { b.sourceIP = 0xffffffff; }},
        {"sourceIP: ", [](B&) {}},
        {"sourceIP: zz", [](B&) {}},
        {"userPatternSequence: ", [](B&) {}},
        {"userPatternMask: ", [](B&) {}},
        {"extraInt: 00000abc", [](B& b) { b.extraInt = 0xabc; }},
        {"extraInt:       1 ", [](B& b) { b.extraInt = 1; }},
        {"extraInt: zzzzzzzz", [](B& b) { b.extraInt = 0; }},
        {"loginIdType: ff", [](B& b) { b.loginIdType = 255; }},
        {"loginIdType: -2", [](B& b) { b.loginIdType = 254; }},
        {"loginIdType: zz", [](B& b) { b.loginIdType = 0; }},
        {"vlanId: 64", [](B& b) { b.vlanId = 64; }},
        {"vlanId: 4094", [](B& b) { b.vlanId = 4094; }},
        {"vlanId: -1", [](B& b) { b.vlanId = 0xffffffff; }},
        {"vlanId: 0x1f", [](B& b) { b.vlanId = 0; }},
        {"vlanId: 1f", [](B& b) { b.vlanId = 1; }},
        {"vlanId: ffe", [](B& b) { b.vlanId = 0; }},
        {"vlanId: ", [](B& b) { b.vlanId = 0; }},
        {"circuitId: ", [](B& b) { b.circuitId[0] = 0; }},
        {"remoteId:  two blanks ", [](B& b) { strcpy(b.remoteId, " two blanks "); }},
        {"extraString: remoteId: x", [](B& b) { strcpy(b.extraString, "remoteId: x"); }},
    };
    for (const Reading& row : table) {
        rpcTalLoginBlockBll block = marked(), expected = marked();
        row.expect(expected);
        EXPECT_TRUE(overlayLoginBlock({row.line}, 0, block)) << row.line;
        EXPECT_EQ("", oracle::difference(expected, block)) << row.line;
    }
}

TEST(OverlayLoginBlock, TextsUpTo63CharactersAreRead) {
    const std::string longest(63, 't');
    rpcTalLoginBlockBll block = marked();
    ASSERT_TRUE(
        overlayLoginBlock({"circuitId: " + longest, "remoteId: " + longest, "vendorId: " + longest,
                           "clientId: " + longest, "extraString: " + longest},
                          0, block));
    for (const char* field :
         {block.circuitId, block.remoteId, block.vendorId, block.clientId, block.extraString})
        EXPECT_EQ(longest, field);
}

TEST(OverlayLoginBlock, BadTable) {
    const std::string digits(300, '1');
    const struct {
        const char* label;
        std::vector<size_t> lengths;
    } table[] = {
        {"LoginAAAtype: ", {0, 1, 3, 8}},
        {"circuitId: ", {64, 65, 200}},
        {"remoteId: ", {64, 65, 200}},
        {"vendorId: ", {64, 65, 200}},
        {"clientId: ", {64, 65, 200}},
        {"extraString: ", {64, 65, 200}},
        {"sourceMac: ", {0, 1, 16, 18}},
        {"sourceIP: ", {9, 10}},
        {"extraInt: ", {0, 1, 7, 9}},
        {"loginIdType: ", {0, 1, 3}},
        {"vlanId: ", {5, 6}},
        {"userPatternMask: ", {1, 8, 255, 257}},
        {"userPatternSequence: ", {1, 8, 255, 257}},
    };
    for (const auto& row : table)
        for (size_t length : row.lengths) {
            rpcTalLoginBlockBll block = marked();
            EXPECT_FALSE(overlayLoginBlock({row.label + digits.substr(0, length)}, 0, block))
                << row.label << length;
            EXPECT_EQ("", oracle::difference(marked(), block)) << row.label << length;
        }
    for (const char* line : {"LoginAAAtype: zz", "LoginAAAtype:   ", "LoginAAAtype: --"}) {
        rpcTalLoginBlockBll block = marked();
        EXPECT_FALSE(overlayLoginBlock({line}, 0, block)) << line;
        EXPECT_EQ("", oracle::difference(marked(), block)) << line;
    }
}

TEST(OverlayLoginBlock, CorruptLineStopsAndLeavesTheFieldsBeforeItFilled) {
    Lines lines = linesOf(composeLoginBlock(fullBlock()));
    lines[6] = "sourceMac: short";
    rpcTalLoginBlockBll block = marked(), expected = marked();
    EXPECT_FALSE(overlayLoginBlock(lines, 0, block));
    expected.LoginAAAtype = 2;
    strcpy(expected.circuitId, "KORVALIN:2 eth 5/1/42");
    strcpy(expected.remoteId, "remote 7");
    strcpy(expected.vendorId, "home 5.0");
    strcpy(expected.clientId, "001a2b3c4d5e");
    EXPECT_EQ("", oracle::difference(expected, block));
}

TEST(OverlayLoginBlock, PatternPiecesAreScannedOneByOne) {
    std::string digits(256, '0');
    digits.replace(0, 8, "deadbeef");
    digits.replace(8, 8, "      1f");
    digits.replace(16, 8, "0x1f    ");
    digits.replace(24, 8, "zzzzzzzz");
    digits.replace(32, 8, "        ");
    digits.replace(40, 8, "-1      ");
    digits.replace(248, 8, "12345678");
    rpcTalLoginBlockBll block = marked();
    ASSERT_TRUE(overlayLoginBlock({"userPatternSequence: " + digits}, 0, block));
    EXPECT_EQ(0xdeadbeefU, block.userPatternSequence[0]);
    EXPECT_EQ(0x1fU, block.userPatternSequence[1]);
    EXPECT_EQ(0x1fU, block.userPatternSequence[2]);
    EXPECT_EQ(0x2e2e2e2eU, block.userPatternSequence[3]);  // unreadable: as it was
    EXPECT_EQ(0x2e2e2e2eU, block.userPatternSequence[4]);
    EXPECT_EQ(0xffffffffU, block.userPatternSequence[5]);
    EXPECT_EQ(0U, block.userPatternSequence[6]);
    EXPECT_EQ(0x12345678U, block.userPatternSequence[31]);
    EXPECT_EQ(0x2e2e2e2eU, block.userPatternMask[0]);
}

TEST(OverlayLoginBlock, AgreesWithTheTwinOnRandomAndDamagedFiles) {
    oracle::RandomText random(3);
    int good = 0, bad = 0;
    for (int i = 0; i < 8000; i++) {
        const Lines lines = linesOf(samples::randomFile(random));
        for (size_t index = 0; index <= lines.size(); index += 1 + random.below(14)) {
            rpcTalLoginBlockBll block = marked(), expected = marked();
            const bool whole = oracle::overlay(lines, index, expected);
            ASSERT_EQ(whole, overlayLoginBlock(lines, index, block))
                << index << testing::PrintToString(lines);
            ASSERT_EQ("", oracle::difference(expected, block))
                << index << testing::PrintToString(lines);
            (whole ? good : bad)++;
        }
    }
    EXPECT_GT(good, 5000);
    EXPECT_GT(bad, 1000);
}

}  // namespace
