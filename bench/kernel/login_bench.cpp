// The real node with the real module, all in this machine: a frame that asks, the trap, the event,
// the answer of the user list, the stored login (on a file system in memory), the open gate and
// the kept frame's way to the uplink. Lines take turns at logging in with and without the flood,
// so that the machine's pace is the same for both.
#include "bench/kernel/login_bench.h"

#include <atomic>
#include <chrono>
#include <iterator>
#include <thread>

#include "tests/live/live_node.h"

using namespace node_test;
using Clock = std::chrono::steady_clock;

namespace {

constexpr unsigned lines = 99;
constexpr unsigned floodedLine = 1;  // nobody answers it
constexpr auto settle = std::chrono::milliseconds(2);

class Flood {
public:
    Flood() : thread_([this] { run(); }) {}
    ~Flood() {
        stop_ = true;
        thread_.join();
    }
    enum Kind { none, otherFrames, askingFrames };
    void set(Kind kind) {
        kind_ = kind;
        std::this_thread::sleep_for(settle);
    }
    double rate() const { return sent_ / seconds_; }

private:
    void run() {
        RawSocket subscriber(LineNet::subscriber(floodedLine), 0);
        const Buffer frames[] = {{}, other(1), numbered(1)};
        while (!stop_) {
            const Buffer& frame = frames[kind_];
            if (frame.empty()) {
                std::this_thread::sleep_for(settle / 20);
                continue;
            }
            const auto begin = Clock::now();
            for (unsigned i = 0; i < 100; ++i) {
                subscriber.trySend(frame);
            }
            sent_ = sent_ + 100;
            seconds_ = seconds_ + std::chrono::duration<double>(Clock::now() - begin).count();
        }
    }

    std::atomic<Kind> kind_{none};
    std::atomic<bool> stop_{false};
    std::atomic<double> sent_{0};
    std::atomic<double> seconds_{1e-9};
    std::thread thread_;
};

}  // namespace

LoginTimes measureLogins(unsigned rounds) {
    const LineNet net(lines);
    const TempDir dir;
    const LiveNode node(
        dir, liveConfig(lines, "unknown = \"accept\"\n[[isa.user]]\ncircuit-id = \"" +
                                   circuitId(floodedLine) + "\"\nverdict = \"never\"\n"));
    RawSocket core("core");
    std::vector<RawSocket> subscribers;
    for (unsigned line = 2; line <= lines; ++line) {
        subscribers.emplace_back(LineNet::subscriber(line));
    }
    LoginTimes times;
    std::vector<double>* const series[] = {&times.quiet, &times.flooded, &times.asked};
    Flood flood;
    for (unsigned round = 0; round < rounds; ++round) {
        for (unsigned i = 0; i < subscribers.size(); ++i) {
            const auto kind = static_cast<Flood::Kind>((i + round) % std::size(series));
            flood.set(kind);
            const uint32_t number = 1000 * round + i + 1;
            const auto begin = Clock::now();
            subscribers[i].send(numbered(number));
            EXPECT_EQ(nextOf(core), number);
            const auto took = std::chrono::duration<double, std::micro>(Clock::now() - begin);
            series[kind]->push_back(took.count());
        }
        flood.set(Flood::none);
        node.talctl({"admin", "off"});
        node.talctl({"admin", "on"});
    }
    times.floodRate = flood.rate();
    return times;
}
