#include "node/management/server_view.h"

namespace node {

namespace {

using radius::Drop;

uint64_t microseconds(Time time) {
    return static_cast<uint64_t>(time.count());
}

std::string stateName(radius::ServerState state) {
    switch (state) {
        case radius::ServerState::alive:
            return "alive";
        case radius::ServerState::dead:
            return "dead";
        case radius::ServerState::trial:
            return "trial";
    }
    return "";
}

// What an operator should look at first; the counters tell the rest.
std::string noteOf(const radius::ServerCounters& counters) {
    if (counters.dropped(Drop::noMessageAuthenticator) != 0) {
        return "its answers lack Message-Authenticator";
    }
    if (counters.unprovenInARow != 0) {
        return "answers that do not prove the secret";
    }
    return "";
}

}  // namespace

control::ServerView serverView(const RadiusServerInfo& server) {
    const radius::ServerCounters& from = server.counters;
    control::ServerView view;
    view.name = server.name;
    view.address = server.address;
    view.role = server.accounting ? "accounting" : "authentication";
    view.alive = server.state == radius::ServerState::alive;
    view.requests = static_cast<uint32_t>(from.requests);
    view.timeouts = static_cast<uint32_t>(from.timeouts);
    view.note = noteOf(from);
    view.state = stateName(server.state);
    view.transport = server.tls ? "tls" : "udp";
    view.inFlight = static_cast<uint32_t>(server.inFlight);
    view.channels = static_cast<uint32_t>(server.channels);
    view.counters = {from.requests, from.retransmissions, from.accepts,
                     from.rejects,  from.challenges,      from.accountingAnswers,
                     from.timeouts, from.handedBack,      from.withdrawn,
                     from.probes,   from.probeAnswers,    from.deaths,
                     from.returns,  from.lineErrors};
    view.dropped = {from.dropped(Drop::malformed),
                    from.dropped(Drop::unknownId),
                    from.dropped(Drop::badAuthenticator),
                    from.dropped(Drop::noMessageAuthenticator),
                    from.dropped(Drop::badMessageAuthenticator),
                    from.dropped(Drop::wrongCode),
                    from.dropped(Drop::late),
                    from.dropped(Drop::duplicate)};
    view.roundTrip = {from.roundTrip.count(), microseconds(from.roundTrip.percentile(50)),
                      microseconds(from.roundTrip.percentile(90)),
                      microseconds(from.roundTrip.percentile(99))};
    return view;
}

}  // namespace node
