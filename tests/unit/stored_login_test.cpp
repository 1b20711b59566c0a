// Storing, fetching, deleting and replaying the login data of interfaces.
#include "tests/fake/module_test.h"
#include "tests/unit/block_samples.h"
#include "tests/unit/file_probe.h"

namespace {

using fake::sameLines;
using fake::Service;
using samples::fileOf;
using samples::fullBlock;

using Texts = std::vector<std::string>;

constexpr char readRefused[] = "log 1: Error obtaining exclusive lock in tal::talReadStorageFile.";
constexpr char writeRefused[] =
    "log 1: Error obtaining exclusive lock in tal::talWriteStorageFile.";
constexpr char readCorrupt[] =
    "warning: talReadStorageFile Storage file is corrupt and has been deleted.";
constexpr char readCorruptKept[] =
    "warning: talReadStorageFile Error deleting all stored data. File is corrupt.";

class StoredLoginTest : public ModuleTest {
protected:
    void SetUp() override {
        std::filesystem::remove(talStorageFile);
        std::filesystem::remove(std::string(talStorageFile) + ".tmp");
    }

    // Another login of the interface than the one fileOf() holds.
    static rpcTalLoginBlockBll newerBlock(unsigned interface) {
        rpcTalLoginBlockBll block = fullBlock(interface);
        samples::setText(block.remoteId, "newer");
        return block;
    }
    static std::string textOf(const rpcTalLoginBlockBll& block) {
        return oracle::compose(block) + "\n";
    }
    unsigned store(unsigned interface, rpcTalLoginBlockBll block) {
        return module.talStoreLoginData(interface, block);
    }
    static std::string replaced(std::string text, const std::string& from, const std::string& to) {
        const size_t at = text.find(from);
        EXPECT_NE(std::string::npos, at) << from;
        return text.replace(at, from.size(), to);
    }
    // The whole operation ran under one exclusive lock: only the first was taken with none held.
    void expectOneSequence() {
        const std::vector<fake::Call> locks = platform.find("exclusiveLock");
        ASSERT_FALSE(locks.empty());
        for (size_t i = 0; i < locks.size(); i++)
            EXPECT_EQ(i == 0, locks[i].exclusiveHeld == 0) << i;
    }
};

class StoreTest : public StoredLoginTest {};
class FetchTest : public StoredLoginTest {};
class DeleteTest : public StoredLoginTest {};

TEST_F(StoreTest, FirstLoginMakesTheFile) {
    EXPECT_EQ(0U, store(42, fullBlock()));
    EXPECT_EQ(textOf(fullBlock()), storedFile());
    EXPECT_EQ(0600U, probe::permissionsOf(talStorageFile));
    EXPECT_TRUE(sameLines(platform.texts(), {}));
}

TEST_F(StoreTest, NewBlockIsAppended) {
    writeStoredFile(fileOf({9, 3}));
    EXPECT_EQ(0U, store(5, fullBlock(5)));
    EXPECT_EQ(fileOf({9, 3, 5}), storedFile());
}

TEST_F(StoreTest, StoringTwiceLeavesTheNewestAtTheEnd) {
    writeStoredFile(fileOf({1, 2, 3}));
    EXPECT_EQ(0U, store(2, newerBlock(2)));
    EXPECT_EQ(fileOf({1, 3}) + textOf(newerBlock(2)), storedFile());
    EXPECT_EQ(0U, store(2, fullBlock(2)));
    EXPECT_EQ(fileOf({1, 3, 2}), storedFile());
}

TEST_F(StoreTest, OnlyTheFirstOfTwoOldBlocksIsReplaced) {
    writeStoredFile(fileOf({2, 1, 2}));
    EXPECT_EQ(0U, store(2, newerBlock(2)));
    EXPECT_EQ(fileOf({1, 2}) + textOf(newerBlock(2)), storedFile());
}

TEST_F(StoreTest, ArgumentSelectsTheOldBlockAndTheBlockNamesTheNewOne) {
    writeStoredFile(fileOf({1, 2}));
    EXPECT_EQ(0U, store(1, newerBlock(3)));
    EXPECT_EQ(fileOf({2}) + textOf(newerBlock(3)), storedFile());
}

TEST_F(StoreTest, BlockOfInterfaceZeroOrNegativeFailsAndTheOldOneIsGone) {
    for (const unsigned interface : {0U, 0x80000000U, 0xffffffffU}) {
        writeStoredFile(fileOf({1, 2}));
        EXPECT_EQ(1U, store(1, fullBlock(interface)));
        EXPECT_EQ(fileOf({2}), storedFile());
    }
    EXPECT_TRUE(sameLines(platform.texts(), {}));
}

TEST_F(StoreTest, InvalidBlockWithoutAnOldOneLeavesTheFileAlone) {
    writeStoredFile(fileOf({2}));
    const probe::Stamp before = probe::stampOf(talStorageFile);
    EXPECT_EQ(1U, store(1, fullBlock(0)));
    EXPECT_EQ(before, probe::stampOf(talStorageFile));
}

TEST_F(StoreTest, KeepsStoringInterfacesOf100AndMoreWhichTheNextReadRefuses) {
    writeStoredFile(fileOf({1}));
    EXPECT_EQ(0U, store(100, fullBlock(100)));
    EXPECT_EQ(fileOf({1, 100}), storedFile());
    EXPECT_FALSE(module.talIsLoginDataStored(1));
    EXPECT_EQ("", storedFile());
    EXPECT_TRUE(sameLines(platform.texts(), {readCorrupt}));
}

TEST_F(StoreTest, CorruptFileIsEmptiedAndNothingStored) {
    writeStoredFile("damaged\n");
    EXPECT_EQ(1U, store(1, fullBlock(1)));
    EXPECT_EQ("", storedFile());
    EXPECT_TRUE(sameLines(platform.texts(), {readCorrupt}));
}

TEST_F(StoreTest, FileThatCannotBeOpenedFails) {
    std::filesystem::create_directory(talStorageFile);
    EXPECT_EQ(1U, store(1, fullBlock(1)));
    EXPECT_TRUE(sameLines(platform.texts(), {}));
}

TEST_F(StoreTest, RunsUnderOneLock) {
    writeStoredFile(fileOf({1, 2}));
    EXPECT_EQ(0U, store(1, newerBlock(1)));
    expectOneSequence();
}

TEST_F(StoreTest, EveryRefusedLockLeavesTheOldFileAndIsReportedOnce) {
    unsigned result = 7;
    Texts reports;
    const unsigned runs = fake::sweepFaults(
        platform,
        [this] {
            writeStoredFile(fileOf({1, 2}));
        },
        [&] { result = store(1, newerBlock(1)); },
        [&](const fake::FaultRun& run) {
            if (!run.faulted) {
                EXPECT_EQ(0U, result);
                EXPECT_EQ(fileOf({2}) + textOf(newerBlock(1)), storedFile());
                return;
            }
            EXPECT_EQ("exclusiveLock", run.refused.name);
            EXPECT_EQ(1U, result);
            EXPECT_EQ(fileOf({1, 2}), storedFile());
            ASSERT_EQ(1U, platform.texts().size());
            reports.push_back(platform.texts()[0]);
        });
    EXPECT_EQ(4U, runs);
    EXPECT_TRUE(sameLines(reports, {readRefused, readRefused, writeRefused}));
}

TEST_F(FetchTest, OverlaysTheBlockWithWhatIsStored) {
    writeStoredFile(fileOf({7, 42, 9}));
    rpcTalLoginBlockBll block{};
    block.interface = 4711;
    EXPECT_EQ(0U, module.talStoreLoginDataGet(42, block));
    rpcTalLoginBlockBll expected = fullBlock(42);
    expected.interface = 4711;
    expected.vlanId = 64;
    EXPECT_EQ("", oracle::difference(expected, block));
    EXPECT_EQ(fileOf({7, 42, 9}), storedFile());
    EXPECT_TRUE(sameLines(platform.texts(), {}));
}

TEST_F(FetchTest, KeepsReadingTheVlanOfAStoredLoginAsDecimal) {
    EXPECT_EQ(0U, store(42, fullBlock()));  // VLAN 100, written 64
    rpcTalLoginBlockBll block{};
    EXPECT_EQ(0U, module.talStoreLoginDataGet(42, block));
    EXPECT_EQ(64U, block.vlanId);
}

TEST_F(FetchTest, MissingLinesLeaveTheFieldsOfTheCaller) {
    // A block may repeat a label; then others are missing.
    std::string contents = "interface: 5\n";
    for (int i = 0; i < 13; i++)
        contents += "remoteId: from the file\n";
    writeStoredFile(contents);
    rpcTalLoginBlockBll block = fullBlock(5), expected = fullBlock(5);
    EXPECT_EQ(0U, module.talStoreLoginDataGet(5, block));
    samples::setText(expected.remoteId, "from the file");
    EXPECT_EQ("", oracle::difference(expected, block));
}

TEST_F(FetchTest, WithoutABlockOrAFileNothingIsChanged) {
    rpcTalLoginBlockBll block = fullBlock(5);
    EXPECT_EQ(1U, module.talStoreLoginDataGet(5, block));
    writeStoredFile(fileOf({7}));
    EXPECT_EQ(1U, module.talStoreLoginDataGet(5, block));
    EXPECT_EQ("", oracle::difference(fullBlock(5), block));
    EXPECT_EQ(fileOf({7}), storedFile());
    EXPECT_TRUE(sameLines(platform.texts(), {}));
}

TEST_F(FetchTest, CorruptFileIsEmptiedByTheReadAndTheBlockUntouched) {
    writeStoredFile(replaced(fileOf({5, 7}), "LoginAAAtype: 02", "LoginAAAtype: 2"));
    rpcTalLoginBlockBll block = fullBlock(9);
    EXPECT_EQ(1U, module.talStoreLoginDataGet(5, block));
    EXPECT_EQ("", oracle::difference(fullBlock(9), block));
    EXPECT_EQ("", storedFile());
    EXPECT_TRUE(sameLines(platform.texts(), {readCorrupt}));
}

TEST_F(FetchTest, UnreadableValueEmptiesTheFileAndFieldsBeforeItStayFilled) {
    // The AAA type moved behind the circuit id: the length is right, the digits are not.
    writeStoredFile(replaced(
        replaced(fileOf({7, 5}), "interface: 5\nLoginAAAtype: 02\n", "interface: 5\n"),
        "circuitId: KORVALIN:2 eth 5/1/5\n", "circuitId: stored circuit\nLoginAAAtype: zz\n"));
    rpcTalLoginBlockBll block = fullBlock(5), expected = fullBlock(5);
    EXPECT_EQ(1U, module.talStoreLoginDataGet(5, block));
    samples::setText(expected.circuitId, "stored circuit");
    EXPECT_EQ("", oracle::difference(expected, block));
    EXPECT_EQ("", storedFile());
    EXPECT_TRUE(
        sameLines(platform.texts(),
                  {"warning: talStoreLoginDataGet Storage file is corrupt and has been deleted."}));
}

TEST_F(FetchTest, UnreadableValueOfAnotherInterfaceDoesNotMatter) {
    writeStoredFile(replaced(fileOf({7, 5}), "interface: 7\nLoginAAAtype: 02",
                             "interface: 7\nLoginAAAtype: zz"));
    rpcTalLoginBlockBll block{};
    EXPECT_EQ(0U, module.talStoreLoginDataGet(5, block));
    EXPECT_STREQ("KORVALIN:2 eth 5/1/5", block.circuitId);
}

TEST_F(FetchTest, EveryRefusedLockIsReportedAndLeavesABadBlockInTheFile) {
    const std::string bad = replaced(fileOf({5}), "LoginAAAtype: 02", "LoginAAAtype: zz");
    unsigned result = 7;
    std::vector<Texts> reports;
    fake::sweepFaults(
        platform, [&] { writeStoredFile(bad); },
        [&] {
            rpcTalLoginBlockBll block{};
            result = module.talStoreLoginDataGet(5, block);
        },
        [&](const fake::FaultRun& run) {
            EXPECT_EQ(1U, result);
            EXPECT_EQ(run.faulted ? bad : "", storedFile());
            if (run.faulted)
                reports.push_back(platform.texts());
        });
    ASSERT_EQ(3U, reports.size());
    EXPECT_TRUE(sameLines(reports[0], {readRefused}));
    EXPECT_TRUE(sameLines(reports[1], {readRefused}));
    EXPECT_TRUE(sameLines(
        reports[2],
        {writeRefused,
         "warning: talStoreLoginDataGet Error deleting all stored data. File is corrupt."}));
}

TEST_F(DeleteTest, RemovesTheBlockOfTheInterface) {
    for (const auto& [interface, left] : std::initializer_list<std::pair<unsigned, std::string>>{
             {1, fileOf({2, 3})}, {2, fileOf({1, 3})}, {3, fileOf({1, 2})}}) {
        writeStoredFile(fileOf({1, 2, 3}));
        EXPECT_EQ(0U, module.talDeleteStoredLoginData(interface));
        EXPECT_EQ(left, storedFile());
    }
    writeStoredFile(fileOf({1}));
    EXPECT_EQ(0U, module.talDeleteStoredLoginData(1));
    EXPECT_EQ("", storedFile());
}

TEST_F(DeleteTest, InterfaceWithoutABlockSucceedsWithoutRewritingTheFile) {
    writeStoredFile(fileOf({1}));
    const probe::Stamp before = probe::stampOf(talStorageFile);
    EXPECT_EQ(0U, module.talDeleteStoredLoginData(2));
    EXPECT_EQ(before, probe::stampOf(talStorageFile));
}

TEST_F(DeleteTest, MissingFileSucceeds) {
    EXPECT_EQ(0U, module.talDeleteStoredLoginData(2));
    EXPECT_EQ("", storedFile());
}

TEST_F(DeleteTest, CorruptFileFailsAndIsEmptied) {
    writeStoredFile("damaged\n");
    EXPECT_EQ(1U, module.talDeleteStoredLoginData(2));
    EXPECT_EQ("", storedFile());
    EXPECT_TRUE(sameLines(platform.texts(), {readCorrupt}));
}

TEST_F(DeleteTest, EveryRefusedLockLeavesTheFileAndIsReportedOnce) {
    unsigned result = 7;
    Texts reports;
    fake::sweepFaults(
        platform,
        [this] {
            writeStoredFile(fileOf({1, 2}));
        },
        [&] { result = module.talDeleteStoredLoginData(1); },
        [&](const fake::FaultRun& run) {
            EXPECT_EQ(run.faulted ? 1U : 0U, result);
            EXPECT_EQ(run.faulted ? fileOf({1, 2}) : fileOf({2}), storedFile());
            for (const std::string& text : platform.texts())
                reports.push_back(text);
        });
    EXPECT_TRUE(sameLines(reports, {readRefused, readRefused, writeRefused}));
}

TEST_F(DeleteTest, RunsUnderOneLock) {
    writeStoredFile(fileOf({1, 2}));
    EXPECT_EQ(0U, module.talDeleteStoredLoginData(1));
    expectOneSequence();
}

TEST_F(DeleteTest, AllLeavesAnEmptyFile) {
    for (const std::string& contents : {fileOf({1, 2}), std::string("damaged\n"), std::string()}) {
        writeStoredFile(contents);
        EXPECT_EQ(0U, module.talDeleteStoredLoginDataAll());
        EXPECT_EQ("", storedFile());
    }
    std::filesystem::remove(talStorageFile);
    EXPECT_EQ(0U, module.talDeleteStoredLoginDataAll());
    EXPECT_EQ("", storedFile());
    EXPECT_TRUE(sameLines(platform.texts(), {}));
}

TEST_F(DeleteTest, AllFailsWithItsLock) {
    writeStoredFile(fileOf({1}));
    platform.answers.nth("exclusiveLock", 1);
    EXPECT_EQ(1U, module.talDeleteStoredLoginDataAll());
    EXPECT_EQ(fileOf({1}), storedFile());
    EXPECT_TRUE(sameLines(platform.texts(), {writeRefused}));
}

TEST_F(StoredLoginTest, IsStoredOnlyWithABlockInAValidFile) {
    EXPECT_FALSE(module.talIsLoginDataStored(1));
    writeStoredFile(fileOf({1, 42}));
    EXPECT_TRUE(module.talIsLoginDataStored(1));
    EXPECT_TRUE(module.talIsLoginDataStored(42));
    EXPECT_FALSE(module.talIsLoginDataStored(4));
    EXPECT_FALSE(module.talIsLoginDataStored(0));
    EXPECT_EQ(fileOf({1, 42}), storedFile());
    EXPECT_TRUE(sameLines(platform.texts(), {}));
}

TEST_F(StoredLoginTest, CorruptFileReadsAsNotStoredAndIsEmptied) {
    writeStoredFile(fileOf({1}) + "damaged\n");
    EXPECT_FALSE(module.talIsLoginDataStored(1));
    EXPECT_EQ("", storedFile());
    EXPECT_TRUE(sameLines(platform.texts(), {readCorrupt}));
}

TEST_F(StoredLoginTest, RefusedLocksReadAsNotStored) {
    writeStoredFile(fileOf({1}));
    platform.answers.nth("exclusiveLock", 1);
    EXPECT_FALSE(module.talIsLoginDataStored(1));
    EXPECT_EQ(fileOf({1}), storedFile());
    EXPECT_TRUE(sameLines(platform.texts(), {readRefused}));
    platform.forget();
    writeStoredFile("damaged\n");
    platform.answers.nth("exclusiveLock", 2);
    EXPECT_FALSE(module.talIsLoginDataStored(1));
    EXPECT_TRUE(sameLines(platform.texts(), {writeRefused, readCorruptKept}));
}

class ReplayTest : public StoredLoginTest {
protected:
    // Interfaces 1 to 5, TAL on globally and on each of them, both AAA states on, all stored.
    void startAll(std::initializer_list<unsigned> ids = {1, 2, 3, 4, 5}) {
        startWith(ids);
        ASSERT_EQ(0U, module.talAdminStateSet(true));
        for (const unsigned id : ids)
            ASSERT_EQ(talResOk, module.talIntfAdminStateSet(id, true));
        writeStoredFile(fileOf(ids));
        platform.forget();
    }
    Texts sent() { return platform.calls({Service::engine}); }
};

TEST_F(ReplayTest, AsksTheEngineForEveryStoredInterfaceInAscendingOrder) {
    startAll({5, 2, 40, 1});
    writeStoredFile(fileOf({40, 1, 5, 77}));
    EXPECT_EQ(0U, module.talApplyStoredData());
    EXPECT_TRUE(sameLines(
        sent(), {"ittalStoredReqSend(1)", "ittalStoredReqSend(5)", "ittalStoredReqSend(40)"}));
    EXPECT_EQ(fileOf({40, 1, 5, 77}), storedFile());
    EXPECT_EQ(0U, platform.isa.requests().size());
    EXPECT_TRUE(sameLines(platform.texts(), {}));
}

TEST_F(ReplayTest, InterfaceStatesDecideBetweenReplayAndDeletion) {
    for (const bool admin : {false, true})
        for (const bool authen : {false, true})
            for (const bool author : {false, true}) {
                SCOPED_TRACE(testing::Message() << admin << authen << author);
                if (!module.talIsValidIntf(1))
                    startAll({1, 2});
                ASSERT_EQ(talResOk, module.talIntfAdminStateSet(1, admin));
                ASSERT_EQ(talResOk, module.talIntfAuthenAdminStateSet(1, authen));
                ASSERT_EQ(talResOk, module.talIntfAuthorAdminStateSet(1, author));
                writeStoredFile(fileOf({1, 2}));
                platform.forget();
                EXPECT_EQ(0U, module.talApplyStoredData());
                const bool replayed = admin && (authen || author);
                EXPECT_TRUE(sameLines(
                    sent(), replayed ? Texts{"ittalStoredReqSend(1)", "ittalStoredReqSend(2)"}
                                     : Texts{"ittalStoredReqSend(2)"}));
                EXPECT_EQ(replayed ? fileOf({1, 2}) : fileOf({2}), storedFile());
                EXPECT_TRUE(sameLines(platform.texts(), {}));
            }
}

TEST_F(ReplayTest, GlobalAdminStateOffEmptiesTheFileAndSendsNothing) {
    startWith({1, 2});
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(1, true));
    writeStoredFile(fileOf({1, 2}));
    platform.forget();
    EXPECT_EQ(0U, module.talApplyStoredData());
    EXPECT_EQ("", storedFile());
    EXPECT_TRUE(sameLines(sent(), {}));
    EXPECT_TRUE(sameLines(platform.texts(), {}));
    EXPECT_EQ(3U, platform.count("exclusiveLock"));  // one write, then one read per interface
}

