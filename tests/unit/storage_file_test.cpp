// Reading and writing the storage file through the module, on real files.
#include "tests/fake/module_test.h"
#include "tests/unit/block_samples.h"
#include "tests/unit/file_probe.h"

#include <sched.h>
#include <sys/mount.h>

namespace {

using fake::sameLines;
using fake::Service;
using samples::blockLines;
using samples::fileOf;

using Lines = std::vector<std::string>;

constexpr char path[] = "tal.store.dat";
constexpr char temporary[] = "tal.store.dat.tmp";
constexpr char corrupt[] =
    "warning: talReadStorageFile Storage file is corrupt and has been deleted.";
constexpr char readRefused[] = "log 1: Error obtaining exclusive lock in tal::talReadStorageFile.";
constexpr char writeRefused[] =
    "log 1: Error obtaining exclusive lock in tal::talWriteStorageFile.";

class StorageFileTest : public ModuleTest {
protected:
    void SetUp() override {
        for (const std::string& name : probe::namesIn("."))
            std::filesystem::remove_all(name);
    }

    unsigned read(Lines& lines) { return module.talReadStorageFile(path, lines); }
    unsigned write(Lines lines) { return module.talWriteStorageFile(path, lines); }

    // Expects the file to be taken for corrupt and emptied; returns the lines it gave.
    Lines readCorrupt(const std::string& contents) {
        platform.forget();
        writeStoredFile(contents);
        Lines lines;
        EXPECT_EQ(1U, read(lines));
        EXPECT_EQ("", storedFile());
        EXPECT_TRUE(sameLines(platform.texts(), {corrupt}));
        return lines;
    }
};

class StorageRead : public StorageFileTest {};
class StorageWrite : public StorageFileTest {};

TEST_F(StorageRead, MissingFileIsAnEmptyListAndIsCreatedForItsOwnerOnly) {
    umask(0);
    Lines lines;
    EXPECT_EQ(0U, read(lines));
    EXPECT_TRUE(lines.empty());
    EXPECT_EQ("", storedFile());
    EXPECT_EQ(0600U, probe::permissionsOf(path));
    EXPECT_TRUE(sameLines(platform.texts(), {}));
    EXPECT_EQ(std::set<std::string>{path}, probe::namesIn("."));
}

TEST_F(StorageRead, EmptyFileIsAnEmptyList) {
    writeStoredFile("");
    Lines lines;
    EXPECT_EQ(0U, read(lines));
    EXPECT_TRUE(lines.empty());
}

TEST_F(StorageRead, WholeBlocksAreTheirLinesAndTheFileStaysUntouched) {
    writeStoredFile(fileOf({7, 42}));
    const probe::Stamp before = probe::stampOf(path);
    Lines lines;
    EXPECT_EQ(0U, read(lines));
    Lines expected = blockLines(7);
    for (const std::string& line : blockLines(42))
        expected.push_back(line);
    EXPECT_TRUE(sameLines(lines, expected));
    EXPECT_EQ(before, probe::stampOf(path));
}

TEST_F(StorageRead, LastNewlineMayBeMissingAndBlankLinesStandAnywhere) {
    std::string contents = fileOf({7});
    contents.pop_back();
    writeStoredFile(contents);
    Lines lines;
    EXPECT_EQ(0U, read(lines));
    EXPECT_TRUE(sameLines(lines, blockLines(7)));

    std::string spread = "\n\n";
    for (const char character : fileOf({7}))
        spread += character == '\n' ? std::string("\n\n\n") : std::string(1, character);
    writeStoredFile(spread);
    lines.clear();
    EXPECT_EQ(0U, read(lines));
    EXPECT_TRUE(sameLines(lines, blockLines(7)));
}

TEST_F(StorageRead, FileOfThirteenOrFifteenLinesIsDeleted) {
    const std::string whole = fileOf({7});
    EXPECT_EQ(13U, readCorrupt(whole.substr(0, whole.find("vlanId: "))).size());
    EXPECT_EQ(15U, readCorrupt(whole + "vlanId: 1\n").size());
}

TEST_F(StorageRead, KeepsRefusingInterfaceIdsOfThreeDigits) {
    readCorrupt(fileOf({7, 100}));
}

TEST_F(StorageRead, LinesOfACorruptFileStayInTheList) {
    EXPECT_EQ((Lines{"no", "blocks"}), readCorrupt("no\nblocks\n"));
}

TEST_F(StorageRead, LineOf300CharactersIsCutAndTheRestIgnored) {
    const std::string longest(299, 'x');
    EXPECT_EQ(Lines{longest}, readCorrupt(longest + "x\n" + fileOf({7})));
    EXPECT_EQ(15U, readCorrupt(longest + "\n" + fileOf({7})).size());
    EXPECT_EQ(Lines{longest}, readCorrupt(std::string(1000000, 'x')));
}

TEST_F(StorageRead, CarriageReturnsMakeTheFileCorrupt) {
    std::string contents;
    for (const std::string& line : blockLines(7))
        contents += line + "\r\n";
    readCorrupt(contents);
}

TEST_F(StorageRead, LineCountsUpToItsFirstNul) {
    std::string contents = fileOf({7});
    const size_t at = contents.find("remote 7");
    contents[at + 3] = '\0';
    writeStoredFile(contents);
    Lines lines;
    EXPECT_EQ(0U, read(lines));
    EXPECT_EQ("remoteId: rem", lines.at(3));
}

TEST_F(StorageRead, LinesAlreadyInTheListAreCheckedToo) {
    writeStoredFile(fileOf({7}));
    Lines lines = blockLines(42);
    EXPECT_EQ(0U, read(lines));
    EXPECT_EQ(28U, lines.size());
    EXPECT_EQ("interface: 7", lines[14]);
    lines = {"something else"};
    EXPECT_EQ(1U, read(lines));
    EXPECT_EQ("", storedFile());
    EXPECT_TRUE(sameLines(platform.texts(), {corrupt}));
}

TEST_F(StorageRead, CorruptFileElsewhereEmptiesTheStorageFile) {
    writeStoredFile(fileOf({7}));
    probe::put("other", "damaged\n");
    Lines lines;
    EXPECT_EQ(1U, module.talReadStorageFile("other", lines));
    EXPECT_EQ("damaged\n", probe::contentsOf("other"));
    EXPECT_EQ("", storedFile());
}

TEST_F(StorageRead, RefusedLockIsReportedAndTouchesNothing) {
    platform.answers.nth("exclusiveLock", 1);
    Lines lines{"kept"};
    EXPECT_EQ(1U, read(lines));
    EXPECT_EQ(Lines{"kept"}, lines);
    EXPECT_EQ("(none)", storedFile());
    EXPECT_TRUE(sameLines(platform.texts(), {readRefused}));
}

TEST_F(StorageRead, CorruptFileThatCannotBeEmptiedStaysAndIsReported) {
    writeStoredFile("damaged\n");
    platform.answers.nth("exclusiveLock", 2);  // that of the write
    Lines lines;
    EXPECT_EQ(1U, read(lines));
    EXPECT_EQ("damaged\n", storedFile());
    EXPECT_TRUE(
        sameLines(platform.texts(), {writeRefused,
                                     "warning: talReadStorageFile Error deleting all stored "
                                     "data. File is corrupt."}));
}

TEST_F(StorageRead, HoldsTheExclusiveLockWhileItDeletesACorruptFile) {
    readCorrupt("damaged\n");
    EXPECT_TRUE(sameLines(
        platform.calls({Service::lock}),
        {"exclusiveLock()", "exclusiveLock()", "exclusiveUnlock()", "exclusiveUnlock()"}));
    EXPECT_EQ(1, platform.find("exclusiveLock").at(1).exclusiveHeld);
}

TEST_F(StorageRead, DirectoryAndMissingDirectoryFailSilently) {
    std::filesystem::create_directory(path);
    Lines lines;
    EXPECT_EQ(1U, read(lines));
    EXPECT_EQ(1U, module.talReadStorageFile("no/such/file", lines));
    EXPECT_EQ(1U, module.talReadStorageFile("", lines));
    EXPECT_TRUE(lines.empty());
    EXPECT_TRUE(sameLines(platform.texts(), {}));
}

TEST_F(StorageRead, FileThatCannotBeAppendedToFailsSilently) {
    writeStoredFile(fileOf({7}));
    chmod(path, 0444);
    EXPECT_EQ(0, probe::asOrdinaryUser([this] {
                  Lines lines;
                  return read(lines) == 1 && lines.empty() && platform.texts().empty() ? 0 : 1;
              }));
}

TEST_F(StorageRead, FollowsASymbolicLink) {
    probe::put("target", fileOf({7}));
    std::filesystem::create_symlink("target", path);
    Lines lines;
    EXPECT_EQ(0U, read(lines));
    EXPECT_TRUE(sameLines(lines, blockLines(7)));
    std::filesystem::remove("target");
    lines.clear();
    EXPECT_EQ(0U, read(lines));
    EXPECT_EQ("", probe::contentsOf("target"));
}

TEST_F(StorageRead, EndlessDeviceEndsAtTheFirstOverlongLine) {
    std::filesystem::create_symlink("/dev/full", path);  // reads as NULs without end
    Lines lines;
    EXPECT_EQ(0U, read(lines));
    EXPECT_TRUE(lines.empty());
}

TEST_F(StorageRead, PipeWithoutAWriterDoesNotBlock) {
    ASSERT_EQ(0, mkfifo(path, 0600));
    Lines lines;
    EXPECT_EQ(0U, read(lines));
    EXPECT_TRUE(lines.empty());
}

TEST_F(StorageWrite, ReplacesTheContentsByTheLines) {
    writeStoredFile("something longer than what follows\n");
    EXPECT_EQ(0U, write({"a", "", "b c"}));
    EXPECT_EQ("a\n\nb c\n", storedFile());
    EXPECT_EQ(0U, write({}));
    EXPECT_EQ("", storedFile());
    EXPECT_EQ(std::set<std::string>{path}, probe::namesIn("."));
}

TEST_F(StorageWrite, ElementMayHoldAWholeBlock) {
    EXPECT_EQ(0U, write({oracle::compose(samples::fullBlock(7)), "x"}));
    EXPECT_EQ(fileOf({7}) + "x\n", storedFile());
}

TEST_F(StorageWrite, WhatWasWrittenIsReadBack) {
    Lines lines = blockLines(1);
    for (unsigned interface = 2; interface < 100; interface++)
        for (const std::string& line : blockLines(interface))
            lines.push_back(line);
    EXPECT_EQ(0U, write(lines));
    Lines back;
    EXPECT_EQ(0U, read(back));
    EXPECT_EQ(lines, back);
}

TEST_F(StorageWrite, FileIsForItsOwnerOnlyWhateverTheUmask) {
    for (const mode_t mask : {0, 022, 077}) {
        umask(mask);
        std::filesystem::remove(path);
        EXPECT_EQ(0U, write({"a"}));
        EXPECT_EQ(0600U, probe::permissionsOf(path)) << mask;
    }
}

TEST_F(StorageWrite, RefusedLockIsReportedAndTouchesNothing) {
    writeStoredFile("old\n");
    platform.answers.nth("exclusiveLock", 1);
    EXPECT_EQ(1U, write({"new"}));
    EXPECT_EQ("old\n", storedFile());
    EXPECT_TRUE(sameLines(platform.texts(), {writeRefused}));
}

TEST_F(StorageWrite, TakesTheExclusiveLockOnce) {
    EXPECT_EQ(0U, write({"a"}));
    EXPECT_TRUE(
        sameLines(platform.calls({Service::lock}), {"exclusiveLock()", "exclusiveUnlock()"}));
}

TEST_F(StorageWrite, KeepsTakingAnUnwritableFileForWritten) {
    std::filesystem::create_directory(path);
    probe::put(std::string(path) + "/inside", "x");
    EXPECT_EQ(0U, write({"a"}));
    Lines lines{"a"};
    EXPECT_EQ(0U, module.talWriteStorageFile("no/such/file", lines));
    EXPECT_EQ(0U, module.talWriteStorageFile("", lines));
    EXPECT_TRUE(sameLines(platform.texts(), {}));
    EXPECT_EQ("x", probe::contentsOf(std::string(path) + "/inside"));
    EXPECT_EQ(std::set<std::string>{path}, probe::namesIn("."));
}

TEST_F(StorageWrite, FullDeviceBehindALinkIsNotReportedAndTheLinkStays) {
    std::filesystem::create_symlink("/dev/full", path);
    EXPECT_EQ(0U, write({"a"}));
    EXPECT_EQ("/dev/full", std::filesystem::read_symlink(path));
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
    EXPECT_TRUE(sameLines(platform.texts(), {}));
    EXPECT_EQ(std::set<std::string>{path}, probe::namesIn("."));
}

TEST_F(StorageWrite, SymbolicLinkStaysAndItsTargetIsRewritten) {
    std::filesystem::create_directory("elsewhere");
    probe::put("elsewhere/target", "old contents\n");
    std::filesystem::create_symlink("elsewhere/target", path);
    const ino_t inode = probe::statusOf("elsewhere/target").st_ino;
    EXPECT_EQ(0U, write({"new"}));
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    EXPECT_EQ("new\n", probe::contentsOf("elsewhere/target"));
    EXPECT_EQ(inode, probe::statusOf("elsewhere/target").st_ino);
    EXPECT_EQ(std::set<std::string>{"target"}, probe::namesIn("elsewhere"));
}

TEST_F(StorageWrite, DanglingLinkGetsItsTarget) {
    std::filesystem::create_symlink("target", path);
    EXPECT_EQ(0U, write({"new"}));
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    EXPECT_EQ("new\n", probe::contentsOf("target"));
}

TEST_F(StorageWrite, PipeWithoutAReaderDoesNotBlock) {
    ASSERT_EQ(0, mkfifo(path, 0600));
    EXPECT_EQ(0U, write({"a"}));
    EXPECT_TRUE(std::filesystem::is_fifo(path));
}

TEST_F(StorageWrite, TemporaryFileLeftByACrashIsReplaced) {
    for (const mode_t mode : {0600, 0400, 0000}) {
        writeStoredFile("old\n");
        probe::put(temporary, "half a bl");
        chmod(temporary, mode);
        EXPECT_EQ(0U, write({"new"}));
        EXPECT_EQ("new\n", storedFile());
        EXPECT_EQ(std::set<std::string>{path}, probe::namesIn("."));
        EXPECT_EQ(0600U, probe::permissionsOf(path));
    }
}

TEST_F(StorageWrite, LinkInThePlaceOfTheTemporaryFileIsNotFollowed) {
    writeStoredFile("old\n");
    probe::put("victim", "untouched\n");
    std::filesystem::create_symlink("victim", temporary);
    EXPECT_EQ(0U, write({"new"}));
    EXPECT_EQ("untouched\n", probe::contentsOf("victim"));
    EXPECT_EQ("new\n", storedFile());
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(path)));
}

