// Life and death. A server is dead when a request was given up and no proven answer has come
// since that request was first sent: loss alone, however bad, does not kill a server that
// answers others. A request that took too long, and longer than its first wait, is as much of one;
// otherwise a patience shorter than all tries would never find a server dead. So is a server dead
// that has no channel and to which none can be made: there is no route, or not yet the address to
// send from. On death everything under way is handed back at once. A dead server is asked by
// Status-Server, first immediately, then at intervals; one proven answer brings it back. A server
// that dies again without having answered a request needs twice as many answers the next time, up
// to eight, so that one that answers only Status-Server does not swallow logins again and again.
// Where Status-Server is not understood, one request is tried after a rest.
//
// Answers. The identifier leads to the last request sent under it, which says with whose
// authenticator the answer must be proven; one that proves the request before that is late, too.
// Only a proven answer counts as late or as a duplicate; whatever is not proven is dropped and the
// request goes on waiting, so a forger can neither accept nor refuse a login. A retransmission is
// the same packet from the same socket, which servers recognise; another server, or another round,
// gets a new packet.
//
// On a reliable channel nothing is sent twice: a request there waits as long as all tries would
// take. If such a channel breaks with requests under way the server counts as dead; the probe
// that follows makes a new connection. So it does when the server died of silence, or a probe was
// not answered: the other side may be gone without a word, and a connection would notice only
// after minutes.
// Tested by tests/radius/client_server_test.cpp and client_test.cpp.
#include "node/isa/radius/client/server.h"

#include <algorithm>
#include <system_error>

