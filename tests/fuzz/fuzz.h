// What every fuzzer defines and uses. One thread.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

// Ends the program with this text, so that the input at hand is kept.
inline void require(bool holds, const char* what) {
    if (holds)
        return;
    fprintf(stderr, "fuzz: %s\n", what);
    abort();
}

}  // namespace fuzz
