#include "node/loop/loop.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using node::Loop;
using node::Pace;
using node::Source;
using node::Time;

class Times : public Source {
public:
    Times(std::vector<Time> times, std::function<void()> onDeliver)
        : times_(std::move(times)), onDeliver_(std::move(onDeliver)) {}
    std::optional<Time> next() override {
        return done_ < times_.size() ? std::optional<Time>(times_[done_]) : std::nullopt;
    }
    void deliver() override {
        ++done_;
        onDeliver_();
    }

private:
    std::vector<Time> times_;
    std::function<void()> onDeliver_;
    size_t done_ = 0;
};

class LoopTest : public testing::Test {
protected:
    node::Task note(const std::string& what) {
        return [this, what] { seen.push_back(what + "@" + std::to_string(loop.now().count())); };
    }
    Loop loop{Pace::instant};
    std::vector<std::string> seen;
};

TEST_F(LoopTest, EmptyLoopEnds) {
    loop.run(true);
    EXPECT_EQ(loop.now(), 0us);
}

TEST_F(LoopTest, ClockJumpsToWhateverIsNext) {
    Times source({5us, 20us}, note("frame"));
    loop.add(source);
    loop.at(10us, note("timer"));
    loop.at(3000000000us, note("late"));
    loop.run(true);
    EXPECT_EQ(seen,
              (std::vector<std::string>{"frame@5", "timer@10", "frame@20", "late@3000000000"}));
}

TEST_F(LoopTest, AtOneInstantPostedTasksThenTimersThenSourcesInTheirOrder) {
    Times first({7us}, note("first"));
    Times second({7us}, note("second"));
    loop.add(first);
    loop.add(second);
    loop.at(7us, note("timer b"));
    loop.at(7us, note("timer a"));
    loop.at(7us, [this] { loop.post(note("posted")); });
    loop.run(true);
    EXPECT_EQ(seen, (std::vector<std::string>{"timer b@7", "timer a@7", "posted@7", "first@7",
                                              "second@7"}));
}

TEST_F(LoopTest, WhatATaskPostsRunsBeforeTheNextFrame) {
    Times source({1us, 1us}, [this] {
        note("frame")();
        loop.post(note("event"));
    });
    loop.add(source);
    loop.run(true);
    EXPECT_EQ(seen, (std::vector<std::string>{"frame@1", "event@1", "frame@1", "event@1"}));
}

TEST_F(LoopTest, CancelledTimerNeitherRunsNorMovesTheClock) {
    const Loop::Timer timer = loop.at(50us, note("timer"));
    loop.at(10us, [&, this] { loop.cancel(timer); });
    loop.run(true);
    EXPECT_TRUE(seen.empty());
    EXPECT_EQ(loop.now(), 10us);
    loop.cancel(timer);
}

TEST_F(LoopTest, ClockNeverStepsBack) {
    loop.at(10us, [this] { loop.at(2us, note("overdue")); });
    loop.run(true);
    EXPECT_EQ(seen, (std::vector<std::string>{"overdue@10"}));
}

TEST_F(LoopTest, StopEndsTheRunAfterTheTaskAtHand) {
    loop.post([this] {
        loop.stop();
        note("first")();
    });
    loop.post(note("second"));
    loop.run(false);
    EXPECT_EQ(seen, (std::vector<std::string>{"first@0"}));
}

TEST_F(LoopTest, BusyLoopNoticesDescriptors) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    loop.watch(ends[0], [this] { loop.stop(); });
    uint64_t rounds = 0;
    std::function<void()> again = [&] {
        if (++rounds < 1000000) {
            loop.post(again);
        }
    };
    loop.post(again);
    loop.run(true);
    EXPECT_LT(rounds, 1000u);
    close(ends[0]);
    close(ends[1]);
}

class Watches : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
    }
    void TearDown() override {
        loop.unwatch(ends[0]);
        close(ends[0]);
        close(ends[1]);
    }
    void makeReadable() { ASSERT_EQ(write(ends[1], "x", 1), 1); }

    Loop loop{Pace::recorded};
    int ends[2] = {-1, -1};
};

