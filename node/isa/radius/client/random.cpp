// Randomness is drawn for many authenticators at once: a draw costs more than a digest. The
// jitter protects no secret, so a small generator does (splitmix: a counter, mixed).
#include "node/isa/radius/client/random.h"

#include <openssl/rand.h>

#include <stdexcept>

namespace node::radius {

namespace {

void draw(void* to, size_t size) {
    if (RAND_bytes(static_cast<unsigned char*>(to), static_cast<int>(size)) != 1) {
        throw std::runtime_error("OpenSSL has no randomness");
    }
}

}  // namespace

Random::Random(uint64_t seed) : state_(seed) {
    if (seed == 0) {
        draw(&state_, sizeof state_);
    }
}

Authenticator Random::authenticator() {
    if (used_ == pool_.size()) {
        draw(pool_.data(), sizeof pool_);
        used_ = 0;
    }
    return pool_[used_++];
}

double Random::jitter() {
    state_ += 0x9e3779b97f4a7c15;
    uint64_t mixed = state_;
    mixed = (mixed ^ mixed >> 30) * 0xbf58476d1ce4e5b9;
    mixed = (mixed ^ mixed >> 27) * 0x94d049bb133111eb;
    mixed ^= mixed >> 31;
    return static_cast<double>(mixed >> 11) / static_cast<double>(uint64_t{1} << 52) - 1;
}

}  // namespace node::radius
