// Many deadlines behind one timer of the reactor.
// Why: a request has two deadlines and is mostly answered before either; a timer each would be
// made and cancelled for nothing. Thread of the reactor.
#pragma once

#include <optional>
#include <set>

#include "node/loop/reactor.h"

namespace node::radius {

class Deadlines {
public:
    using Due = std::function<void(uint64_t key)>;

    Deadlines(Reactor& reactor, Due due) : reactor_(reactor), due_(std::move(due)) {}
    ~Deadlines();
    Deadlines(const Deadlines&) = delete;
    Deadlines& operator=(const Deadlines&) = delete;

    void add(Time when, uint64_t key);
    void remove(Time when, uint64_t key);
    size_t size() const { return entries_.size(); }

private:
    void arm();
    void fire();

    Reactor& reactor_;
    Due due_;
    std::set<std::pair<Time, uint64_t>> entries_;
    std::optional<Reactor::Timer> timer_;  // not later than the earliest entry
};

}  // namespace node::radius
