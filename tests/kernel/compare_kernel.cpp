// Reads the frames that tests/property/generate_frames.py wrote and has every one judged by the
// kernel's program and by the classifier: compare_kernel FILE. The result is 0 only when both
// give the verdict of the file for every frame, 77 when the privileges are missing.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include "tests/kernel/kernel_matcher.h"

using namespace node_test;

namespace {

constexpr int skipped = 77;
constexpr size_t minRuns = 4000;  // of each kind; half of the frames of type 0 are cut too short
constexpr size_t maxPrinted = 10;

class File {
public:
    explicit File(const char* path) {
        std::ifstream in(path, std::ios::binary);
        bytes_.assign(std::istreambuf_iterator<char>(in), {});
    }

    bool has(size_t size) const { return bytes_.size() - at_ >= size; }
    uint8_t byte() { return has(1) ? bytes_[at_++] : uint8_t{0}; }
    std::span<const uint8_t> take(size_t size) {
        size = has(size) ? size : 0;
        at_ += size;
        return std::span(bytes_).subspan(at_ - size, size);
    }

private:
    std::vector<uint8_t> bytes_;
    size_t at_ = 0;
};

struct Comparison {
    size_t frames = 0;
    size_t testRuns = 0;
    size_t wireRuns = 0;
    size_t differences = 0;
    bool sound = true;  // the file

    void note(const char* where, std::optional<bool> verdict, bool expected, size_t& runs,
              std::span<const uint8_t> label) {
        runs += verdict ? 1 : 0;
        if (verdict.value_or(expected) == expected) {
            return;
        }
        if (++differences <= maxPrinted) {
            std::printf("frame %zu (%.*s) %s: %d, expected %d\n", frames,
                        static_cast<int>(label.size()), reinterpret_cast<const char*>(label.data()),
                        where, *verdict, expected);
        }
    }
};

void compareFrame(File& file, KernelMatcher& kernel, const ittalCondition& condition,
                  Comparison& result) {
    const bool expected = file.byte() != 0;
    size_t size = file.byte();
    size |= static_cast<size_t>(file.byte()) << 8;
    const auto label = file.take(file.byte());
    const auto frame = file.take(size);
    ++result.frames;
    size_t ignored = 0;
    result.note("classifier", pureVerdict(frame, std::span(&condition, 1)), expected, ignored,
                label);
    result.note("test run", kernel.inTestRun(frame), expected, result.testRuns, label);
    result.note("wire", kernel.onTheWire(frame), expected, result.wireRuns, label);
}

Comparison compare(File file) {
    KernelMatcher kernel;
    Comparison result;
    ittalCondition condition{};
    while (file.has(1)) {
        const char kind = static_cast<char>(file.byte());
        if (kind == 'C' && file.has(sizeof condition)) {
            std::memcpy(&condition, file.take(sizeof condition).data(), sizeof condition);
            result.sound = result.sound && kernel.setRules(std::span(&condition, 1));
        } else if (kind == 'F') {
            compareFrame(file, kernel, condition, result);
        } else {
            uint32_t frames = 0;
            for (unsigned i = 0; i < sizeof frames; ++i) {
                frames |= static_cast<uint32_t>(file.byte()) << 8 * i;
            }
            result.sound = result.sound && kind == 'E' && frames == result.frames && !file.has(1);
            return result;
        }
    }
    result.sound = false;
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (const std::string missing = missingPrivilege(); !missing.empty()) {
        std::printf("skipped: %s\n", missing.c_str());
        return skipped;
    }
    if (argc != 2) {
        std::fprintf(stderr, "compare_kernel FILE\n");
        return 2;
    }
    const Comparison result = compare(File(argv[1]));
    std::printf("%zu frames, %zu test runs, %zu on the wire, %zu differences\n", result.frames,
                result.testRuns, result.wireRuns, result.differences);
    const bool enough = result.testRuns >= minRuns && result.wireRuns >= minRuns;
    const bool failed = testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed();
    return result.sound && enough && result.differences == 0 && !failed ? 0 : 1;
}
