// A store is cut at every call it makes to the system, and every call is made to fail: the
// storage file holds the old or the new contents, whole, and the next store succeeds.
//
// The calls that touch files are defined here, strongly, so that the module's calls arrive here
// first. While armed they are counted and traced; the chosen one ends the process, before or
// after it was done, or after half of it, or fails with an error. Armed is only a child process,
// which works on the files of its parent; the trace lies in memory they share.
#include "tests/fake/module_test.h"
#include "tests/unit/block_samples.h"
#include "tests/unit/file_probe.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/syscall.h>

namespace {

enum class Fault {
    none,
    cutBefore,       // the process ends instead of the call
    cutAfter,        // the process ends when the call is done
    cutHalfway,      // as cutAfter, but a write does only half
    failed,          // the call fails with the error, once
    failedFromHere,  // this one and every later one of its name fail
    half,            // a write does only half and says so
    halfThenFailed,  // a write does half; the next one fails
};

constexpr int mostCalls = 64;
constexpr int cutExit = 99;

struct Trace {
    int calls;
    char text[mostCalls][96];
};

struct {
    bool armed = false;
    Fault fault = Fault::none;
    int at = 0;  // the call, counted from 1
    int error = 0;
    std::string name;  // of the call at `at`
    bool failNextWrite = false;
    Trace* trace = nullptr;
} cutter;

// What becomes of this call: 0 = do it, otherwise the error to fail with.
int enter(const char* name, const char* argument, bool* isChosen) {
    *isChosen = false;
    if (!cutter.armed)
        return 0;
    if (cutter.trace->calls >= mostCalls)
        _exit(98);
    snprintf(cutter.trace->text[cutter.trace->calls++], sizeof(Trace::text[0]), "%s(%s)", name,
             argument);
    if (cutter.failNextWrite && strcmp(name, "write") == 0) {
        cutter.failNextWrite = false;
        return cutter.error;
    }
    if (cutter.fault == Fault::failedFromHere && cutter.trace->calls > cutter.at &&
        cutter.name == name)
        return cutter.error;
    if (cutter.trace->calls != cutter.at)
        return 0;
    *isChosen = true;
    cutter.name = name;
    if (cutter.fault == Fault::cutBefore)
        _exit(cutExit);
    if (cutter.fault == Fault::failed || cutter.fault == Fault::failedFromHere)
        return cutter.error;
    return 0;
}

void leave(bool isChosen) {
    if (isChosen && (cutter.fault == Fault::cutAfter || cutter.fault == Fault::cutHalfway))
        _exit(cutExit);
}

template <class Call>
auto guarded(const char* name, const char* argument, Call call) -> decltype(call(false)) {
    bool isChosen = false;
    const int error = enter(name, argument, &isChosen);
    if (error != 0) {
        errno = error;
        return -1;
    }
    const auto result = call(isChosen);
    leave(isChosen);
    return result;
}

std::string kindOf(int fd) {
    struct stat status;
    memset(&status, 0, sizeof(status));
    fstat(fd, &status);
    return S_ISDIR(status.st_mode) ? "directory" : "file";
}

int openHere(const char* path, int flags, mode_t mode) {
    return guarded("open", path, [&](bool) { return openat(AT_FDCWD, path, flags, mode); });
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(list, mode_t) : 0;
    va_end(list);
    return openHere(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(list, mode_t) : 0;
    va_end(list);
    return openHere(path, flags, mode);
}

ssize_t read(int fd, void* buffer, size_t size) {
    return guarded("read", "", [&](bool) { return syscall(SYS_read, fd, buffer, size); });
}

ssize_t write(int fd, const void* buffer, size_t size) {
    return guarded("write", "", [&](bool isChosen) {
        const bool half =
            isChosen && (cutter.fault == Fault::cutHalfway || cutter.fault == Fault::half ||
                         cutter.fault == Fault::halfThenFailed);
        cutter.failNextWrite = isChosen && cutter.fault == Fault::halfThenFailed;
        return syscall(SYS_write, fd, buffer, half ? size / 2 : size);
    });
}

int fsync(int fd) {
    return guarded("fsync", cutter.armed ? kindOf(fd).c_str() : "",
                   [&](bool) { return static_cast<int>(syscall(SYS_fsync, fd)); });
}

int fdatasync(int fd) {
    return guarded("fdatasync", cutter.armed ? kindOf(fd).c_str() : "",
                   [&](bool) { return static_cast<int>(syscall(SYS_fdatasync, fd)); });
}

int ftruncate(int fd, off_t size) noexcept {
    return guarded("ftruncate", "",
                   [&](bool) { return static_cast<int>(syscall(SYS_ftruncate, fd, size)); });
}

int rename(const char* from, const char* to) noexcept {
    return guarded("rename", from, [&](bool) { return renameat(AT_FDCWD, from, AT_FDCWD, to); });
}

int unlink(const char* path) noexcept {
    return guarded("unlink", path, [&](bool) { return unlinkat(AT_FDCWD, path, 0); });
}

int close(int fd) {
    return guarded("close", "", [&](bool) { return static_cast<int>(syscall(SYS_close, fd)); });
}

int lstat(const char* path, struct stat* status) noexcept {
    return guarded("lstat", path,
                   [&](bool) { return fstatat(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW); });
}
}

namespace {

using samples::fileOf;
using samples::fullBlock;

using Lines = std::vector<std::string>;

constexpr char temporary[] = "tal.store.dat.tmp";
constexpr char none[] = "(none)";

// Longer than the block it replaces.
rpcTalLoginBlockBll newerBlock(unsigned interface) {
    rpcTalLoginBlockBll block = fullBlock(interface);
    samples::setText(block.remoteId, "newer remote");
    return block;
}

std::string textOf(const rpcTalLoginBlockBll& block) {
    return oracle::compose(block) + "\n";
}

class StorageCrashTest : public ModuleTest {
protected:
    struct Outcome {
        bool cut = false;
        int result = -1;
        Lines trace;
        std::string chosen;  // the call the fault struck; empty when the run was over before
    };

