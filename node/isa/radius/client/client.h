// The RADIUS client: takes requests, chooses servers, answers each request exactly once.
// Why: one queue, one pace and one verdict for any number of servers, without ever blocking.
// Thread of the reactor. Callbacks come from the reactor, never from inside a call.
#pragma once

#include <list>
#include <unordered_map>

#include "node/isa/radius/client/server.h"
#include "node/isa/radius/client/token_bucket.h"

namespace node::radius {

struct ServerStatus {
    std::string name;
    ServerState state = ServerState::alive;
    size_t inFlight = 0;
    size_t channels = 0;  // sockets or connections
    ServerCounters counters;
};

struct ClientCounters {
    uint64_t submitted = 0;  // = answered + unanswered + cancelled + outstanding
    uint64_t answered = 0;
    uint64_t unanswered = 0;
    uint64_t cancelled = 0;
    uint64_t refused = 0;    // by submit
    uint64_t handovers = 0;  // of requests, from one server to the next or to a second round
};

class Client {
public:
    using Ticket = uint64_t;
    using ServerChanged = std::function<void(const std::string& name, ServerState state)>;

    // Throws std::invalid_argument when the settings cannot be worked with. The reactor must
    // outlive the client; destruction drops what is outstanding without calling anything.
    Client(Reactor& reactor, ClientSettings settings);
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void onServerChange(ServerChanged changed) { serverChanged_ = std::move(changed); }

    // 0 when refused: the queue is full, or the packet would be too long. Otherwise `done` is
    // called once, unless cancelled.
    Ticket submit(Request request, Done done);
    // False when it was answered or never given. `overdue`: because the answer took too long, which
    // tells about the server as an ended patience does.
    bool cancel(Ticket ticket, bool overdue);

    std::vector<ServerStatus> status() const;
    const ClientCounters& counters() const { return counters_; }
    size_t outstanding() const { return pending_.size(); }
    size_t queued() const { return fresh_.size() + paced_.size(); }

private:
    using Queue = std::list<Ticket>;

    struct Pending {
        Request request;
        Done done;
        Time submitted{0};
        Time deadline{0};
        uint32_t tried = 0;      // servers that did not answer in this round, a bit each
        Queue* queue = nullptr;  // null: under way
        Queue::iterator place;
        size_t server = 0;  // under way
        Server::Flying flying = 0;
    };

    void answered(size_t server, Ticket ticket, const PacketView& packet);
    void undelivered(size_t server, Ticket ticket);
    void changed(size_t server, ServerState state);
    void finish(Ticket ticket, const Answer& answer);
    void outOfPatience(Ticket ticket);

    bool anyAlive() const;
    void enqueue(Pending& pending, Ticket ticket, Queue& queue, bool first);
    void leaveQueue(Pending& pending);
    std::optional<size_t> choose(Pending& pending);
    std::optional<size_t> chooseListed(uint32_t tried);
    std::optional<size_t> chooseWeighted(uint32_t tried);
    bool usable(size_t server) const;
    bool dispatch(Pending& pending, Ticket ticket);
    void pump();
    void pumpPaced();
    void pumpFresh();

    Reactor& reactor_;
    const ClientSettings settings_;
    Random random_;
    std::vector<std::unique_ptr<Server>> servers_;
    std::vector<int64_t> credit_;  // of each server, with Order::weighted
    std::unordered_map<Ticket, Pending> pending_;
    Queue fresh_;  // logins that were just asked for
    Queue paced_;  // replays, and whatever waited while no server lived
    Deadlines patience_;
    Deadlines paceTimer_;
    TokenBucket bucket_;
    ClientCounters counters_;
    ServerChanged serverChanged_;
    Ticket lastTicket_ = 0;
    bool pumping_ = false;
};

}  // namespace node::radius
