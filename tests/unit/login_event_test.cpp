// Event lines through the module: what is asked, what ISA gets, what is kept for the reply.
#include "tests/fake/module_test.h"
#include "tests/unit/block_samples.h"
#include "tests/unit/file_probe.h"

#include <stdexcept>

namespace {

using fake::sameLines;
using fake::Service;
using oracle::EventLineText;
using samples::fileOf;
using samples::fullBlock;

using Texts = std::vector<std::string>;

class LoginEventTest : public ModuleTest {
protected:
    void SetUp() override {
        std::filesystem::remove(talStorageFile);
        startWith({1, 2});
        platform.forget();
    }

    void raise(const std::string& line) { platform.engine.raise(line.c_str()); }

    static EventLineText lineOf(unsigned interface) {
        EventLineText text;
        text.interface = "if" + std::to_string(interface) + "_";
        return text;
    }
    static std::string header(unsigned interface) { return lineOf(interface).line().substr(0, 10); }

    // The block that ISA got in the last request.
    rpcTalLoginBlockBll sent() {
        const std::vector<rpcTalLoginBlockBll> requests = platform.isa.requests();
        EXPECT_FALSE(requests.empty());
        return requests.empty() ? rpcTalLoginBlockBll{} : requests.back();
    }
    rpcTalLoginBlockBll sentFor(const std::string& line) {
        platform.forget();
        raise(line);
        EXPECT_EQ(1U, platform.isa.requests().size()) << line;
        return sent();
    }