    void SetUp() override {
        void* shared =
            mmap(nullptr, sizeof(Trace), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(MAP_FAILED, shared);
        trace_ = static_cast<Trace*>(shared);
    }
    void TearDown() override { munmap(trace_, sizeof(Trace)); }

    void start(const std::string& contents) {
        std::filesystem::remove_all(temporary);
        std::filesystem::remove_all(talStorageFile);
        if (contents != none)
            writeStoredFile(contents);
    }

    // Runs the operation in a child with the fault at its call number `at`.
    Outcome run(const std::function<unsigned()>& operation, Fault fault = Fault::none, int at = 0,
                int error = 0) {
        memset(trace_, 0, sizeof(Trace));
        const int status = probe::inChild([&] {
            cutter.fault = fault;
            cutter.at = at;
            cutter.error = error;
            cutter.trace = trace_;
            cutter.armed = true;
            const unsigned result = operation();
            cutter.armed = false;
            return static_cast<int>(result);
        });
        Outcome outcome;
        outcome.cut = status == cutExit;
        outcome.result = status;
        for (int i = 0; i < trace_->calls; i++)
            outcome.trace.push_back(trace_->text[i]);
        if (at >= 1 && at <= trace_->calls)
            outcome.chosen = trace_->text[at - 1];
        EXPECT_TRUE(outcome.cut || status == 0 || status == 1) << status;
        return outcome;
    }

    // The file is one of these; the next store of another interface succeeds on it.
    void expectWhole(const std::vector<std::string>& allowed) {
        const std::string left = storedFile();
        EXPECT_NE(allowed.end(), std::find(allowed.begin(), allowed.end(), left)) << left;
        rpcTalLoginBlockBll next = newerBlock(77);
        EXPECT_EQ(0U, module.talStoreLoginData(77, next));
        EXPECT_EQ((left == none ? "" : left) + textOf(next), storedFile());
        EXPECT_FALSE(std::filesystem::exists(temporary));
        EXPECT_EQ(0U, platform.texts().size());
    }

    // Cuts the operation at every call, in every way.
    void cutEverywhere(const std::string& before, const std::function<unsigned()>& operation,
                       const std::vector<std::string>& allowed) {
        for (const Fault fault : {Fault::cutBefore, Fault::cutAfter, Fault::cutHalfway}) {
            int at = 1;
            for (;; at++) {
                start(before);
                const Outcome outcome = run(operation, fault, at);
                SCOPED_TRACE(testing::Message() << "cut " << static_cast<int>(fault) << " at call "
                                                << at << ": " << outcome.chosen);
                expectWhole(allowed);
                if (testing::Test::HasFailure())
                    return;
                if (!outcome.cut)
                    break;
            }
            EXPECT_GT(at, 5) << "the operation's calls do not arrive here";
        }
    }

    int countOf(const Lines& trace, const std::string& call) {
        return static_cast<int>(
            std::count_if(trace.begin(), trace.end(),
                          [&](const std::string& text) { return text.starts_with(call); }));
    }

    std::function<unsigned()> storeOf(unsigned interface) {
        return [this, interface] {
            rpcTalLoginBlockBll block = newerBlock(interface);
            return module.talStoreLoginData(interface, block);
        };
    }

    Trace* trace_ = nullptr;
};

TEST_F(StorageCrashTest, CutStoreThatReplacesABlockLeavesOldOrNewContents) {
    const std::string before = fileOf({1, 2, 3});
    cutEverywhere(before, storeOf(2), {before, fileOf({1, 3}) + textOf(newerBlock(2))});
}

TEST_F(StorageCrashTest, CutStoreOfANewInterfaceLeavesOldOrNewContents) {
    const std::string before = fileOf({1, 2});
    cutEverywhere(before, storeOf(9), {before, before + textOf(newerBlock(9))});
}

TEST_F(StorageCrashTest, CutFirstStoreLeavesNoFileAnEmptyOneOrTheBlock) {
    cutEverywhere(none, storeOf(9), {none, "", textOf(newerBlock(9))});
}

TEST_F(StorageCrashTest, CutStoreOfManyBlocksLeavesOldOrNewContents) {
    std::string before, others;
    for (unsigned interface = 1; interface < 100; interface++) {
        if (interface == 77)
            continue;
        before += fileOf({interface});
        if (interface != 50)
            others += fileOf({interface});
    }
    cutEverywhere(before, storeOf(50), {before, others + textOf(newerBlock(50))});
}

TEST_F(StorageCrashTest, CutDeletionLeavesOldOrNewContents) {
    const std::string before = fileOf({1, 2, 3});
    cutEverywhere(before, [this] { return module.talDeleteStoredLoginData(2); },
                  {before, fileOf({1, 3})});
    cutEverywhere(before, [this] { return module.talDeleteStoredLoginDataAll(); }, {before, ""});
}

TEST_F(StorageCrashTest, CutStoreOfAnInvalidBlockLeavesOldOrNewContents) {
    const std::string before = fileOf({1, 2});
    const auto store = [this] {
        rpcTalLoginBlockBll block = newerBlock(0);
        return module.talStoreLoginData(1, block);
    };
    cutEverywhere(before, store, {before, fileOf({2})});
}

TEST_F(StorageCrashTest, LeftoverOfACutStoreIsGoneAfterTheNext) {
    const std::string before = fileOf({1, 2});
    for (int at = 1; at < mostCalls; at++) {
        start(before);
        if (!run(storeOf(2), Fault::cutBefore, at).cut)
            break;
        const bool leftover = std::filesystem::exists(temporary);
        // The next store is cut as well, everywhere.
        for (int again = 1; again < mostCalls; again++) {
            const std::string left = storedFile();
            const bool cut = run(storeOf(1), Fault::cutAfter, again).cut;
            const std::string now = storedFile();
            EXPECT_TRUE(now == left || now.ends_with(textOf(newerBlock(1)))) << at << ", " << again;
            if (!cut)
                break;
        }
        EXPECT_FALSE(std::filesystem::exists(temporary)) << leftover;
        ASSERT_FALSE(testing::Test::HasFailure());
    }
}

// A power cut keeps what was flushed: so the contents are flushed before the file takes its
// place, and its directory after that.
TEST_F(StorageCrashTest, ContentsReachTheDiskBeforeTheRenameAndTheDirectoryAfter) {
    start(fileOf({1, 2}));
    const Outcome outcome = run(storeOf(2));
    EXPECT_EQ(0, outcome.result);
    Lines order;
    for (const std::string& call : outcome.trace)
        if (call.starts_with("write") || call.starts_with("fsync") || call.starts_with("rename"))
            order.push_back(call);
    EXPECT_EQ((Lines{"write()", "fsync(file)", "rename(tal.store.dat.tmp)", "fsync(directory)"}),
              order);
}

TEST_F(StorageCrashTest, StoringReplacesTheOldBlockInOneWrite) {
    start(fileOf({1, 2}));
    EXPECT_EQ(1, countOf(run(storeOf(2)).trace, "rename"));
}

TEST_F(StorageCrashTest, LookingForAnUnstoredInterfaceWritesNothing) {
    start(fileOf({1, 2}));
    const Lines trace = run([this] { return module.talDeleteStoredLoginData(5); }).trace;
    EXPECT_EQ(0, countOf(trace, "write") + countOf(trace, "rename") + countOf(trace, "unlink"));
    EXPECT_EQ(1, countOf(trace, "open"));
}

TEST_F(StorageCrashTest, EveryDescriptorIsClosedWhateverFails) {
    for (const Fault fault : {Fault::none, Fault::failed})
        for (int at = 1; at < 20; at++) {
            start(fileOf({1, 2}));
            const int status = probe::inChild([&] {
                const auto descriptors = [] {
                    size_t count = 0;
                    for (int fd = 0; fd < 256; fd++)
                        count += fcntl(fd, F_GETFD) >= 0;
                    return count;
                };
                memset(trace_, 0, sizeof(Trace));
                const size_t before = descriptors();
                cutter.fault = fault;
                cutter.at = at;
                cutter.error = EIO;
                cutter.trace = trace_;
                cutter.armed = true;
                (void)storeOf(2)();
                cutter.armed = false;
                // A close that was made to fail did not happen.
                const bool closeFailed = fault == Fault::failed && at <= trace_->calls &&
                                         strcmp(trace_->text[at - 1], "close()") == 0;
                return descriptors() == before + (closeFailed ? 1 : 0) ? 0 : 1;
            });
            EXPECT_EQ(0, status) << at << ": " << trace_->text[at - 1];
        }
}

// Every call fails in turn with an error of a disk that is full or broken.
TEST_F(StorageCrashTest, FailingCallLeavesWholeBlocksAndNoTemporaryFile) {
    const std::string before = fileOf({1, 2, 3});
    const std::string after = fileOf({1, 3}) + textOf(newerBlock(2));
    for (const int error : {ENOSPC, EIO, EDQUOT, EMFILE, ENOMEM}) {
        int struck = 0;
        for (int at = 1; at < mostCalls; at++) {
            start(before);
            const Outcome outcome = run(storeOf(2), Fault::failed, at, error);
            if (outcome.chosen.empty())
                break;
            SCOPED_TRACE(testing::Message() << strerror(error) << " at " << outcome.chosen);
            struck++;
            const std::string left = storedFile();
            if (outcome.chosen == "open(tal.store.dat)" && at == 1) {
                EXPECT_EQ(1, outcome.result);  // the read is refused
                EXPECT_EQ(before, left);
            } else if (outcome.chosen == "open(tal.store.dat.tmp)" || outcome.chosen == "write()" ||
                       outcome.chosen == "fsync(file)" ||
                       outcome.chosen == "rename(tal.store.dat.tmp)") {
                EXPECT_EQ(0, outcome.result);  // not reported
                EXPECT_EQ(before, left);
            } else if (outcome.chosen.starts_with("read")) {
                EXPECT_EQ(0, outcome.result);
                // The file ends at a read error, so what was not read is lost.
                EXPECT_TRUE(left == after || left == textOf(newerBlock(2))) << left;
            } else {
                EXPECT_EQ(0, outcome.result);
                EXPECT_EQ(after, left);
            }
            EXPECT_FALSE(std::filesystem::exists(temporary));
        }
        EXPECT_GT(struck, 8);
    }
}

// A login that was deleted must not be replayed after a restart.
TEST_F(StorageCrashTest, FullDiskUndoesNoDeletion) {
    const struct {
        const char* what;
        std::string before, after;
        std::function<unsigned()> operation;
        size_t places;  // calls that fail before the new contents are there
    } deletions[] = {
        {"one", fileOf({1, 2, 3}), fileOf({1, 3}),
         [this] { return module.talDeleteStoredLoginData(2); }, 4},
        {"all", fileOf({1, 2, 3}), "", [this] { return module.talDeleteStoredLoginDataAll(); }, 3},
        {"corrupt", fileOf({1, 2}) + "interface: 3\n", "",
         [this] { return module.talIsLoginDataStored(1) ? 1U : 0U; }, 3},
    };
    for (const auto& [what, before, after, operation, places] : deletions) {
        for (const int error : {ENOSPC, EDQUOT, EIO}) {
            std::set<std::string> struck;
            for (int at = 1; at < mostCalls; at++) {
                start(before);
                const Outcome outcome = run(operation, Fault::failed, at, error);
                if (outcome.chosen.empty())
                    break;
                if (outcome.chosen != "open(tal.store.dat.tmp)" && outcome.chosen != "write()" &&
                    outcome.chosen != "fsync(file)" &&
                    outcome.chosen != "rename(tal.store.dat.tmp)")
                    continue;
                SCOPED_TRACE(testing::Message()
                             << what << ", " << strerror(error) << " at " << outcome.chosen);
                struck.insert(outcome.chosen);
                EXPECT_EQ(0, outcome.result);
                EXPECT_EQ(after, storedFile());
                EXPECT_FALSE(std::filesystem::exists(temporary));
            }
            EXPECT_EQ(places, struck.size()) << what;
        }
    }
}

TEST_F(StorageCrashTest, FullDiskLetsOnlyShorterContentsIn) {
    const std::string before = fileOf({1, 2, 3});
    for (const char* remote : {"short", "remote 8", "remote 80"}) {
        rpcTalLoginBlockBll block = fullBlock(2);
        samples::setText(block.remoteId, remote);
        const bool shorter = strcmp(remote, "short") == 0;
        const std::string after = shorter ? fileOf({1, 3}) + textOf(block) : before;
        const auto store = [&] { return module.talStoreLoginData(2, block); };
        start(before);
        const Lines trace = run(store).trace;
        for (const char* call : {"open(tal.store.dat.tmp)", "write()"}) {
            const auto found = std::find(trace.begin(), trace.end(), call);
            ASSERT_NE(trace.end(), found);
            start(before);
            EXPECT_EQ(0,
                      run(store, Fault::failed, static_cast<int>(found - trace.begin()) + 1, ENOSPC)
                          .result);
            EXPECT_EQ(after, storedFile()) << remote << ", " << call;
            EXPECT_FALSE(std::filesystem::exists(temporary));
        }
    }
}

// The file is never shorter than what is still to be written into it.
TEST_F(StorageCrashTest, DeletionOnAFullDiskWritesAndFlushesBeforeItCuts) {
    start(fileOf({1, 2, 3}));
    const auto deletion = [this] { return module.talDeleteStoredLoginData(2); };
    const Lines trace = run(deletion).trace;
    const auto open = std::find(trace.begin(), trace.end(), "open(tal.store.dat.tmp)");
    ASSERT_NE(trace.end(), open);
    start(fileOf({1, 2, 3}));
    const Lines full =
        run(deletion, Fault::failed, static_cast<int>(open - trace.begin()) + 1, ENOSPC).trace;
    const auto last = std::find(full.begin(), full.end(), "open(tal.store.dat.tmp)");
    EXPECT_EQ((Lines{"open(tal.store.dat.tmp)", "open(tal.store.dat)", "write()", "fsync(file)",
                     "ftruncate()", "fsync(file)", "close()"}),
              Lines(last, full.end()));
}

TEST_F(StorageCrashTest, FullDiskHalfwayThroughAWriteLeavesTheOldContents) {
    const std::string before = fileOf({1, 2, 3});
    for (const int error : {ENOSPC, EIO, EDQUOT}) {
        start(before);
        const Lines trace = run(storeOf(2)).trace;
        const auto write = std::find(trace.begin(), trace.end(), "write()");
        ASSERT_NE(trace.end(), write);
        const int at = static_cast<int>(write - trace.begin()) + 1;
        start(before);
        const Outcome outcome = run(storeOf(2), Fault::halfThenFailed, at, error);
        EXPECT_EQ(0, outcome.result);
        EXPECT_EQ(2, countOf(outcome.trace, "write"));
        EXPECT_EQ(before, storedFile());
        EXPECT_FALSE(std::filesystem::exists(temporary));
    }
}

TEST_F(StorageCrashTest, ShortAndInterruptedWritesAreContinued) {
    const std::string before = fileOf({1, 2, 3});
    const std::string after = fileOf({1, 3}) + textOf(newerBlock(2));
    start(before);
    const Lines trace = run(storeOf(2)).trace;
    const int at =
        static_cast<int>(std::find(trace.begin(), trace.end(), "write()") - trace.begin()) + 1;
    for (const auto& [fault, error] : std::initializer_list<std::pair<Fault, int>>{
             {Fault::half, 0}, {Fault::failed, EINTR}, {Fault::halfThenFailed, EINTR}}) {
        start(before);
        const Outcome outcome = run(storeOf(2), fault, at, error);
        EXPECT_EQ(0, outcome.result);
        EXPECT_GE(countOf(outcome.trace, "write"), 2);
        EXPECT_EQ(after, storedFile());
        EXPECT_FALSE(std::filesystem::exists(temporary));
    }
}

TEST_F(StorageCrashTest, KeepsTakingAReadErrorForTheEndOfTheFile) {
    start(fileOf({1, 2}));
    const Lines trace = run(storeOf(2)).trace;
    const int at =
        static_cast<int>(std::find(trace.begin(), trace.end(), "read()") - trace.begin()) + 1;
    start(fileOf({1, 2}));
    EXPECT_EQ(0, run(storeOf(2), Fault::failed, at, EIO).result);
    EXPECT_EQ(textOf(newerBlock(2)), storedFile());
}

TEST_F(StorageCrashTest, InterruptedReadIsContinued) {
    start(fileOf({1, 2}));
    const Lines trace = run(storeOf(2)).trace;
    const int at =
        static_cast<int>(std::find(trace.begin(), trace.end(), "read()") - trace.begin()) + 1;
    start(fileOf({1, 2}));
    EXPECT_EQ(0, run(storeOf(2), Fault::failed, at, EINTR).result);
    EXPECT_EQ(fileOf({1}) + textOf(newerBlock(2)), storedFile());
}

TEST_F(StorageCrashTest, RefusedTemporaryFileFallsBackToRewritingInPlace) {
    const std::string after = fileOf({1}) + textOf(newerBlock(2));
    for (const int error : {EACCES, EPERM, EROFS}) {
        start(fileOf({1, 2}));
        const Lines trace = run(storeOf(2)).trace;
        const int at =
            static_cast<int>(std::find(trace.begin(), trace.end(), "open(tal.store.dat.tmp)") -
                             trace.begin()) +
            1;
        start(fileOf({1, 2}));
        const ino_t inode = probe::statusOf(talStorageFile).st_ino;
        EXPECT_EQ(0, run(storeOf(2), Fault::failed, at, error).result);
        EXPECT_EQ(after, storedFile());
        EXPECT_EQ(inode, probe::statusOf(talStorageFile).st_ino);
    }
}

TEST_F(StorageCrashTest, LinkThatCannotBeRemovedIsNotFollowed) {
    start(fileOf({1, 2}));
    const Lines trace = run(storeOf(2)).trace;
    const int at =
        static_cast<int>(std::find(trace.begin(), trace.end(), "unlink(tal.store.dat.tmp)") -
                         trace.begin()) +
        1;
    start(fileOf({1, 2}));
    probe::put("victim", "untouched\n");
    std::filesystem::create_symlink("victim", temporary);
    const Outcome outcome = run(storeOf(2), Fault::failed, at, EACCES);
    EXPECT_EQ("unlink(tal.store.dat.tmp)", outcome.chosen);
    EXPECT_EQ(0, outcome.result);
    EXPECT_EQ("untouched\n", probe::contentsOf("victim"));
    EXPECT_EQ(fileOf({1}) + textOf(newerBlock(2)), storedFile());
}

TEST_F(StorageCrashTest, DiskThatStaysFullKeepsTheOldContents) {
    const std::string before = fileOf({1, 2, 3});
    start(before);
    const Lines trace = run(storeOf(2)).trace;
    for (size_t i = 0; i < trace.size(); i++) {
        if (!trace[i].starts_with("write") && !trace[i].starts_with("rename") &&
            trace[i] != "open(tal.store.dat.tmp)")
            continue;
        start(before);
        EXPECT_EQ(0,
                  run(storeOf(2), Fault::failedFromHere, static_cast<int>(i) + 1, ENOSPC).result);
        EXPECT_EQ(before, storedFile()) << trace[i];
        EXPECT_FALSE(std::filesystem::exists(temporary));
    }
}

}  // namespace
