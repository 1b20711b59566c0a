// One loop instead of a thread per concern, so that an answer can never overtake the event
// that caused it and a run over captures gives the same result every time: whatever is due at
// one instant runs in a fixed order (posted tasks, timers, sources). In instant pace the clock
// is set to the time of the next thing to do; signals are looked for every few steps. In
// recorded pace the loop sleeps in epoll until the next thing is due, a task is posted or a
// signal arrives. Tested by tests/unit/node_host/loop_test.cpp.
#include "node/loop/loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace node {

namespace {

constexpr unsigned stepsBetweenPolls = 64;
constexpr size_t eventsAtOnce = 64;
// How far the clock may stay behind the wall, for other threads that read it while nothing is due.
constexpr Time longestWait = std::chrono::milliseconds(200);

}  // namespace

Loop::Loop(Pace pace)
    : pace_(pace),
      wakeFd_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      epollFd_(epoll_create1(EPOLL_CLOEXEC)) {
    if (wakeFd_ < 0 || epollFd_ < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd or epoll");
    }
    began_ = lastTick_ = WallClock::now();
    watch(wakeFd_, [this] {
        uint64_t count = 0;
        [[maybe_unused]] const ssize_t got = read(wakeFd_, &count, sizeof count);
    });
}

Loop::~Loop() {
    close(epollFd_);
    close(wakeFd_);
}

void Loop::post(Task task) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        posted_.push_back(std::move(task));
    }
    wake();
}

Loop::Timer Loop::at(Time time, Task task) {
    Timer timer;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        timer = {time, timersMade_++};
        timers_.emplace(timer, std::move(task));
    }
    wake();
    return timer;
}

void Loop::cancel(const Timer& timer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    timers_.erase(timer);
}

void Loop::stop() {
    stopping_ = true;
    wake();
}

void Loop::wake() {
    const uint64_t one = 1;
    // A full counter already wakes the loop.
    [[maybe_unused]] const ssize_t written = write(wakeFd_, &one, sizeof one);
}

void Loop::add(Source& source) {
    sources_.push_back(&source);
}

void Loop::setEvents(int operation, WatchId id) {
    const Watch& watch = watches_.at(id);
    epoll_event event{};
    event.events = EPOLLIN | (watch.onWritable ? uint32_t(EPOLLOUT) : 0U);
    event.data.u64 = id;
    if (epoll_ctl(epollFd_, operation, watch.fd, &event) != 0) {
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
    }
}

void Loop::watch(int fd, Task onReadable) {
    const auto known = watched_.find(fd);
    if (known != watched_.end()) {
        watches_[known->second].onReadable = std::move(onReadable);
        return;
    }
    const WatchId id = watchesMade_++;
    watches_[id] = {fd, std::move(onReadable), nullptr};
    try {
        setEvents(EPOLL_CTL_ADD, id);
    } catch (...) {
        watches_.erase(id);
        throw;
    }
    watched_[fd] = id;
}

void Loop::watchWritable(int fd, Task onWritable) {
    const WatchId id = watched_.at(fd);
    watches_[id].onWritable = std::move(onWritable);
    setEvents(EPOLL_CTL_MOD, id);
}

void Loop::unwatchWritable(int fd) {
    const auto known = watched_.find(fd);
    if (known != watched_.end()) {
        watches_[known->second].onWritable = nullptr;
        setEvents(EPOLL_CTL_MOD, known->second);
    }
}

void Loop::unwatch(int fd) {
    const auto known = watched_.find(fd);
    if (known != watched_.end()) {
        epoll_ctl(epollFd_, EPOLL_CTL_DEL, fd, nullptr);
        watches_.erase(known->second);
        watched_.erase(known);
    }
}

void Loop::everySecond(Task task) {
    everySecond_ = std::move(task);
}

std::optional<Task> Loop::takePosted() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (posted_.empty()) {
        return std::nullopt;
    }
    Task task = std::move(posted_.front());
    posted_.pop_front();
    return task;
}

