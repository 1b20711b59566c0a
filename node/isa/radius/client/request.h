// What is asked of the client and what it answers. Thread of the reactor.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "node/isa/radius/packet/packet.h"
#include "node/isa/radius/secret.h"
#include "node/time.h"

namespace node::radius {

struct Request {
    enum class Kind { login, accounting };

    Kind kind = Kind::login;
    Buffer attributes;               // of login.h
    std::optional<Secret> password;  // of a login, at most 128 bytes; none: an empty one is sent
    bool replay = false;             // not asked for by a subscriber just now: paced
};

enum class Outcome {
    accepted,    // a login accepted, or accounting taken
    rejected,    // a challenge is a refusal, too
    unanswered,  // no server answered as long as patience lasted
};

struct Answer {
    Outcome outcome = Outcome::unanswered;
    bool challenged = false;
    std::string server;                // whose answer it is; empty when unanswered
    std::optional<PacketView> packet;  // valid during the call
    Time took{0};                      // since submit
};

using Done = std::function<void(const Answer&)>;

}  // namespace node::radius
