// The rules about one server: sending again, judging answers, death and return.
#include <set>

#include "tests/radius/client_fixture.h"

#include "tests/radius/hex.h"

namespace {

using namespace node::radius;
using radius_test::ClientFixture;
using radius_test::ScriptedServer;

class ClientServer : public ClientFixture {};

TEST_F(ClientServer, AcceptAndRejectReachTheCaller) {
    start();
    const auto accepted = login("a");
    const auto rejected = login("b");
    ASSERT_EQ(2U, first_.requests.size());
    first_.answer(first_.requests[1], Code::accessReject);
    first_.answer(first_.requests[0], Code::accessAccept);
    EXPECT_EQ("accepted by first", outcomeOf(accepted));
    EXPECT_EQ("rejected by first", outcomeOf(rejected));
    EXPECT_EQ(1U, status(0).counters.accepts);
    EXPECT_EQ(1U, status(0).counters.rejects);
    EXPECT_EQ(0U, client_->outstanding());
    reactor_.advance(60 * second);
    EXPECT_EQ(2U, first_.requests.size()) << "something was sent again after its answer";
}

TEST_F(ClientServer, ChallengeIsARefusal) {
    start();
    const auto ticket = login();
    first_.answer(first_.requests[0], Code::accessChallenge);
    EXPECT_EQ("rejected by first", outcomeOf(ticket));
    EXPECT_TRUE(seen(ticket).challenged);
    EXPECT_EQ(1U, status(0).counters.challenges);
}

TEST_F(ClientServer, AnswerCarriesThePacketAndTheTime) {
    start();
    std::string filter;
    Time took{0};
    client_->submit(requestOf("a"), [&](const Answer& answer) {
        filter = textOf(answer.packet->first(attribute::filterId).value());
        took = answer.took;
    });
    reactor_.advance(Time(250'000));
    first_.answer(first_.requests[0], Code::accessAccept, radius_test::fromHex("0b06 676f6c64"));
    EXPECT_EQ("gold", filter);
    EXPECT_EQ(Time(250'000), took);
    EXPECT_GE(status(0).counters.roundTrip.percentile(50), Time(250'000));
    EXPECT_LE(status(0).counters.roundTrip.percentile(50), Time(266'000));
}

TEST_F(ClientServer, RetransmissionIsTheSamePacketOnTheSameChannel) {
    start();
    const auto ticket = login();
    reactor_.advance(3 * second);
    ASSERT_EQ(2U, first_.requests.size());
    EXPECT_EQ(first_.requests[0].packet, first_.requests[1].packet);
    EXPECT_EQ(first_.requests[0].channel, first_.requests[1].channel);
    EXPECT_EQ(1U, status(0).counters.requests);
    EXPECT_EQ(1U, status(0).counters.retransmissions);
    first_.answer(first_.requests[1], Code::accessAccept);
    EXPECT_EQ("accepted by first", outcomeOf(ticket));
}

TEST_F(ClientServer, WaitDoublesUpToTheLongestWithinATenth) {
    start(
        [](ClientSettings& settings) {
            settings.servers[0].retry = {second, 6 * second, 6};
            settings.patience = Time(0);
        },
        1);
    for (int round = 0; round < 50; ++round) {
        login();
    }
    reactor_.advance(28 * second);
    std::map<uint8_t, std::vector<Time>> times;
    for (const auto& sent : first_.requests) {
        times[sent.view().id()].push_back(sent.when);
    }
    std::set<Time> firstWaits;
    for (const auto& [id, when] : times) {
        ASSERT_GE(when.size(), 5U);
        const double expected[] = {1, 2, 4, 6};
        for (size_t i = 0; i < 4; ++i) {
            const double wait = std::chrono::duration<double>(when[i + 1] - when[i]).count();
            EXPECT_NEAR(expected[i], wait, expected[i] * 0.25) << "wait " << i;
        }
        EXPECT_NEAR(1, std::chrono::duration<double>(when[1] - when[0]).count(), 0.1001);
        firstWaits.insert(when[1] - when[0]);
    }
    EXPECT_GT(firstWaits.size(), 40U) << "the jitter does not spread";
}

TEST_F(ClientServer, NextServerGetsANewPacketAfterTheLastTry) {
    start();
    const auto ticket = login();
    reactor_.advance(12 * second);
    EXPECT_EQ(3U, first_.requests.size());
    ASSERT_GE(second_.requests.size(), 1U);
    EXPECT_NE(first_.requests[0].view().authenticator(),
              second_.requests[0].view().authenticator());
    EXPECT_EQ(1U, status(0).counters.timeouts);
    second_.answer(second_.requests[0], Code::accessAccept);
    EXPECT_EQ("accepted by second", outcomeOf(ticket));
}

TEST_F(ClientServer, SilentServerIsDeadAndEverythingUnderWayIsHandedOverAtOnce) {
    start();
    login("first of them");
    reactor_.advance(3 * second);
    for (int i = 0; i < 20; ++i) {
        login();
    }
    EXPECT_EQ(ServerState::alive, status(0).state);
    reactor_.advance(6 * second);
    EXPECT_EQ(ServerState::dead, status(0).state);
    EXPECT_EQ(1U, status(0).counters.deaths);
    EXPECT_EQ(0U, status(0).inFlight);
    ASSERT_GE(second_.requests.size(), 21U);
    EXPECT_EQ("first of them", textOf(*second_.requests[0].view().first(attribute::userName)));
    EXPECT_EQ(20U, status(0).counters.handedBack);
}

TEST_F(ClientServer, LossOfOneRequestDoesNotKillAServerThatAnswersOthers) {
    start();
    const auto lost = login("lost");
    for (int i = 0; i < 12; ++i) {
        reactor_.advance(second);
        login();
        first_.answer(first_.requests.back(), Code::accessAccept);
    }
    EXPECT_EQ(ServerState::alive, status(0).state);
    EXPECT_EQ(1U, status(0).counters.timeouts);
    EXPECT_EQ(1U, status(1).counters.requests);
    second_.answer(second_.requests.back(), Code::accessAccept);
    EXPECT_EQ("accepted by second", outcomeOf(lost));
}

TEST_F(ClientServer, DeadServerIsOnlyProbedAndComesBackFirst) {
    start();
    killFirst();
    const size_t sent = first_.requests.size();
    const auto meanwhile = login();
    second_.acceptAll();
    EXPECT_EQ("accepted by second", outcomeOf(meanwhile));
    reactor_.advance(20 * second);
    EXPECT_EQ(sent, first_.requests.size());
    EXPECT_GE(first_.probes.size(), 4U);
    EXPECT_LE(first_.probes.size(), 6U);
    first_.answersProbes = true;
    reactor_.advance(6 * second);
    EXPECT_EQ(ServerState::alive, status(0).state);
    EXPECT_EQ(1U, status(0).counters.returns);
    const auto after = login();
    first_.answer(first_.requests.back(), Code::accessAccept);
    EXPECT_EQ("accepted by first", outcomeOf(after));
    const size_t probes = first_.probes.size();
    reactor_.advance(60 * second);
    EXPECT_EQ(probes, first_.probes.size()) << "a living server is probed";
}

TEST_F(ClientServer, ServerThatOnlyAnswersProbesHasToAnswerMoreOfThemEachTime) {
    start([](ClientSettings& settings) { settings.patience = Time(0); });
    first_.answersProbes = true;
    std::vector<uint64_t> probes;
    uint64_t before = 0;
    for (int round = 0; round < 6; ++round) {
        const uint64_t deaths = status(0).counters.deaths;
        login();
        for (int i = 0; i < 100 && status(0).counters.deaths == deaths; ++i) {
            reactor_.advance(second / 10);
        }
        for (int i = 0; i < 1000 && status(0).state == ServerState::dead; ++i) {
            reactor_.advance(second / 10);
        }
        ASSERT_EQ(ServerState::alive, status(0).state);
        probes.push_back(status(0).counters.probeAnswers - before);
        before = status(0).counters.probeAnswers;
    }
    EXPECT_EQ((std::vector<uint64_t>{1, 2, 4, 8, 8, 8}), probes);
}

TEST_F(ClientServer, WithoutStatusServerOneLoginIsTriedAfterARest) {
    start(
        [](ClientSettings& settings) {
            settings.servers[0].statusServer = false;
            settings.patience = Time(0);
        },
        1);
    killFirst();
    for (int i = 0; i < 5; ++i) {
        login();
    }
    const uint64_t before = status(0).counters.requests;
    reactor_.advance(26 * second);
    EXPECT_EQ(before, status(0).counters.requests);
    for (int i = 0; i < 80 && status(0).state == ServerState::dead; ++i) {
        reactor_.advance(second / 10);
    }
    EXPECT_EQ(ServerState::trial, status(0).state);
    login();
    reactor_.advance(second);
    EXPECT_EQ(before + 1, status(0).counters.requests) << "more than one was tried";
    EXPECT_TRUE(first_.probes.empty());
    first_.answer(first_.requests.back(), Code::accessReject);
    EXPECT_EQ(ServerState::alive, status(0).state);
    EXPECT_EQ(before + 7, status(0).counters.requests);
}

TEST_F(ClientServer, TrialWithoutAnswerIsAnotherDeath) {
    start(
        [](ClientSettings& settings) {
            settings.servers[0].statusServer = false;
            settings.patience = Time(0);
        },
        1);
    killFirst();
    reactor_.advance(50 * second);
    EXPECT_EQ(ServerState::dead, status(0).state);
    EXPECT_EQ(2U, status(0).counters.deaths);
}

// Answers.

TEST_F(ClientServer, AnswersThatAreNotProvenAreDroppedAndTheLoginWaitsOn) {
    start();
    const auto ticket = login();
    const ScriptedServer::Sent sent = first_.requests[0];
    const Buffer good = first_.answerTo(sent, Code::accessAccept);

    Buffer changed = good;
    changed[4] ^= 1;
    first_.deliver(0, changed);
    EXPECT_EQ(1U, dropped(0, Drop::badAuthenticator));

    first_.deliver(0, second_.answerTo(sent, Code::accessAccept));
    EXPECT_EQ(2U, dropped(0, Drop::badAuthenticator)) << "the secret of another server";

    first_.deliver(0, Buffer(good.begin(), good.begin() + 30));
    first_.deliver(0, {});
    EXPECT_EQ(2U, dropped(0, Drop::malformed));

    Buffer foreign = good;
    foreign[1] = static_cast<uint8_t>(foreign[1] + 7);
    first_.deliver(0, foreign);
    EXPECT_EQ(1U, dropped(0, Drop::unknownId));

    first_.answer(sent, Code::accountingResponse);
    first_.answer(sent, Code::coaAck);
    EXPECT_EQ(2U, dropped(0, Drop::wrongCode));

    EXPECT_EQ("none", outcomeOf(ticket));
    EXPECT_EQ(1U, status(0).inFlight);
    first_.deliver(0, good);
    EXPECT_EQ("accepted by first", outcomeOf(ticket));
}

// Their authenticators hold.
TEST_F(ClientServer, AnswerWithoutOrWithAWrongMessageAuthenticatorIsDropped) {
    start();
    const auto ticket = login();
    const ScriptedServer::Sent sent = first_.requests[0];
    first_.deliver(0, radius_test::answerWithoutMessageAuthenticator(
                          Code::accessAccept, sent.view(), "secret of the first"));
    EXPECT_EQ(1U, dropped(0, Drop::noMessageAuthenticator));
    first_.deliver(0, radius_test::answerWithMessageAuthenticator(
                          Code::accessAccept, sent.view(), "secret of the first", Authenticator{}));
    EXPECT_EQ(1U, dropped(0, Drop::badMessageAuthenticator));
    EXPECT_EQ("none", outcomeOf(ticket));
}

TEST_F(ClientServer, AccountingAnswerMayComeWithoutMessageAuthenticatorWhenAllowed) {
    start(
        [](ClientSettings& settings) { settings.servers[0].accountingDemand = Demand::ifPresent; });
    int accepted = 0;
    const auto done = [&](const Answer& answer) {
        accepted += answer.outcome == Outcome::accepted ? 1 : 0;
    };
    Request request = requestOf("a");
    request.kind = Request::Kind::accounting;
    client_->submit(request, done);
    const ScriptedServer::Sent sent = first_.requests[0];
    ASSERT_EQ(Code::accountingRequest, sent.view().code());
    first_.deliver(0, radius_test::answerWithoutMessageAuthenticator(
                          Code::accountingResponse, sent.view(), "secret of the first"));
    EXPECT_EQ(1, accepted);
    EXPECT_EQ(1U, status(0).counters.accountingAnswers);
    login();
    first_.deliver(0, radius_test::answerWithoutMessageAuthenticator(
                          Code::accessAccept, first_.requests[1].view(), "secret of the first"));
    EXPECT_EQ(1U, dropped(0, Drop::noMessageAuthenticator)) << "a login must be proven";
}

TEST_F(ClientServer, AccountingServerThatDoesNotSignComesBackWhenThatIsAllowed) {
    for (const Demand demand : {Demand::messageAuthenticator, Demand::ifPresent}) {
        first_.probes.clear();
        const size_t channel = first_.channelsMade();
        start([demand](ClientSettings& settings) { settings.servers[0].accountingDemand = demand; },
              1);
        killFirst();
        ASSERT_EQ(1U, first_.probes.size());
        first_.deliver(
            channel, radius_test::answerWithoutMessageAuthenticator(
                         Code::accountingResponse, first_.probes[0].view(), "secret of the first"));
        EXPECT_EQ(demand == Demand::ifPresent ? ServerState::alive : ServerState::dead,
                  status(0).state);
    }
}

TEST_F(ClientServer, ServerThatAnswersProbesSlowlyComesBack) {
    start({}, 1);
    killFirst();
    reactor_.advance(6 * second);
    ASSERT_EQ(2U, first_.probes.size());
    first_.answer(first_.probes[0], Code::accessAccept);
    EXPECT_EQ(ServerState::alive, status(0).state);
    EXPECT_EQ(1U, status(0).counters.probeAnswers);
    first_.answer(first_.probes[0], Code::accessAccept);
    EXPECT_EQ(1U, dropped(0, Drop::duplicate));
}

TEST_F(ClientServer, AnswerToAProbeOfLongAgoSaysNothing) {
    start({}, 1);
    killFirst();
    reactor_.advance(20 * second);
    first_.answer(first_.probes[0], Code::accessAccept);
    EXPECT_EQ(ServerState::dead, status(0).state);
    EXPECT_EQ(1U, dropped(0, Drop::late));
}

// The probe was sent before the login, so only some seeds let the login end first.
TEST_F(ClientServer, ServerThatAnAnswerOfAnEarlierProbeBroughtBackMayDieAgain) {
    for (uint64_t seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(seed);
        first_.probes.clear();
        start(
            [seed](ClientSettings& settings) {
                settings.seed = seed;
                settings.servers[0].retry.tries = 1;
                settings.servers[0].probeInterval = second;
            },
            1);
        killFirst();
        while (first_.probes.size() < 2) {
            reactor_.advance(Time(1000));
        }
        first_.answer(first_.probes[0], Code::accessAccept);
        ASSERT_EQ(ServerState::alive, status(0).state);
        reactor_.advance(Time(1));
        login();
        reactor_.advance(Time(1'200'000));
        EXPECT_EQ(ServerState::dead, status(0).state);
        EXPECT_EQ(2U, status(0).counters.deaths);
        EXPECT_EQ(0U, status(0).inFlight);
        const ServerCounters c = status(0).counters;
        EXPECT_EQ(c.requests, c.timeouts + c.handedBack + c.withdrawn);
    }
}

TEST_F(ClientServer, SecondAnswerIsADuplicate) {
    start();
    const auto ticket = login();
    const ScriptedServer::Sent sent = first_.requests[0];
    first_.answer(sent, Code::accessReject);
    first_.answer(sent, Code::accessAccept);
    EXPECT_EQ("rejected by first", outcomeOf(ticket));
    EXPECT_EQ(1U, dropped(0, Drop::duplicate));
}

TEST_F(ClientServer, AnswerAfterTheHandoverIsLate) {
    start();
    const auto ticket = login();
    const ScriptedServer::Sent sent = first_.requests[0];
    reactor_.advance(12 * second);
    first_.answer(sent, Code::accessAccept);
    EXPECT_EQ("none", outcomeOf(ticket));
    EXPECT_EQ(1U, dropped(0, Drop::late));
    second_.answer(second_.requests[0], Code::accessReject);
    EXPECT_EQ("rejected by second", outcomeOf(ticket));
}

TEST_F(ClientServer, AnswerToAnEarlierUseOfAnIdentifierIsNotTaken) {
    start();
    login();
    const ScriptedServer::Sent old = first_.requests[0];
    first_.acceptAll();
    for (int i = 0; i < 255; ++i) {
        login();
        first_.acceptAll();
    }
    const auto ticket = login();
    ASSERT_EQ(old.view().id(), first_.requests.back().view().id());
    first_.answer(old, Code::accessAccept);
    EXPECT_EQ("none", outcomeOf(ticket));
    EXPECT_EQ(1U, dropped(0, Drop::late)) << "it proves the secret all the same";
    EXPECT_EQ(0U, dropped(0, Drop::badAuthenticator));
    Buffer changed = first_.answerTo(old, Code::accessAccept);
    changed[4] ^= 1;
    first_.deliver(0, changed);
    EXPECT_EQ(1U, dropped(0, Drop::badAuthenticator));
}

TEST_F(ClientServer, AnswersThatProveNoSecretAreCountedUntilOneDoes) {
    start();
    const auto unproven = [this] { return status(0).counters.unprovenInARow; };
    login();
    login();
    const Buffer good = first_.answerTo(first_.requests[0], Code::accessAccept);
    const Buffer foreign = second_.answerTo(first_.requests[0], Code::accessAccept);
    first_.deliver(0, foreign);
    first_.deliver(0, foreign);
    first_.deliver(0, Buffer(good.begin(), good.begin() + 30));
    EXPECT_EQ(2U, unproven());
    first_.deliver(0, good);
    EXPECT_EQ(0U, unproven());
    first_.deliver(0, foreign);
    EXPECT_EQ(1U, unproven());
    first_.deliver(0, good);
    EXPECT_EQ(0U, unproven()) << "a duplicate proves the secret too";
    EXPECT_EQ(3U, dropped(0, Drop::badAuthenticator));
}

// Channels.

TEST_F(ClientServer, ChannelIsMadeForEach256UnderWay) {
    start([](ClientSettings& settings) { settings.servers[0].window = 600; });
    EXPECT_EQ(0U, first_.channelsMade());
    for (int i = 0; i < 256; ++i) {
        login();
    }
    EXPECT_EQ(1U, first_.channelsMade());
    login();
    EXPECT_EQ(2U, first_.channelsMade());
    for (int i = 0; i < 400; ++i) {
        login();
    }
    EXPECT_EQ(3U, first_.channelsMade());
    EXPECT_EQ(600U, status(0).inFlight);
    for (int round = 0; round < 20; ++round) {
        first_.acceptAll();
        for (int i = 0; i < 600; ++i) {
            login();
        }
    }
    EXPECT_EQ(3U, first_.channelsMade()) << "answered identifiers are used again";
}

TEST_F(ClientServer, ServerWithoutAChannelIsUsedOnceOneCanBeMade) {
    start({}, 1);
    first_.refusesChannels = true;
    const auto ticket = login();
    EXPECT_EQ(1U, client_->queued());
    EXPECT_GE(status(0).counters.lineErrors, 1U);
    first_.refusesChannels = false;
    login();
    ASSERT_EQ(2U, first_.requests.size());
    first_.acceptAll();
    EXPECT_EQ("accepted by first", outcomeOf(ticket));
}

TEST_F(ClientServer, NothingIsSentTwiceOnAReliableChannel) {
    first_.reliable = true;
    start();
    login();
    reactor_.advance(Time(6'900'000));
    EXPECT_EQ(1U, first_.requests.size());
    EXPECT_EQ(ServerState::alive, status(0).state);
    reactor_.advance(Time(200'000));
    EXPECT_EQ(ServerState::dead, status(0).state);
    EXPECT_EQ(1U, second_.requests.size());
}

TEST_F(ClientServer, BrokenChannelHandsOverAndAProbeOnANewOneBringsTheServerBack) {
    first_.reliable = true;
    first_.answersProbes = true;
    start({}, 1);
    const auto ticket = login();
    first_.breakChannel(0);
    EXPECT_EQ(ServerState::dead, status(0).state);
    EXPECT_EQ("none", outcomeOf(ticket));
    reactor_.settle();
    EXPECT_EQ(ServerState::alive, status(0).state);
    EXPECT_EQ(2U, first_.channelsMade());
    EXPECT_EQ(1U, first_.channelsOpen());
    ASSERT_EQ(2U, first_.requests.size());
    first_.answer(first_.requests[1], Code::accessAccept);
    EXPECT_EQ("accepted by first", outcomeOf(ticket));
}

TEST_F(ClientServer, SilentReliableChannelIsGivenUpAndProbesUseNewOnes) {
    first_.reliable = true;
    start();
    login();
    reactor_.advance(Time(7'100'000));
    EXPECT_EQ(ServerState::dead, status(0).state);
    ASSERT_EQ(1U, first_.probes.size());
    EXPECT_EQ(1U, first_.probes[0].channel);
    EXPECT_EQ(1U, first_.channelsOpen());
    reactor_.advance(Time(6'000'000));
    ASSERT_EQ(2U, first_.probes.size());
    EXPECT_EQ(2U, first_.probes[1].channel);
    reactor_.settle();
    EXPECT_EQ(1U, first_.channelsOpen());
    first_.answer(first_.probes[1], Code::accessAccept);
    EXPECT_EQ(ServerState::alive, status(0).state);
}

TEST_F(ClientServer, IdleChannelMayCloseWithoutHarm) {
    first_.reliable = true;
    start();
    login();
    first_.acceptAll();
    first_.breakChannel(0);
    reactor_.settle();
    EXPECT_EQ(ServerState::alive, status(0).state);
    EXPECT_EQ(0U, first_.channelsOpen());
    const auto ticket = login();
    first_.acceptAll();
    EXPECT_EQ("accepted by first", outcomeOf(ticket));
    EXPECT_EQ(2U, first_.channelsMade());
}

}  // namespace