TEST_F(ReplayTest, GlobalAdminStateOffWithARefusedWriteStopsTheReplay) {
    startWith({1, 2});
    writeStoredFile(fileOf({1, 2}));
    platform.forget();
    platform.answers.nth("exclusiveLock", 1);
    (void)module.talApplyStoredData();  // its result means nothing to its caller
    EXPECT_EQ(fileOf({1, 2}), storedFile());
    EXPECT_TRUE(sameLines(sent(), {}));
    EXPECT_TRUE(
        sameLines(platform.texts(), {writeRefused,
                                     "warning: talApplyStoredData Error deleting all stored "
                                     "data."}));
    EXPECT_EQ(1U, platform.count("exclusiveLock"));
}

TEST_F(ReplayTest, RefusingEngineStopsTheWholeReplay) {
    startAll();
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(5, false));
    writeStoredFile(fileOf({1, 2, 3, 4, 5}));
    platform.forget();
    platform.answers.forIntf("ittalStoredReqSend", 3, -1);
    (void)module.talApplyStoredData();
    EXPECT_TRUE(sameLines(
        sent(), {"ittalStoredReqSend(1)", "ittalStoredReqSend(2)", "ittalStoredReqSend(3) = -1"}));
    // Interface 5 is neither replayed nor cleaned.
    EXPECT_EQ(fileOf({1, 2, 3, 4, 5}), storedFile());
    EXPECT_TRUE(sameLines(platform.texts(),
                          {"warning: talApplyStoredData Error sending stored request signal to "
                           "kernel for interface 3."}));
}