TEST_F(StorageWrite, DirectoryInThePlaceOfTheTemporaryFileDoesNotStopTheWrite) {
    writeStoredFile("old\n");
    std::filesystem::create_directory(temporary);
    EXPECT_EQ(0U, write({"new"}));
    EXPECT_EQ("new\n", storedFile());
}

TEST_F(StorageWrite, HardLinkedCopyKeepsTheOldContents) {
    writeStoredFile("old\n");
    std::filesystem::create_hard_link(path, "copy");
    EXPECT_EQ(0U, write({"new"}));
    EXPECT_EQ("old\n", probe::contentsOf("copy"));
    EXPECT_EQ("new\n", storedFile());
}

TEST_F(StorageWrite, DirectoryThatTakesNoTemporaryFileGetsTheFileRewrittenInPlace) {
    std::filesystem::create_directory("closed");
    probe::put("closed/file", "old contents\n");
    chmod("closed/file", 0666);
    chmod("closed", 0555);
    const ino_t inode = probe::statusOf("closed/file").st_ino;
    EXPECT_EQ(0, probe::asOrdinaryUser([this] {
                  Lines lines{"new"};
                  return static_cast<int>(module.talWriteStorageFile("closed/file", lines));
              }));
    EXPECT_EQ("new\n", probe::contentsOf("closed/file"));
    EXPECT_EQ(inode, probe::statusOf("closed/file").st_ino);
    EXPECT_EQ(std::set<std::string>{"file"}, probe::namesIn("closed"));
    chmod("closed", 0755);
}

