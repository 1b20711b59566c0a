// The storage file as lines: splitting, validity and lookup.
#include "tal/storage_lines.h"
#include "tests/unit/block_samples.h"

#include <gtest/gtest.h>

namespace {

using samples::blockLines;
using samples::linesOf;
using tal_text::appendStorageLines;
using tal_text::findInterfaceLine;
using tal_text::storageLinesValid;

using Lines = std::vector<std::string>;

Lines split(const std::string& contents) {
    Lines lines;
    appendStorageLines(contents, lines);
    return lines;
}

// A whole block with the line of this label replaced; the label alone when it has no line.
Lines with(const std::string& label, const std::string& value) {
    Lines lines = blockLines();
    for (std::string& line : lines)
        if (line.starts_with(label))
            line = label + value;
    return lines;
}

TEST(StorageLines, EndAtNewlinesAndKeepEverythingElse) {
    EXPECT_EQ((Lines{"a", " b ", "\t", "c\r"}), split("a\n b \n\t\nc\r\n"));
    EXPECT_EQ((Lines{"\x80\xff\x01"}), split("\x80\xff\x01\n"));
}

TEST(StorageLines, EmptyOnesAreSkippedAnywhere) {
    EXPECT_EQ((Lines{"a", "b"}), split("\n\na\n\n\nb\n\n"));
    EXPECT_EQ(Lines{}, split(""));
    EXPECT_EQ(Lines{}, split("\n"));
    EXPECT_EQ(Lines{}, split("\n\n\n\n"));
}

TEST(StorageLines, LastOneNeedsNoNewline) {
    EXPECT_EQ((Lines{"a", "b"}), split("a\nb"));
    EXPECT_EQ(Lines{"b"}, split("b"));
}

TEST(StorageLines, LineOf299CharactersIsWhole) {
    const std::string line(299, 'x');
    EXPECT_EQ((Lines{line, "next"}), split(line + "\nnext\n"));
    EXPECT_EQ(Lines{line}, split(line));
}

TEST(StorageLines, LineOf300CharactersIsCutAndEndsTheReading) {
    for (size_t length : {300U, 301U, 599U, 600U, 100000U}) {
        const std::string line(length, 'x');
        const Lines cut{"before", std::string(299, 'x')};
        EXPECT_EQ(cut, split("before\n" + line + "\nnext\n")) << length;
        EXPECT_EQ(cut, split("before\n" + line)) << length;
    }
}

TEST(StorageLines, LineCountsUpToItsFirstNul) {
    EXPECT_EQ((Lines{"ab", "e"}), split(std::string("ab\0cd\ne\n", 8)));
    EXPECT_EQ((Lines{"e"}), split(std::string("\0cd\ne\n", 6)));
    const std::string nuls(299, '\0');
    EXPECT_EQ((Lines{"e"}), split(nuls + "\ne\n"));
    EXPECT_EQ((Lines{}), split(nuls + std::string(1, '\0') + "\ne\n"));
    // The NUL shortens the text, not the line.
    EXPECT_EQ((Lines{"a"}), split(std::string("a\0", 2) + std::string(298, 'x') + "\ne\n"));
}

TEST(StorageLines, AreAppended) {
    Lines lines{"kept"};
    appendStorageLines("a\nb\n", lines);
    EXPECT_EQ((Lines{"kept", "a", "b"}), lines);
}

TEST(StorageValidity, EmptyListAndWholeBlocksAreValid) {
    EXPECT_TRUE(storageLinesValid({}));
    Lines lines;
    for (unsigned interface : {1U, 7U, 42U, 99U}) {
        const Lines block = blockLines(interface);
        lines.insert(lines.end(), block.begin(), block.end());
        EXPECT_TRUE(storageLinesValid(lines)) << interface;
    }
}

TEST(StorageValidity, CountMustBeAMultipleOfFourteen) {
    Lines lines = blockLines();
    for (size_t more = 1; more < 14; more++) {
        lines.push_back("vlanId: 1");
        EXPECT_FALSE(storageLinesValid(lines)) << lines.size();
    }
    lines = blockLines();
    while (lines.size() > 1) {
        lines.pop_back();
        EXPECT_FALSE(storageLinesValid(lines)) << lines.size();
    }
}

TEST(StorageValidity, KeepsInterfaceValuesToOneOrTwoCharacters) {
    for (const char* value : {"7", "42", "0", "99", "x", "--", "  "})
        EXPECT_TRUE(storageLinesValid(with("interface: ", value))) << value;
    for (const char* value : {"", "100", "007", "4294967295", "42 "})
        EXPECT_FALSE(storageLinesValid(with("interface: ", value))) << value;
}

TEST(StorageValidity, LengthsOfEveryLabel) {
    struct Rule {
        const char* label;
        std::vector<size_t> good, bad;
    };
    const std::vector<size_t> textGood{0, 1, 2, 62, 63}, textBad{64, 65, 128, 280};
    const Rule rules[] = {
        {"LoginAAAtype: ", {2}, {0, 1, 3, 4}},
        {"circuitId: ", textGood, textBad},
        {"remoteId: ", textGood, textBad},
        {"vendorId: ", textGood, textBad},
        {"clientId: ", textGood, textBad},
        {"extraString: ", textGood, textBad},
        {"sourceMac: ", {17}, {0, 1, 16, 18, 34}},
        {"sourceIP: ", {0, 1, 7, 8}, {9, 10, 16}},
        {"userPatternSequence: ", {0, 256}, {1, 2, 8, 128, 255, 257}},
        {"userPatternMask: ", {0, 256}, {1, 2, 8, 128, 255, 257}},
        {"extraInt: ", {8}, {0, 1, 7, 9, 16}},
        {"loginIdType: ", {2}, {0, 1, 3, 4}},
        {"vlanId: ", {0, 1, 3, 4}, {5, 6, 8}},
    };
    for (const Rule& rule : rules) {
        for (size_t length : rule.good)
            EXPECT_TRUE(storageLinesValid(with(rule.label, std::string(length, '?'))))
                << rule.label << length;
        for (size_t length : rule.bad)
            EXPECT_FALSE(storageLinesValid(with(rule.label, std::string(length, '1'))))
                << rule.label << length;
    }
}

TEST(StorageValidity, LabelsMayStandInAnyOrderAndRepeat) {
    Lines lines = blockLines();
    std::reverse(lines.begin() + 1, lines.end());
    EXPECT_TRUE(storageLinesValid(lines));
    for (size_t i = 1; i < lines.size(); i++)
        lines[i] = "vlanId: 1";
    EXPECT_TRUE(storageLinesValid(lines));
}

TEST(StorageValidity, InterfaceLineMustStandFirstAndOnlyThere) {
    Lines lines = blockLines();
    lines[1] = "interface: 7";
    EXPECT_FALSE(storageLinesValid(lines));
    lines = blockLines();
    lines[0] = "vlanId: 1";
    EXPECT_FALSE(storageLinesValid(lines));
    lines = blockLines();
    std::swap(lines[0], lines[1]);
    EXPECT_FALSE(storageLinesValid(lines));
}

TEST(StorageValidity, LineWithoutAKnownLabelIsCorrupt) {
    for (const char* line : {"x", "LoginAAATYPE: 01", "loginAAAtype: 01", "LoginAAAtype:01",
                             "LoginAAAtype : 01", " LoginAAAtype: 01", "circuitid: a", "circuitId:",
                             "sourceIp: 1", "vlanID: 1", "vlanId:", "unknown: 1", "interface:7"}) {
        Lines lines = blockLines();
        lines[5] = line;
        EXPECT_FALSE(storageLinesValid(lines)) << line;
    }
}

TEST(StorageValidity, OnlyLengthsAreChecked) {
    EXPECT_TRUE(storageLinesValid(with("sourceMac: ", "seventeen letters")));
    EXPECT_TRUE(storageLinesValid(with("LoginAAAtype: ", "zz")));
    EXPECT_TRUE(storageLinesValid(with("userPatternMask: ", std::string(256, '%'))));
}

TEST(StorageLookup, FindsTheFirstBlockOfTheInterface) {
    const Lines lines = linesOf(samples::fileOf({7, 42, 7}));
    EXPECT_EQ(0U, findInterfaceLine(lines, 7));
    EXPECT_EQ(14U, findInterfaceLine(lines, 42));
    EXPECT_EQ(std::nullopt, findInterfaceLine(lines, 4));
    EXPECT_EQ(std::nullopt, findInterfaceLine(lines, 77));
    EXPECT_EQ(std::nullopt, findInterfaceLine({}, 7));
}

TEST(StorageLookup, LinesNeedNotBeAligned) {
    EXPECT_EQ(2U, findInterfaceLine({"x", "interface:7", "interface: 7"}, 7));
}

TEST(StorageLookup, NumbersFollowTheScanner) {
    EXPECT_EQ(0U, findInterfaceLine({"interface: 07"}, 7));
    EXPECT_EQ(0U, findInterfaceLine({"interface:   7"}, 7));
    EXPECT_EQ(0U, findInterfaceLine({"interface: 7x"}, 7));
    EXPECT_EQ(0U, findInterfaceLine({"interface: +7"}, 7));
    EXPECT_EQ(0U, findInterfaceLine({"interface: -1"}, 0xffffffffU));
    EXPECT_EQ(0U, findInterfaceLine({"interface: 100"}, 100));
    EXPECT_EQ(0U, findInterfaceLine({"interface: 4294967295"}, 0xffffffffU));
}

TEST(StorageLookup, ValueThatIsNoNumberMatchesNothing) {
    for (unsigned id : {0U, 7U, 0xffffffffU})
        EXPECT_EQ(
            std::nullopt,
            findInterfaceLine({"interface: x", "interface: ", "interface: -", " interface: 7"}, id))
            << id;
    // Nor does it take the number of the line before.
    EXPECT_EQ(0U, findInterfaceLine({"interface: 7", "interface: x"}, 7));
}

// Splitting, validity and every lookup agree with the literal twins.
void compareFiles(unsigned seed) {
    oracle::RandomText random(seed);
    int valid = 0, invalid = 0, found = 0;
    for (int i = 0; i < 6000; i++) {
        const std::string contents = samples::randomFile(random);
        Lines expected;
        oracle::readLines(contents, expected);
        ASSERT_EQ(expected, split(contents)) << testing::PrintToString(contents);
        const bool isValid = oracle::valid(expected);
        ASSERT_EQ(isValid, storageLinesValid(expected)) << testing::PrintToString(expected);
        (isValid && !expected.empty() ? valid : invalid)++;
        for (unsigned id = 0; id < 101; id++) {
            const int at = oracle::find(expected, id);
            const auto index = findInterfaceLine(expected, id);
            ASSERT_EQ(at, index ? static_cast<int>(*index) : -1)
                << id << testing::PrintToString(expected);
            found += at >= 0;
        }
    }
    EXPECT_GT(valid, 1000);
    EXPECT_GT(invalid, 1000);
    EXPECT_GT(found, 1000);
}

TEST(StorageLinesOracle, AgreesOnRandomFilesOfSeed1) {
    compareFiles(1);
}
TEST(StorageLinesOracle, AgreesOnRandomFilesOfSeed2) {
    compareFiles(2);
}

TEST(StorageLinesOracle, AgreesOnNoise) {
    oracle::RandomText random(3);
    for (int i = 0; i < 5000; i++) {
        std::string contents = random.bytes(random.below(2000));
        for (char& character : contents)
            if (random.chance(1))
                character = random.chance(70) ? '\n' : '\0';
        Lines expected;
        oracle::readLines(contents, expected);
        ASSERT_EQ(expected, split(contents)) << testing::PrintToString(contents);
        ASSERT_EQ(oracle::valid(expected), storageLinesValid(expected));
    }
}

}  // namespace
