// One RADIUS server as the client sees it: its channels, what is under way, whether it lives.
// Why: every rule about one server stands here, and the client only chooses between servers.
// Thread of the reactor.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "node/isa/radius/client/association.h"
#include "node/isa/radius/client/counters.h"
#include "node/isa/radius/client/deadlines.h"
#include "node/isa/radius/client/random.h"
#include "node/isa/radius/client/request.h"
#include "node/isa/radius/client/settings.h"

namespace node::radius {

enum class ServerState {
    alive,
    dead,   // gets no requests
    trial,  // gets one request, whose answer decides
};

class Server {
public:
    using Flying = uint32_t;  // a request under way; good until it is answered or undelivered

    struct Events {
        std::function<void(uint64_t ticket, const PacketView& answer)> answered;
        std::function<void(uint64_t ticket)> undelivered;  // from no call of the client's
        std::function<void(ServerState state)> changed;    // after all undelivered of a death
        std::function<void()> idle;  // something was answered or undelivered; room may be free
    };

    Server(Reactor& reactor, Random& random, const ServerSettings& settings, Events events);

    const std::string& name() const { return settings_.name; }
    unsigned weight() const { return settings_.weight; }
    ServerState state() const { return state_; }
    const ServerCounters& counters() const { return counters_; }
    size_t inFlight() const { return inFlight_; }
    size_t channels() const;

    // Whether take may be called; makes a channel if one is missing. Without any the server dies
    // soon after, not in the call.
    bool ready();
    Flying take(uint64_t ticket, const Request& request);
    // Its answer will be late. Calls nothing; if it was left unanswered the server may die soon
    // after.
    void withdraw(Flying flying, bool overdue);

private:
    void received(size_t index, Bytes datagram);
    bool answersEarlier(const PacketView& answer, const Flight& flight);
    bool stillTells(const Flight& flight) const;
    void lateProbe(Flight& flight);
    void land(size_t index, uint8_t id, const PacketView& answer);
    void count(const PacketView& answer, const Flight& flight);
    void channelBroken(size_t index);
    void retire(size_t index);        // its requests are settled; destroyed soon
    void retireSilent(size_t index);  // if what gets lost should have broken it

    std::optional<size_t> roomIn();  // an association with a free identifier
    std::optional<size_t> grow();
    Flying launch(size_t index, Purpose purpose, uint64_t ticket, Code code,
                  const Request& request);
    void send(size_t index, Flight& flight, Flying flying);
    void due(Flying flying);
    bool outlastedFirstWait(Flying flying);
    void abandon(Flying flying);
    void abandonProbe();  // if one is under way
    void judgeSoon();
    void judge();
    void die();
    void enter(ServerState state);
    void scheduleProbe(Time after);
    void probe();
    void probeAnswered();

    static size_t indexOf(Flying flying) { return flying >> 8; }
    static uint8_t idOf(Flying flying) { return static_cast<uint8_t>(flying); }
    Flight& flightOf(Flying flying) { return associations_[indexOf(flying)]->flight(idOf(flying)); }

    Reactor& reactor_;
    Random& random_;
    const ServerSettings settings_;
    const Events events_;
    Signer signer_;
    ServerCounters counters_;
    std::vector<std::unique_ptr<Association>> associations_;  // null: to be made again
    std::vector<std::unique_ptr<Association>> broken_;        // their channel may be calling
    Deadlines deadlines_;
    Deadlines judgeTimer_;
    Deadlines probeTimer_;
    Deadlines sweepTimer_;
    std::optional<Time> probeDue_;
    ServerState state_ = ServerState::alive;
    bool unreachable_ = false;  // no channel, nor could one be made
    size_t inFlight_ = 0;       // without probes
    Time lastAnswer_{-1};
    std::optional<Time> silentSince_;  // when a request was first sent that was left unanswered
    std::optional<Flying> probeFlying_;
    unsigned probesAnswered_ = 0;
    unsigned probesNeeded_ = 1;
    bool provenSinceReturn_ = true;
};

}  // namespace node::radius
