#include "tests/radius/scenario/scenario_fixture.h"

namespace radius_test {

using namespace node::radius;

void ScenarioFixture::SetUp() {
    if (!FreeRadius::installed()) {
        GTEST_SKIP() << "the package freeradius is not installed (script/bootstrap)";
    }
}

void ScenarioFixture::TearDown() {
    EXPECT_EQ(0U, wrong_);
    const uint64_t left = client_ ? client_->outstanding() : 0;
    EXPECT_EQ(asked_, accepted_ + rejected_ + unanswered_ + left);
    if (client_) {
        for (const ServerStatus& server : client_->status()) {
            const ServerCounters& c = server.counters;
            EXPECT_EQ(c.requests, c.accepts + c.rejects + c.accountingAnswers + c.timeouts +
                                      c.handedBack + c.withdrawn + server.inFlight)
                << server.name;
        }
    }
    client_.reset();
    proxy_.reset();
    EXPECT_EQ(0U, reactor_.watches());
}

FreeRadius& ScenarioFixture::server(const FreeRadius::Options& options) {
    server_ = std::make_unique<FreeRadius>(options);
    server_->start();
    return *server_;
}

UdpProxy& ScenarioFixture::proxy(uint16_t serverPort) {
    proxy_ = std::make_unique<UdpProxy>(reactor_, serverPort, 7);
    return *proxy_;
}

ServerSettings ScenarioFixture::to(uint16_t port, const std::string& name,
                                   const std::string& secret) {
    ServerSettings settings;
    settings.name = name;
    settings.secret = Secret(secret);
    settings.makeChannel =
        udpChannels(reactor_, {SocketAddress::parse("127.0.0.1", port).value(), std::nullopt});
    settings.retry = {Time(150'000), Time(1'000'000), 3};
    settings.probeInterval = Time(300'000);
    return settings;
}

void ScenarioFixture::start(std::vector<ServerSettings> servers,
                            const std::function<void(ClientSettings&)>& change) {
    ClientSettings settings;
    settings.servers = std::move(servers);
    settings.patience = Time(0);
    settings.seed = 11;
    settings.pacedRate = 500;
    if (change) {
        change(settings);
    }
    client_ = std::make_unique<Client>(reactor_, std::move(settings));
}

Request ScenarioFixture::requestOf(const std::string& user) const {
    Line line;
    line.interfaceName = "1/1";
    line.interfaceNumber = 1;
    line.circuitId = user;
    line.remoteId = "remote";
    line.mac = MacAddress{2, 0, 0, 0, 0, 1};
    Request request;
    request.attributes = loginAttributes(line, format_).value();
    request.password = Secret("pw");
    return request;
}

void ScenarioFixture::login(const std::string& user, bool replay) {
    Request request = requestOf(user);
    request.replay = replay;
    ++asked_;
    const bool known = user.starts_with("line-");
    const auto ticket = client_->submit(std::move(request), [this, known](const Answer& answer) {
        const bool accepted = answer.outcome == Outcome::accepted;
        accepted_ += accepted ? 1 : 0;
        rejected_ += answer.outcome == Outcome::rejected ? 1 : 0;
        unanswered_ += answer.outcome == Outcome::unanswered ? 1 : 0;
        wrong_ += answer.outcome != Outcome::unanswered && accepted != known ? 1 : 0;
    });
    ASSERT_NE(0U, ticket);
}

void ScenarioFixture::loginLines(int count) {
    for (int i = 1; i <= count; ++i) {
        login("line-" + std::to_string(i));
    }
}

bool ScenarioFixture::settle(Milliseconds most) {
    return reactor_.runUntil([this] { return client_->outstanding() == 0; }, most);
}

}  // namespace radius_test
