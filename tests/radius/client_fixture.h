// Two scripted servers, a client of both on a virtual clock, and what it answered. One thread.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>

#include "node/isa/radius/client/client.h"
#include "tests/radius/scripted_server.h"

namespace radius_test {

class ClientFixture : public ::testing::Test {
protected:
    using Time = node::Time;
    static constexpr Time second{1'000'000};

    struct Seen {
        node::radius::Outcome outcome;
        bool challenged;
        std::string server;
        Time when;
    };

    // `change` adapts settings of both servers, in their order, and of the client.
    void start(const std::function<void(node::radius::ClientSettings&)>& change = {},
               size_t servers = 2);
    node::radius::Client::Ticket login(const std::string& name = "line", bool replay = false);
    node::radius::Request requestOf(const std::string& name) const;

    // Answers seen of a ticket so far.
    size_t answers(node::radius::Client::Ticket ticket) const { return seen_.count(ticket); }
    const Seen& seen(node::radius::Client::Ticket ticket) const {
        return seen_.find(ticket)->second;
    }
    std::string outcomeOf(node::radius::Client::Ticket ticket) const;  // "none" before it is known

    node::radius::ServerStatus status(size_t server) const { return client_->status()[server]; }
    uint64_t dropped(size_t server, node::radius::Drop reason) const {
        return status(server).counters.dropped(reason);
    }
    // Makes the server's death known: one login is left unanswered there.
    void killFirst();

    VirtualReactor reactor_;
    ScriptedServer first_{reactor_, "first", "secret of the first"};
    ScriptedServer second_{reactor_, "second", "secret of the second"};
    std::unique_ptr<node::radius::Client> client_;
    std::multimap<node::radius::Client::Ticket, Seen> seen_;
};

}  // namespace radius_test
