// The lock of the threaded tests keeps the promises a host makes, or those tests prove nothing.
#include "tests/fake/reentrant_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

using fake::ReentrantLock;

namespace {

constexpr auto deadline = std::chrono::seconds(20);  // only ever waited for when a test fails
constexpr auto glance = std::chrono::milliseconds(20);

bool ended(std::future<void>& future, std::chrono::milliseconds within) {
    return future.wait_for(within) == std::future_status::ready;
}

class ReentrantLockTest : public testing::Test {
protected:
    ReentrantLock lock;

    // A thread that takes the lock exclusively and gives it back.
    std::future<void> writer() {
        return std::async(std::launch::async, [this] {
            EXPECT_TRUE(lock.lockExclusive());
            lock.unlock();
        });
    }
    std::future<void> reader() {
        return std::async(std::launch::async, [this] {
            lock.lockShared();
            lock.unlock();
        });
    }
};

TEST_F(ReentrantLockTest, HolderTakesEitherFormInsideEither) {
    EXPECT_TRUE(lock.lockExclusive());
    EXPECT_TRUE(lock.lockExclusive());
    lock.lockShared();
    lock.unlock();
    lock.unlock();
    lock.unlock();
    lock.lockShared();
    lock.lockShared();
    EXPECT_TRUE(lock.lockExclusive());
    lock.unlock();
    lock.unlock();
    lock.unlock();
    auto after = writer();
    EXPECT_TRUE(ended(after, deadline));
}

TEST_F(ReentrantLockTest, ReleaseHappensAtTheOutermostUnlock) {
    EXPECT_TRUE(lock.lockExclusive());
    lock.lockShared();
    auto other = reader();
    lock.unlock();
    EXPECT_FALSE(ended(other, glance));
    lock.unlock();
    EXPECT_TRUE(ended(other, deadline));
}

TEST_F(ReentrantLockTest, ExclusiveInsideSharedStaysExclusiveToTheEnd) {
    lock.lockShared();
    EXPECT_TRUE(lock.lockExclusive());
    lock.unlock();
    auto other = reader();
    EXPECT_FALSE(ended(other, glance));
    lock.unlock();
    EXPECT_TRUE(ended(other, deadline));
}

TEST_F(ReentrantLockTest, SharedHoldersDoNotShutEachOtherOut) {
    lock.lockShared();
    auto other = reader();
    EXPECT_TRUE(ended(other, deadline));
    lock.unlock();
}

TEST_F(ReentrantLockTest, WriterWaitsForReadersAndNestedSharedNeverWaitsForTheWriter) {
    lock.lockShared();
    auto waiting = writer();
    EXPECT_FALSE(ended(waiting, glance));
    lock.lockShared();  // would never return if it queued behind the writer
    lock.unlock();
    lock.unlock();
    EXPECT_TRUE(ended(waiting, deadline));
}

TEST_F(ReentrantLockTest, OneOfTwoSharedHoldersThatAskForExclusiveIsRefused) {
    std::promise<void> othersShared;
    std::promise<void> release;
    std::atomic<bool> otherObtained{false};
    lock.lockShared();
    auto other = std::async(std::launch::async, [&] {
        lock.lockShared();
        othersShared.set_value();
        otherObtained = lock.lockExclusive();
        if (otherObtained) {
            lock.unlock();
        }
        release.get_future().wait();
        lock.unlock();
    });
    othersShared.get_future().wait();
    // The other thread waits, or is about to; whoever comes second is refused. If it is the
    // other one, this call returns only after the other has let go.
    std::future<bool> mine =
        std::async(std::launch::deferred, [&] { return lock.lockExclusive(); });
    release.set_value();
    const bool obtained = mine.get();
    if (obtained) {
        lock.unlock();
    }
    lock.unlock();
    EXPECT_TRUE(ended(other, deadline));
    EXPECT_NE(obtained, otherObtained.load());
}

TEST_F(ReentrantLockTest, ExclusiveHoldersNeverMeet) {
    constexpr int rounds = 500;
    int counter = 0;  // plain on purpose
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < rounds; ++i) {
                EXPECT_TRUE(lock.lockExclusive());
                ++counter;
                lock.unlock();
                lock.lockShared();
                EXPECT_GE(counter, 1);
                lock.unlock();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(4 * rounds, counter);
}

}  // namespace
