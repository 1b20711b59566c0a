// Every request is in one place: in one of two queues or under way at one server. Fresh logins go
// out as soon as a server has room in its window. Replays, and all that waited while no server
// lived, go out at the configured pace, so that a server that comes back is not met by everything
// at once. A paced request whose turn has come goes before fresh ones; being paced, it cannot
// push them aside.
//
// A request that one server did not answer goes to the next one, and after the last starts again
// with the first, until patience ends. What is handed over keeps its place before younger
// requests. With Order::listed the first living server gets everything, also when its window is
// full: the second is for its failure, not for its load. One that cannot be reached is not ready
// for a moment and then dead. With Order::weighted the servers take turns in proportion to their
// weights (each round every server is credited its weight, the richest takes the request and pays
// the sum of all).
// Tested by tests/radius/client_test.cpp and, against a real server, scenario tests.
#include "node/isa/radius/client/client.h"

#include <stdexcept>

namespace node::radius {

namespace {

constexpr size_t mostServers = 32;
constexpr size_t longestPassword = 128;
constexpr size_t messageAuthenticatorSize = 18;
constexpr size_t emptyPasswordSize = 2 + 16;
constexpr size_t passwordSize = 2 + longestPassword;
constexpr size_t mostSkipped = 32;

void check(const ClientSettings& settings) {
    const auto require = [](bool holds, const char* what) {
        if (!holds) {
            throw std::invalid_argument(what);
        }
    };
    require(!settings.servers.empty() && settings.servers.size() <= mostServers,
            "there must be 1 to 32 RADIUS servers");
    for (const ServerSettings& server : settings.servers) {
        require(server.makeChannel != nullptr, "a RADIUS server has no transport");
        require(!server.secret.empty(), "a RADIUS server has no secret");
        require(server.window > 0, "a RADIUS server has an empty window");
        require(server.weight > 0, "a RADIUS server has no weight");
        require(server.retry.tries > 0, "a RADIUS server gets no try");
        require(server.retry.first > Time(0) && server.retry.longest > Time(0) &&
                    server.probeInterval > Time(0) && server.restTime > Time(0),
                "a RADIUS server has a timer that is not above zero");
    }
}

bool fits(const Request& request) {
    const size_t password = request.kind != Request::Kind::login ? 0
                            : request.password                   ? passwordSize
                                                                 : emptyPasswordSize;
    const size_t most = longestPacket - headerSize - messageAuthenticatorSize - password;
    return request.attributes.size() <= most &&
           (!request.password || request.password->reveal().size() <= longestPassword);
}

}  // namespace

Client::Client(Reactor& reactor, ClientSettings settings)
    : reactor_(reactor),
      settings_((check(settings), std::move(settings))),
      random_(settings_.seed),
      credit_(settings_.servers.size()),
      patience_(reactor, [this](uint64_t ticket) { outOfPatience(ticket); }),
      paceTimer_(reactor, [this](uint64_t) { pump(); }),
      bucket_(settings_.pacedRate, settings_.pacedBurst, reactor.now()) {
    for (size_t i = 0; i < settings_.servers.size(); ++i) {
        Server::Events events;
        events.answered = [this, i](uint64_t ticket, const PacketView& packet) {
            answered(i, ticket, packet);
        };
        events.undelivered = [this, i](uint64_t ticket) { undelivered(i, ticket); };
        events.changed = [this, i](ServerState state) { changed(i, state); };
        events.idle = [this] { pump(); };
        servers_.push_back(
            std::make_unique<Server>(reactor_, random_, settings_.servers[i], std::move(events)));
    }
}

// Requests come and go.

Client::Ticket Client::submit(Request request, Done done) {
    if (queued() >= settings_.longestQueue || !fits(request)) {
        ++counters_.refused;
        return 0;
    }
    const Ticket ticket = ++lastTicket_;
    ++counters_.submitted;
    Pending& pending = pending_[ticket];
    pending.request = std::move(request);
    pending.done = std::move(done);
    pending.submitted = reactor_.now();
    if (settings_.patience != Time(0)) {
        pending.deadline = pending.submitted + settings_.patience;
        patience_.add(pending.deadline, ticket);
    }
    const bool paced = pending.request.replay || !anyAlive();
    if (paced || !fresh_.empty() || !dispatch(pending, ticket)) {
        enqueue(pending, ticket, paced ? paced_ : fresh_, false);
        pump();
    }
    return ticket;
}

bool Client::cancel(Ticket ticket, bool overdue) {
    const auto found = pending_.find(ticket);
    if (found == pending_.end()) {
        return false;
    }
    Pending& pending = found->second;
    if (pending.queue) {
        leaveQueue(pending);
    } else {
        servers_[pending.server]->withdraw(pending.flying, overdue);
    }
    patience_.remove(pending.deadline, ticket);
    pending_.erase(found);
    ++counters_.cancelled;
    pump();
    return true;
}

void Client::answered(size_t server, Ticket ticket, const PacketView& packet) {
    Answer answer;
    answer.outcome =
        packet.code() == Code::accessAccept || packet.code() == Code::accountingResponse
            ? Outcome::accepted
            : Outcome::rejected;
    answer.challenged = packet.code() == Code::accessChallenge;
    answer.server = servers_[server]->name();
    answer.packet = packet;
    ++counters_.answered;
    finish(ticket, answer);
}

void Client::outOfPatience(Ticket ticket) {
    Pending& pending = pending_.at(ticket);
    if (pending.queue) {
        leaveQueue(pending);
    } else {
        servers_[pending.server]->withdraw(pending.flying, true);
    }
    ++counters_.unanswered;
    finish(ticket, Answer());
    pump();
}

void Client::finish(Ticket ticket, const Answer& answer) {
    const auto found = pending_.find(ticket);
    const Pending pending = std::move(found->second);
    pending_.erase(found);
    patience_.remove(pending.deadline, ticket);
    Answer timed = answer;
    timed.took = reactor_.now() - pending.submitted;
    if (pending.done) {
        pending.done(timed);
    }
}

void Client::undelivered(size_t server, Ticket ticket) {
    Pending& pending = pending_.at(ticket);
    pending.tried |= uint32_t{1} << server;
    ++counters_.handovers;
    enqueue(pending, ticket, fresh_, true);  // paced by what follows, if nobody lives any more
}

void Client::changed(size_t server, ServerState state) {
    if (!anyAlive()) {
        for (const Ticket ticket : fresh_) {
            pending_.at(ticket).queue = &paced_;
        }
        paced_.splice(paced_.begin(), fresh_);
    }
    if (serverChanged_) {
        serverChanged_(servers_[server]->name(), state);
    }
    pump();
}

// Queues.

void Client::enqueue(Pending& pending, Ticket ticket, Queue& queue, bool first) {
    pending.queue = &queue;
    if (!first) {
        pending.place = queue.insert(queue.end(), ticket);
        return;
    }
    // Before the younger ones, behind older ones that were handed over just before.
    auto place = queue.begin();
    while (place != queue.end() && *place < ticket) {
        ++place;
    }
    pending.place = queue.insert(place, ticket);
}

void Client::leaveQueue(Pending& pending) {
    pending.queue->erase(pending.place);
    pending.queue = nullptr;
}

bool Client::dispatch(Pending& pending, Ticket ticket) {
    const std::optional<size_t> server = choose(pending);
    if (!server) {
        return false;
    }
    pending.server = *server;
    pending.flying = servers_[*server]->take(ticket, pending.request);
    return true;
}

void Client::pump() {
    if (pumping_) {
        return;
    }
    pumping_ = true;
    pumpPaced();
    pumpFresh();
    pumping_ = false;
}

void Client::pumpPaced() {
    while (!paced_.empty()) {
        const Time now = reactor_.now();
        const Time next = bucket_.next(now);
        if (next > now) {
            if (paceTimer_.size() == 0) {
                paceTimer_.add(next, 0);
            }
            return;
        }
        const Ticket ticket = paced_.front();
        Pending& pending = pending_.at(ticket);
        if (!dispatch(pending, ticket)) {
            return;
        }
        bucket_.take(now);
        leaveQueue(pending);
    }
}

void Client::pumpFresh() {
    size_t skipped = 0;
    for (auto place = fresh_.begin(); place != fresh_.end() && skipped < mostSkipped;) {
        const Ticket ticket = *place++;
        Pending& pending = pending_.at(ticket);
        if (dispatch(pending, ticket)) {
            leaveQueue(pending);
        } else if (pending.tried == 0) {
            return;  // nor can any other that may go to every server
        } else {
            ++skipped;
        }
    }
}

// Servers.

bool Client::anyAlive() const {
    for (const auto& server : servers_) {
        if (server->state() == ServerState::alive) {
            return true;
        }
    }
    return false;
}

bool Client::usable(size_t server) const {
    const Server& candidate = *servers_[server];
    return candidate.state() == ServerState::alive ||
           (candidate.state() == ServerState::trial && candidate.inFlight() == 0);
}

std::optional<size_t> Client::choose(Pending& pending) {
    uint32_t untried = 0;
    for (size_t i = 0; i < servers_.size(); ++i) {
        untried |= usable(i) && !(pending.tried >> i & 1) ? uint32_t{1} << i : 0;
    }
    if (untried == 0) {
        pending.tried = 0;
    }
    return settings_.order == Order::listed ? chooseListed(pending.tried)
                                            : chooseWeighted(pending.tried);
}

std::optional<size_t> Client::chooseListed(uint32_t tried) {
    for (size_t i = 0; i < servers_.size(); ++i) {
        if (usable(i) && !(tried >> i & 1)) {
            return servers_[i]->ready() ? std::optional<size_t>(i) : std::nullopt;
        }
    }
    return std::nullopt;
}

std::optional<size_t> Client::chooseWeighted(uint32_t tried) {
    std::optional<size_t> richest;
    int64_t sum = 0;
    for (size_t i = 0; i < servers_.size(); ++i) {
        if (!usable(i) || (tried >> i & 1) || !servers_[i]->ready()) {
            continue;
        }
        credit_[i] += servers_[i]->weight();
        sum += servers_[i]->weight();
        if (!richest || credit_[i] > credit_[*richest]) {
            richest = i;
        }
    }
    if (richest) {
        credit_[*richest] -= sum;
    }
    return richest;
}

std::vector<ServerStatus> Client::status() const {
    std::vector<ServerStatus> result;
    for (const auto& server : servers_) {
        result.push_back({server->name(), server->state(), server->inFlight(), server->channels(),
                          server->counters()});
    }
    return result;
}

}  // namespace node::radius
