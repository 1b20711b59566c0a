// What is counted of one server; read by operators. Thread of the reactor.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "node/isa/radius/client/histogram.h"

namespace node::radius {

// Why a packet from a server was dropped.
enum class Drop {
    malformed,
    unknownId,  // no request ever used it
    badAuthenticator,
    noMessageAuthenticator,
    badMessageAuthenticator,
    wrongCode,  // proven, but no answer to such a request
    late,       // proven, but its request was given up, or its identifier is used again
    duplicate,  // proven, but its request has been answered
};
constexpr size_t dropReasons = 8;
std::string_view nameOf(Drop reason);

// requests = accepts + rejects + accountingAnswers + timeouts + handedBack + withdrawn + what is
// under way.
struct ServerCounters {
    uint64_t requests = 0;  // first sendings of logins and accounting
    uint64_t retransmissions = 0;
    uint64_t accepts = 0;
    uint64_t rejects = 0;  // challenges included
    uint64_t challenges = 0;
    uint64_t accountingAnswers = 0;
    uint64_t timeouts = 0;    // requests given up after all tries
    uint64_t handedBack = 0;  // requests under way when the server died
    uint64_t withdrawn = 0;   // requests whose patience ended or that were cancelled
    uint64_t probes = 0;
    uint64_t probeAnswers = 0;
    uint64_t deaths = 0;
    uint64_t returns = 0;
    uint64_t lineErrors = 0;  // sockets that could not be made or refused to send or receive
    std::array<uint64_t, dropReasons> drops{};
    uint64_t unprovenInARow = 0;  // bad authenticators since an answer proved the secret
    Histogram roundTrip;          // from the first sending to the answer

    uint64_t dropped(Drop reason) const { return drops[static_cast<size_t>(reason)]; }
};

}  // namespace node::radius
