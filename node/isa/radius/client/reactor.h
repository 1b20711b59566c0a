// What the RADIUS client needs of the loop it runs on. The node's loop implements it.
// Why: the client and its tests do not care whose loop it is or whether its clock is real.
// One thread: that of the loop.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>

#include "node/time.h"

namespace node::radius {

class Reactor {
public:
    using Task = std::function<void()>;
    using Timer = std::pair<Time, uint64_t>;

    virtual ~Reactor() = default;

    virtual Time now() const = 0;
    virtual Timer at(Time time, Task task) = 0;   // not before `time`, never from inside the call
    virtual void cancel(const Timer& timer) = 0;  // one that has run is no error

    // Level-triggered; an error or a hang-up counts as readable and as writable. A task may
    // change any watch, its own included, and is not called after it was taken away.
    virtual void watch(int fd, Task onReadable) = 0;
    virtual void watchWritable(int fd, Task onWritable) = 0;  // of an fd that is watched
    virtual void unwatchWritable(int fd) = 0;
    virtual void unwatch(int fd) = 0;  // both; before the descriptor is closed
};

}  // namespace node::radius
