// A hundred thousand logins leave nothing behind.
#include <malloc.h>

#include <filesystem>
#include <fstream>

#include "tests/radius/scenario/scenario_fixture.h"

namespace {

using namespace node::radius;
using radius_test::UdpProxy;

class RadiusGrowth : public radius_test::ScenarioFixture {
protected:
    static size_t descriptors() {
        const std::filesystem::directory_iterator open("/proc/self/fd");
        return static_cast<size_t>(std::distance(begin(open), end(open)));
    }

    static size_t allocated() { return mallinfo2().uordblks; }

    // Keeps `underWay` logins under way until `count` have been answered.
    bool loginMany(uint64_t count, uint64_t underWay) {
        const uint64_t end = client_->counters().answered + count;
        uint64_t toAsk = count;
        return reactor_.runUntil(
            [&] {
                while (toAsk > 0 && client_->outstanding() < underWay) {
                    const std::string number = std::to_string(toAsk % 1000 + 1);
                    login(toAsk % 5 == 0 ? "barred-" + number : "line-" + number);
                    --toAsk;
                }
                return client_->counters().answered == end;
            },
            std::chrono::minutes(5));
    }
};

TEST_F(RadiusGrowth, HundredThousandLoginsLeaveMemoryAndSocketsAsTheyWere) {
    ServerSettings settings = to(server().port());
    settings.window = 300;
    settings.retry = RetrySettings();
    start({std::move(settings)});
    ASSERT_TRUE(loginMany(5'000, 300));
    const size_t memory = allocated();
    const size_t sockets = descriptors();
    ASSERT_TRUE(loginMany(95'000, 300));
    EXPECT_EQ(80'000U, accepted_);
    EXPECT_EQ(20'000U, rejected_);
    EXPECT_EQ(sockets, descriptors());
    EXPECT_LE(allocated(), memory + 64 * 1024);
    EXPECT_EQ(2U, status(0).channels);
}

TEST_F(RadiusGrowth, DeathsAndReturnsLeaveMemoryAndSocketsAsTheyWere) {
    UdpProxy& between = proxy(server().port());
    start({to(between.port())}, [](ClientSettings& settings) { settings.pacedRate = 0; });
    const auto round = [&] {
        UdpProxy::Faults faults;
        faults.loss = 1;
        between.spoil(faults);
        for (int i = 0; i < 50; ++i) {
            login("line-1");
        }
        ASSERT_TRUE(
            reactor_.runUntil([&] { return status(0).state == ServerState::dead; }, patience));
        between.spoil({});
        ASSERT_TRUE(settle());
    };
    round();
    const size_t memory = allocated();
    const size_t sockets = descriptors();
    for (int i = 0; i < 5; ++i) {
        round();
    }
    EXPECT_EQ(300U, accepted_);
    EXPECT_EQ(sockets, descriptors());
    EXPECT_LE(allocated(), memory + 64 * 1024);
}

}  // namespace
