// Reads the frames that generate_frames.py wrote and compares the classifier's verdicts with the
// ones in the file: compare_frames FILE. Prints the first differences with label and bytes;
// the result is 0 only when there is none and the file is as large and as mixed as it should be.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "node/engine/classify.h"

namespace {

constexpr size_t minFrames = 10000;
constexpr size_t minOfEachVerdict = 1000;
constexpr size_t maxPrinted = 10;

struct Record {
    bool expected = false;
    std::string label;
    std::span<const uint8_t> frame;
};

class File {
public:
    explicit File(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

    size_t left() const { return bytes_.size() - at_; }

    std::optional<std::span<const uint8_t>> take(size_t size) {
        if (left() < size) {
            return std::nullopt;
        }
        at_ += size;
        return std::span(bytes_).subspan(at_ - size, size);
    }

    std::optional<size_t> number(size_t size) {
        const auto bytes = take(size);
        if (!bytes) {
            return std::nullopt;
        }
        size_t value = 0;
        for (size_t i = size; i > 0; --i) {
            value = value << 8 | (*bytes)[i - 1];
        }
        return value;
    }

    std::optional<Record> record() {
        const auto expected = number(1);
        const auto size = number(2);
        const auto labelSize = number(1);
        const auto label = take(labelSize.value_or(0));
        const auto frame = take(size.value_or(0));
        if (!expected || !size || !labelSize || !label || !frame) {
            return std::nullopt;
        }
        return Record{*expected != 0, std::string(label->begin(), label->end()), *frame};
    }

private:
    std::vector<uint8_t> bytes_;
    size_t at_ = 0;
};

// Judges a copy of exactly the frame's size, so that a checker of memory sees a read behind it.
bool judge(std::span<const uint8_t> bytes, const ittalCondition& condition) {
    const auto copy = std::make_unique<uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    const auto frame = node::parseFrame({copy.get(), bytes.size()});
    return frame && node::matches(*frame, condition);
}

void print(const Record& record, const ittalCondition& condition) {
    std::printf("type %u, \"%s\": should%s match\n  ", condition.type, record.label.c_str(),
                record.expected ? "" : " not");
    for (const uint8_t byte : record.frame) {
        std::printf("%02x", byte);
    }
    std::printf("\n");
}

int damaged(const char* what) {
    std::printf("The file of frames is damaged: %s.\n", what);
    return 1;
}

int compare(File& file) {
    std::optional<ittalCondition> condition;
    size_t verdicts[2] = {};
    size_t differences = 0;
    for (;;) {
        const auto kind = file.number(1);
        if (kind == 'C') {
            const auto bytes = file.take(sizeof(ittalCondition));
            if (!bytes) {
                return damaged("a condition is cut");
            }
            std::memcpy(&condition.emplace(), bytes->data(), bytes->size());
        } else if (kind == 'F' && condition) {
            const auto record = file.record();
            if (!record) {
                return damaged("a frame is cut");
            }
            ++verdicts[record->expected ? 1 : 0];
            if (judge(record->frame, *condition) != record->expected &&
                differences++ < maxPrinted) {
                print(*record, *condition);
            }
        } else if (kind == 'E') {
            if (file.number(4) != verdicts[0] + verdicts[1] || file.left() != 0) {
                return damaged("the number of frames is wrong");
            }
            break;
        } else {
            return damaged("an unknown record, or no end");
        }
    }
    std::printf("%zu frames that match, %zu that do not, %zu judged otherwise.\n", verdicts[1],
                verdicts[0], differences);
    if (verdicts[0] + verdicts[1] < minFrames || verdicts[0] < minOfEachVerdict ||
        verdicts[1] < minOfEachVerdict) {
        return damaged("too few frames");
    }
    return differences == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::printf("usage: compare_frames FILE\n");
        return 2;
    }
    std::ifstream in(argv[1], std::ios::binary);
    if (!in) {
        return damaged("it cannot be read");
    }
    File file(std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {}));
    return compare(file);
}