std::optional<Time> Loop::nextTimer() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return timers_.empty() ? std::nullopt : std::optional<Time>(timers_.begin()->first.first);
}

std::optional<Task> Loop::takeTimer() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (timers_.empty()) {
        return std::nullopt;
    }
    Task task = std::move(timers_.begin()->second);
    timers_.erase(timers_.begin());
    return task;
}

Source* Loop::earliestSource(std::optional<Time>& when) {
    Source* earliest = nullptr;
    for (Source* source : sources_) {
        const std::optional<Time> next = source->next();
        if (next && (!earliest || *next < *when)) {
            earliest = source;
            when = next;
        }
    }
    return earliest;
}

void Loop::advanceTo(Time time) {
    now_ = std::max(now_.load(), time.count());
}

// In recorded pace waits for `time`; false when something else came up meanwhile.
bool Loop::reached(Time time) {
    if (pace_ == Pace::instant) {
        advanceTo(time);
        return true;
    }
    const auto wall = std::chrono::duration_cast<Time>(WallClock::now() - began_);
    advanceTo(wall);
    if (wall >= time) {
        return true;
    }
    pollDescriptors(std::min(time - wall, longestWait));
    return false;
}

bool Loop::step() {
    if (pace_ == Pace::recorded) {
        advanceTo(std::chrono::duration_cast<Time>(WallClock::now() - began_));
    }
    if (std::optional<Task> task = takePosted()) {
        (*task)();
        return true;
    }
    const std::optional<Time> timer = nextTimer();
    std::optional<Time> frame;
    Source* source = earliestSource(frame);
    if (timer && (!source || *timer <= *frame)) {
        if (reached(*timer)) {
            if (std::optional<Task> task = takeTimer()) {
                (*task)();
            }
        }
        return true;
    }
    if (source) {
        if (reached(*frame)) {
            source->deliver();
        }
        return true;
    }
    return false;
}

const Loop::Watch* Loop::findWatch(WatchId id) const {
    const auto found = watches_.find(id);
    return found == watches_.end() ? nullptr : &found->second;
}

// Tasks are copied before they are called, because they may take away their own watch.
void Loop::serve(WatchId id, uint32_t events) {
    constexpr uint32_t broken = EPOLLERR | EPOLLHUP;
    const Watch* readable = findWatch(id);
    if (readable && events & (EPOLLIN | broken)) {
        const Task task = readable->onReadable;
        task();
    }
    const Watch* writable = findWatch(id);
    if (writable && writable->onWritable && events & (EPOLLOUT | broken)) {
        const Task task = writable->onWritable;
        task();
    }
}

void Loop::pollDescriptors(std::optional<std::chrono::microseconds> wait) {
    timespec timeout{};
    if (wait) {
        timeout.tv_sec = wait->count() / 1000000;
        timeout.tv_nsec = wait->count() % 1000000 * 1000;
    }
    std::array<epoll_event, eventsAtOnce> events;
    const int count = epoll_pwait2(epollFd_, events.data(), static_cast<int>(events.size()),
                                   wait ? &timeout : nullptr, nullptr);
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = events[static_cast<size_t>(i)];
        serve(event.data.u64, event.events);
    }
}

void Loop::tick() {
    const auto wall = WallClock::now();
    if (everySecond_ && wall - lastTick_ >= std::chrono::seconds(1)) {
        lastTick_ = wall;
        everySecond_();
    }
}

void Loop::run(bool endWhenIdle) {
    began_ = WallClock::now() - std::chrono::duration_cast<WallClock::duration>(now());
    unsigned steps = 0;
    while (!stopping_) {
        if (!step()) {
            if (endWhenIdle) {
                return;
            }
            pollDescriptors(pace_ == Pace::recorded ? std::optional(longestWait) : std::nullopt);
        }
        if (++steps % stepsBetweenPolls == 0) {
            pollDescriptors(Time(0));
            tick();
        }
    }
}

}  // namespace node
