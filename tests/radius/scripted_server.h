// A RADIUS server for tests on a virtual clock: keeps what it was sent and answers as told.
// One thread.
#pragma once

#include <functional>
#include <vector>

#include "node/isa/radius/client/settings.h"
#include "tests/radius/virtual_reactor.h"

namespace radius_test {

class ScriptedServer {
public:
    struct Sent {
        size_t channel;  // the n-th that was made
        node::radius::Buffer packet;
        node::Time when;

        node::radius::PacketView view() const { return *node::radius::PacketView::parse(packet); }
    };

    ScriptedServer(VirtualReactor& reactor, std::string name, const std::string& secret);

    // Settings that lead to this server; with short times and no surprises.
    node::radius::ServerSettings settings();

    // What came, in order: logins and accounting, and apart from them Status-Server.
    std::vector<Sent> requests;
    std::vector<Sent> probes;

    bool reliable = false;  // of channels made from now on
    bool refusesChannels = false;
    bool throwsChannels = false;  // refuses them by an exception
    bool answersProbes = false;   // accept by itself
    node::Time probeDelay{0};     // after which that answer comes
    // When set, called from a timer for every request, a retransmission included.
    std::function<void(const Sent&)> onRequest;

    // Signed with the server's secret and delivered at once.
    void answer(const Sent& request, node::radius::Code code,
                const node::radius::Buffer& attributes = {});
    node::radius::Buffer answerTo(const Sent& request, node::radius::Code code,
                                  const node::radius::Buffer& attributes = {});
    void deliver(size_t channel, const node::radius::Buffer& datagram);
    void acceptAll();  // of requests, each once

    void breakChannel(size_t channel);
    size_t channelsMade() const { return channels_.size(); }
    size_t channelsOpen() const;
    std::string passwordOf(const Sent& request);

private:
    class Wire;

    void arrived(size_t channel, node::radius::Bytes packet);

    VirtualReactor& reactor_;
    std::string name_;
    node::radius::Secret secret_;
    node::radius::Signer signer_;
    std::vector<Wire*> channels_;  // null: gone
    size_t accepted_ = 0;
};

}  // namespace radius_test
