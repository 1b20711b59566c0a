// The rules of the client: choosing servers, queues, patience and pace.
#include <algorithm>

#include "tests/radius/client_fixture.h"

namespace {

using namespace node::radius;
using radius_test::ClientFixture;
using radius_test::ScriptedServer;

class RadiusClient : public ClientFixture {
protected:
    void answersAtOnce(ScriptedServer& server) {
        server.answersProbes = true;
        server.onRequest = [&server](const ScriptedServer::Sent& sent) {
            server.answer(sent, Code::accessAccept);
        };
    }
};

TEST_F(RadiusClient, ListedServersAreUsedInTheirOrderOnly) {
    start([](ClientSettings& settings) { settings.servers[0].window = 4; });
    for (int i = 0; i < 20; ++i) {
        login();
    }
    EXPECT_EQ(4U, first_.requests.size());
    EXPECT_EQ(0U, second_.requests.size()) << "a full window is no failure";
    EXPECT_EQ(16U, client_->queued());
    first_.answer(ScriptedServer::Sent(first_.requests[0]), Code::accessAccept);
    EXPECT_EQ(5U, first_.requests.size());
    EXPECT_EQ(4U, status(0).inFlight);
}

TEST_F(RadiusClient, WeightedServersShareInProportion) {
    start([](ClientSettings& settings) {
        settings.order = Order::weighted;
        settings.servers[0].weight = 3;
    });
    for (int i = 0; i < 80; ++i) {
        login();
    }
    EXPECT_EQ(60U, first_.requests.size());
    EXPECT_EQ(20U, second_.requests.size());
}

TEST_F(RadiusClient, WeightedServerWithAFullWindowIsPassedOver) {
    start([](ClientSettings& settings) {
        settings.order = Order::weighted;
        settings.servers[0].window = 5;
    });
    for (int i = 0; i < 30; ++i) {
        login();
    }
    EXPECT_EQ(5U, first_.requests.size());
    EXPECT_EQ(25U, second_.requests.size());
}

TEST_F(RadiusClient, AnswersAreFoundWhateverTheirOrder) {
    start();
    std::vector<Client::Ticket> tickets;
    for (int i = 0; i < 200; ++i) {
        tickets.push_back(login());
    }
    for (size_t i = 0; i < tickets.size(); ++i) {
        const size_t at = i * 73 % tickets.size();
        first_.answer(ScriptedServer::Sent(first_.requests[at]),
                      at % 3 == 0 ? Code::accessReject : Code::accessAccept);
    }
    for (size_t at = 0; at < tickets.size(); ++at) {
        EXPECT_EQ(at % 3 == 0 ? "rejected by first" : "accepted by first", outcomeOf(tickets[at]));
    }
}

TEST_F(RadiusClient, DeadFirstServerCostsOneWaitAndNoMore) {
    start();
    answersAtOnce(second_);
    killFirst();
    for (int i = 0; i < 50; ++i) {
        const auto ticket = login();
        reactor_.settle();
        EXPECT_EQ("accepted by second", outcomeOf(ticket));
    }
}

TEST_F(RadiusClient, ListedServerWithoutAChannelIsDeadAndTheNextIsAsked) {
    start();
    answersAtOnce(second_);
    first_.refusesChannels = true;
    std::vector<std::string> told;
    client_->onServerChange([&](const std::string& name, ServerState) { told.push_back(name); });
    const auto ticket = login();
    EXPECT_TRUE(told.empty()) << "told from inside submit";
    reactor_.settle();
    EXPECT_EQ("accepted by second", outcomeOf(ticket));
    EXPECT_EQ(std::vector<std::string>{"first"}, told);
    EXPECT_EQ(ServerState::dead, status(0).state);
    EXPECT_EQ(1U, status(0).counters.deaths);
}

TEST_F(RadiusClient, ChannelThatTheReactorRefusesIsOneThatCannotBeMade) {
    start();
    answersAtOnce(first_);
    answersAtOnce(second_);
    first_.throwsChannels = true;
    const auto ticket = login();
    reactor_.settle();
    EXPECT_EQ("accepted by second", outcomeOf(ticket));
    EXPECT_GE(status(0).counters.lineErrors, 2U) << "of the login and of the first probe";
    first_.throwsChannels = false;
    reactor_.advance(6 * second);
    EXPECT_EQ(ServerState::alive, status(0).state);
}

TEST_F(RadiusClient, ServerWithoutAChannelComesBackWhenItsProbesGetOne) {
    start();
    answersAtOnce(first_);
    answersAtOnce(second_);
    first_.refusesChannels = true;
    login();
    reactor_.advance(20 * second);
    EXPECT_EQ(ServerState::dead, status(0).state);
    const uint64_t failures = status(0).counters.lineErrors;
    EXPECT_GE(failures, 4U);
    EXPECT_LE(failures, 8U) << "tried more often than it is probed";
    first_.refusesChannels = false;
    reactor_.advance(6 * second);
    EXPECT_EQ(ServerState::alive, status(0).state);
    const auto after = login();
    reactor_.settle();
    EXPECT_EQ("accepted by first", outcomeOf(after));
}

TEST_F(RadiusClient, RequestWithoutPatienceIsSentOnceTheOnlyServerHasAChannel) {
    for (const bool statusServer : {true, false}) {
        start(
            [statusServer](ClientSettings& settings) {
                settings.servers[0].statusServer = statusServer;
                settings.patience = Time(0);
            },
            1);
        answersAtOnce(first_);
        first_.refusesChannels = true;
        first_.onRequest = [this](const ScriptedServer::Sent& sent) {
            first_.answer(sent, Code::accountingResponse);
        };
        int answered = 0;
        Request request = requestOf("a");
        request.kind = Request::Kind::accounting;
        client_->submit(request, [&](const Answer&) { ++answered; });
        reactor_.advance(100 * second);
        EXPECT_EQ(0, answered);
        first_.refusesChannels = false;
        reactor_.advance(40 * second);
        EXPECT_EQ(1, answered) << statusServer;
    }
}

TEST_F(RadiusClient, ChannelThatCannotBeMadeHarmsNoServerThatHasAnother) {
    start([](ClientSettings& settings) { settings.servers[0].window = 300; });
    login();
    first_.refusesChannels = true;
    for (int i = 0; i < 299; ++i) {
        login();
    }
    reactor_.settle();
    EXPECT_EQ(ServerState::alive, status(0).state);
    EXPECT_EQ(256U, status(0).inFlight);
    EXPECT_EQ(0U, second_.requests.size());
    first_.acceptAll();
    EXPECT_EQ(300U, status(0).counters.accepts);
}

TEST_F(RadiusClient, ChannelOfTheSameMomentSavesAServer) {
    start();
    first_.refusesChannels = true;
    login();
    first_.refusesChannels = false;
    login();
    reactor_.settle();
    EXPECT_EQ(ServerState::alive, status(0).state);
    EXPECT_EQ(2U, first_.requests.size());
}

TEST_F(RadiusClient, WeightedServerWithoutAChannelIsDeadToo) {
    start([](ClientSettings& settings) { settings.order = Order::weighted; });
    first_.refusesChannels = true;
    login();
    EXPECT_EQ(1U, second_.requests.size());
    reactor_.settle();
    EXPECT_EQ(ServerState::dead, status(0).state);
}

TEST_F(RadiusClient, PasswordIsHiddenForTheServerThatIsAsked) {
    start();
    Request request = requestOf("a");
    request.password = Secret("a password of more than sixteen bytes");
    client_->submit(request, {});
    EXPECT_EQ("a password of more than sixteen bytes", first_.passwordOf(first_.requests[0]));
    reactor_.advance(12 * second);
    ASSERT_FALSE(second_.requests.empty());
    EXPECT_EQ("a password of more than sixteen bytes", second_.passwordOf(second_.requests[0]));
}

TEST_F(RadiusClient, LoginWithoutAPasswordCarriesAnEmptyOneAndNothingElseDoes) {
    start({}, 1);
    login();
    Request accounting = requestOf("a");
    accounting.kind = Request::Kind::accounting;
    client_->submit(accounting, {});
    const auto hidden = first_.requests[0].view().all(attribute::userPassword);
    ASSERT_EQ(1U, hidden.size());
    EXPECT_EQ(16U, hidden[0].size());
    EXPECT_EQ("", first_.passwordOf(first_.requests[0]));
    EXPECT_NE(Buffer(16, 0), Buffer(hidden[0].begin(), hidden[0].end())) << "it is not hidden";
    EXPECT_FALSE(first_.requests[1].view().first(attribute::userPassword));
    killFirst();
    EXPECT_FALSE(first_.probes[0].view().first(attribute::userPassword));
}

// Patience.

TEST_F(RadiusClient, UnansweredLoginIsReportedOnceWhenPatienceEnds) {
    start();
    const Time began = reactor_.now();
    const auto ticket = login();
    reactor_.advance(29 * second);
    EXPECT_EQ("none", outcomeOf(ticket));
    reactor_.advance(2 * second);
    EXPECT_EQ("unanswered", outcomeOf(ticket));
    EXPECT_EQ(began + 30 * second, seen(ticket).when);
    EXPECT_EQ(0U, client_->outstanding());
    reactor_.advance(60 * second);
    EXPECT_EQ(1U, answers(ticket));
}

TEST_F(RadiusClient, AnswerAfterPatienceEndedIsLate) {
    start([](ClientSettings& settings) { settings.patience = 2 * second; });
    const auto ticket = login();
    reactor_.advance(2 * second);
    EXPECT_EQ("unanswered", outcomeOf(ticket));
    first_.answer(first_.requests[0], Code::accessAccept);
    EXPECT_EQ(1U, answers(ticket));
    EXPECT_EQ(1U, dropped(0, Drop::late));
    EXPECT_EQ(1U, status(0).counters.withdrawn);
}

TEST_F(RadiusClient, PatienceThatEndsBeforeTheLastTryFindsASilentServerDead) {
    for (const bool reliable : {false, true}) {
        first_.reliable = reliable;
        start([](ClientSettings& settings) { settings.patience = 5 * second; });
        answersAtOnce(second_);
        const auto ticket = login();
        reactor_.advance(4 * second);
        const auto younger = login();
        reactor_.advance(Time(999'999));
        EXPECT_EQ(ServerState::alive, status(0).state);
        EXPECT_EQ("none", outcomeOf(younger));
        reactor_.advance(Time(1));
        EXPECT_EQ("unanswered", outcomeOf(ticket));
        EXPECT_EQ(ServerState::dead, status(0).state);
        EXPECT_EQ("accepted by second", outcomeOf(younger));
        EXPECT_EQ(1U, status(0).counters.withdrawn);
        EXPECT_EQ(1U, status(0).counters.handedBack);
        const auto next = login();
        reactor_.settle();
        EXPECT_EQ("accepted by second", outcomeOf(next));
        EXPECT_EQ(1U, status(0).counters.probes);
        seen_.clear();
    }
}

TEST_F(RadiusClient, CancellingWhatWasLeftUnansweredFindsTheServerDeadSoonAfter) {
    start();
    bool told = false;
    client_->onServerChange([&](const std::string&, ServerState) { told = true; });
    const auto ticket = login();
    reactor_.advance(Time(1'200'000));
    client_->cancel(ticket, true);
    EXPECT_FALSE(told) << "told from inside cancel";
    reactor_.settle();
    EXPECT_TRUE(told);
    EXPECT_EQ(ServerState::dead, status(0).state);
}

TEST_F(RadiusClient, CancellingWithinTheFirstWaitSaysNothingOfTheServer) {
    for (const bool reliable : {false, true}) {
        first_.reliable = reliable;
        start();
        for (int i = 0; i < 20; ++i) {
            const auto ticket = login();
            reactor_.advance(Time(890'000));
            client_->cancel(ticket, true);
            reactor_.settle();
            EXPECT_EQ(ServerState::alive, status(0).state);
        }
        EXPECT_EQ(0U, status(0).counters.deaths);
    }
}

// A line that lost its link again and again must not take a slow server from the others.
TEST_F(RadiusClient, CancellingWhatNobodyWantsAnyMoreSaysNothingOfTheServer) {
    start();
    for (int i = 0; i < 20; ++i) {
        const auto ticket = login();
        reactor_.advance(2 * second);
        client_->cancel(ticket, false);
        reactor_.settle();
        EXPECT_EQ(ServerState::alive, status(0).state);
    }
    EXPECT_EQ(0U, status(0).counters.deaths);
}

TEST_F(RadiusClient, PatienceThatEndsHarmsNoServerThatAnsweredOthers) {
    start([](ClientSettings& settings) { settings.patience = 5 * second; });
    const auto lost = login("lost");
    reactor_.advance(4 * second);
    login();
    first_.answer(ScriptedServer::Sent(first_.requests.back()), Code::accessReject);
    reactor_.advance(2 * second);
    EXPECT_EQ("unanswered", outcomeOf(lost));
    EXPECT_EQ(ServerState::alive, status(0).state);
}

TEST_F(RadiusClient, AnswerOfTheSameMomentSavesAServer) {
    start();
    const auto cancelled = login();
    login();
    reactor_.advance(2 * second);
    client_->cancel(cancelled, true);
    first_.answer(ScriptedServer::Sent(first_.requests[1]), Code::accessReject);
    reactor_.settle();
    EXPECT_EQ(ServerState::alive, status(0).state);
}

TEST_F(RadiusClient, TrialThatPatienceEndsIsAnotherDeath) {
    start(
        [](ClientSettings& settings) {
            settings.servers[0].statusServer = false;
            settings.patience = 3 * second;
        },
        1);
    login();
    reactor_.advance(4 * second);
    ASSERT_EQ(ServerState::dead, status(0).state);
    for (int i = 0; i < 400 && status(0).state == ServerState::dead; ++i) {
        reactor_.advance(second / 10);
    }
    ASSERT_EQ(ServerState::trial, status(0).state);
    login();
    reactor_.advance(4 * second);
    EXPECT_EQ(ServerState::dead, status(0).state);
    EXPECT_EQ(2U, status(0).counters.deaths);
}

TEST_F(RadiusClient, WithoutEndOfPatienceALoginOutlastsAnyOutage) {
    start([](ClientSettings& settings) { settings.patience = Time(0); });
    const auto ticket = login();
    reactor_.advance(24 * 3600 * second);
    EXPECT_EQ("none", outcomeOf(ticket));
    answersAtOnce(first_);
    answersAtOnce(second_);
    reactor_.advance(10 * second);
    EXPECT_EQ("accepted by", outcomeOf(ticket).substr(0, 11));
}

TEST_F(RadiusClient, CancelledLoginIsNeverAnswered) {
    start([](ClientSettings& settings) { settings.servers[0].window = 1; });
    const auto underWay = login();
    const auto waiting = login();
    EXPECT_TRUE(client_->cancel(waiting, false));
    EXPECT_TRUE(client_->cancel(underWay, false));
    EXPECT_FALSE(client_->cancel(underWay, false));
    EXPECT_FALSE(client_->cancel(4711, false));
    EXPECT_EQ(0U, client_->outstanding());
    first_.acceptAll();
    reactor_.advance(60 * second);
    EXPECT_EQ(0U, answers(underWay) + answers(waiting));
    EXPECT_EQ(2U, client_->counters().cancelled);
    EXPECT_EQ(0U, reactor_.timers());
}

TEST_F(RadiusClient, CancellingMakesRoomForTheNext) {
    start([](ClientSettings& settings) { settings.servers[0].window = 1; });
    const auto underWay = login();
    login();
    EXPECT_EQ(1U, first_.requests.size());
    client_->cancel(underWay, false);
    EXPECT_EQ(2U, first_.requests.size());
}

TEST_F(RadiusClient, WhatCannotBeSentIsRefused) {
    start([](ClientSettings& settings) {
        settings.longestQueue = 2;
        settings.servers[0].window = 1;
    });
    Request request;
    request.attributes = Buffer(4040, 0);  // beside an empty password of 18 bytes
    for (size_t i = 0; i < request.attributes.size(); i += 2) {
        request.attributes[i] = 1;
        request.attributes[i + 1] = 2;
    }
    EXPECT_NE(0U, client_->submit(request, {}));
    request.attributes.insert(request.attributes.end(), {1, 2});
    EXPECT_EQ(0U, client_->submit(request, {}));
    request.kind = Request::Kind::accounting;
    EXPECT_NE(0U, client_->submit(request, {}));
    request.kind = Request::Kind::login;
    request.attributes.resize(4038);
    request.password = Secret("password");
    EXPECT_EQ(0U, client_->submit(request, {}));
    request = requestOf("a");
    request.password = Secret(std::string(129, 'p'));
    EXPECT_EQ(0U, client_->submit(request, {}));
    EXPECT_NE(0U, login());
    EXPECT_EQ(0U, login()) << "the queue is full";
    EXPECT_EQ(4U, client_->counters().refused);
}

TEST_F(RadiusClient, DoneMaySubmitTheNext) {
    start();
    answersAtOnce(first_);
    int done = 0;
    std::function<void(const Answer&)> next = [&](const Answer&) {
        if (++done < 1000) {
            client_->submit(requestOf("a"), next);
        }
    };
    client_->submit(requestOf("a"), next);
    reactor_.settle();
    EXPECT_EQ(1000, done);
}

// Pace.

TEST_F(RadiusClient, ReplaysGoOutAtTheirPaceAndFreshLoginsPassThem) {
    start([](ClientSettings& settings) {
        settings.pacedRate = 20;
        settings.pacedBurst = 5;
    });
    answersAtOnce(first_);
    for (int i = 0; i < 99; ++i) {
        login("replay", true);
    }
    reactor_.settle();
    EXPECT_EQ(5U, first_.requests.size());
    const auto fresh = login("fresh");
    reactor_.settle();
    EXPECT_EQ("accepted by first", outcomeOf(fresh));
    reactor_.advance(second);
    EXPECT_EQ(26U, first_.requests.size());
    reactor_.advance(10 * second);
    EXPECT_EQ(100U, first_.requests.size());
    EXPECT_EQ(100U, client_->counters().answered);
}

TEST_F(RadiusClient, LoginsAfterAnOutageGoOutAtThePace) {
    start([](ClientSettings& settings) {
        settings.pacedRate = 10;
        settings.pacedBurst = 1;
        settings.patience = Time(0);
    });
    std::vector<Client::Ticket> tickets;
    for (int i = 0; i < 50; ++i) {
        tickets.push_back(login());
    }
    reactor_.advance(30 * second);
    EXPECT_EQ(ServerState::dead, status(0).state);
    EXPECT_EQ(ServerState::dead, status(1).state);
    for (int i = 0; i < 50; ++i) {
        tickets.push_back(login());
    }
    answersAtOnce(first_);
    for (int i = 0; i < 100 && status(0).state == ServerState::dead; ++i) {
        reactor_.advance(second / 10);
    }
    const size_t before = first_.requests.size();
    const auto fresh = login();
    reactor_.advance(Time(5'000'000));
    EXPECT_LE(first_.requests.size() - before, 53U);
    EXPECT_GE(first_.requests.size() - before, 50U);
    EXPECT_EQ("accepted by first", outcomeOf(fresh));
    reactor_.advance(6 * second);
    EXPECT_TRUE(std::is_sorted(tickets.begin(), tickets.end()));
    for (size_t i = 0; i < tickets.size(); ++i) {
        ASSERT_EQ("accepted by first", outcomeOf(tickets[i])) << i;
        EXPECT_TRUE(i == 0 || seen(tickets[i - 1]).when <= seen(tickets[i]).when)
            << "a younger login passed an older one";
    }
}

TEST_F(RadiusClient, FreshLoginsThatWaitedThroughAnOutageGoBeforeReplays) {
    start(
        [](ClientSettings& settings) {
            settings.servers[0].window = 1;
            settings.pacedRate = 1;
            settings.pacedBurst = 1;
            settings.patience = Time(0);
        },
        1);
    login("under way");
    login("replay", true);
    login("fresh");
    reactor_.advance(8 * second);
    ASSERT_EQ(ServerState::dead, status(0).state);
    answersAtOnce(first_);
    const size_t before = first_.requests.size();
    reactor_.advance(20 * second);
    std::string order;
    for (size_t i = before; i < first_.requests.size(); ++i) {
        order += textOf(*first_.requests[i].view().first(attribute::userName)) + ", ";
    }
    EXPECT_EQ("under way, fresh, replay, ", order);
}

TEST_F(RadiusClient, PaceOfZeroIsNone) {
    start([](ClientSettings& settings) { settings.pacedRate = 0; });
    for (int i = 0; i < 200; ++i) {
        login("replay", true);
    }
    EXPECT_EQ(200U, first_.requests.size());
}

// What cannot be worked with.

TEST_F(RadiusClient, SettingsThatCannotWorkAreRefused) {
    const std::vector<std::function<void(ClientSettings&)>> table = {
        [](ClientSettings& s) { s.servers.clear(); },
        [](ClientSettings& s) { s.servers.resize(33, s.servers[0]); },
        [](ClientSettings& s) { s.servers[1].makeChannel = nullptr; },
        [](ClientSettings& s) { s.servers[1].secret = Secret(); },
        [](ClientSettings& s) { s.servers[1].window = 0; },
        [](ClientSettings& s) { s.servers[1].weight = 0; },
        [](ClientSettings& s) { s.servers[1].retry.tries = 0; },
        [](ClientSettings& s) { s.servers[1].retry.first = Time(0); },
        [](ClientSettings& s) { s.servers[1].retry.longest = Time(-1); },
        [](ClientSettings& s) { s.servers[1].probeInterval = Time(0); },
        [](ClientSettings& s) { s.servers[1].restTime = Time(0); },
    };
    for (size_t i = 0; i < table.size(); ++i) {
        EXPECT_THROW(start(table[i]), std::invalid_argument) << i;
    }
}

TEST_F(RadiusClient, EveryChangeOfAServerIsTold) {
    start({}, 1);
    std::string told;
    client_->onServerChange([&](const std::string& name, ServerState state) {
        told += name + (state == ServerState::dead ? " dead " : " alive ");
    });
    killFirst();
    first_.answersProbes = true;
    reactor_.advance(10 * second);
    EXPECT_EQ("first dead first alive ", told);
}

TEST_F(RadiusClient, DestroyedClientLeavesNoTimerAndCallsNobody) {
    start();
    const auto ticket = login();
    client_.reset();
    EXPECT_EQ(0U, reactor_.timers());
    EXPECT_EQ(0U, first_.channelsOpen());
    EXPECT_EQ(0U, answers(ticket));
}

}  // namespace
