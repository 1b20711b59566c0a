// When a request is sent again, as a pure function of what was waited so far.
#pragma once

#include <algorithm>

#include "node/time.h"

namespace node::radius {

struct RetrySettings {
    Time first{1'000'000};    // from the first sending to the second
    Time longest{8'000'000};  // doubling ends here
    unsigned tries = 3;       // sendings to one server; at least 1
};

// How long to wait after the next sending. `previous` is 0 for the first one, `jitter` lies
// between -1 and 1 and moves the result by up to a tenth, so that many clients do not beat in
// time.
inline Time retryAfter(const RetrySettings& settings, Time previous, double jitter) {
    const auto moved = [jitter](Time time) {
        return Time(static_cast<Time::rep>(static_cast<double>(time.count()) * (1 + 0.1 * jitter)));
    };
    if (previous == Time(0)) {
        return moved(std::min(settings.first, settings.longest));
    }
    const Time doubled = 2 * previous;
    return doubled < settings.longest ? doubled + moved(previous) - previous
                                      : moved(settings.longest);
}

// The time after which a request is given up at one server, without jitter.
inline Time retryTotal(const RetrySettings& settings) {
    Time total(0), wait(0);
    for (unsigned i = 0; i < settings.tries; ++i) {
        wait = retryAfter(settings, wait, 0);
        total += wait;
    }
    return total;
}

}  // namespace node::radius
