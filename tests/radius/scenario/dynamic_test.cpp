// A server's tool asks the listener to end and to change logins.
#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "node/isa/radius/dynamic/listener.h"
#include "tests/radius/scenario/scenario_fixture.h"

namespace {

using namespace node::radius;

constexpr const char* radclient = "/usr/bin/radclient";

class Dynamic : public radius_test::ScenarioFixture {
protected:
    void SetUp() override {
        if (access(radclient, X_OK) != 0) {
            GTEST_SKIP() << "the package freeradius-utils is not installed (script/bootstrap)";
        }
        std::string name = ::testing::TempDir() + "dynamic.XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(name.data()));
        directory_ = name;
        DynamicSettings settings;
        settings.clients = {{*SocketAddress::parse("127.0.0.1", 0), Secret("testing-secret")}};
        authority_ = std::make_unique<DynamicAuthority>(
            std::move(settings), [] { return int64_t{time(nullptr)}; },
            [this](const DynamicRequest& request) -> std::optional<ErrorCause> {
                handled_.push_back(request);
                return request.userName == "line-1"
                           ? std::nullopt
                           : std::optional(ErrorCause::sessionContextNotFound);
            });
        listener_ = std::make_unique<DynamicListener>(
            reactor_, *SocketAddress::parse("127.0.0.1", 0), *authority_);
    }
    void TearDown() override {
        listener_.reset();
        if (!directory_.empty()) {
            std::filesystem::remove_all(directory_);
        }
    }

    // What radclient printed; it runs beside the reactor.
    std::string ask(const std::string& command, const std::string& attributes,
                    const std::string& secret = "testing-secret") {
        const std::string request = directory_ + "/request";
        const std::string output = directory_ + "/output";
        std::ofstream(request) << attributes << "Event-Timestamp = " << time(nullptr)
                               << "\nMessage-Authenticator = 0x00\n";
        std::ofstream(output, std::ios::trunc);
        std::atomic<bool> ended = false;
        std::thread tool([&] {
            radius_test::runForResult(
                {radclient, "-x", "-r", "1", "-t", "1", "-f", request,
                 "127.0.0.1:" + std::to_string(listener_->port()), command, secret},
                output);
            ended = true;
        });
        const bool inTime = reactor_.runUntil([&] { return ended.load(); }, patience);
        tool.join();
        EXPECT_TRUE(inTime);
        std::ifstream file(output);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::string directory_;
    std::vector<DynamicRequest> handled_;
    std::unique_ptr<DynamicAuthority> authority_;
    std::unique_ptr<DynamicListener> listener_;
};

TEST_F(Dynamic, DisconnectIsDoneOnceAndAcknowledged) {
    const std::string output = ask("disconnect", "User-Name = \"line-1\"\n");
    EXPECT_NE(std::string::npos, output.find("Received Disconnect-ACK")) << output;
    ASSERT_EQ(1U, handled_.size());
    EXPECT_EQ("line-1", handled_[0].userName);
}

TEST_F(Dynamic, ChangeIsDoneWithItsValues) {
    const std::string output = ask("coa",
                                   "User-Name = \"line-1\"\nADSL-Agent-Circuit-Id = \"circuit\"\n"
                                   "Session-Timeout = 60\nFilter-Id = \"silver\"\n");
    EXPECT_NE(std::string::npos, output.find("Received CoA-ACK")) << output;
    ASSERT_EQ(1U, handled_.size());
    EXPECT_EQ("circuit", handled_[0].circuitId);
    EXPECT_EQ(60U, handled_[0].grant.sessionTimeout);
    EXPECT_EQ(std::vector<std::string>{"silver"}, handled_[0].grant.filterIds);
}

TEST_F(Dynamic, UnknownLoginIsRefusedWithTheCause) {
    const std::string output = ask("disconnect", "User-Name = \"nobody\"\n");
    EXPECT_NE(std::string::npos, output.find("Received Disconnect-NAK")) << output;
    EXPECT_NE(std::string::npos, output.find("Error-Cause = Session-Context-Not-Found")) << output;
}

TEST_F(Dynamic, WrongSecretGetsNoAnswer) {
    const std::string output = ask("disconnect", "User-Name = \"line-1\"\n", "another-secret");
    EXPECT_EQ(std::string::npos, output.find("Received")) << output;
    EXPECT_TRUE(handled_.empty());
    EXPECT_EQ(1U, authority_->counters().notProven);
}

}  // namespace
