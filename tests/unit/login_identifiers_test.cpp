// The members that make a login's texts: what they ask, and what they leave alone when refused.
#include "tests/fake/module_test.h"

namespace {

using fake::sameLines;

class LoginIdentifiersTest : public ModuleTest {
protected:
    void SetUp() override { platform.interfaces.add(7, 1, "1/3", "if7_"); }
    unsigned generate(std::string& circuitId) { return module.talGenCircuitId(7, circuitId); }
};

TEST_F(LoginIdentifiersTest, CircuitIdIsBoardShelfAndNameAskedInThisOrder) {
    std::string circuitId = "what stood there before, longer than what comes";
    EXPECT_EQ(0u, generate(circuitId));
    EXPECT_EQ("KORVALIN:2 eth 5/1/3", circuitId);
    EXPECT_TRUE(sameLines(platform.calls(), {"ncfmGetMyBoardPos() -> 5", "getShelfId() -> \"2\"",
                                             "interfaceGetNameById(7) -> \"1/3\""}));
}

TEST_F(LoginIdentifiersTest, BoardPositionIsZeroUntilItIsWritten) {
    platform.board.positionLeft = true;
    std::string circuitId;
    EXPECT_EQ(0u, generate(circuitId));
    EXPECT_EQ("KORVALIN:2 eth 0/1/3", circuitId);
}

TEST_F(LoginIdentifiersTest, EachRefusalIsOneAndLeavesTheTextAndAsksNoFurther) {
    const char* const calls[] = {"ncfmGetMyBoardPos", "getShelfId", "interfaceGetNameById"};
    for (size_t i = 0; i < std::size(calls); ++i) {
        for (const int refusal : {1, -1, 255}) {
            platform.answers.clear();
            platform.answers.always(calls[i], refusal);
            platform.forget();
            std::string circuitId = "before";
            EXPECT_EQ(1u, generate(circuitId)) << calls[i];
            EXPECT_EQ("before", circuitId) << calls[i];
            EXPECT_EQ(i + 1, platform.calls().size()) << calls[i];
            EXPECT_TRUE(platform.texts().empty());
        }
    }
}

TEST_F(LoginIdentifiersTest, SystemInformationIsMadeOnceAndNotWithoutABoardPosition) {
    std::string circuitId;
    platform.answers.nth("ncfmGetMyBoardPos", 1);
    EXPECT_EQ(1u, generate(circuitId));
    EXPECT_EQ(0u, platform.board.sysInfosMade);
    platform.answers.nth("getShelfId", 1);
    EXPECT_EQ(1u, generate(circuitId));
    EXPECT_EQ(1u, platform.board.sysInfosMade);
    EXPECT_EQ(0u, generate(circuitId));
    EXPECT_EQ(0u, generate(circuitId));
    EXPECT_EQ(1u, platform.board.sysInfosMade);
}

TEST_F(LoginIdentifiersTest, MacIsSixUpperCasePairsAndNothingForNull) {
    unsigned char mac[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    EXPECT_EQ("00:1A:2B:3C:4D:5E", module.talMacToStr(mac));
    EXPECT_EQ("", module.talMacToStr(nullptr));
    EXPECT_TRUE(platform.wholeLog().empty());
}

TEST_F(LoginIdentifiersTest, HexTextReplacesTheOutputAndAlwaysSucceeds) {
    std::string out = "before";
    std::string in = "A\n\xe9";
    EXPECT_EQ(0u, module.talAsciiToHex(in, out));
    EXPECT_EQ("41affffffe9", out);
    EXPECT_EQ("A\n\xe9", in);
    in.clear();
    EXPECT_EQ(0u, module.talAsciiToHex(in, out));
    EXPECT_EQ("", out);
    EXPECT_TRUE(platform.wholeLog().empty());
}

}  // namespace
