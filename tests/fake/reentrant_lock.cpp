#include "tests/fake/reentrant_lock.h"

namespace fake {

void ReentrantLock::lockShared() {
    const std::thread::id self = std::this_thread::get_id();
    std::unique_lock<std::mutex> lock(mutex_);
    const auto held = holders_.find(self);
    if (held != holders_.end()) {
        ++held->second;
        return;
    }
    const std::thread::id nobody;
    changed_.wait(lock,
                  [&] { return writer_ == nobody && upgrader_ == nobody && writersWaiting_ == 0; });
    holders_[self] = 1;
}

bool ReentrantLock::lockExclusive() {
    const std::thread::id self = std::this_thread::get_id();
    const std::thread::id nobody;
    std::unique_lock<std::mutex> lock(mutex_);
    const auto held = holders_.find(self);
    if (held == holders_.end()) {
        ++writersWaiting_;
        changed_.wait(lock, [&] { return holders_.empty(); });
        --writersWaiting_;
        writer_ = self;
        holders_[self] = 1;
        changed_.notify_all();
        return true;
    }
    if (writer_ != self) {
        if (upgrader_ != nobody) {
            return false;
        }
        upgrader_ = self;
        changed_.wait(lock, [&] { return holders_.size() == 1; });
        upgrader_ = nobody;
        writer_ = self;
    }
    ++holders_[self];
    return true;
}

void ReentrantLock::unlock() {
    const std::thread::id self = std::this_thread::get_id();
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto held = holders_.find(self);
    if (held == holders_.end() || --held->second != 0) {
        return;
    }
    holders_.erase(held);
    if (writer_ == self) {
        writer_ = std::thread::id();
    }
    changed_.notify_all();
}

}  // namespace fake
