// A channel with its 256 identifiers and what became of the request each was last used for.
// Why: an answer must be judged by the request it claims to answer. Thread of the reactor.
#pragma once

#include <array>
#include <memory>
#include <optional>

#include "node/isa/radius/client/channel.h"
#include "node/time.h"

namespace node::radius {

enum class Purpose : uint8_t { login, accounting, probe };

// The last request sent under one identifier.
struct Flight {
    enum class State : uint8_t { unused, flying, answered, abandoned };

    State state = State::unused;
    Purpose purpose = Purpose::login;
    unsigned tries = 0;
    uint64_t ticket = 0;
    Authenticator authenticator{};
    std::optional<Authenticator> earlier;  // of the request before under this identifier
    Buffer packet;
    Time firstSent{0};
    Time wait{0};  // the last one, before the next sending
    Time due{0};
};

class Association {
public:
    static constexpr size_t identifiers = 256;

    Association() {
        for (size_t id = 0; id < identifiers; ++id) {
            free_[id] = static_cast<uint8_t>(id);
        }
    }

    std::unique_ptr<Channel> channel;

    bool full() const { return freeCount_ == 0; }
    bool idle() const { return freeCount_ == identifiers; }

    // The identifier that has been free for longest, so that late answers find their request
    // remembered. Not when full.
    uint8_t take() {
        const uint8_t id = free_[first_];
        first_ = (first_ + 1) % identifiers;
        --freeCount_;
        return id;
    }

    void release(uint8_t id) {
        free_[(first_ + freeCount_) % identifiers] = id;
        ++freeCount_;
    }

    Flight& flight(uint8_t id) { return flights_[id]; }

private:
    std::array<Flight, identifiers> flights_;
    std::array<uint8_t, identifiers> free_{};
    size_t first_ = 0;
    size_t freeCount_ = identifiers;
};

}  // namespace node::radius
