// Runs an operation once for every platform call it makes, refusing the first, then the
// second, ... and lets the test judge each outcome. Locks count as calls.
#pragma once

#include "tests/fake/fake_platform.h"

#include <functional>
#include <string>
#include <vector>

namespace fake {

struct FaultRun {
    bool faulted = false;  // false in the last run, in which nothing was refused
    Call refused;          // the refused call when faulted
    unsigned number = 0;   // its place among the calls that can be refused, from 1
};

// `prepare` brings the module to the same state before each run and is not swept; its calls
// are not in the log when `check` runs. `operation` is what is swept. After each run `check`
// judges results, texts and table; that no lock is held is checked here. Returns the number
// of runs. Ends with a failure after `mostRuns` runs.
unsigned sweepFaults(FakePlatform& platform, const std::function<void()>& prepare,
                     const std::function<void()>& operation,
                     const std::function<void(const FaultRun&)>& check, unsigned mostRuns = 2000);

// As above, but the call throws a std::runtime_error. One that leaves `operation` fails the
// test.
unsigned sweepExceptions(FakePlatform& platform, const std::function<void()>& prepare,
                         const std::function<void()>& operation,
                         const std::function<void(const FaultRun&)>& check,
                         unsigned mostRuns = 2000);

}  // namespace fake
