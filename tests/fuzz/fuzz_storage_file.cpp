// Any bytes as a storage file: splitting, validity, lookup and overlay agree with their literal
// twins, and a block that could be read can be written and read again.
#include "tal/login_block_text.h"
#include "tal/storage_lines.h"
#include "tests/fuzz/fuzz.h"
#include "tests/oracle/storage_oracle.h"

#include <algorithm>
#include <memory>

namespace {

using Lines = std::vector<std::string>;

void compareOverlay(const Lines& lines, size_t index) {
    rpcTalLoginBlockBll block{}, expected{};
    const bool whole = oracle::overlay(lines, index, expected);
    fuzz::require(whole == tal_text::overlayLoginBlock(lines, index, block),
                  "one takes the block for corrupt, the other does not");
    const std::string difference = oracle::difference(expected, block);
    fuzz::require(difference.empty(), difference.c_str());
    if (!whole)
        return;

    block.interface = 42;
    block.vlanId %= 10;  // one digit reads the same in both directions
    const std::string text = tal_text::composeLoginBlock(block);
    fuzz::require(text == oracle::compose(block), "the written blocks differ");
    Lines again;
    tal_text::appendStorageLines(text, again);
    fuzz::require(tal_text::storageLinesValid(again), "a written block is not valid");
    rpcTalLoginBlockBll back{};
    back.interface = 42;
    fuzz::require(tal_text::overlayLoginBlock(again, 0, back), "a written block is corrupt");
    const std::string lost = oracle::difference(block, back);
    fuzz::require(lost.empty(), lost.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::unique_ptr<char[]> copy(new char[size]);
    std::copy(data, data + size, copy.get());
    Lines lines, expected;
    tal_text::appendStorageLines(std::string_view(copy.get(), size), lines);
    oracle::readLines(std::string(reinterpret_cast<const char*>(data), size), expected);
    fuzz::require(expected == lines, "the lines differ");
    fuzz::require(oracle::valid(lines) == tal_text::storageLinesValid(lines),
                  "one takes the file for valid, the other does not");

    for (unsigned id : {0U, 1U, 7U, 42U, 99U, 100U, 0xffffffffU}) {
        const int at = oracle::find(lines, id);
        const auto found = tal_text::findInterfaceLine(lines, id);
        fuzz::require(at == (found ? static_cast<int>(*found) : -1), "the lookups differ");
    }
    for (size_t index = 0; index < lines.size() && index < 64; index++)
        if (index % 14 == 0 || lines[index].starts_with("interface: "))
            compareOverlay(lines, index);
    return 0;
}