TEST_F(Watches, WritableIsToldUntilTakenBack) {
    unsigned told = 0;
    loop.watch(ends[0], [] { FAIL() << "nothing to read"; });
    loop.watchWritable(ends[0], [&] {
        if (++told == 3) {
            loop.unwatchWritable(ends[0]);
            loop.at(loop.now() + 5ms, [&] { loop.stop(); });
        }
    });
    loop.run(false);
    EXPECT_EQ(told, 3u);
}

TEST_F(Watches, TaskMayTakeAwayItsOwnWatch) {
    unsigned told = 0;
    makeReadable();
    auto held = std::make_shared<std::string>("owned by the task");
    loop.watch(ends[0], [&, held] {
        ++told;
        loop.unwatch(ends[0]);
        EXPECT_EQ(*held, "owned by the task");
        loop.at(loop.now() + 5ms, [&] { loop.stop(); });
    });
    loop.watchWritable(ends[0], [] { FAIL() << "was taken away by the reader"; });
    loop.run(false);
    EXPECT_EQ(told, 1u);
}

TEST_F(Watches, TaskMayTakeAwayTheOther) {
    int others[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, others), 0);
    makeReadable();
    ASSERT_EQ(write(others[1], "x", 1), 1);
    unsigned told = 0;
    loop.watch(ends[0], [&] {
        ++told;
        loop.unwatch(others[0]);
        loop.stop();
    });
    loop.watch(others[0], [&] {
        ++told;
        loop.unwatch(ends[0]);
        loop.stop();
    });
    loop.run(false);
    EXPECT_EQ(told, 1u);
    loop.unwatch(others[0]);
    close(others[0]);
    close(others[1]);
}

TEST_F(Watches, DescriptorMayBeWatchedAnew) {
    std::string seen;
    makeReadable();
    loop.watch(ends[0], [&] { seen += "first "; });
    loop.watch(ends[0], [&] {
        seen += "second ";
        loop.unwatch(ends[0]);
        loop.watch(ends[0], [&] {
            seen += "third";
            loop.stop();
        });
    });
    loop.run(false);
    EXPECT_EQ(seen, "second third");
}

TEST_F(Watches, HangUpIsToldToTheReaderAndTheWriter) {
    bool read = false;
    bool written = false;
    shutdown(ends[1], SHUT_RDWR);
    shutdown(ends[0], SHUT_RDWR);
    loop.watch(ends[0], [&] { read = true; });
    loop.watchWritable(ends[0], [&] {
        written = true;
        loop.stop();
    });
    loop.run(false);
    EXPECT_TRUE(read);
    EXPECT_TRUE(written);
}

TEST_F(Watches, DescriptorThatCannotBeWatchedIsAnError) {
    EXPECT_THROW(loop.watch(-1, [] {}), std::system_error);
    loop.unwatch(-1);
    loop.unwatchWritable(-1);
}

TEST_F(LoopTest, IdleLoopWaitsForAnotherThread) {
    std::thread other([this] {
        loop.post(note("posted"));
        loop.post([this] { loop.stop(); });
    });
    loop.run(false);
    other.join();
    EXPECT_EQ(seen, (std::vector<std::string>{"posted@0"}));
}

// Other threads set times from it, such as the end of a login's patience.
TEST(RecordedPace, ClockGoesOnWhileNothingIsDue) {
    for (const Time due : {Time::max(), Time(1h)}) {
        Loop loop(Pace::recorded);
        if (due != Time::max()) {
            loop.at(due, [] { FAIL(); });
        }
        std::thread idle([&loop] { loop.run(false); });
        const auto end = std::chrono::steady_clock::now() + 30s;
        while (loop.now() < 500ms && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(1ms);
        }
        EXPECT_GE(loop.now(), 500ms);
        loop.stop();
        idle.join();
    }
}

TEST(RecordedPace, TakesAsLongAsTheRecording) {
    Loop loop(Pace::recorded);
    Times source({0us, 60000us}, [] {});
    loop.add(source);
    const auto began = std::chrono::steady_clock::now();
    loop.run(true);
    EXPECT_GE(std::chrono::steady_clock::now() - began, 60ms);
    EXPECT_GE(loop.now(), 60ms);
}

}  // namespace