TEST_F(ReplayTest, DeletionThatFailsIsReportedAndTheWalkGoesOn) {
    startAll({1, 2, 3});
    ASSERT_EQ(talResOk, module.talIntfAdminStateSet(1, false));
    ASSERT_EQ(talResOk, module.talIntfAuthenAdminStateSet(2, false));
    ASSERT_EQ(talResOk, module.talIntfAuthorAdminStateSet(2, false));
    for (const unsigned interface : {1U, 2U}) {
        writeStoredFile(interface == 1 ? fileOf({1, 3}) : fileOf({2, 3}));
        platform.forget();
        // The test for a block takes one lock, the deletion the next.
        platform.answers.clear();
        platform.answers.nth("exclusiveLock", interface == 1 ? 2 : 3);
        EXPECT_EQ(0U, module.talApplyStoredData());
        EXPECT_TRUE(sameLines(sent(), {"ittalStoredReqSend(3)"}));
        EXPECT_TRUE(
            sameLines(platform.texts(), {readRefused,
                                         "warning: talApplyStoredData Error deleting stored "
                                         "data in interface " +
                                             std::to_string(interface) + "."}));
    }
}

TEST_F(ReplayTest, EngineIsAskedWithoutAnyLockHeld) {
    startAll({1});
    EXPECT_EQ(0U, module.talApplyStoredData());
    const fake::Call call = platform.find("ittalStoredReqSend").at(0);
    EXPECT_EQ(0, call.exclusiveHeld);
    EXPECT_EQ(0, call.sharedHeld);
}

TEST_F(ReplayTest, AnyRefusalLosesNoStoredLogin) {
    startAll({1, 2, 3});
    fake::sweepFaults(
        platform,
        [] {
            writeStoredFile(fileOf({1, 2, 3}));
        },
        [this] { (void)module.talApplyStoredData(); },
        [this](const fake::FaultRun& run) {
            EXPECT_EQ(fileOf({1, 2, 3}), storedFile());
            EXPECT_EQ(run.faulted ? 1U : 0U, platform.texts().size());
        });
}

TEST_F(ReplayTest, CorruptFileIsEmptiedOnceAndNothingSent) {
    startAll({1, 2});
    writeStoredFile("damaged\n");
    EXPECT_EQ(0U, module.talApplyStoredData());
    EXPECT_EQ("", storedFile());
    EXPECT_TRUE(sameLines(sent(), {}));
    EXPECT_TRUE(sameLines(platform.texts(), {readCorrupt}));
}

}  // namespace
