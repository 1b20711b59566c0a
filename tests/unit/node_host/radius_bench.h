// ISA over RADIUS between the engine and a server of the test's own, on one virtual clock. The
// module is played by a few lines: it asks what the engine raises and passes verdicts on.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <set>
#include <sstream>

#include "node/engine/bridge.h"
#include "node/radius.h"
#include "tests/radius/scripted_server.h"
#include "tests/unit/node/frame_builder.h"
#include "tests/unit/node_host/line_rules.h"
#include "tests/unit/node_host/temp_dir.h"

namespace node_test {

using namespace std::chrono_literals;

// What a scripted server needs, on the clock of the node's own loop.
class OnLoop : public radius_test::VirtualReactor {
public:
    explicit OnLoop(node::Loop& loop) : loop_(loop) {}
    node::Time now() const override { return loop_.now(); }
    Timer at(node::Time time, node::Task task) override { return loop_.at(time, std::move(task)); }
    void cancel(const Timer& timer) override { loop_.cancel(timer); }

private:
    node::Loop& loop_;
};

class RadiusBench : public testing::Test {
protected:
    static constexpr const char* secret = "secret of the first";

    RadiusBench() {
        secretFile();
        config.secretFile = directory.path() + "/secrets";
        config.userName = "{mac}";
        config.nasIdentifier = "node";
        config.patience = 2000ms;
        config.askAgain = 500ms;
        config.pacedRate = 0;
        config.servers.resize(1);
        config.servers[0].name = "first";
        config.servers[0].host = "127.0.0.1";
        config.servers[0].firstWait = 100ms;
        config.servers[0].tries = 2;
        config.servers[0].probeInterval = 200ms;
        config.sessionFile = directory.path() + "/sessions";
        node::attachBridge(&engine);
        engine.onEvent([this](const std::string& line) { event(line); });
        isa.onStages([](unsigned) { return node::Isa::Stages{}; });
        isa.onReply([this](unsigned ifId, unsigned kind, int result) {
            const node::Stage stage =
                kind == 2 ? node::Stage::authentication : node::Stage::authorization;
            return !takesVerdicts || !engine.reply(ifId, stage, result == 0);
        });
    }
    ~RadiusBench() override {
        node::attachBridge(nullptr);
        if (HasFailure()) {
            std::cerr << out.str();
        }
    }

