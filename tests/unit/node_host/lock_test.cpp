#include "node/host/lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using node::ReentrantLock;

// A second thread that does one thing after another; what it returns is waited for.
class Other {
public:
    Other() : thread_([this] { work(); }) {}
    ~Other() {
        run([this] { return !(done_ = true); });
        thread_.join();
    }
    std::future<bool> start(std::function<bool()> task) {
        std::packaged_task<bool()> packaged(std::move(task));
        std::future<bool> result = packaged.get_future();
        {
            const std::lock_guard<std::mutex> guard(mutex_);
            tasks_.push_back(std::move(packaged));
        }
        ready_.notify_one();
        return result;
    }
    bool run(std::function<bool()> task) { return start(std::move(task)).get(); }

private:
    void work() {
        while (!done_) {
            std::packaged_task<bool()> task;
            {
                std::unique_lock<std::mutex> guard(mutex_);
                ready_.wait(guard, [this] { return !tasks_.empty(); });
                task = std::move(tasks_.front());
                tasks_.pop_front();
            }
            task();
        }
    }

    bool done_ = false;  // the thread's own
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<std::packaged_task<bool()>> tasks_;
    std::thread thread_;
};

constexpr auto longPatience = 20s;
constexpr auto shortPatience = 30ms;

// Until another thread waits for the exclusive form.
bool somebodyWaits(ReentrantLock& lock) {
    const auto end = std::chrono::steady_clock::now() + longPatience;
    while (lock.waitingForExclusive() == 0) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

bool isOpen(std::future<bool>& future) {
    return future.wait_for(20ms) == std::future_status::timeout;
}

TEST(ReentrantLock, SharedHoldersDoNotExcludeEachOther) {
    ReentrantLock lock(longPatience);
    Other other;
    ASSERT_TRUE(lock.lockShared());
    EXPECT_TRUE(other.run([&] { return lock.lockShared(); }));
    other.run([&] { return lock.unlockShared(), true; });
    lock.unlockShared();
}

TEST(ReentrantLock, ExclusiveExcludesBothForms) {
    ReentrantLock lock(shortPatience);
    Other other;
    ASSERT_TRUE(lock.lockExclusive());
    EXPECT_FALSE(other.run([&] { return lock.lockShared(); }));
    EXPECT_FALSE(other.run([&] { return lock.lockExclusive(); }));
    lock.unlockExclusive();
    EXPECT_TRUE(other.run([&] { return lock.lockExclusive(); }));
    other.run([&] { return lock.unlockExclusive(), true; });
}

TEST(ReentrantLock, SharedExcludesExclusive) {
    ReentrantLock lock(shortPatience);
    Other other;
    ASSERT_TRUE(lock.lockShared());
    EXPECT_FALSE(other.run([&] { return lock.lockExclusive(); }));
    lock.unlockShared();
}

// Either form inside either form, and the lock is free only after the outermost release.
class Nesting : public testing::TestWithParam<std::pair<bool, bool>> {};

TEST_P(Nesting, IsReleasedAtTheOutermostRelease) {
    ReentrantLock lock(shortPatience);
    Other other;
    const auto [outerExclusive, innerExclusive] = GetParam();
    const auto take = [&](bool exclusive) {
        return exclusive ? lock.lockExclusive() : lock.lockShared();
    };
    const auto give = [&](bool exclusive) {
        exclusive ? lock.unlockExclusive() : lock.unlockShared();
    };
    ASSERT_TRUE(take(outerExclusive));
    ASSERT_TRUE(take(innerExclusive));
    ASSERT_TRUE(take(innerExclusive));
    EXPECT_FALSE(other.run([&] { return lock.lockExclusive(); }));
    give(innerExclusive);
    give(innerExclusive);
    EXPECT_FALSE(other.run([&] { return lock.lockExclusive(); }));
    give(outerExclusive);
    EXPECT_TRUE(other.run([&] { return lock.lockExclusive(); }));
    other.run([&] { return lock.unlockExclusive(), true; });
}

INSTANTIATE_TEST_SUITE_P(Forms, Nesting,
                         testing::Values(std::pair(false, false), std::pair(false, true),
                                         std::pair(true, false), std::pair(true, true)));

TEST(ReentrantLock, InnerExclusiveInsideSharedExcludesReadersUntilItsRelease) {
    ReentrantLock lock(shortPatience);
    Other other;
    ASSERT_TRUE(lock.lockShared());
    ASSERT_TRUE(lock.lockExclusive());
    EXPECT_FALSE(other.run([&] { return lock.lockShared(); }));
    lock.unlockExclusive();
    EXPECT_TRUE(other.run([&] { return lock.lockShared(); }));
    other.run([&] { return lock.unlockShared(), true; });
    lock.unlockShared();
}

TEST(ReentrantLock, NestedSharedNeverWaitsBehindAWaitingWriter) {
    ReentrantLock lock(longPatience);
    Other writer;
    ASSERT_TRUE(lock.lockShared());
    std::future<bool> waiting = writer.start([&] { return lock.lockExclusive(); });
    ASSERT_TRUE(somebodyWaits(lock));
    const auto began = std::chrono::steady_clock::now();
    EXPECT_TRUE(lock.lockShared());
    EXPECT_LT(std::chrono::steady_clock::now() - began, 10s);
    lock.unlockShared();
    lock.unlockShared();
    EXPECT_TRUE(waiting.get());
    writer.run([&] { return lock.unlockExclusive(), true; });
}

TEST(ReentrantLock, FirstSharedWaitsBehindAWaitingWriter) {
    ReentrantLock lock(longPatience);
    Other writer;
    Other reader;
    ASSERT_TRUE(lock.lockShared());
    std::future<bool> writing = writer.start([&] { return lock.lockExclusive(); });
    ASSERT_TRUE(somebodyWaits(lock));
    std::future<bool> reading = reader.start([&] { return lock.lockShared(); });
    EXPECT_TRUE(isOpen(reading));
    lock.unlockShared();
    EXPECT_TRUE(writing.get());
    EXPECT_TRUE(isOpen(reading));
    writer.run([&] { return lock.unlockExclusive(), true; });
    EXPECT_TRUE(reading.get());
    reader.run([&] { return lock.unlockShared(), true; });
}

TEST(ReentrantLock, SecondOfTwoUpgradesIsRefusedAtOnce) {
    ReentrantLock lock(longPatience);
    Other other;
    ASSERT_TRUE(lock.lockShared());
    ASSERT_TRUE(other.run([&] { return lock.lockShared(); }));
    std::future<bool> first = other.start([&] { return lock.lockExclusive(); });
    ASSERT_TRUE(somebodyWaits(lock));
    const auto began = std::chrono::steady_clock::now();
    EXPECT_FALSE(lock.lockExclusive());
    EXPECT_LT(std::chrono::steady_clock::now() - began, 10s);
    lock.unlockShared();
    EXPECT_TRUE(first.get());
    other.run([&] { return lock.unlockExclusive(), lock.unlockShared(), true; });
    EXPECT_TRUE(lock.lockExclusive());
    lock.unlockExclusive();
}

TEST(ReentrantLock, UpgradeGoesBeforeAWriterThatWaits) {
    ReentrantLock lock(longPatience);
    Other writer;
    ASSERT_TRUE(lock.lockShared());
    std::future<bool> writing = writer.start([&] { return lock.lockExclusive(); });
    ASSERT_TRUE(somebodyWaits(lock));
    EXPECT_TRUE(lock.lockExclusive());
    lock.unlockExclusive();
    lock.unlockShared();
    EXPECT_TRUE(writing.get());
    writer.run([&] { return lock.unlockExclusive(), true; });
}

TEST(ReentrantLock, RefusedWriterLetsReadersIn) {
    ReentrantLock lock(shortPatience);
    Other writer;
    Other reader;
    ASSERT_TRUE(lock.lockShared());
    EXPECT_FALSE(writer.run([&] { return lock.lockExclusive(); }));
    EXPECT_TRUE(reader.run([&] { return lock.lockShared(); }));
    reader.run([&] { return lock.unlockShared(), true; });
    lock.unlockShared();
}

TEST(ReentrantLock, ExclusiveSectionsOfManyThreadsNeverOverlap) {
    ReentrantLock lock(longPatience);
    int inside = 0;  // guarded by the lock
    std::atomic<int> refused{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 500; ++i) {
                const bool outer = (i + t) % 3 == 0;
                if (outer && !lock.lockShared()) {
                    ++refused;
                    continue;
                }
                if (lock.lockExclusive()) {
                    ++inside;
                    EXPECT_EQ(inside, 1);
                    --inside;
                    lock.unlockExclusive();
                } else {
                    EXPECT_TRUE(outer);  // only an upgrade may be refused
                }
                if (outer) {
                    lock.unlockShared();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(refused, 0);
    EXPECT_EQ(inside, 0);
}

}  // namespace
