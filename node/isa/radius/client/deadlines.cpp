// The timer is not moved when the earliest deadline goes away: it then fires once for nothing,
// which is cheaper than moving it with every answer.
#include "node/isa/radius/client/deadlines.h"

namespace node::radius {

Deadlines::~Deadlines() {
    if (timer_) {
        reactor_.cancel(*timer_);
    }
}

void Deadlines::add(Time when, uint64_t key) {
    entries_.emplace(when, key);
    arm();
}

void Deadlines::remove(Time when, uint64_t key) {
    entries_.erase({when, key});
}

void Deadlines::arm() {
    if (entries_.empty()) {
        return;
    }
    const Time earliest = entries_.begin()->first;
    if (timer_ && timer_->first <= earliest) {
        return;
    }
    if (timer_) {
        reactor_.cancel(*timer_);
    }
    timer_ = reactor_.at(earliest, [this] { fire(); });
}

void Deadlines::fire() {
    timer_.reset();
    const Time now = reactor_.now();
    while (!entries_.empty() && entries_.begin()->first <= now) {
        const uint64_t key = entries_.begin()->second;
        entries_.erase(entries_.begin());
        due_(key);
    }
    arm();
}

}  // namespace node::radius