namespace node::radius {

namespace {

constexpr unsigned mostProbesNeeded = 8;
constexpr unsigned probesPerInterval = 5;  // once the first is answered

bool answers(Code code, Purpose purpose) {
    switch (purpose) {
        case Purpose::login:
            return code == Code::accessAccept || code == Code::accessReject ||
                   code == Code::accessChallenge;
        case Purpose::accounting:
            return code == Code::accountingResponse;
        case Purpose::probe:
            return code == Code::accessAccept || code == Code::accountingResponse;
    }
    return false;
}

}  // namespace

std::string_view nameOf(Drop reason) {
    constexpr std::array<std::string_view, dropReasons> names{
        "malformed",
        "unknown id",
        "bad authenticator",
        "no Message-Authenticator",
        "bad Message-Authenticator",
        "wrong code",
        "late",
        "duplicate",
    };
    return names[static_cast<size_t>(reason)];
}

Server::Server(Reactor& reactor, Random& random, const ServerSettings& settings, Events events)
    : reactor_(reactor),
      random_(random),
      settings_(settings),
      events_(std::move(events)),
      signer_(settings.secret),
      deadlines_(reactor, [this](uint64_t flying) { due(static_cast<Flying>(flying)); }),
      judgeTimer_(reactor, [this](uint64_t) { judge(); }),
      probeTimer_(reactor, [this](uint64_t) { probe(); }),
      sweepTimer_(reactor, [this](uint64_t) { broken_.clear(); }) {}

size_t Server::channels() const {
    const auto gaps = std::count(associations_.begin(), associations_.end(), nullptr);
    return associations_.size() - static_cast<size_t>(gaps);
}

// A channel.

std::optional<size_t> Server::roomIn() {
    for (size_t index = 0; index < associations_.size(); ++index) {
        if (associations_[index] && !associations_[index]->full()) {
            return index;
        }
    }
    return grow();
}

std::optional<size_t> Server::grow() {
    const auto gap = std::find(associations_.begin(), associations_.end(), nullptr);
    const auto index = static_cast<size_t>(gap - associations_.begin());
    auto association = std::make_unique<Association>();
    Channel::Events events;
    // A channel that was retired may still call until it is swept away.
    const auto current = [this, index, own = association.get()] {
        return associations_[index].get() == own;
    };
    events.received = [this, index, current](Bytes datagram) {
        if (current()) {
            received(index, datagram);
        }
    };
    events.failed = [this] { ++counters_.lineErrors; };
    events.broken = [this, index, current] {
        if (current()) {
            channelBroken(index);
        }
    };
    try {
        association->channel = settings_.makeChannel(std::move(events));
    } catch (const std::system_error&) {
        // None, like one without a route; not worth the end of the node.
    }
    if (!association->channel) {
        ++counters_.lineErrors;
        return std::nullopt;
    }
    unreachable_ = false;
    if (gap == associations_.end()) {
        associations_.push_back(std::move(association));
    } else {
        *gap = std::move(association);
    }
    return index;
}

void Server::channelBroken(size_t index) {
    ++counters_.lineErrors;
    const bool wasIdle = associations_[index]->idle();
    std::vector<uint64_t> handedBack;
    for (size_t id = 0; id < Association::identifiers; ++id) {
        const auto flying = static_cast<Flying>(index << 8 | id);
        Flight& flight = flightOf(flying);
        if (flight.state != Flight::State::flying) {
            continue;
        }
        if (flight.purpose == Purpose::probe) {
            probeFlying_.reset();
        } else {
            handedBack.push_back(flight.ticket);
        }
        abandon(flying);
    }
    retire(index);
    for (const uint64_t ticket : handedBack) {
        ++counters_.handedBack;
        events_.undelivered(ticket);
    }
    if (!wasIdle && state_ != ServerState::dead) {
        die();
    } else {
        events_.idle();
    }
}

void Server::retire(size_t index) {
    broken_.push_back(std::move(associations_[index]));
    sweepTimer_.add(reactor_.now(), 0);
}

void Server::retireSilent(size_t index) {
    if (associations_[index] && associations_[index]->channel->reliable()) {
        retire(index);
    }
}

// A request.

bool Server::ready() {
    const size_t window = state_ == ServerState::alive ? settings_.window : 1;
    if (state_ == ServerState::dead || inFlight_ >= window) {
        return false;
    }
    if (roomIn()) {
        return true;
    }
    if (channels() == 0) {
        unreachable_ = true;
        judgeSoon();
    }
    return false;
}

Server::Flying Server::take(uint64_t ticket, const Request& request) {
    const bool login = request.kind == Request::Kind::login;
    ++counters_.requests;
    ++inFlight_;
    return launch(*roomIn(), login ? Purpose::login : Purpose::accounting, ticket,
                  login ? Code::accessRequest : Code::accountingRequest, request);
}

Server::Flying Server::launch(size_t index, Purpose purpose, uint64_t ticket, Code code,
                              const Request& request) {
    Association& association = *associations_[index];
    const uint8_t id = association.take();
    const auto flying = static_cast<Flying>(index << 8 | id);
    Flight& flight = association.flight(id);
    if (flight.state != Flight::State::unused) {
        flight.earlier = flight.authenticator;
    }
    flight.state = Flight::State::flying;
    flight.purpose = purpose;
    flight.tries = 0;
    flight.ticket = ticket;
    flight.firstSent = reactor_.now();
    flight.wait = Time(0);

    const Authenticator random = random_.authenticator();
    if (code == Code::accessRequest) {
        // Without any, an empty one: some servers drop a login that has neither.
        const std::string_view password = request.password ? request.password->reveal() : "";
        AttributeWriter writer;
        writer.add(attribute::userPassword, signer_.hidden(password, random).value());
        writer.addRaw(request.attributes);
        flight.packet = packetOf(code, id, writer.bytes()).value();
    } else {
        flight.packet = packetOf(code, id, request.attributes).value();
    }
    signer_.signRequest(flight.packet, random);
    std::copy_n(flight.packet.begin() + authenticatorOffset, flight.authenticator.size(),
                flight.authenticator.begin());
    send(index, flight, flying);
    return flying;
}

void Server::send(size_t index, Flight& flight, Flying flying) {
    Channel& channel = *associations_[index]->channel;
    ++flight.tries;
    if (channel.reliable()) {
        flight.tries = settings_.retry.tries;
        flight.wait = retryTotal(settings_.retry);
    } else {
        flight.wait = retryAfter(settings_.retry, flight.wait, random_.jitter());
    }
    flight.due = reactor_.now() + flight.wait;
    deadlines_.add(flight.due, flying);
    channel.send(flight.packet);
}

void Server::due(Flying flying) {
    Flight& flight = flightOf(flying);
    if (flight.purpose != Purpose::probe && flight.tries < settings_.retry.tries) {
        ++counters_.retransmissions;
        send(indexOf(flying), flight, flying);
        return;
    }
    const bool silent = lastAnswer_ < flight.firstSent;
    const bool probed = flight.purpose == Purpose::probe;
    const uint64_t ticket = flight.ticket;
    abandon(flying);
    if (probed) {
        probeFlying_.reset();
        retireSilent(indexOf(flying));
        return;
    }
    ++counters_.timeouts;
    events_.undelivered(ticket);
    if (silent) {
        die();
    } else {
        events_.idle();
    }
}

void Server::withdraw(Flying flying, bool overdue) {
    const Flight& flight = flightOf(flying);
    ++counters_.withdrawn;
    if (overdue && lastAnswer_ < flight.firstSent && outlastedFirstWait(flying)) {
        silentSince_ = flight.firstSent;
        judgeSoon();
    }
    abandon(flying);
}

bool Server::outlastedFirstWait(Flying flying) {
    const Flight& flight = flightOf(flying);
    return associations_[indexOf(flying)]->channel->reliable()
               ? reactor_.now() - flight.firstSent >= retryAfter(settings_.retry, Time(0), 0)
               : flight.tries > 1;
}

void Server::abandon(Flying flying) {
    Flight& flight = flightOf(flying);
    deadlines_.remove(flight.due, flying);
    flight.state = Flight::State::abandoned;
    associations_[indexOf(flying)]->release(idOf(flying));
    inFlight_ -= flight.purpose == Purpose::probe ? 0 : 1;
}

void Server::abandonProbe() {
    if (probeFlying_) {
        abandon(*probeFlying_);
        probeFlying_.reset();
    }
}

// An answer.

void Server::received(size_t index, Bytes datagram) {
    const auto drop = [this](Drop reason) { ++counters_.drops[static_cast<size_t>(reason)]; };
    const std::optional<PacketView> answer = PacketView::parse(datagram);
    if (!answer) {
        return drop(Drop::malformed);
    }
    Flight& flight = associations_[index]->flight(answer->id());
    if (flight.state == Flight::State::unused) {
        return drop(Drop::unknownId);
    }
    // An accounting server answers probes as it answers accounting.
    const bool ofAccounting =
        flight.purpose == Purpose::accounting ||
        (flight.purpose == Purpose::probe && answer->code() == Code::accountingResponse);
    const Demand demand = ofAccounting ? settings_.accountingDemand : Demand::messageAuthenticator;
    const Proof proof = signer_.proveAnswer(*answer, flight.authenticator, demand);
    const bool ofEarlier = proof == Proof::badAuthenticator && answersEarlier(*answer, flight);
    if (proof == Proof::badAuthenticator && !ofEarlier) {
        ++counters_.unprovenInARow;
        return drop(Drop::badAuthenticator);
    }
    counters_.unprovenInARow = 0;
    switch (proof) {
        case Proof::badAuthenticator:
            return drop(Drop::late);
        case Proof::noMessageAuthenticator:
            return drop(Drop::noMessageAuthenticator);
        case Proof::badMessageAuthenticator:
            return drop(Drop::badMessageAuthenticator);
        case Proof::good:
            break;
    }
    if (!answers(answer->code(), flight.purpose)) {
        return drop(Drop::wrongCode);
    }
    switch (flight.state) {
        case Flight::State::answered:
            return drop(Drop::duplicate);
        case Flight::State::abandoned:
            return stillTells(flight) ? lateProbe(flight) : drop(Drop::late);
        default:
            land(index, answer->id(), *answer);
    }
}

bool Server::answersEarlier(const PacketView& answer, const Flight& flight) {
    return flight.earlier && signer_.proveAnswer(answer, *flight.earlier, Demand::ifPresent) !=
                                 Proof::badAuthenticator;
}

// A probe is followed by the next one whether it was answered or not. If the server is slower than
// that, its answer says all the same that it lives; but not for ever, as it may have been held
// back by somebody.
bool Server::stillTells(const Flight& flight) const {
    return flight.purpose == Purpose::probe &&
           reactor_.now() - flight.firstSent <=
               retryTotal(settings_.retry) + 2 * settings_.probeInterval;
}

void Server::lateProbe(Flight& flight) {
    abandonProbe();  // which came after it; a server that is back is not probed
    flight.state = Flight::State::answered;
    lastAnswer_ = reactor_.now();
    ++counters_.probeAnswers;
    probeAnswered();
}

void Server::land(size_t index, uint8_t id, const PacketView& answer) {
    const auto flying = static_cast<Flying>(index << 8 | id);
    Flight& flight = flightOf(flying);
    abandon(flying);
    flight.state = Flight::State::answered;
    lastAnswer_ = reactor_.now();
    if (flight.purpose == Purpose::probe) {
        ++counters_.probeAnswers;
        probeFlying_.reset();
        probeAnswered();
        return;
    }
    counters_.roundTrip.add(lastAnswer_ - flight.firstSent);
    count(answer, flight);
    provenSinceReturn_ = true;
    probesNeeded_ = 1;
    if (state_ == ServerState::trial) {
        enter(ServerState::alive);
    }
    events_.answered(flight.ticket, answer);
    events_.idle();
}

void Server::count(const PacketView& answer, const Flight& flight) {
    if (flight.purpose == Purpose::accounting) {
        ++counters_.accountingAnswers;
    } else if (answer.code() == Code::accessAccept) {
        ++counters_.accepts;
    } else {
        ++counters_.rejects;
        counters_.challenges += answer.code() == Code::accessChallenge ? 1 : 0;
    }
}

// Death and return.

// From a timer, as the client may be calling and must not be called back from inside.
void Server::judgeSoon() {
    if (judgeTimer_.size() == 0) {
        judgeTimer_.add(reactor_.now(), 0);
    }
}

void Server::judge() {
    const bool silent = silentSince_ && lastAnswer_ < *silentSince_;
    silentSince_.reset();
    if (state_ != ServerState::dead && (silent || unreachable_)) {
        die();
    }
}

void Server::die() {
    ++counters_.deaths;
    if (!provenSinceReturn_) {
        probesNeeded_ = std::min(probesNeeded_ * 2, mostProbesNeeded);
    }
    probesAnswered_ = 0;
    state_ = ServerState::dead;
    std::vector<std::pair<Time, Flying>> flyings;
    for (size_t index = 0; index < associations_.size(); ++index) {
        for (size_t id = 0; associations_[index] && id < Association::identifiers; ++id) {
            const auto flying = static_cast<Flying>(index << 8 | id);
            const Flight& flight = flightOf(flying);
            if (flight.state == Flight::State::flying && flight.purpose != Purpose::probe) {
                flyings.emplace_back(flight.firstSent, flying);
            }
        }
    }
    abandonProbe();
    std::sort(flyings.begin(), flyings.end());
    for (const auto& [sent, flying] : flyings) {
        abandon(flying);
        ++counters_.handedBack;
        events_.undelivered(flightOf(flying).ticket);
    }
    for (size_t index = 0; index < associations_.size(); ++index) {
        retireSilent(index);
    }
    scheduleProbe(settings_.statusServer ? Time(0) : settings_.restTime);
    events_.changed(state_);
}

void Server::enter(ServerState state) {
    state_ = state;
    if (state == ServerState::alive) {
        ++counters_.returns;
    }
    events_.changed(state);
}

void Server::scheduleProbe(Time after) {
    const auto moved =
        static_cast<Time::rep>(static_cast<double>(after.count()) * (1 + 0.1 * random_.jitter()));
    if (probeDue_) {
        probeTimer_.remove(*probeDue_, 0);
    }
    probeDue_ = reactor_.now() + Time(moved);
    probeTimer_.add(*probeDue_, 0);
}

void Server::probe() {
    if (state_ != ServerState::dead) {
        return;
    }
    if (!settings_.statusServer) {
        provenSinceReturn_ = false;
        enter(ServerState::trial);
        return;
    }
    if (probeFlying_) {
        const size_t silent = indexOf(*probeFlying_);
        abandonProbe();
        retireSilent(silent);
    }
    scheduleProbe(settings_.probeInterval);
    if (const std::optional<size_t> index = roomIn()) {
        ++counters_.probes;
        probeFlying_ = launch(*index, Purpose::probe, 0, Code::statusServer, Request());
    }
}

void Server::probeAnswered() {
    if (state_ != ServerState::dead) {
        return;
    }
    if (++probesAnswered_ < probesNeeded_) {
        scheduleProbe(settings_.probeInterval / probesPerInterval);
        return;
    }
    provenSinceReturn_ = false;
    enter(ServerState::alive);
}

}  // namespace node::radius
