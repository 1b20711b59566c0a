#include "tests/radius/virtual_reactor.h"

#include <algorithm>
#include <stdexcept>

namespace radius_test {

node::Reactor::Timer VirtualReactor::at(node::Time time, node::Task task) {
    const Timer timer{time, ++made_};
    timers_.emplace(timer, std::move(task));
    return timer;
}

void VirtualReactor::advance(node::Time duration) {
    const node::Time end = now_ + duration;
    while (!timers_.empty() && timers_.begin()->first.first <= end) {
        now_ = std::max(now_, timers_.begin()->first.first);
        const node::Task task = std::move(timers_.begin()->second);
        timers_.erase(timers_.begin());
        task();
    }
    now_ = end;
}

void VirtualReactor::noDescriptors() {
    throw std::logic_error("this reactor knows no descriptors");
}

}  // namespace radius_test
