// The thirteen counters of an access interface, in the order in which the engine reports
// them: 32 bits each, wrapping, from zero at the start of the process. Pure.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace node {

enum class Counter : size_t {
    framesSeen,       // frames the line delivered while its link was up
    framesMatched,    // of these, frames that may raise a login, while the gate was closed
    requestsRaised,   // event lines: trapped traffic, stored requests, automatic requests
    storedRequests,   // of these, stored requests
    accepts,          // stages accepted
    rejects,          // stages rejected
    timeouts,         // requests that nobody answered in time
    framesQueued,     // frames kept until the verdict
    queueOverflows,   // matching frames that found the queue full
    droppedBlocked,   // frames dropped while nothing was asked
    droppedPending,   // frames dropped while a request was open, kept ones given up included
    droppedRejected,  // frames dropped after a reject
    forwarded,        // frames let through, kept ones included
};

constexpr size_t counterCount = 13;

// As the report and management show it.
std::string_view counterName(Counter counter);

class Counters {
public:
    void count(Counter counter, uint32_t times = 1) {
        values_[static_cast<size_t>(counter)] += times;
    }
    uint32_t operator[](Counter counter) const { return values_[static_cast<size_t>(counter)]; }
    const std::array<uint32_t, counterCount>& values() const { return values_; }

private:
    std::array<uint32_t, counterCount> values_{};
};

}  // namespace node
