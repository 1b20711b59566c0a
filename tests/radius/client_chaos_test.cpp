// The client on a virtual clock against three servers that die, return, delay, repeat, refuse
// and forge at random: whatever happens, each login gets one verdict, a true one, and the
// counters add up. A seed repeats a run.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>

#include "node/isa/radius/client/client.h"
#include "tests/radius/hex.h"
#include "tests/radius/scripted_server.h"

namespace {

using namespace node::radius;
using node::Time;
using radius_test::ScriptedServer;
using radius_test::VirtualReactor;

class Chaos {
public:
    explicit Chaos(uint32_t seed) : dice_(seed) {
        ClientSettings settings;
        settings.order = seed % 2 ? Order::listed : Order::weighted;
        settings.seed = seed + 1;
        const Time patiences[] = {Time(0), Time(40'000'000), Time(4'000'000)};
        settings.patience = patiences[seed % 3];
        for (int i = 0; i < 3; ++i) {
            const std::string name = "server" + std::to_string(i);
            servers_.push_back(std::make_unique<ScriptedServer>(reactor_, name, "secret" + name));
            ScriptedServer& server = *servers_.back();
            server.reliable = below(4) == 0;
            ServerSettings one = server.settings();
            one.window = 1 + below(40);
            one.weight = 1 + below(5);
            one.statusServer = below(3) != 0;
            one.retry.tries = 1 + below(3);
            one.probeInterval = Time(500'000 + below(5'000'000));
            settings.servers.push_back(one);
            server.onRequest = [this, &server](const ScriptedServer::Sent& sent) {
                arrived(server, sent);
            };
        }
        client_ = std::make_unique<Client>(reactor_, std::move(settings));
    }

    void run() {
        for (int step = 0; step < 120; ++step) {
            for (unsigned i = below(6); i > 0; --i) {
                ask();
            }
            if (below(10) == 0) {
                trouble(below(3));
            }
            if (below(20) == 0 && !asked_.empty()) {
                cancel();
            }
            reactor_.advance(Time(below(700'000)));
            check();
        }
        // One that can be reached must be enough, wherever it stands in the list.
        const size_t reachable = below(3);
        for (size_t i = 0; i < servers_.size(); ++i) {
            moods_[i] = {};
            servers_[i]->answersProbes = true;
            servers_[i]->probeDelay = Time(0);
            servers_[i]->refusesChannels = servers_[i]->refusesChannels && i != reachable;
            servers_[i]->throwsChannels = servers_[i]->throwsChannels && i != reachable;
        }
        for (int i = 0; i < 600 && client_->outstanding() > 0; ++i) {
            reactor_.advance(Time(1'000'000));
        }
        EXPECT_EQ(0U, client_->outstanding());
        for (const auto& [name, login] : asked_) {
            EXPECT_EQ(login.cancelled ? 0 : 1, login.verdicts) << name;
        }
        check();
    }

    uint64_t answered() const { return client_->counters().answered; }

private:
    struct Login {
        Client::Ticket ticket = 0;
        bool good = false;  // what every server says of it
        bool cancelled = false;
        int verdicts = 0;
    };
    struct Mood {
        bool dead = false;
        unsigned lossPercent = 5;
        Time delay{20'000};
    };

    unsigned below(unsigned end) {
        return std::uniform_int_distribution<unsigned>(0, end - 1)(dice_);
    }

    void ask() {
        const std::string name = std::to_string(asked_.size());
        Login& login = asked_[name];
        login.good = below(3) != 0;
        AttributeWriter writer;
        writer.addText(attribute::userName, name);
        Request request;
        request.attributes = writer.take();
        request.replay = below(5) == 0;
        login.ticket = client_->submit(std::move(request), [&login](const Answer& answer) {
            ++login.verdicts;
            EXPECT_FALSE(login.cancelled);
            EXPECT_TRUE(answer.outcome == Outcome::unanswered ||
                        (answer.outcome == Outcome::accepted) == login.good);
        });
        ASSERT_NE(0U, login.ticket);
    }

    void cancel() {
        auto login = asked_.begin();
        std::advance(login, below(static_cast<unsigned>(asked_.size())));
        const bool open = login->second.verdicts == 0 && !login->second.cancelled;
        EXPECT_EQ(open, client_->cancel(login->second.ticket, below(2) == 0));
        login->second.cancelled = login->second.cancelled || open;
    }

    void trouble(size_t index) {
        Mood& mood = moods_[index];
        mood.dead = below(2) == 0;
        mood.lossPercent = below(60);
        mood.delay = Time(below(4'000'000));
        servers_[index]->answersProbes = !mood.dead;
        servers_[index]->probeDelay = Time(below(2) * below(6'000'000));
        servers_[index]->refusesChannels = below(6) == 0;
        servers_[index]->throwsChannels = below(10) == 0;
        if (below(3) == 0 && servers_[index]->channelsMade() > 0) {
            const auto made = static_cast<unsigned>(servers_[index]->channelsMade());
            servers_[index]->breakChannel(below(made));
        }
    }

    size_t indexOf(const ScriptedServer& server) const {
        size_t index = 0;
        while (servers_[index].get() != &server) {
            ++index;
        }
        return index;
    }

    std::string nameOf(const ScriptedServer& server) const {
        return "server" + std::to_string(indexOf(server));
    }

    void arrived(ScriptedServer& server, const ScriptedServer::Sent& sent) {
        const Mood& mood = moods_[indexOf(server)];
        forge(server, sent);
        if (mood.dead || below(100) < mood.lossPercent) {
            return;
        }
        const Login& login = asked_[textOf(*sent.view().first(attribute::userName))];
        const Code verdict = login.good ? Code::accessAccept
                             : below(4) ? Code::accessReject
                                        : Code::accessChallenge;
        for (unsigned copies = below(8) == 0 ? 3 : 1; copies > 0; --copies) {
            const Time delay = mood.delay + Time(below(50'000));
            reactor_.at(reactor_.now() + delay,
                        [&server, sent, verdict] { server.answer(sent, verdict); });
        }
    }

    // The opposite of the truth, each not proven in another way.
    void forge(ScriptedServer& server, const ScriptedServer::Sent& sent) {
        const Login& login = asked_[textOf(*sent.view().first(attribute::userName))];
        const Code lie = login.good ? Code::accessReject : Code::accessAccept;
        switch (below(4)) {
            case 0:
                server.deliver(sent.channel, radius_test::answerWithoutMessageAuthenticator(
                                                 lie, sent.view(), "secret" + nameOf(server)));
                break;
            case 1: {
                Buffer changed = server.answerTo(sent, lie);
                changed[4 + below(static_cast<unsigned>(changed.size()) - 4)] ^= 0x40;
                server.deliver(sent.channel, changed);
                break;
            }
            case 2: {
                Buffer changed =
                    server.answerTo(sent, login.good ? Code::accessAccept : Code::accessReject);
                changed[0] = static_cast<uint8_t>(lie);
                server.deliver(sent.channel, changed);
                break;
            }
            default:
                break;
        }
    }

    void check() {
        const ClientCounters& all = client_->counters();
        EXPECT_EQ(all.submitted,
                  all.answered + all.unanswered + all.cancelled + client_->outstanding());
        uint64_t verdicts = 0;
        size_t underWay = 0;
        for (const ServerStatus& server : client_->status()) {
            const ServerCounters& c = server.counters;
            EXPECT_EQ(c.requests, c.accepts + c.rejects + c.timeouts + c.handedBack + c.withdrawn +
                                      server.inFlight);
            EXPECT_EQ(c.accepts + c.rejects, c.roundTrip.count());
            verdicts += c.accepts + c.rejects;
            underWay += server.inFlight;
        }
        EXPECT_EQ(all.answered, verdicts);
        EXPECT_EQ(client_->outstanding(), underWay + client_->queued());
    }

    std::mt19937 dice_;
    VirtualReactor reactor_;
    std::vector<std::unique_ptr<ScriptedServer>> servers_;
    std::map<size_t, Mood> moods_;
    std::map<std::string, Login> asked_;
    std::unique_ptr<Client> client_;
};

TEST(ClientChaos, EveryLoginGetsOneTrueVerdict) {
    uint64_t answered = 0;
    for (uint32_t seed = 1; seed <= 150; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Chaos chaos(seed);
        chaos.run();
        answered += chaos.answered();
        if (::testing::Test::HasFailure()) {
            return;
        }
    }
    EXPECT_GT(answered, 20'000U);
}

}  // namespace