    // What an accepted reply puts into the storage file; "(none)" when it stores nothing.
    std::string keptFor(unsigned interface) {
        std::filesystem::remove(talStorageFile);
        EXPECT_EQ(talResOk,
                  module.talReply(interface, talRequestTypeAuthentication, talReplyAccepted));
        return storedFile();
    }
    static std::string textOf(const rpcTalLoginBlockBll& block) {
        return oracle::compose(block) + "\n";
    }
    void expectDropped(const std::string& line, const Texts& calls) {
        platform.forget();
        raise(line);
        EXPECT_TRUE(sameLines(platform.calls(), calls)) << line;
        EXPECT_TRUE(sameLines(platform.texts(), {})) << line;
        EXPECT_EQ("(none)", keptFor(1)) << line;
    }
    static Texts identifierCalls(unsigned interface) {
        const std::string id = std::to_string(interface);
        return {"interfaceGetIdByLinuxname(\"if" + id + "_\") -> " + id, "ncfmGetMyBoardPos() -> 5",
                "getShelfId() -> \"2\"", "interfaceGetNameById(" + id + ") -> \"1/" + id + "\"",
                "isaradiusbllLoginRequest(" + id + ")"};
    }
};

TEST_F(LoginEventTest, AsksForInterfaceBoardShelfNameAndThenIsa) {
    raise(lineOf(2).line());
    EXPECT_TRUE(sameLines(platform.calls(), identifierCalls(2)));
    EXPECT_TRUE(sameLines(platform.texts(), {}));
    EXPECT_EQ("(none)", storedFile());
}

TEST_F(LoginEventTest, FullLineFillsTheWholeBlock) {
    EventLineText text = lineOf(1);
    text.options = oracle::vendorOption("home 5.0") + oracle::remoteOption("line 7") +
                   oracle::clientOption("001a2b3c4d5e", "001");
    rpcTalLoginBlockBll expected{};
    expected.interface = 1;
    expected.LoginAAAtype = 1;
    samples::setText(expected.circuitId, "KORVALIN:2 eth 5/1/1");
    samples::setText(expected.remoteId, "line 7");
    samples::setText(expected.vendorId, "home 5.0");
    samples::setText(expected.clientId, "001a2b3c4d5e");
    for (unsigned char i = 0; i < 6; i++)
        expected.sourceMac[i] = i;
    expected.sourceIP = 0x13100001U;
    for (uint32_t i = 0; i < 31; i++)
        expected.userPatternSequence[i] = 0x00010203U + 0x04040404U * i;
    expected.userPatternSequence[31] = 0x07c7d7e7U;
    expected.loginIdType = 0xff;
    expected.vlanId = 10;
    const rpcTalLoginBlockBll block = sentFor(text.line());
    EXPECT_EQ("", oracle::difference(expected, block));
    EXPECT_EQ(0, memcmp(&expected, &block, sizeof(block)));  // unset bytes are zero too
}

TEST_F(LoginEventTest, LineOfTheHeaderSendsOnlyInterfaceAaaTypeAndCircuitId) {
    rpcTalLoginBlockBll expected{};
    expected.interface = 2;
    expected.LoginAAAtype = 1;
    samples::setText(expected.circuitId, "KORVALIN:2 eth 5/1/2");
    expected.loginIdType = 0x01;
    for (size_t length = 10; length < 14; length++) {
        const rpcTalLoginBlockBll block = sentFor(lineOf(2).line().substr(0, length));
        EXPECT_EQ(0, memcmp(&expected, &block, sizeof(block))) << length;
    }
}

TEST_F(LoginEventTest, BitsTellWhatTheLineCarried) {
    EventLineText text = lineOf(1);
    text.options =
        oracle::vendorOption("v") + oracle::remoteOption("r") + oracle::clientOption("c");
    const std::string full = text.line();
    const struct {
        size_t length;
        unsigned bits;
    } table[] = {{13, 0x01},  {14, 0x81},  {25, 0x81},  {26, 0x91},  {40, 0x91},
                 {41, 0xb1},  {296, 0xb1}, {297, 0xf1}, {299, 0xf1}, {303, 0xf1},
                 {304, 0xf5}, {310, 0xf5}, {311, 0xf7}, {320, 0xf7}, {321, 0xff}};
    ASSERT_EQ(321U, full.size());
    for (const auto& row : table)
        EXPECT_EQ(row.bits, sentFor(full.substr(0, row.length)).loginIdType) << row.length;
}

TEST_F(LoginEventTest, ZeroMacAddressAndVlanLeaveTheirBitsClear) {
    EventLineText text = lineOf(1);
    text.mac = "000000000000";
    text.address = "000.000.000.000";
    text.vlan = "0000";
    EXPECT_EQ(0x41U, sentFor(text.line()).loginIdType);
    text.mac = "000000000010";  // only the last byte
    EXPECT_EQ(0x51U, sentFor(text.line()).loginIdType);
    text.mac = "0f0f0f0f0f0f";  // the digits that nobody reads
    EXPECT_EQ(0x41U, sentFor(text.line()).loginIdType);
    text.address = "000.000.000.010";
    EXPECT_EQ(0x61U, sentFor(text.line()).loginIdType);
    text.vlan = "0010";
    EXPECT_EQ(0xe1U, sentFor(text.line()).loginIdType);
}

TEST_F(LoginEventTest, PatternOfZerosStillCounts) {
    EventLineText text = lineOf(1);
    text.pattern = std::string(256, '0');
    EXPECT_EQ(0xf1U, sentFor(text.line()).loginIdType);
}

TEST_F(LoginEventTest, IdentifiersAreCutTo63Characters) {
    const std::string data = std::string(62, 'a') + "bcd";
    EventLineText text = lineOf(1);
    text.options =
        oracle::vendorOption(data) + oracle::remoteOption(data) + oracle::clientOption(data);
    const rpcTalLoginBlockBll block = sentFor(text.line());
    for (const char* field : {block.remoteId, block.vendorId, block.clientId})
        EXPECT_EQ(std::string(62, 'a') + "b", field);
    EXPECT_EQ(0xffU, block.loginIdType);
}

TEST_F(LoginEventTest, CircuitIdIsCutTo63Characters) {
    platform.board.shelfId = std::string(100, 's');
    const rpcTalLoginBlockBll block = sentFor(header(1));
    EXPECT_EQ("KORVALIN:" + std::string(54, 's'), block.circuitId);
}

TEST_F(LoginEventTest, EmptyShelfIsUsedAsItIs) {
    platform.board.shelfId = "";
    platform.board.position = 255;
    EXPECT_STREQ("KORVALIN: eth 255/1/1", sentFor(header(1)).circuitId);
}

TEST_F(LoginEventTest, KeepsIgnoringTheDigitsOfSelectorAndKind) {
    for (const char* digits : {"00", "10", "01", "02", "12", "99", "zz", "  "}) {
        EventLineText text = lineOf(1);
        text.digits = digits;
        const rpcTalLoginBlockBll block = sentFor(text.line());
        EXPECT_EQ(1, block.LoginAAAtype) << digits;
        EXPECT_EQ(10U, block.vlanId) << digits;
        EXPECT_EQ(textOf(block), keptFor(1)) << digits;
    }
}

TEST_F(LoginEventTest, ForeignAndShortLinesAreDroppedSilently) {
    for (const char* line : {"", "t", "ta", "tal", "tali", "talif1", "talif1_", "Talif1_ 000100",
                             "if1_ 00", " talif1_ 00"})
        expectDropped(line, {});
    for (const char* line : {"talif1_ ", "talif1_x", "talif1_ 0"})
        expectDropped(line, {"interfaceGetIdByLinuxname(\"if1_\") -> 1"});
}

TEST_F(LoginEventTest, NullLineIsDropped) {
    module.talEvent(nullptr);
    EXPECT_TRUE(sameLines(platform.calls(), {}));
}

TEST_F(LoginEventTest, UnknownInterfaceIsDroppedSilently) {
    expectDropped("talif9_ 00", {"interfaceGetIdByLinuxname(\"if9_\") = 1"});
    // All four characters belong to the name, blanks too.
    expectDropped("talif1  00", {"interfaceGetIdByLinuxname(\"if1 \") = 1"});
    expectDropped("talif1_" + std::string(1, '\0') + " 00", {});  // ends at its NUL
}

TEST_F(LoginEventTest, FailingCircuitIdDropsTheEventSilently) {
    const Texts all = identifierCalls(1);
    platform.answers.nth("ncfmGetMyBoardPos", 1);
    expectDropped(lineOf(1).line(), {all[0], "ncfmGetMyBoardPos() = 1"});
    platform.answers.nth("getShelfId", 1);
    expectDropped(lineOf(1).line(), {all[0], all[1], "getShelfId() = 1"});
    platform.answers.nth("interfaceGetNameById", 1);
    expectDropped(lineOf(1).line(), {all[0], all[1], all[2], "interfaceGetNameById(1) = 1"});
}

TEST_F(LoginEventTest, DroppedEventLeavesTheBlockInFlight) {
    const rpcTalLoginBlockBll block = sentFor(lineOf(1).line());
    platform.answers.nth("getShelfId", 1);
    EventLineText other = lineOf(1);
    other.vlan = "0990";
    raise(other.line());
    EXPECT_EQ(textOf(block), keptFor(1));
}

TEST_F(LoginEventTest, RefusingIsaIsReportedAndTheBlockStillKept) {
    platform.answers.nth("isaradiusbllLoginRequest", 1);
    raise(lineOf(2).line());
    EXPECT_TRUE(
        sameLines(platform.texts(), {"err: talEvent Unsuccessful call to ISA for interface 2."}));
    const rpcTalLoginBlockBll block = sent();
    EXPECT_EQ(textOf(block), keptFor(2));
}

TEST_F(LoginEventTest, BlockIsKeptForOneAcceptedReply) {
    const rpcTalLoginBlockBll block = sentFor(lineOf(1).line());
    EXPECT_EQ(textOf(block), keptFor(1));
    EXPECT_EQ("(none)", keptFor(1));
    EXPECT_EQ("(none)", keptFor(2));
}

TEST_F(LoginEventTest, BlockIsKeptAsIsaChangedIt) {
    platform.isa.onRequest = [](rpcTalLoginBlockBll& block) {
        samples::setText(block.extraString, "from ISA");
        block.extraInt = 77;
        block.userPatternMask[3] = 5;
        block.vlanId = 300;
    };
    raise(lineOf(1).line());
    rpcTalLoginBlockBll expected = sent();
    platform.isa.onRequest(expected);
    EXPECT_EQ(textOf(expected), keptFor(1));
}

TEST_F(LoginEventTest, LaterEventReplacesTheBlockOfTheEarlier) {
    raise(lineOf(1).line());
    raise(lineOf(2).line());
    EventLineText later = lineOf(1);
    later.vlan = "0990";
    raise(later.line());
    const rpcTalLoginBlockBll block = sent();
    EXPECT_EQ(99U, block.vlanId);
    EXPECT_EQ(textOf(block), keptFor(1));
}

TEST_F(LoginEventTest, HeaderLineWithoutAReplayIsAFreshLoginAndKept) {
    writeStoredFile(fileOf({1}));
    const rpcTalLoginBlockBll block = sentFor(header(1));
    EXPECT_STREQ("", block.remoteId);
    EXPECT_EQ(textOf(block), keptFor(1));
}

TEST_F(LoginEventTest, InterfaceOutsideTheTableIsSentToIsa) {
    addInterface(7);
    EXPECT_EQ(7U, sentFor(lineOf(7).line()).interface);
    EXPECT_FALSE(module.talIsValidIntf(7));
    EXPECT_EQ(talResIntfInvalid,
              module.talReply(7, talRequestTypeAuthentication, talReplyAccepted));
}

TEST_F(LoginEventTest, NoLockIsHeldWhileIsaIsCalled) {
    raise(lineOf(1).line());
    const fake::Call call = platform.find("isaradiusbllLoginRequest").at(0);
    EXPECT_EQ(0, call.exclusiveHeld);
    EXPECT_EQ(0, call.sharedHeld);
    EXPECT_TRUE(sameLines(platform.calls({Service::lock}), {}));
}

TEST_F(LoginEventTest, IsaMayAskTheModuleFromInsideTheRequest) {
    // A lock of the module held across the call would block here for ever.
    bool valid = false;
    platform.isa.onRequest = [&](rpcTalLoginBlockBll&) {
        uint32_t timeout = 0;
        valid = module.talIsValidIntf(1) && module.talIntfTimeoutGet(1, &timeout) == talResOk &&
                timeout == 120;
    };
    raise(lineOf(1).line());
    EXPECT_TRUE(valid);
}

TEST_F(LoginEventTest, ExceptionOfThePlatformDoesNotLeaveTheCallback) {
    platform.isa.onRequest = [](rpcTalLoginBlockBll&) { throw std::runtime_error("ISA is gone"); };
    EXPECT_NO_THROW(raise(lineOf(1).line()));
    platform.isa.onRequest = nullptr;
    const rpcTalLoginBlockBll block = sentFor(lineOf(1).line());
    EXPECT_EQ(textOf(block), keptFor(1));
}

TEST_F(LoginEventTest, EveryRefusedCallButIsaDropsTheEvent) {
    fake::sweepFaults(
        platform, [this] { (void)keptFor(1); },  // nothing is in flight
        [this] { raise(lineOf(1).line()); },
        [this](const fake::FaultRun& run) {
            const bool reached = !run.faulted || run.refused.name == "isaradiusbllLoginRequest";
            EXPECT_EQ(reached ? 1U : 0U, platform.isa.requests().size());
            EXPECT_EQ(reached && run.faulted ? 1U : 0U, platform.texts().size());
            EXPECT_EQ(reached, keptFor(1) != "(none)");
        });
}

class ReplayEventTest : public LoginEventTest {
protected:
    void SetUp() override {
        LoginEventTest::SetUp();
        ASSERT_EQ(0U, module.talAdminStateSet(true));
        ASSERT_EQ(talResOk, module.talIntfAdminStateSet(1, true));
        ASSERT_EQ(talResOk, module.talIntfAdminStateSet(2, true));
        writeStoredFile(fileOf({1, 2}));
    }

