// Durations below 16 have a class each; above, every doubling is divided into 16 equal classes.
#include "node/isa/radius/client/histogram.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace node::radius {

size_t Histogram::classOf(uint64_t microseconds) {
    constexpr uint64_t linear = uint64_t{1} << subBits;
    if (microseconds < linear) {
        return microseconds;
    }
    const auto shift = static_cast<unsigned>(std::bit_width(microseconds)) - 1 - subBits;
    const size_t index = (size_t{shift + 1} << subBits) + ((microseconds >> shift) & (linear - 1));
    return std::min(index, classes - 1);
}

uint64_t Histogram::upperEnd(size_t index) {
    constexpr size_t linear = size_t{1} << subBits;
    if (index < linear) {
        return index;
    }
    const size_t shift = (index >> subBits) - 1;
    return ((linear + (index & (linear - 1)) + 1) << shift) - 1;
}

void Histogram::add(Time duration) {
    ++counts_[classOf(static_cast<uint64_t>(std::max<Time::rep>(duration.count(), 0)))];
    ++count_;
}

Time Histogram::percentile(double percent) const {
    if (count_ == 0) {
        return Time(0);
    }
    const double wanted = std::ceil(static_cast<double>(count_) * percent / 100);
    const uint64_t rank = std::clamp<uint64_t>(static_cast<uint64_t>(wanted), 1, count_);
    uint64_t seen = 0;
    size_t index = 0;
    for (; index < counts_.size(); ++index) {
        seen += counts_[index];
        if (seen >= rank) {
            break;
        }
    }
    return Time(static_cast<Time::rep>(upperEnd(index)));
}

}  // namespace node::radius
