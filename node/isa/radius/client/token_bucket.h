// A pace: so many at once, then so many per second. Pure; one thread at a time.
#pragma once

#include <algorithm>
#include <cstdint>

#include "node/time.h"

namespace node::radius {

class TokenBucket {
public:
    // `rate` per second, 0: no limit. Full at the beginning; `burst` is at least 1.
    TokenBucket(uint32_t rate, uint32_t burst, Time now)
        : rate_(rate), full_(int64_t{std::max(burst, 1U)} * token), level_(full_), filled_(now) {}

    bool take(Time now) {
        fill(now);
        if (rate_ == 0) {
            return true;
        }
        if (level_ < token) {
            return false;
        }
        level_ -= token;
        return true;
    }

    // When take will succeed again.
    Time next(Time now) {
        fill(now);
        if (rate_ == 0 || level_ >= token) {
            return now;
        }
        return now + Time((token - level_ + rate_ - 1) / rate_);
    }

private:
    static constexpr int64_t token = 1'000'000;  // microseconds times tokens per second

    void fill(Time now) {
        const int64_t room = full_ - level_;
        const int64_t elapsed = std::max<int64_t>((now - filled_).count(), 0);
        // A long pause must not overflow the product.
        level_ = rate_ != 0 && elapsed > room / rate_ ? full_ : level_ + elapsed * rate_;
        filled_ = std::max(filled_, now);
    }

    int64_t rate_;
    int64_t full_;
    int64_t level_;
    Time filled_;
};

}  // namespace node::radius