    void secretFile() const {
        const std::string path =
            directory.write("secrets", "first " + std::string(secret) + "\nasker another secret\n");
        std::filesystem::permissions(path, std::filesystem::perms(0600));
    }
    void addLine(unsigned ifId, uint32_t timeout = 120) {
        const std::string name = nameOf(ifId);
        engine.addLine(ifId, name);
        giveRule(ifId, anyFrame());
        engine.setTimeout(ifId, timeout);
        engine.setAdmin(ifId, true);
        engine.setNodeAdmin(true);
    }
    static std::string nameOf(unsigned ifId) {
        return "ds" + std::to_string(ifId / 10) + std::to_string(ifId % 10);
    }
    void begin() {
        node::RadiusIsa::Lines lines = node::radiusLines(engine);
        lines.name = [](unsigned ifId) { return "1/" + std::to_string(ifId); };
        lines.profiles = [](unsigned, const node::LoginProfiles&) {};
        radius.emplace(
            loop, log, isa, std::move(lines), config,
            node::RadiusIsa::World{
                [this](const node::RadiusConfig& from, const node::radius::Secrets& secrets,
                       node::Reactor& on) { return setup(from, secrets, on); },
                [this] { return 1'800'000'000 + loop.now() / std::chrono::seconds(1); }});
        isa.useAuthority(*radius);
        node::tellMoves(engine, loop, *radius);
    }
    node::RadiusSetup setup(const node::RadiusConfig& from, const node::radius::Secrets& secrets,
                            node::Reactor& on) {
        node::RadiusSetup result = node::radiusSetup(from, secrets, on);
        for (node::radius::ServerSettings& each : result.logins.servers) {
            each.makeChannel = server.settings().makeChannel;
        }
        if (result.accounting) {
            for (node::radius::ServerSettings& each : result.accounting->servers) {
                each.makeChannel = accounting.settings().makeChannel;
            }
        }
        return result;
    }

    // A loop that was stopped runs no more; one that is left by an exception does.
    void runFor(node::Time time) {
        struct Enough {};
        loop.at(loop.now() + time, [] { throw Enough(); });
        try {
            loop.run(false);
        } catch (const Enough&) {
        }
    }
    void link(unsigned ifId, bool up) {
        engine.link(ifId, up);
        if (up) {
            engine.setStageOper(ifId, node::Stage::authentication, true);
            engine.setStageOper(ifId, node::Stage::authorization, true);
        }
    }
    // Of a subscriber, whose MAC address ends in the number given.
    void frame(unsigned ifId, uint8_t subscriber) {
        Buffer bytes = ether(0x88b5, {1, 2, 3});
        const Buffer mac{2, 0, 0, 0, 0, subscriber};
        std::copy(mac.begin(), mac.end(), bytes.begin() + 6);
        engine.frame(ifId, bytes);
    }
    node::PortState state(unsigned ifId) const { return engine.status(ifId)->state; }

    // The last digits of the user names asked for, retransmissions apart, since the call before.
    std::string asked() {
        std::string names;
        for (; seen < server.requests.size(); ++seen) {
            if (packets.insert(server.requests[seen].packet).second) {
                names +=
                    (names.empty() ? "" : " ") + nameIn(server.requests[seen].view()).substr(15);
            }
        }
        return names;
    }
    static std::string nameIn(const node::radius::PacketView& view) {
        return node::radius::textOf(*view.first(node::radius::attribute::userName));
    }
    // Answers every request, also those to come, and probes.
    void serve(std::function<bool(const std::string& name)> good) {
        server.answersProbes = true;
        server.onRequest = [this, good](const radius_test::ScriptedServer::Sent& sent) {
            const bool accepted = good(nameIn(sent.view()).substr(15));
            server.answer(
                sent,
                accepted ? node::radius::Code::accessAccept : node::radius::Code::accessReject,
                accepted ? granted : node::radius::Buffer());
        };
    }
    void serveAll() {
        serve([](const std::string&) { return true; });
    }
    void fallSilent() {
        server.answersProbes = false;
        server.onRequest = nullptr;
    }
    void serveAccounting() {
        accounting.answersProbes = true;
        accounting.onRequest = [this](const radius_test::ScriptedServer::Sent& sent) {
            accounting.answer(sent, node::radius::Code::accountingResponse);
        };
    }

    TempDir directory;
    node::Loop loop{node::Pace::instant};
    OnLoop reactor{loop};
    std::ostringstream out;
    node::EventLog log{out};
    node::Engine engine{loop, log};
    node::Isa isa{loop, log, node::UserList(std::nullopt)};
    radius_test::ScriptedServer server{reactor, "first", secret};
    radius_test::ScriptedServer accounting{reactor, "first", secret};
    node::radius::Buffer granted;  // attributes of accepts
    node::RadiusConfig config;
    bool takesVerdicts = true;  // the module
    size_t seen = 0;
    std::set<node::radius::Buffer> packets;
    std::optional<node::RadiusIsa> radius;

private:
    // "tal", name, blank, two digits, VLAN, MAC; a header alone knows nothing of a subscriber.
    void event(const std::string& line) {
        rpcTalLoginBlockBll block{};
        block.interface = static_cast<unsigned>(std::stoul(line.substr(5, 2)));
        if (line.size() > 26) {
            block.loginIdType = talLoginIdSourceMac;
            for (size_t i = 0; i < 6; ++i) {
                block.sourceMac[i] =
                    static_cast<uint8_t>(std::stoul(line.substr(14 + 2 * i, 2), nullptr, 16));
            }
        }
        isa.request(block);
    }
};

}  // namespace node_test
