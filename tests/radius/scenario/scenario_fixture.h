// A real server, a client on the wall's clock, and a check of every verdict. One thread.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "node/isa/radius/client/client.h"
#include "node/isa/radius/client/udp_channel.h"
#include "node/isa/radius/packet/login.h"
#include "tests/radius/scenario/epoll_reactor.h"
#include "tests/radius/scenario/free_radius.h"
#include "tests/radius/scenario/udp_proxy.h"

namespace radius_test {

class ScenarioFixture : public ::testing::Test {
protected:
    using Time = node::Time;
    using Milliseconds = std::chrono::milliseconds;
    static constexpr Milliseconds patience{60'000};

    void SetUp() override;
    // No request may be without a verdict or have two, none a wrong one.
    void TearDown() override;

    FreeRadius& server(const FreeRadius::Options& options = {});  // started
    UdpProxy& proxy(uint16_t serverPort);

    // Short waits: first try 150 ms, three tries, probes every 300 ms; patience without end.
    node::radius::ServerSettings to(uint16_t port, const std::string& name = "first",
                                    const std::string& secret = "testing-secret");
    void start(std::vector<node::radius::ServerSettings> servers,
               const std::function<void(node::radius::ClientSettings&)>& change = {});

    // Logs in users "line-N" (accepted), "barred-N" (rejected) or others (rejected).
    void login(const std::string& user, bool replay = false);
    void loginLines(int count);  // line-1 to line-count
    node::radius::Request requestOf(const std::string& user) const;
    bool settle(Milliseconds most = patience);  // until everything is answered

    node::radius::ServerStatus status(size_t server) const { return client_->status()[server]; }
    uint64_t dropped(size_t server, node::radius::Drop reason) const {
        return status(server).counters.dropped(reason);
    }

    EpollReactor reactor_;
    std::unique_ptr<FreeRadius> server_;
    std::unique_ptr<UdpProxy> proxy_;
    std::unique_ptr<node::radius::Client> client_;
    node::radius::LoginFormat format_;
    uint64_t asked_ = 0;
    uint64_t accepted_ = 0;
    uint64_t rejected_ = 0;
    uint64_t unanswered_ = 0;
    uint64_t wrong_ = 0;  // verdicts that the server cannot have given
};

}  // namespace radius_test
