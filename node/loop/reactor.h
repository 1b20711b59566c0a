// What I/O needs of a loop: the clock, timers and word of descriptors that can be read or
// written. An interface of its own so that tests can move the clock. Loop thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>

#include "node/time.h"

namespace node {

using Task = std::function<void()>;

class Reactor {
public:
    using Timer = std::pair<Time, uint64_t>;

    virtual ~Reactor() = default;

    virtual Time now() const = 0;
    // Not before `time`, never from inside the call; ties in the order of the calls.
    virtual Timer at(Time time, Task task) = 0;
    virtual void cancel(const Timer& timer) = 0;  // one that has run is no error

    // Level-triggered; an error or a hang-up counts as readable and as writable. A task may
    // change any watch, its own included, and is not called after it was taken away. The
    // descriptor stays the caller's. std::system_error when it cannot be watched.
    virtual void watch(int fd, Task onReadable) = 0;
    virtual void watchWritable(int fd, Task onWritable) = 0;  // of an fd that is watched
    virtual void unwatchWritable(int fd) = 0;
    virtual void unwatch(int fd) = 0;  // both; before the descriptor is closed
};

}  // namespace node
