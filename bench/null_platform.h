// A platform that costs as little as one can: 99 access interfaces, every call succeeds, nothing
// is logged and no lock is taken. Why: the benchmarks then measure the module. One thread.
#pragma once

#include <stdint.h>

#include <string>

namespace bench {

constexpr unsigned interfaceCount = 99;  // ids 1 to 99

// The four characters that event lines carry for the interface.
std::string kernelName(unsigned id);

// Login requests that reached ISA since the program began.
uint64_t loginRequests();

}  // namespace bench
