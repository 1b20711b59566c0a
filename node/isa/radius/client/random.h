// Request authenticators that nobody can foretell, and jitter that a seed repeats.
// Thread of the reactor.
#pragma once

#include "node/isa/radius/packet/packet.h"

namespace node::radius {

class Random {
public:
    explicit Random(uint64_t seed);  // 0: a random one

    Authenticator authenticator();  // throws std::runtime_error without randomness
    double jitter();                // -1 to 1

private:
    std::array<Authenticator, 64> pool_;
    size_t used_ = 64;
    uint64_t state_;
};

}  // namespace node::radius
