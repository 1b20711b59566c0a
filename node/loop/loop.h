// The main loop: posted tasks, timers and frame sources, one at a time on one thread.
// The clock either jumps from one thing to do to the next, so that recorded traffic runs at
// once and always alike, or follows the wall. post, at, cancel, now and stop: any thread.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "node/loop/reactor.h"
#include "node/time.h"

namespace node {

// Something that yields work at times of its own, in ascending order. Loop thread only.
class Source {
public:
    virtual ~Source() = default;
    virtual std::optional<Time> next() = 0;  // when deliver is due; empty at the end
    virtual void deliver() = 0;              // the work that was due at next()
};

enum class Pace { instant, recorded };

class Loop : public Reactor {
public:
    explicit Loop(Pace pace);
    ~Loop() override;
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    Time now() const override { return Time(now_.load()); }
    void post(Task task);  // runs before anything that is due later
    Timer at(Time time, Task task) override;
    void cancel(const Timer& timer) override;
    void stop();  // run returns after the task at hand

    // Before run or on the loop.
    void watch(int fd, Task onReadable) override;
    void watchWritable(int fd, Task onWritable) override;
    void unwatchWritable(int fd) override;
    void unwatch(int fd) override;

    // Before run.
    void add(Source& source);     // must outlive run; ties in the order of the calls
    void everySecond(Task task);  // of the wall's time, while run is busy

    // Until stop; when `endWhenIdle`, also until nothing is left to do. At one instant posted
    // tasks come first, then timers, then sources.
    void run(bool endWhenIdle);

private:
    struct Watch {
        int fd;
        Task onReadable;
        Task onWritable;
    };
    using WatchId = uint64_t;  // never used again, as a descriptor's number may be
    using WallClock = std::chrono::steady_clock;

    std::optional<Task> takePosted();
    std::optional<Time> nextTimer();
    std::optional<Task> takeTimer();
    Source* earliestSource(std::optional<Time>& when);
    bool step();  // false: nothing to do at all
    void advanceTo(Time time);
    bool reached(Time time);
    void pollDescriptors(std::optional<std::chrono::microseconds> wait);
    void serve(WatchId id, uint32_t events);
    void setEvents(int operation, WatchId id);
    const Watch* findWatch(WatchId id) const;
    void wake();
    void tick();

    const Pace pace_;
    std::atomic<Time::rep> now_{0};
    std::atomic<bool> stopping_{false};
    WallClock::time_point began_;
    WallClock::time_point lastTick_;
    int wakeFd_;
    int epollFd_;

    std::mutex mutex_;  // guards the three below
    std::deque<Task> posted_;
    std::map<Timer, Task> timers_;
    uint64_t timersMade_ = 0;

    std::vector<Source*> sources_;
    std::map<WatchId, Watch> watches_;
    std::map<int, WatchId> watched_;  // by descriptor
    WatchId watchesMade_ = 0;
    Task everySecond_;
};

}  // namespace node
