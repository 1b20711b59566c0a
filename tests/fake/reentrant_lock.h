// The manager's lock as a host must provide it: shared and exclusive, re-entrant for its
// holder in either form, given back at the outermost release. Any thread.
#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace fake {

class ReentrantLock {
public:
    // Always obtained. A first shared lock lets waiting writers go first; a nested one never
    // waits.
    void lockShared();
    // False when the caller and another holder of the shared lock both ask for the exclusive
    // one: each would wait for the other for ever.
    bool lockExclusive();
    // Gives one of the caller's locks back, the innermost first.
    void unlock();

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::thread::id, unsigned> holders_;  // depth per thread, both forms together
    std::thread::id writer_;                       // holds the exclusive lock
    std::thread::id upgrader_;                     // holds it shared and waits for the rest
    unsigned writersWaiting_ = 0;
};

}  // namespace fake
