// How the module reports that the manager refused its lock.
#pragma once

namespace tal_report {

// Writes the module's line for a refused lock to the platform's log, at level 1. `operation` is
// the bare name of a member of tal. No lock of the module may be held.
void lockRefused(const char* operation);

// True when the lock was not obtained, which is then reported.
template <class Lock>
bool refused(const Lock& lock, const char* operation) {
    if (!lock.isLocked())
        lockRefused(operation);
    return !lock.isLocked();
}

}  // namespace tal_report
