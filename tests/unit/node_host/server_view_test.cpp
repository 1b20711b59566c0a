#include "node/management/server_view.h"

#include <gtest/gtest.h>

namespace {

using node::radius::Drop;

TEST(ServerView, ShowsEveryCounterUnderItsName) {
    node::RadiusServerInfo server;
    server.name = "first";
    server.address = "192.0.2.1:1812";
    server.state = node::radius::ServerState::trial;
    server.inFlight = 1;
    server.channels = 2;
    uint64_t next = 3;
    node::radius::ServerCounters& c = server.counters;
    for (uint64_t* counter :
         {&c.requests, &c.retransmissions, &c.accepts, &c.rejects, &c.challenges,
          &c.accountingAnswers, &c.timeouts, &c.handedBack, &c.withdrawn, &c.probes,
          &c.probeAnswers, &c.deaths, &c.returns, &c.lineErrors}) {
        *counter = next++;
    }
    for (uint64_t& drop : c.drops) {
        drop = next++;
    }
    c.roundTrip.add(node::Time(10));
    const node::control::ServerView view = serverView(server);
    EXPECT_EQ("authentication", view.role);
    EXPECT_EQ("trial", view.state);
    EXPECT_EQ("udp", view.transport);
    EXPECT_FALSE(view.alive);
    EXPECT_EQ(1U, view.inFlight);
    EXPECT_EQ(2U, view.channels);
    EXPECT_EQ(3U, view.requests);
    EXPECT_EQ(9U, view.timeouts);
    EXPECT_EQ(3U, view.counters.requests);
    EXPECT_EQ(4U, view.counters.retransmissions);
    EXPECT_EQ(5U, view.counters.accepts);
    EXPECT_EQ(6U, view.counters.rejects);
    EXPECT_EQ(7U, view.counters.challenges);
    EXPECT_EQ(8U, view.counters.accountingAnswers);
    EXPECT_EQ(9U, view.counters.timeouts);
    EXPECT_EQ(10U, view.counters.handedBack);
    EXPECT_EQ(11U, view.counters.withdrawn);
    EXPECT_EQ(12U, view.counters.probes);
    EXPECT_EQ(13U, view.counters.probeAnswers);
    EXPECT_EQ(14U, view.counters.deaths);
    EXPECT_EQ(15U, view.counters.returns);
    EXPECT_EQ(16U, view.counters.lineErrors);
    EXPECT_EQ(c.dropped(Drop::malformed), view.dropped.malformed);
    EXPECT_EQ(c.dropped(Drop::unknownId), view.dropped.unknownId);
    EXPECT_EQ(c.dropped(Drop::badAuthenticator), view.dropped.badAuthenticator);
    EXPECT_EQ(c.dropped(Drop::noMessageAuthenticator), view.dropped.noMessageAuthenticator);
    EXPECT_EQ(c.dropped(Drop::badMessageAuthenticator), view.dropped.badMessageAuthenticator);
    EXPECT_EQ(c.dropped(Drop::wrongCode), view.dropped.wrongCode);
    EXPECT_EQ(c.dropped(Drop::late), view.dropped.late);
    EXPECT_EQ(c.dropped(Drop::duplicate), view.dropped.duplicate);
    EXPECT_EQ(1U, view.roundTrip.count);
    EXPECT_EQ(10U, view.roundTrip.p99);
}

TEST(ServerView, NoteSaysWhatToLookAtFirst) {
    node::RadiusServerInfo server;
    EXPECT_EQ("", serverView(server).note);
    server.accounting = true;
    server.tls = true;
    EXPECT_EQ("accounting", serverView(server).role);
    EXPECT_EQ("tls", serverView(server).transport);
    server.counters.drops[static_cast<size_t>(Drop::badAuthenticator)] = 1;
    EXPECT_EQ("", serverView(server).note) << "a good answer came since";
    server.counters.unprovenInARow = 1;
    EXPECT_EQ("answers that do not prove the secret", serverView(server).note);
    server.counters.drops[static_cast<size_t>(Drop::noMessageAuthenticator)] = 1;
    EXPECT_EQ("its answers lack Message-Authenticator", serverView(server).note);
}

}  // namespace
