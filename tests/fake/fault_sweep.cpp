#include "tests/fake/fault_sweep.h"

namespace fake {

namespace {

unsigned sweep(FakePlatform& platform, void (FakePlatform::*arm)(unsigned),
               const std::function<void()>& prepare, const std::function<void()>& operation,
               const std::function<void(const FaultRun&)>& check, unsigned mostRuns) {
    for (unsigned number = 1; number <= mostRuns; ++number) {
        prepare();
        platform.forget();
        (platform.*arm)(number);
        EXPECT_NO_THROW(operation());
        platform.disarmFault();

        FaultRun run;
        run.faulted = platform.struck().has_value();
        run.number = number;
        if (run.faulted) {
            run.refused = *platform.struck();
        }
        const testing::ScopedTrace trace(
            __FILE__, __LINE__,
            run.faulted ? "struck call " + std::to_string(number) + ": " + run.refused.text
                        : std::string("nothing struck"));
        const LockDepth held = platform.locksHeld();
        EXPECT_EQ(0, held.exclusive);
        EXPECT_EQ(0, held.shared);
        check(run);
        if (!run.faulted || testing::Test::HasFatalFailure()) {
            return number;
        }
    }
    ADD_FAILURE() << "no end after " << mostRuns << " runs";
    return mostRuns;
}

}  // namespace

unsigned sweepFaults(FakePlatform& platform, const std::function<void()>& prepare,
                     const std::function<void()>& operation,
                     const std::function<void(const FaultRun&)>& check, unsigned mostRuns) {
    return sweep(platform, &FakePlatform::armFault, prepare, operation, check, mostRuns);
}

unsigned sweepExceptions(FakePlatform& platform, const std::function<void()>& prepare,
                         const std::function<void()>& operation,
                         const std::function<void(const FaultRun&)>& check, unsigned mostRuns) {
    return sweep(platform, &FakePlatform::armException, prepare, operation, check, mostRuns);
}

}  // namespace fake
