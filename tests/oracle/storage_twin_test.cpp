// Pins the twins of the storage file's code to values worked out by hand.
#include "tests/oracle/scan_oracle.h"
#include "tests/oracle/storage_oracle.h"

#include <gtest/gtest.h>

#include <string.h>

namespace {

std::vector<std::string> split(const std::string& contents) {
    std::vector<std::string> lines;
    oracle::readLines(contents, lines);
    return lines;
}

rpcTalLoginBlockBll sample() {
    rpcTalLoginBlockBll block{};
    block.interface = 42;
    block.LoginAAAtype = 1;
    strcpy(block.circuitId, "KORVALIN:2 eth 5/1/3");
    const unsigned char mac[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    memcpy(block.sourceMac, mac, 6);
    block.sourceIP = 0x0a000001;
    block.userPatternSequence[0] = 0xdeadbeef;
    block.userPatternSequence[31] = 1;
    block.extraInt = 0xabc;
    block.loginIdType = 0xf1;
    block.vlanId = 100;
    return block;
}

TEST(StorageTwin, ComposesTheFourteenLines) {
    const std::string zeros(8 * 30, '0');
    EXPECT_EQ(
        "interface: 42\nLoginAAAtype: 01\ncircuitId: KORVALIN:2 eth 5/1/3\nremoteId: \n"
        "vendorId: \nclientId: \nsourceMac: 00:1A:2B:3C:4D:5E\nsourceIP: 0a000001\n"
        "userPatternSequence: deadbeef" +
            zeros + "00000001\nuserPatternMask: " + std::string(256, '0') +
            "\nextraInt: 00000abc\nextraString: \nloginIdType: f1\nvlanId: 64",
        oracle::compose(sample()));
}

TEST(StorageTwin, OverlayReadsBackWhatWasComposedButTheVlan) {
    rpcTalLoginBlockBll block{};
    block.interface = 42;
    ASSERT_TRUE(oracle::overlay(split(oracle::compose(sample())), 0, block));
    EXPECT_EQ(64U, block.vlanId);
    block.vlanId = 100;
    EXPECT_EQ("", oracle::difference(sample(), block));
}

TEST(StorageTwin, LineOf300CharactersIsCutAndEndsTheReading) {
    const std::string longest(299, 'a');
    EXPECT_EQ((std::vector<std::string>{longest, "b"}), split(longest + "\nb\n"));
    EXPECT_EQ(std::vector<std::string>{longest}, split(longest + "a\nb\n"));
    EXPECT_EQ(std::vector<std::string>{longest}, split(longest));
}

TEST(StorageTwin, EmptyLinesAndTheMissingLastNewlineDoNotCount) {
    EXPECT_EQ((std::vector<std::string>{"a", "b"}), split("\n\na\n\nb"));
    EXPECT_EQ((std::vector<std::string>{"a", "b"}), split("a\nb\n"));
    EXPECT_TRUE(split("").empty());
    EXPECT_TRUE(split("\n\n\n").empty());
    EXPECT_EQ((std::vector<std::string>{"a", "c"}), split(std::string("a\0b\nc\n\0d\n", 9)));
}

TEST(StorageTwin, KnowsWholeBlocks) {
    std::vector<std::string> lines = split(oracle::compose(sample()));
    ASSERT_EQ(14U, lines.size());
    EXPECT_TRUE(oracle::valid(lines));
    EXPECT_TRUE(oracle::valid({}));
    lines[0] = "interface: 100";
    EXPECT_FALSE(oracle::valid(lines));
    lines[0] = "interface: 7";
    EXPECT_TRUE(oracle::valid(lines));
    lines[13] = "vlanId: 12345";
    EXPECT_FALSE(oracle::valid(lines));
    lines.pop_back();
    EXPECT_FALSE(oracle::valid(lines));
}

TEST(StorageTwin, FindsTheFirstLineOfTheInterface) {
    EXPECT_EQ(1, oracle::find({"interface: x", "interface: 7", "interface: 7"}, 7));
    EXPECT_EQ(-1, oracle::find({"interface: 77"}, 7));
    EXPECT_EQ(-1, oracle::find({"interface: x"}, 0));
}

TEST(ScanTwin, ReadsAsTheLibraryDoes) {
    EXPECT_EQ(12U, oracle::scanDecimal(" 12x"));
    EXPECT_EQ(1U, oracle::scanDecimal("12", 1));
    EXPECT_EQ(0xffffffffU, oracle::scanDecimal("-1"));
    EXPECT_EQ(0x1fU, oracle::scanHex("0x1F"));
    EXPECT_EQ(1U, oracle::scanHex("0x1F", 3));
    EXPECT_EQ(std::nullopt, oracle::scanHex("-"));
    EXPECT_EQ(std::nullopt, oracle::scanDecimal(""));
}

}  // namespace
