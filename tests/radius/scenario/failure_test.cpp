// What goes wrong between the client and a real server: no login is lost, and none is accepted
// that the server did not accept.
#include "tests/radius/scenario/scenario_fixture.h"

namespace {

using namespace node::radius;
using radius_test::FreeRadius;
using radius_test::UdpProxy;

class Radius : public radius_test::ScenarioFixture {};

TEST_F(Radius, KnownLinesAreAcceptedAndOthersRejected) {
    start({to(server().port())});
    std::optional<Grant> grant;
    ++asked_;
    client_->submit(requestOf("line-7"), [&](const Answer& answer) {
        accepted_ += answer.outcome == Outcome::accepted ? 1 : 0;
        grant = readGrant(*answer.packet, format_);
    });
    loginLines(99);
    for (int i = 1; i <= 40; ++i) {
        login("barred-" + std::to_string(i));
        login("stranger-" + std::to_string(i));
    }
    ASSERT_TRUE(settle());
    EXPECT_EQ(100U, accepted_);
    EXPECT_EQ(80U, rejected_);
    ASSERT_TRUE(grant);
    EXPECT_EQ(3600U, grant->sessionTimeout);
    EXPECT_EQ(std::vector<std::string>{"gold"}, grant->filterIds);
    ASSERT_EQ(1U, grant->classes.size());
    EXPECT_EQ("class of 7", textOf(grant->classes[0]));
    EXPECT_EQ(0U, status(0).counters.retransmissions);
}

TEST_F(Radius, AttributesOfALineReachTheServer) {
    FreeRadius::Options options;
    options.authorize =
        "if (\"%{NAS-Identifier} %{NAS-Port} %{NAS-Port-Id} %{Calling-Station-Id} "
        "%{Framed-IP-Address} %{string:ADSL-Agent-Circuit-Id} %{string:ADSL-Agent-Remote-Id}\" == "
        "\"nas7 3 1/3 02-00-5E-00-00-01 192.0.2.7 whole-line remote\") {\n"
        "update control {\nAuth-Type := Accept\n}\n}";
    format_.nasIdentifier = "nas7";
    Line line;
    line.interfaceName = "1/3";
    line.interfaceNumber = 3;
    line.circuitId = "whole-line";
    line.remoteId = "remote";
    line.mac = MacAddress{2, 0, 0x5e, 0, 0, 1};
    line.address = 0xc0000207;
    start({to(server(options).port())});
    std::vector<Outcome> outcomes;
    for (int i = 0; i < 2; ++i) {
        Request request;
        request.attributes = loginAttributes(line, format_).value();
        request.password = Secret("pw");
        client_->submit(request, [&](const Answer& answer) { outcomes.push_back(answer.outcome); });
        ASSERT_TRUE(settle());
        line.remoteId = "another";  // the same with one thing different
    }
    EXPECT_EQ((std::vector<Outcome>{Outcome::accepted, Outcome::rejected}), outcomes);
}

TEST_F(Radius, WrongPasswordIsRejected) {
    start({to(server().port())});
    Request request = requestOf("line-1");
    request.password = Secret("wrong");
    Outcome outcome = Outcome::unanswered;
    client_->submit(request, [&](const Answer& answer) { outcome = answer.outcome; });
    ASSERT_TRUE(settle());
    EXPECT_EQ(Outcome::rejected, outcome);
}

TEST_F(Radius, ServerReadsAnEmptyPasswordWhereThereIsNone) {
    FreeRadius::Options options;
    options.authorize =
        "if (&User-Password && \"%{User-Password}\" == \"\") {\n"
        "update control {\nAuth-Type := Accept\n}\n}";
    start({to(server(options).port())});
    std::vector<Outcome> outcomes;
    for (const bool some : {false, true}) {
        Request request = requestOf("stranger");
        request.password.reset();
        if (some) {
            request.password = Secret("some");
        }
        client_->submit(request, [&](const Answer& answer) { outcomes.push_back(answer.outcome); });
        ASSERT_TRUE(settle());
    }
    EXPECT_EQ((std::vector<Outcome>{Outcome::accepted, Outcome::rejected}), outcomes);
}

TEST_F(Radius, WrongSecretAcceptsNobody) {
    start({to(server().port(), "first", "another-secret")},
          [](ClientSettings& settings) { settings.patience = Time(2'000'000); });
    loginLines(20);
    ASSERT_TRUE(settle());
    EXPECT_EQ(20U, unanswered_);
    EXPECT_EQ(ServerState::dead, status(0).state);
    EXPECT_EQ(0U, status(0).counters.probeAnswers);
}

TEST_F(Radius, AnswersWithoutMessageAuthenticatorAreNotTaken) {
    FreeRadius::Options options;
    options.signsAnswers = false;
    start({to(server(options).port())},
          [](ClientSettings& settings) { settings.patience = Time(2'000'000); });
    loginLines(20);
    login("stranger");
    ASSERT_TRUE(settle());
    EXPECT_EQ(21U, unanswered_);
    EXPECT_GE(dropped(0, Drop::noMessageAuthenticator), 21U);
}

TEST_F(Radius, DeadFirstServerIsPassedOver) {
    const uint16_t nobody = radius_test::freePort();
    start({to(nobody, "first"), to(server().port(), "second")});
    loginLines(99);
    ASSERT_TRUE(settle());
    EXPECT_EQ(ServerState::dead, status(0).state);
    EXPECT_EQ(99U, status(1).counters.accepts);
    const Time began = reactor_.now();
    login("line-1");
    ASSERT_TRUE(settle());
    EXPECT_LT(reactor_.now() - began, Time(150'000)) << "the dead server was waited for";
}

TEST_F(Radius, FirstServerIsReturnedTo) {
    FreeRadius& real = server();
    FreeRadius spare({});
    spare.start();
    start({to(real.port(), "first"), to(spare.port(), "second")});
    loginLines(10);
    ASSERT_TRUE(settle());
    real.stop();
    loginLines(50);
    ASSERT_TRUE(settle());
    EXPECT_EQ(50U, status(1).counters.accepts);
    real.start();
    ASSERT_TRUE(reactor_.runUntil([&] { return status(0).state == ServerState::alive; }, patience));
    loginLines(50);
    ASSERT_TRUE(settle());
    EXPECT_EQ(60U, status(0).counters.accepts);
    EXPECT_EQ(110U, accepted_);
}

TEST_F(Radius, AllDeadAndBackLosesNoLogin) {
    FreeRadius& real = server();
    start({to(real.port(), "first"), to(radius_test::freePort(), "second")});
    real.stop();
    loginLines(99);
    reactor_.runFor(Milliseconds(2500));
    EXPECT_EQ(ServerState::dead, status(0).state);
    EXPECT_EQ(ServerState::dead, status(1).state);
    loginLines(50);
    EXPECT_EQ(0U, accepted_);
    real.start();
    ASSERT_TRUE(settle());
    EXPECT_EQ(149U, accepted_);
}

TEST_F(Radius, ServerRestartedInMidFlightLosesNoLogin) {
    FreeRadius& real = server();
    start({to(real.port())});
    loginLines(300);
    reactor_.runUntil([&] { return accepted_ >= 50; }, patience);
    real.stop();
    loginLines(300);
    reactor_.runFor(Milliseconds(400));
    real.start();
    loginLines(300);
    ASSERT_TRUE(settle());
    EXPECT_EQ(900U, accepted_);
}

// Through the proxy.

TEST_F(Radius, LossOfThirtyPercentLosesNoLogin) {
    UdpProxy& between = proxy(server().port());
    UdpProxy::Faults faults;
    faults.loss = 0.3;
    between.spoil(faults);
    start({to(between.port())});
    loginLines(300);
    for (int i = 1; i <= 100; ++i) {
        login("barred-" + std::to_string(i));
    }
    ASSERT_TRUE(settle());
    EXPECT_EQ(300U, accepted_);
    EXPECT_EQ(100U, rejected_);
    EXPECT_GT(between.counters().lost, 100U);
    EXPECT_GT(status(0).counters.retransmissions, 100U);
}

TEST_F(Radius, DelayOfTwoSecondsIsWaitedForWithHundredsOutstanding) {
    UdpProxy& between = proxy(server().port());
    UdpProxy::Faults faults;
    faults.delay = Time(2'000'000);
    between.spoil(faults);
    ServerSettings settings = to(between.port());
    settings.window = 600;
    settings.retry = RetrySettings();
    start({settings});
    loginLines(600);
    EXPECT_EQ(600U, status(0).inFlight);
    EXPECT_EQ(3U, status(0).channels);
    reactor_.runFor(Milliseconds(1500));
    EXPECT_EQ(0U, accepted_);
    ASSERT_TRUE(settle());
    EXPECT_EQ(600U, accepted_);
    EXPECT_EQ(0U, status(0).counters.timeouts);
    EXPECT_GE(status(0).counters.roundTrip.percentile(1), Time(2'000'000));
    // The answers to the retransmissions come as well.
    EXPECT_TRUE(reactor_.runUntil([&] { return dropped(0, Drop::duplicate) > 0; }, patience));
}

TEST_F(Radius, ForgedAnswersChangeNothing) {
    UdpProxy& between = proxy(server().port());
    UdpProxy::Faults faults;
    faults.forge = 1;
    between.spoil(faults);
    start({to(between.port())});
    loginLines(200);
    for (int i = 1; i <= 200; ++i) {
        login("barred-" + std::to_string(i));
    }
    ASSERT_TRUE(settle());
    EXPECT_EQ(200U, accepted_);
    EXPECT_EQ(200U, rejected_);
    EXPECT_GE(between.counters().forged, 1600U);
    EXPECT_GT(dropped(0, Drop::badAuthenticator), 1000U);
}

TEST_F(Radius, ForgedAnswersForADeadServerAcceptNobody) {
    UdpProxy& between = proxy(radius_test::freePort());
    UdpProxy::Faults faults;
    faults.forge = 1;
    between.spoil(faults);
    start({to(between.port())},
          [](ClientSettings& settings) { settings.patience = Time(3'000'000); });
    loginLines(50);
    ASSERT_TRUE(settle());
    EXPECT_EQ(50U, unanswered_);
    EXPECT_EQ(ServerState::dead, status(0).state) << "forged answers keep a server alive";
}

TEST_F(Radius, AnswersAfterTheTimeoutAreNotTaken) {
    UdpProxy& between = proxy(server().port());
    UdpProxy::Faults faults;
    faults.delay = Time(2'500'000);
    between.spoil(faults);
    start({to(between.port())},
          [](ClientSettings& settings) { settings.patience = Time(2'000'000); });
    loginLines(50);
    ASSERT_TRUE(settle());
    EXPECT_EQ(50U, unanswered_);
    ASSERT_TRUE(reactor_.runUntil([&] { return dropped(0, Drop::late) >= 50; }, patience));
    EXPECT_EQ(0U, accepted_);
    between.spoil({});
    ASSERT_TRUE(reactor_.runUntil([&] { return status(0).state == ServerState::alive; }, patience));
    loginLines(50);
    ASSERT_TRUE(settle());
    EXPECT_EQ(50U, accepted_);
}

TEST_F(Radius, EverythingSpoiledAtOnceLosesNoLogin) {
    UdpProxy& between = proxy(server().port());
    UdpProxy::Faults faults;
    faults.loss = 0.15;
    faults.duplicate = 0.2;
    faults.corrupt = 0.15;
    faults.forge = 0.3;
    faults.spread = Time(60'000);
    between.spoil(faults);
    start({to(between.port())});
    loginLines(300);
    for (int i = 1; i <= 300; ++i) {
        login((i % 2 ? "barred-" : "stranger-") + std::to_string(i));
    }
    ASSERT_TRUE(settle());
    EXPECT_EQ(300U, accepted_);
    EXPECT_EQ(300U, rejected_);
    EXPECT_GT(dropped(0, Drop::duplicate), 0U);
    EXPECT_GT(between.counters().corrupted, 50U);
}

TEST_F(Radius, ReplaysKeepTheirPace) {
    start({to(server().port())}, [](ClientSettings& settings) {
        settings.pacedRate = 100;
        settings.pacedBurst = 1;
    });
    const Time began = reactor_.now();
    for (int i = 1; i <= 99; ++i) {
        login("line-" + std::to_string(i), true);
    }
    ASSERT_TRUE(settle());
    EXPECT_EQ(99U, accepted_);
    EXPECT_GE(reactor_.now() - began, Time(980'000));
}

TEST_F(Radius, AccountingIsTakenOnce) {
    FreeRadius& real = server();
    start({to(real.accountingPort())});
    int taken = 0;
    for (const AccountingStatus status :
         {AccountingStatus::start, AccountingStatus::interim, AccountingStatus::stop}) {
        AccountingRecord record;
        record.status = status;
        record.sessionId = "session-1";
        record.eventTime = 1700000000;
        record.cause = TerminateCause::lostCarrier;
        Line line;
        line.circuitId = "line-1";
        Request request;
        request.kind = Request::Kind::accounting;
        request.attributes = accountingAttributes(line, format_, record).value();
        client_->submit(request, [&](const Answer& answer) {
            taken += answer.outcome == Outcome::accepted ? 1 : 0;
        });
        ASSERT_TRUE(settle());
    }
    EXPECT_EQ(3, taken);
    EXPECT_EQ((std::vector<std::string>{"line-1 Start session-1 none 0 none",
                                        "line-1 Interim-Update session-1 none 0 none",
                                        "line-1 Stop session-1 none 0 Lost-Carrier"}),
              real.accounted());
}

}  // namespace
