// A reactor whose clock is moved by the test; nothing but timers happens on it. One thread.
#pragma once

#include <map>

#include "node/loop/reactor.h"

namespace radius_test {

class VirtualReactor : public node::Reactor {
public:
    node::Time now() const override { return now_; }
    Timer at(node::Time time, node::Task task) override;
    void cancel(const Timer& timer) override { timers_.erase(timer); }
    void watch(int, node::Task) override { noDescriptors(); }
    void watchWritable(int, node::Task) override { noDescriptors(); }
    void unwatchWritable(int) override { noDescriptors(); }
    void unwatch(int) override { noDescriptors(); }

    // Runs everything that comes due until then, each at its time.
    void advance(node::Time duration);
    void settle() { advance(node::Time(0)); }

    size_t timers() const { return timers_.size(); }

private:
    [[noreturn]] static void noDescriptors();

    node::Time now_{1'000'000};
    uint64_t made_ = 0;
    std::map<Timer, node::Task> timers_;
};

}  // namespace radius_test