TEST_F(StorageWrite, DirectoryThatKeepsTheFileAgainstRenamingGetsItRewrittenInPlace) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs two users: only root can give a file away";
    std::filesystem::create_directory("sticky");
    probe::put("sticky/file", "old contents\n");  // somebody else's, but open to all
    chmod("sticky/file", 0666);
    chmod("sticky", 01777);
    EXPECT_EQ(0, probe::asOrdinaryUser([this] {
                  Lines lines{"new"};
                  return static_cast<int>(module.talWriteStorageFile("sticky/file", lines));
              }));
    EXPECT_EQ("new\n", probe::contentsOf("sticky/file"));
    EXPECT_EQ(std::set<std::string>{"file"}, probe::namesIn("sticky"));
}

// A private mount namespace for the child; false where the machine refuses one.
bool ownMounts() {
    if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        return false;
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

constexpr int refusedMounts = 200;

TEST_F(StorageWrite, MountedFileIsRewrittenInPlace) {
    writeStoredFile("below\n");
    probe::put("source", "old contents\n");
    const int result = probe::inChild([this] {
        if (!ownMounts() || mount("source", path, nullptr, MS_BIND, nullptr) != 0)
            return refusedMounts;
        if (write({"new"}) != 0)
            return 1;
        return storedFile() == "new\n" && !std::filesystem::exists(temporary) ? 0 : 2;
    });
    if (result == refusedMounts)
        GTEST_SKIP() << "this machine allows no private mounts";
    EXPECT_EQ(0, result);
    EXPECT_EQ("new\n", probe::contentsOf("source"));
    EXPECT_EQ("below\n", storedFile());
}

TEST_F(StorageWrite, FileInAReadOnlyDirectoryTreeIsRewrittenInPlace) {
    std::filesystem::create_directory("tree");
    probe::put("tree/file", "");
    probe::put("source", "old contents\n");
    const int result = probe::inChild([this] {
        if (!ownMounts() || mount("tree", "tree", nullptr, MS_BIND, nullptr) != 0 ||
            mount(nullptr, "tree", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0 ||
            mount("source", "tree/file", nullptr, MS_BIND, nullptr) != 0)
            return refusedMounts;
        Lines lines{"new"};
        return module.talWriteStorageFile("tree/file", lines) == 0 ? 0 : 1;
    });
    if (result == refusedMounts)
        GTEST_SKIP() << "this machine allows no private mounts";
    EXPECT_EQ(0, result);
    EXPECT_EQ("new\n", probe::contentsOf("source"));
}

TEST_F(StorageFileTest, ValidityCheckTakesNoLock) {
    EXPECT_TRUE(module.talStorageFileValidityCheck({}));
    EXPECT_TRUE(module.talStorageFileValidityCheck(blockLines(42)));
    EXPECT_FALSE(module.talStorageFileValidityCheck(blockLines(100)));
    EXPECT_FALSE(module.talStorageFileValidityCheck({"interface: 1"}));
    EXPECT_TRUE(sameLines(platform.calls({Service::lock, Service::log, Service::syslog}), {}));
}

TEST_F(StorageFileTest, LookupSetsTheIndexOnlyWhenItFinds) {
    unsigned index = 77;
    EXPECT_FALSE(module.talFindStoredInterfaceEntry(samples::linesOf(fileOf({1, 2})), 3, &index));
    EXPECT_EQ(77U, index);
    EXPECT_TRUE(module.talFindStoredInterfaceEntry(samples::linesOf(fileOf({1, 2})), 2, &index));
    EXPECT_EQ(14U, index);
    EXPECT_TRUE(module.talFindStoredInterfaceEntry({"x", "interface: 5"}, 5, &index));
    EXPECT_EQ(1U, index);
    EXPECT_TRUE(sameLines(platform.calls({Service::lock}), {}));
}

}  // namespace
