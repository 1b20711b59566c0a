#include "tests/radius/scenario/epoll_reactor.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace radius_test {

using node::Time;

EpollReactor::EpollReactor()
    : epoll_(epoll_create1(EPOLL_CLOEXEC)), began_(std::chrono::steady_clock::now()) {
    if (!epoll_) {
        throw std::system_error(errno, std::generic_category(), "epoll");
    }
}

Time EpollReactor::now() const {
    return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now() - began_);
}

node::Reactor::Timer EpollReactor::at(Time time, node::Task task) {
    const Timer timer{time, ++made_};
    timers_.emplace(timer, std::move(task));
    return timer;
}

void EpollReactor::change(int fd, int operation, const Watch& watch) {
    epoll_event event{};
    event.events = EPOLLIN | (watch.writable ? EPOLLOUT : 0U);
    event.data.fd = fd;
    if (epoll_ctl(epoll_.get(), operation, fd, &event) != 0) {
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
    }
}

void EpollReactor::watch(int fd, node::Task onReadable) {
    auto watch = std::make_shared<Watch>();
    watch->readable = std::move(onReadable);
    change(fd, EPOLL_CTL_ADD, *watch);
    watches_[fd] = std::move(watch);
}

void EpollReactor::watchWritable(int fd, node::Task onWritable) {
    // A new object, so that a task that is running is not replaced under itself.
    auto watch = std::make_shared<Watch>(*watches_.at(fd));
    watch->writable = std::move(onWritable);
    change(fd, EPOLL_CTL_MOD, *watch);
    watches_[fd] = std::move(watch);
}

void EpollReactor::unwatchWritable(int fd) {
    auto watch = std::make_shared<Watch>(*watches_.at(fd));
    watch->writable = nullptr;
    change(fd, EPOLL_CTL_MOD, *watch);
    watches_[fd] = std::move(watch);
}

void EpollReactor::unwatch(int fd) {
    change(fd, EPOLL_CTL_DEL, Watch());
    watches_.erase(fd);
}

void EpollReactor::turn(Time until) {
    Time next = until;
    if (!timers_.empty()) {
        next = std::min(next, timers_.begin()->first.first);
    }
    const Time wait = std::max(next - now(), Time(0));
    const auto milliseconds = static_cast<int>((wait.count() + 999) / 1000);
    std::array<epoll_event, 64> events;
    const int count =
        epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), milliseconds);
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = events[static_cast<size_t>(i)];
        const auto call = [&](uint32_t bits, node::Task Watch::*task) {
            const auto found = watches_.find(event.data.fd);
            if ((event.events & (bits | EPOLLERR | EPOLLHUP)) == 0 || found == watches_.end()) {
                return;
            }
            const std::shared_ptr<Watch> held = found->second;
            if ((*held).*task) {
                ((*held).*task)();
            }
        };
        call(EPOLLIN, &Watch::readable);
        call(EPOLLOUT, &Watch::writable);
    }
    const Time reached = now();
    while (!timers_.empty() && timers_.begin()->first.first <= reached) {
        const node::Task task = std::move(timers_.begin()->second);
        timers_.erase(timers_.begin());
        task();
    }
}

bool EpollReactor::runUntil(const std::function<bool()>& done, std::chrono::milliseconds patience) {
    const Time end = now() + patience;
    while (!done()) {
        if (now() >= end) {
            return false;
        }
        // What `done` looks at may change without an event of the reactor's.
        turn(std::min(end, now() + Time(10'000)));
    }
    return true;
}

void EpollReactor::runFor(std::chrono::milliseconds duration) {
    runUntil([] { return false; }, duration);
}

}  // namespace radius_test
