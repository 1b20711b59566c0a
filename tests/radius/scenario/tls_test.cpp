// RADIUS over TLS with a real server.
#include <sys/stat.h>

#include "node/isa/radius/client/tls_channel.h"
#include "node/isa/radius/secret_file.h"
#include "tests/radius/scenario/scenario_fixture.h"

namespace {

using namespace node::radius;
using radius_test::FreeRadius;

class RadiusOverTls : public radius_test::ScenarioFixture {
protected:
    void SetUp() override {
        ScenarioFixture::SetUp();
        if (IsSkipped()) {
            return;
        }
        FreeRadius::Options options;
        options.tls = true;
        server(options);
    }

    ServerSettings overTls(const std::string& authority = "ca",
                           const std::string& certificate = "client",
                           const std::string& peerName = "127.0.0.1") {
        ServerSettings settings = to(server_->tlsPort(), "first", "radsec");
        TlsSettings tls;
        tls.context =
            makeTlsContext({server_->file(authority + ".pem"),
                            certificate.empty() ? "" : server_->file(certificate + ".pem"),
                            server_->file(certificate + ".key")});
        tls.server = *SocketAddress::parse("127.0.0.1", server_->tlsPort());
        tls.peerName = peerName;
        settings.makeChannel = tlsChannels(reactor_, tls);
        settings.retry = {Time(1'000'000), Time(1'000'000), 3};
        return settings;
    }

    // With these settings nobody gets in, and the server's state shows why.
    void expectNobodyGetsIn(ServerSettings settings) {
        start({std::move(settings)}, [](ClientSettings& s) { s.patience = Time(1'500'000); });
        loginLines(5);
        ASSERT_TRUE(settle());
        EXPECT_EQ(5U, unanswered_);
        EXPECT_EQ(ServerState::dead, status(0).state);
        EXPECT_GT(status(0).counters.lineErrors, 0U);
        EXPECT_EQ(0U, status(0).counters.probeAnswers);
    }
};

TEST_F(RadiusOverTls, LinesAreAcceptedAndOthersRejectedOnOneConnection) {
    start({overTls()});
    loginLines(99);
    for (int i = 1; i <= 50; ++i) {
        login("barred-" + std::to_string(i));
    }
    ASSERT_TRUE(settle());
    EXPECT_EQ(99U, accepted_);
    EXPECT_EQ(50U, rejected_);
    EXPECT_EQ(1U, status(0).channels);
    EXPECT_EQ(0U, status(0).counters.lineErrors);
}

TEST_F(RadiusOverTls, NameOfTheServerMayBeUsed) {
    start({overTls("ca", "client", "server.test")});
    login("line-1");
    ASSERT_TRUE(settle());
    EXPECT_EQ(1U, accepted_);
}

TEST_F(RadiusOverTls, HundredsUnderWayUseSeveralConnections) {
    ServerSettings settings = overTls();
    settings.window = 600;
    start({std::move(settings)});
    loginLines(600);
    EXPECT_EQ(3U, status(0).channels);
    ASSERT_TRUE(settle());
    EXPECT_EQ(600U, accepted_);
}

TEST_F(RadiusOverTls, ServerOfAnUnknownAuthorityIsNotAsked) {
    expectNobodyGetsIn(overTls("otherca"));
}

TEST_F(RadiusOverTls, ServerOfAnotherNameIsNotAsked) {
    expectNobodyGetsIn(overTls("ca", "client", "other.test"));
}

TEST_F(RadiusOverTls, ServerOfAnotherAddressIsNotAsked) {
    expectNobodyGetsIn(overTls("ca", "client", "127.0.0.2"));
}

TEST_F(RadiusOverTls, ServerTurnsAwayWhoHasNoCertificate) {
    expectNobodyGetsIn(overTls("ca", ""));
}

TEST_F(RadiusOverTls, ServerTurnsAwayACertificateOfAnUnknownAuthority) {
    expectNobodyGetsIn(overTls("ca", "other"));
}

TEST_F(RadiusOverTls, ServerRestartedInMidFlightLosesNoLogin) {
    start({overTls()});
    loginLines(200);
    ASSERT_TRUE(reactor_.runUntil([&] { return accepted_ >= 20; }, patience));
    server_->stop();
    loginLines(200);
    reactor_.runFor(Milliseconds(400));
    EXPECT_EQ(ServerState::dead, status(0).state);
    server_->start();
    ASSERT_TRUE(settle());
    EXPECT_EQ(400U, accepted_);
    EXPECT_EQ(0U, status(0).counters.retransmissions);
}

TEST_F(RadiusOverTls, UdpServerTakesOverAtOnceFromAClosedConnection) {
    start({overTls(), to(server_->port(), "second")});
    login("line-1");
    ASSERT_TRUE(settle());
    FreeRadius spare({});
    spare.start();
    client_.reset();
    asked_ = accepted_ = 0;
    ServerSettings tls = overTls();
    start({std::move(tls), to(spare.port(), "second")});
    login("line-1");
    ASSERT_TRUE(settle());
    server_->stop();
    const Time began = reactor_.now();
    loginLines(50);
    ASSERT_TRUE(settle());
    EXPECT_EQ(51U, accepted_);
    EXPECT_EQ(50U, status(1).counters.accepts);
    EXPECT_LT(reactor_.now() - began, Time(1'000'000));
}

TEST_F(RadiusOverTls, FilesThatCannotServeAreNamed) {
    const auto errorOf = [&](const TlsFiles& files) -> std::string {
        try {
            makeTlsContext(files);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "no error";
    };
    const auto file = [&](const std::string& name) { return server_->file(name); };
    EXPECT_EQ("no error", errorOf({file("ca.pem"), file("client.pem"), file("client.key")}));
    EXPECT_TRUE(errorOf({file("none.pem"), "", ""}).starts_with(file("none.pem")));
    EXPECT_TRUE(errorOf({file("client.key"), "", ""}).starts_with(file("client.key")));
    EXPECT_TRUE(
        errorOf({file("ca.pem"), file("users"), file("client.key")}).starts_with(file("users")));
    EXPECT_TRUE(errorOf({file("ca.pem"), file("client.pem"), file("other.key")})
                    .starts_with(file("other.key")));
    EXPECT_TRUE(errorOf({file("ca.pem"), file("client.pem"), file("client.pem")})
                    .starts_with(file("client.pem")));
    ASSERT_EQ(0, chmod(file("client.key").c_str(), 0640));
    EXPECT_NE(std::string::npos,
              errorOf({file("ca.pem"), file("client.pem"), file("client.key")}).find("group"));
}

}  // namespace
