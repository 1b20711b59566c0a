// The process-wide lock of the entity manager: shared or exclusive, re-entrant for the thread
// that holds it in either form inside either form. Callable from any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace node {

class ReentrantLock {
public:
    explicit ReentrantLock(std::chrono::milliseconds patience) : patience_(patience) {}

    // False when the lock was not obtained within the patience, or at once when waiting could
    // never end: another shared holder already waits to become the exclusive one.
    bool lockExclusive();
    bool lockShared();

    // In the reverse order of the calls that returned true, on the same thread. An exclusive
    // hold inside a shared one falls back to shared.
    void unlockExclusive();
    void unlockShared();

    unsigned waitingForExclusive();  // threads, at this moment

private:
    struct Holds {
        unsigned shared = 0;
        unsigned exclusive = 0;
    };
    void release(Holds& mine);

    const std::chrono::milliseconds patience_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::thread::id, Holds> holds_;  // of threads that hold the lock in any form
    std::thread::id owner_;                   // the exclusive holder, or none
    unsigned waitingExclusive_ = 0;
    bool upgrading_ = false;
};

}  // namespace node
