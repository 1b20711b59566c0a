// What keeping logins costs, beside the bare system calls that move the same bytes.
//
// A store is compared with the least that replaces a file safely: write a new file, sync it,
// rename it over the old one, sync the directory. Both run in the same directory. Interfaces
// are stored and fetched in turn, so that blocks at the front and at the end of the file count.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "bench/check.h"
#include "bench/null_platform.h"
#include "tal/login_block_text.h"
#include "tal/storage_format.h"
#include "tal/storage_path.h"
#include "tal/tal.h"
#include "tests/oracle/storage_oracle.h"

namespace {

// Stores per run: a fixed number, because a busy disk would stretch the time without bound.
constexpr int stores = 25;

constexpr char bareFile[] = "bare.dat";
constexpr char bareTemporary[] = "bare.dat.tmp";

// A login as a full event line leaves it.
rpcTalLoginBlockBll login(unsigned id) {
    rpcTalLoginBlockBll block{};
    block.interface = id;
    block.LoginAAAtype = 1;
    snprintf(block.circuitId, sizeof block.circuitId, "KORVALIN:shelf-1 eth 1/1/%u", id);
    snprintf(block.remoteId, sizeof block.remoteId, "cabinet 17 line %u", id);
    snprintf(block.vendorId, sizeof block.vendorId, "home-gateway 4.2");
    snprintf(block.clientId, sizeof block.clientId, "01001a2b3c4d%02x", id);
    const unsigned char mac[6] = {0, 1, 2, 3, 4, static_cast<unsigned char>(id)};
    memcpy(block.sourceMac, mac, sizeof mac);
    block.sourceIP = 0x0a000000 + id;
    for (uint32_t i = 0; i < 32; ++i)
        block.userPatternSequence[i] = (i + id) * 0x9e3779b9U;
    block.loginIdType = 0xff;
    block.vlanId = 100 + id;
    return block;
}

std::string contentsOf(unsigned blocks) {
    std::string contents;
    for (unsigned id = 1; id <= blocks; ++id) {
        contents += tal_text::composeLoginBlock(login(id));
        contents += '\n';
    }
    return contents;
}

// Puts the logins of interfaces 1 to `blocks` into the storage file.
void fillStorage(benchmark::State& state, unsigned blocks) {
    std::vector<std::string> lines;
    for (unsigned id = 1; id <= blocks; ++id)
        lines.push_back(tal_text::composeLoginBlock(login(id)));
    tal& module = singleton<tal>::instance();
    std::vector<std::string> readBack;
    bench::check(state,
                 module.talWriteStorageFile(talStorageFile, lines) == 0 &&
                     module.talReadStorageFile(talStorageFile, readBack) == 0 &&
                     readBack.size() == blocks * tal_text::linesPerBlock,
                 "the storage file could not be filled");
}

unsigned nextId(unsigned id, unsigned last) {
    return id == last ? 1 : id + 1;
}

bool replaceBare(const std::string& contents, int directory) {
    const int file =
        openat(directory, bareTemporary, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file < 0)
        return false;
    const bool written =
        write(file, contents.data(), contents.size()) == static_cast<ssize_t>(contents.size()) &&
        fsync(file) == 0;
    return close(file) == 0 && written &&
           renameat(directory, bareTemporary, directory, bareFile) == 0 && fsync(directory) == 0;
}

template <class Operation>
double nanoseconds(Operation operation) {
    const auto start = std::chrono::steady_clock::now();
    operation();
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start)
        .count();
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Replaces a block of the file in turn, so the file keeps its size, and beside every store the
// same bytes without the module. A disk that others use is twenty times slower in one second than
// in the next; only neighbours in time can be compared.
void store(benchmark::State& state) {
    const unsigned blocks = static_cast<unsigned>(state.range(0));
    tal& module = singleton<tal>::instance();
    fillStorage(state, blocks);
    const std::string contents = contentsOf(blocks);
    const int directory = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    unsigned id = 1;
    unsigned failures = 0;
    std::vector<double> ours, bare, ratios;
    for (auto _ : state) {
        rpcTalLoginBlockBll block = login(id);
        ours.push_back(nanoseconds([&] { failures += module.talStoreLoginData(id, block); }));
        bare.push_back(nanoseconds([&] { failures += replaceBare(contents, directory) ? 0 : 1; }));
        ratios.push_back(ours.back() / bare.back());
        state.SetIterationTime(ours.back() / 1e9);
        id = nextId(id, blocks);
    }
    close(directory);
    struct stat status {};
    bench::check(state,
                 failures == 0 && stat(talStorageFile, &status) == 0 &&
                     static_cast<size_t>(status.st_size) == contents.size(),
                 "a login was not stored");
    if (ratios.empty())
        return;
    state.counters["ours"] = median(ours);
    state.counters["bare"] = median(bare);
    state.counters["ratio"] = median(ratios);
}
BENCHMARK(store)->Arg(1)->Arg(bench::interfaceCount)->Iterations(stores)->UseManualTime();

void readAll(benchmark::State& state) {
    tal& module = singleton<tal>::instance();
    fillStorage(state, bench::interfaceCount);
    unsigned failures = 0;
    for (auto _ : state) {
        std::vector<std::string> lines;
        failures += module.talReadStorageFile(talStorageFile, lines);
        benchmark::DoNotOptimize(lines);
    }
    bench::check(state, failures == 0, "the storage file was not read");
}
BENCHMARK(readAll);

void readAllBare(benchmark::State& state) {
    fillStorage(state, bench::interfaceCount);
    std::string contents = contentsOf(bench::interfaceCount);
    unsigned failures = 0;
    for (auto _ : state) {
        const int file = open(talStorageFile, O_RDONLY | O_CLOEXEC);
        failures +=
            read(file, contents.data(), contents.size()) == static_cast<ssize_t>(contents.size())
                ? 0
                : 1;
        failures += close(file) == 0 ? 0 : 1;
        benchmark::DoNotOptimize(contents);
    }
    bench::check(state, failures == 0, "the bare file was not read");
}
BENCHMARK(readAllBare);

// The same without a file, the slow, literal way.
void readAllTwin(benchmark::State& state) {
    const std::string contents = contentsOf(bench::interfaceCount);
    bool valid = true;
    for (auto _ : state) {
        std::vector<std::string> lines;
        oracle::readLines(contents, lines);
        valid = valid && oracle::valid(lines);
        benchmark::DoNotOptimize(lines);
    }
    bench::check(state, valid, "the contents are not valid");
}
BENCHMARK(readAllTwin);

void fetchOne(benchmark::State& state) {
    tal& module = singleton<tal>::instance();
    fillStorage(state, bench::interfaceCount);
    unsigned id = 1;
    unsigned failures = 0;
    for (auto _ : state) {
        rpcTalLoginBlockBll block{};
        failures += module.talStoreLoginDataGet(id, block);
        failures += block.sourceIP == login(id).sourceIP ? 0 : 1;
        id = nextId(id, bench::interfaceCount);
    }
    bench::check(state, failures == 0, "a login was not fetched");
}
BENCHMARK(fetchOne);

void composeBlock(benchmark::State& state) {
    const rpcTalLoginBlockBll block = login(42);
    bench::check(state, tal_text::composeLoginBlock(block) == oracle::compose(block),
                 "the writers disagree");
    for (auto _ : state) {
        std::string text = tal_text::composeLoginBlock(block);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(composeBlock);

void composeBlockTwin(benchmark::State& state) {
    const rpcTalLoginBlockBll block = login(42);
    for (auto _ : state) {
        std::string text = oracle::compose(block);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(composeBlockTwin);

}  // namespace
