// A mutex, a condition and a count per thread. Rules:
// - Whoever holds the lock in any form gets it shared at once, whoever else waits.
// - A first shared lock queues behind waiting exclusive ones, so that these are not starved.
// - A shared holder that asks for exclusive waits until it is the only holder. Two of them
//   would wait for each other, so the second is refused at once.
// Waiting is bounded as a last resort against a holder that never lets go.
// Tested by tests/unit/node_host/lock_test.cpp.
#include "node/host/lock.h"

namespace node {

bool ReentrantLock::lockExclusive() {
    const auto self = std::this_thread::get_id();
    std::unique_lock<std::mutex> guard(mutex_);
    const auto mine = holds_.find(self);
    if (owner_ == self) {
        ++mine->second.exclusive;
        return true;
    }
    const bool upgrade = mine != holds_.end();
    if (upgrade && upgrading_) {
        return false;
    }
    upgrading_ = upgrading_ || upgrade;
    ++waitingExclusive_;
    const bool obtained = changed_.wait_for(
        guard, patience_, [&] { return upgrade ? holds_.size() == 1 : holds_.empty(); });
    --waitingExclusive_;
    if (upgrade) {
        upgrading_ = false;
    }
    if (obtained) {
        owner_ = self;
        ++holds_[self].exclusive;
    } else {
        changed_.notify_all();  // readers that queued behind this one
    }
    return obtained;
}

bool ReentrantLock::lockShared() {
    const auto self = std::this_thread::get_id();
    std::unique_lock<std::mutex> guard(mutex_);
    const auto mine = holds_.find(self);
    if (mine != holds_.end()) {
        ++mine->second.shared;
        return true;
    }
    const bool obtained = changed_.wait_for(
        guard, patience_, [&] { return owner_ == std::thread::id() && waitingExclusive_ == 0; });
    if (obtained) {
        ++holds_[self].shared;
    }
    return obtained;
}

void ReentrantLock::unlockExclusive() {
    const std::lock_guard<std::mutex> guard(mutex_);
    Holds& mine = holds_[std::this_thread::get_id()];
    if (--mine.exclusive == 0) {
        owner_ = std::thread::id();
        release(mine);
    }
}

void ReentrantLock::unlockShared() {
    const std::lock_guard<std::mutex> guard(mutex_);
    Holds& mine = holds_[std::this_thread::get_id()];
    --mine.shared;
    release(mine);
}

unsigned ReentrantLock::waitingForExclusive() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return waitingExclusive_;
}

void ReentrantLock::release(Holds& mine) {
    if (mine.shared == 0 && mine.exclusive == 0) {
        holds_.erase(std::this_thread::get_id());
    }
    changed_.notify_all();
}

}  // namespace node
