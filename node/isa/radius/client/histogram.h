// Counts of durations in a fixed number of classes, for percentiles of any run's length.
// Why: memory must not grow with the number of requests. Pure; one thread at a time.
#pragma once

#include <array>
#include <cstdint>

#include "node/time.h"

namespace node::radius {

// A class is at most a sixteenth wide, so a percentile is at most 6.25 % too high. Durations of
// 2^36 microseconds (19 hours) and more share the last class.
class Histogram {
public:
    void add(Time duration);
    uint64_t count() const { return count_; }

    // The upper end of the class that holds the `percent`th (0 to 100) of a hundred parts; 0
    // when nothing was added.
    Time percentile(double percent) const;

private:
    static constexpr unsigned subBits = 4;
    static constexpr unsigned topBit = 36;
    static constexpr size_t classes = (topBit - subBits + 1) << subBits;

    static size_t classOf(uint64_t microseconds);
    static uint64_t upperEnd(size_t index);

    std::array<uint64_t, classes> counts_{};
    uint64_t count_ = 0;
};

}  // namespace node::radius
