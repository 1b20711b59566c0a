// The three flags of the module, one of each per load. Written without the manager's lock.
#pragma once

#include <atomic>

namespace tal_flags {

extern std::atomic<bool> firstApplyPending;  // no configuration apply has ended yet
extern std::atomic<bool> configurationApplyInProgress;
extern std::atomic<bool> startInProgress;  // stays set when start() fails

}  // namespace tal_flags
