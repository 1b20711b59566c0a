// Runs the benchmarks in a temporary directory of its own, so that several runs do not meet and
// the storage file of the machine is never touched. Syncing costs what the disk below makes it
// cost: the directory lies in the build tree unless --directory=PATH names another place.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "bench/check.h"
#include "tal/storage_path.h"

// Relative: it lies in the directory the program works in.
const char talStorageFile[] = "tal.store.dat";

namespace {

bool checkFailed = false;

class WorkingDirectory {
public:
    explicit WorkingDirectory(const std::string& parent) : path_(parent + "/tal_bench.XXXXXX") {
        entered_ = mkdtemp(path_.data()) != nullptr && chdir(path_.c_str()) == 0;
        if (!entered_)
            perror(path_.c_str());
    }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;
    ~WorkingDirectory() {
        std::error_code ignored;
        if (entered_)
            std::filesystem::remove_all(path_, ignored);
    }

    bool entered() const { return entered_; }

private:
    std::string path_;
    bool entered_ = false;
};

// Takes the option out of the arguments, so that what is left is the library's.
std::string takeDirectory(int& argc, char** argv) {
    constexpr std::string_view option = "--directory=";
    std::string directory = TAL_BENCH_DIRECTORY;
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument.starts_with(option))
            directory = std::filesystem::absolute(argument.substr(option.size()));
        else
            argv[kept++] = argv[i];
    }
    argc = kept;
    return directory;
}

}  // namespace

void bench::check(benchmark::State& state, bool fulfilled, const char* what) {
    if (fulfilled)
        return;
    checkFailed = true;
    state.SkipWithError(what);
}

bool bench::anyCheckFailed() {
    return checkFailed;
}

int main(int argc, char** argv) {
    const std::string parent = takeDirectory(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    const WorkingDirectory directory(parent);
    if (!directory.entered())
        return 2;
    const size_t ran = benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return ran == 0 || bench::anyCheckFailed() ? 1 : 0;
}
