// A reactor on epoll and the wall's clock, for tests and measurements with real sockets.
// One thread.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <unordered_map>

#include "node/isa/radius/client/socket.h"
#include "node/loop/reactor.h"

namespace radius_test {

class EpollReactor : public node::Reactor {
public:
    EpollReactor();

    node::Time now() const override;
    Timer at(node::Time time, node::Task task) override;
    void cancel(const Timer& timer) override { timers_.erase(timer); }
    void watch(int fd, node::Task onReadable) override;
    void watchWritable(int fd, node::Task onWritable) override;
    void unwatchWritable(int fd) override;
    void unwatch(int fd) override;

    // Until `done` says so, looked at after every turn; false when that takes too long.
    bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds patience);
    void runFor(std::chrono::milliseconds duration);

    size_t watches() const { return watches_.size(); }

private:
    struct Watch {
        node::Task readable;
        node::Task writable;
    };

    void turn(node::Time until);
    void change(int fd, int operation, const Watch& watch);

    node::radius::Socket epoll_;
    std::chrono::steady_clock::time_point began_;
    uint64_t made_ = 0;
    std::map<Timer, node::Task> timers_;
    std::unordered_map<int, std::shared_ptr<Watch>> watches_;
};

}  // namespace radius_test