    // The module asks the engine to resend the stored requests.
    void replay() {
        ASSERT_EQ(0U, module.talApplyStoredData());
        platform.forget();
    }
    bool isStored(const rpcTalLoginBlockBll& block) {
        return strcmp(block.remoteId, "remote 7") == 0;
    }
    bool replayed(unsigned interface, size_t length = 10) {
        return isStored(sentFor(lineOf(interface).line().substr(0, length)));
    }
};

TEST_F(ReplayEventTest, HeaderLineAfterTheRequestSendsTheStoredBlock) {
    replay();
    raise(header(1));
    rpcTalLoginBlockBll expected = fullBlock(1);
    expected.vlanId = 64;  // written 64, read as decimal
    EXPECT_EQ("", oracle::difference(expected, sent()));
    EXPECT_TRUE(sameLines(platform.calls(), identifierCalls(1)));
    EXPECT_TRUE(sameLines(platform.texts(), {}));
    EXPECT_EQ(fileOf({1, 2}), storedFile());
}

TEST_F(ReplayEventTest, LinesOfTenToThirteenCharactersAreReplays) {
    for (size_t length = 10; length < 14; length++) {
        replay();
        EXPECT_TRUE(replayed(1, length)) << length;
    }
}

TEST_F(ReplayEventTest, KeepsNothingOfAReplay) {
    replay();
    raise(header(1));
    const probe::Stamp before = probe::stampOf(talStorageFile);
    EXPECT_EQ(talResOk, module.talReply(1, talRequestTypeAuthentication, talReplyAccepted));
    EXPECT_EQ(before, probe::stampOf(talStorageFile));
}

TEST_F(ReplayEventTest, ReplayLeavesTheBlockInFlight) {
    const rpcTalLoginBlockBll block = sentFor(lineOf(1).line());
    replay();
    EXPECT_TRUE(replayed(1));
    EXPECT_EQ(textOf(block), keptFor(1));
}

TEST_F(ReplayEventTest, EachRequestMakesOneReplay) {
    replay();
    EXPECT_TRUE(replayed(1));
    EXPECT_FALSE(replayed(1));
    EXPECT_TRUE(replayed(2));
    EXPECT_FALSE(replayed(2));
}

TEST_F(ReplayEventTest, LongerLineIsAFreshLoginAndTheReplayStillComes) {
    replay();
    for (const size_t length : {14U, 26U, 41U, 297U}) {
        const rpcTalLoginBlockBll block = sentFor(lineOf(1).line().substr(0, length));
        EXPECT_FALSE(isStored(block)) << length;
        EXPECT_EQ(10U, block.vlanId) << length;
    }
    EXPECT_TRUE(replayed(1));
}

TEST_F(ReplayEventTest, LinesOfOthersAndDroppedLinesLeaveTheReplayWaiting) {
    replay();
    raise("talif1_ 0");
    raise("talif9_ 00");
    raise("");
    EXPECT_EQ(0U, platform.isa.requests().size());
    raise(lineOf(2).line());
    EXPECT_TRUE(replayed(1));
}

TEST_F(ReplayEventTest, RefusingEngineMakesNoReplay) {
    platform.answers.forIntf("ittalStoredReqSend", 1, -1);
    (void)module.talApplyStoredData();
    EXPECT_FALSE(replayed(1));
    EXPECT_FALSE(replayed(2));  // never asked for
}

TEST_F(ReplayEventTest, DeletedLoginIsNoLongerWaitedFor) {
    const std::function<void()> deletions[] = {
        [this] { EXPECT_EQ(0U, module.talDeleteStoredLoginData(1)); },
        [this] { EXPECT_EQ(0U, module.talDeleteStoredLoginDataAll()); },
        [this] { EXPECT_EQ(talResOk, module.talIntfAdminStateSet(1, false)); },
        [this] { EXPECT_EQ(0U, module.talAdminStateSet(false)); },
    };
    for (const auto& deletion : deletions) {
        replay();
        deletion();
        const rpcTalLoginBlockBll block = sentFor(header(1));
        EXPECT_FALSE(isStored(block));
        EXPECT_EQ(textOf(block), keptFor(1)) << "a fresh login is stored when it is accepted";
        ASSERT_EQ(0U, module.talAdminStateSet(true));
        ASSERT_EQ(talResOk, module.talIntfAdminStateSet(1, true));
        writeStoredFile(fileOf({1, 2}));
    }
}

TEST_F(ReplayEventTest, DeletionThatFailsOrIsOfAnotherLeavesTheReplayWaiting) {
    replay();
    platform.answers.always("exclusiveLock");
    EXPECT_EQ(1U, module.talDeleteStoredLoginData(1));
    EXPECT_EQ(1U, module.talDeleteStoredLoginDataAll());
    platform.answers.clear();
    EXPECT_EQ(0U, module.talDeleteStoredLoginData(2));
    EXPECT_TRUE(replayed(1));
    EXPECT_FALSE(replayed(2));
}

TEST_F(ReplayEventTest, ReplacedBlockIsStillWaitedFor) {
    replay();
    rpcTalLoginBlockBll block = fullBlock(1);
    block.extraInt = 7;
    ASSERT_EQ(0U, module.talStoreLoginData(1, block));
    EXPECT_EQ(7U, sentFor(header(1)).extraInt);
}

TEST_F(ReplayEventTest, MissingStoredBlockIsSentBareAndNotKept) {
    replay();
    writeStoredFile(fileOf({2}));
    const rpcTalLoginBlockBll block = sentFor(header(1));
    EXPECT_STREQ("KORVALIN:2 eth 5/1/1", block.circuitId);
    EXPECT_EQ(0x01, block.loginIdType);
    EXPECT_EQ("(none)", keptFor(1));
}

TEST_F(ReplayEventTest, CircuitIdOfTheFileWins) {
    std::string contents = fileOf({1});
    const size_t at = contents.find("KORVALIN");
    contents.replace(at, strlen("KORVALIN:2 eth 5/1/1"), "stored circuit");
    replay();
    writeStoredFile(contents);
    EXPECT_STREQ("stored circuit", sentFor(header(1)).circuitId);
}

TEST_F(ReplayEventTest, UnreadableStoredBlockIsSentAsFarAsItWent) {
    std::string contents = fileOf({1});
    contents.replace(contents.find("LoginAAAtype: 02"), 16, "LoginAAAtype: zz");
    replay();
    writeStoredFile(contents);
    const rpcTalLoginBlockBll block = sentFor(header(1));
    EXPECT_EQ(1, block.LoginAAAtype);
    EXPECT_STREQ("", block.remoteId);
    EXPECT_EQ("", storedFile());
    EXPECT_TRUE(
        sameLines(platform.texts(),
                  {"warning: talStoreLoginDataGet Storage file is corrupt and has been deleted."}));
}

TEST_F(ReplayEventTest, RefusedLockSendsTheBareBlock) {
    replay();
    platform.answers.nth("exclusiveLock", 1);
    const rpcTalLoginBlockBll block = sentFor(header(1));
    EXPECT_FALSE(isStored(block));
    EXPECT_STREQ("KORVALIN:2 eth 5/1/1", block.circuitId);
    EXPECT_TRUE(sameLines(platform.texts(),
                          {"log 1: Error obtaining exclusive lock in tal::talReadStorageFile."}));
    EXPECT_EQ(fileOf({1, 2}), storedFile());
}

TEST_F(ReplayEventTest, NoLockIsHeldWhileIsaIsCalled) {
    replay();
    raise(header(1));
    const fake::Call call = platform.find("isaradiusbllLoginRequest").at(0);
    EXPECT_EQ(0, call.exclusiveHeld);
    EXPECT_EQ(0, call.sharedHeld);
    EXPECT_LT(0U, platform.count("exclusiveLock"));
}

TEST_F(ReplayEventTest, RefusingIsaIsReportedAndNothingKept) {
    replay();
    platform.answers.nth("isaradiusbllLoginRequest", 1);
    raise(header(2));
    EXPECT_TRUE(
        sameLines(platform.texts(), {"err: talEvent Unsuccessful call to ISA for interface 2."}));
    EXPECT_EQ("(none)", keptFor(2));
}

}  // namespace
