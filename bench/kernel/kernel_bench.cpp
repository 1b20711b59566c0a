// What the gate in the kernel costs, as ratios of one run (as root):
//
//   kernel_bench              the table; fails when a ratio misses its limit
//   kernel_bench --smoke      few frames, no limit: whether the program still runs
//
// Frames of 64 bytes go over a line and a bridge to an uplink. Sending a frame includes its way
// through the gate, because both ends of a line are in this machine, so the time of sending is
// what is measured. A machine's pace changes; therefore every round measures all variants one
// after the other, each is divided by the first of its kind in the same round, and the median of
// the rounds is shown.
#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <linux/pkt_cls.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <map>
#include <thread>

#include "bench/kernel/login_bench.h"
#include "node/engine/kernel/tc_hook.h"
#include "tests/kernel/engine_fixture.h"
#include "tests/scenario/private_log.h"
#include "tests/unit/node/condition_builder.h"
#include "tests/unit/node/frame_builder.h"

using namespace node_test;
using node::Direction;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int skipped = 77;
constexpr double openLimit = 1.05;  // time through the open gate over time through "empty"
constexpr double loginLimit = 2;    // time of a login beside a flooded line over one without

struct Size {
    unsigned rounds = 41;
    unsigned frames = 20000;
    unsigned latencies = 2000;
    unsigned loginRounds = 3;
};

double median(std::vector<double> values, double part = 0.5) {
    const auto at = static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + at, values.end());
    return values[static_cast<size_t>(at)];
}

// Time per frame in nanoseconds.
double send(RawSocket& from, const Buffer& frame, unsigned frames) {
    const auto begin = Clock::now();
    for (unsigned i = 0; i < frames; ++i) {
        from.send(frame);
    }
    return std::chrono::duration<double, std::nano>(Clock::now() - begin).count() / frames;
}

class Variants {
public:
    explicit Variants(Engine& engine) : engine_(engine), ifIndex_(LineNet::index("dsl1")) {
        const bpf_insn pass[] = {{BPF_ALU64 | BPF_MOV | BPF_K, 0, 0, 0, TC_ACT_UNSPEC},
                                 {BPF_JMP | BPF_EXIT, 0, 0, 0, 0}};
        empty_ = node::Fd(bpf_prog_load(BPF_PROG_TYPE_SCHED_CLS, "empty", "unspecified", pass,
                                        std::size(pass), nullptr));
    }

    void none() {
        std::string error;
        EXPECT_TRUE(engine_->detach(1, error)) << error;
        bpf_tc_hook hook{};
        hook.sz = sizeof hook;
        hook.ifindex = static_cast<int>(ifIndex_);
        hook.attach_point = static_cast<bpf_tc_attach_point>(BPF_TC_INGRESS | BPF_TC_EGRESS);
        (void)bpf_tc_hook_destroy(&hook);  // fails when there is none
    }
    void empty() {
        none();
        for (const Direction direction : {Direction::fromSubscriber, Direction::toSubscriber}) {
            std::string error;
            EXPECT_TRUE(node::attachProgram(ifIndex_, direction, empty_.get(), error)) << error;
        }
    }
    void gate(Gate state, std::span<const ittalCondition> rules) {
        none();
        engine_.attach(1);
        EXPECT_TRUE(engine_->setRules(1, rules));
        EXPECT_TRUE(engine_->setGate(1, state));
    }

private:
    Engine& engine_;
    unsigned ifIndex_;
    node::Fd empty_;
};

// Of every type one that misses the frame, as a line with many rules has them.
std::vector<ittalCondition> missing(size_t count) {
    ittalCondition pattern = userPattern();
    std::fill_n(pattern.u.user.mask, 15, 0xffffffff);
    std::vector<ittalCondition> rules = {
        dhcpMessage(3),
        optionBegins(3, "vendor"),
        sourceIpIs(0x0a000001, 0xffffffff),
        etherTypeIs(0x0806),
        optionBegins(4, "remote"),
        optionBegins(5, "client"),
        sourceMacIs({1, 2, 3, 4, 5, 6}, {255, 255, 255, 255, 255, 255}),
        outerVlanIs(5),
        pattern,
        etherTypeIs(0x88b6),
    };
    rules.resize(count, anyFrame());
    return rules;
}

struct Row {
    const char* name;
    std::function<void(Variants&)> enter;
    bool outward = false;
    bool dhcp = false;
};

const std::vector<Row>& rows() {
    static const std::vector<ittalCondition> three = missing(3), ten = missing(10);
    static const std::vector<Row> table = {
        {"no program", [](Variants& v) { v.none(); }},
        {"empty clsact program", [](Variants& v) { v.empty(); }},
        {"gate open", [](Variants& v) { v.gate(Gate::open, three); }},
        {"gate closed, flood, 0 conditions", [](Variants& v) { v.gate(Gate::blocked, {}); }},
        {"gate closed, flood, 3 conditions", [](Variants& v) { v.gate(Gate::blocked, three); }},
        {"gate closed, flood, 10 conditions", [](Variants& v) { v.gate(Gate::blocked, ten); }},
        {"outward: no program", [](Variants& v) { v.none(); }, true},
        {"outward: empty clsact program", [](Variants& v) { v.empty(); }, true},
        {"outward: gate open", [](Variants& v) { v.gate(Gate::open, three); }, true},
        {"DHCP message: gate closed, 0 conditions", [](Variants& v) { v.gate(Gate::blocked, {}); },
         false, true},
        {"DHCP message: gate closed, 10 conditions",
         [](Variants& v) { v.gate(Gate::blocked, ten); }, false, true},
    };
    return table;
}

using Times = std::map<std::string, std::vector<double>>;

Times measureVariants(Engine& engine, const Size& size) {
    Variants variants(engine);
    RawSocket subscriber(LineNet::subscriber(1), 0), core("core", 0);  // receive nothing
    const Buffer small = numbered(1, 64);
    const Buffer message = dhcpFrame(join({option(53, {1}),
                                           option(60, bytesOf("another")),
                                           option(61, Buffer(7, 1)),
                                           option(12, bytesOf("host")),
                                           option(55, Buffer(12, 3)),
                                           {255}}));
    Times times;
    for (unsigned round = 0; round < size.rounds; ++round) {
        for (const Row& row : rows()) {
            row.enter(variants);
            RawSocket& from = row.outward ? core : subscriber;
            const Buffer& frame = row.dhcp ? message : small;
            send(from, frame, size.frames / 20);
            times[row.name].push_back(send(from, frame, size.frames));
        }
    }
    return times;
}

double ratio(const Times& times, const char* above, const char* below) {
    std::vector<double> ratios;
    for (size_t i = 0; i < times.at(above).size(); ++i) {
        ratios.push_back(times.at(above)[i] / times.at(below)[i]);
    }
    return median(ratios);
}

// From before sending a frame until the waiting thread has it in its hands, in microseconds.
std::vector<double> measureLatency(Engine& engine, unsigned line, unsigned count) {
    RawSocket subscriber(LineNet::subscriber(line), 0);
    const ittalCondition every = anyFrame();
    engine.attach(line);
    EXPECT_TRUE(engine->setRules(line, std::span(&every, 1)));
    std::atomic<unsigned> received{0};
    std::vector<double> latencies;
    Clock::time_point sent;
    std::thread waiting([&] {
        while (received < count) {
            pollfd ready{engine->fd(), POLLIN, 0};
            if (poll(&ready, 1, 10000) != 1) {
                break;
            }
            if (engine->poll() > 0) {
                const auto took = Clock::now() - sent;
                latencies.push_back(std::chrono::duration<double, std::micro>(took).count());
                ++received;
            }
        }
    });
    for (unsigned i = 0; i < count; ++i) {
        std::this_thread::sleep_for(std::chrono::microseconds(300));  // the other one waits again
        EXPECT_TRUE(engine->arm(line));
        sent = Clock::now();
        subscriber.send(numbered(i));
        if (!eventually([&] { return received > i; })) {
            break;
        }
    }
    waiting.join();
    EXPECT_EQ(latencies.size(), count);
    return latencies;
}

void printLatency(const char* name, const std::vector<double>& latencies) {
    std::printf("%-44s median %6.0f us, 99%% %6.0f us\n", name, median(latencies),
                median(latencies, 0.99));
}

void measureLatencies(Engine& engine, const Size& size) {
    printLatency("trap to event", measureLatency(engine, 2, size.latencies));
    engine.attach(1);
    EXPECT_TRUE(engine->setRules(1, missing(3)));
    EXPECT_TRUE(engine->setGate(1, Gate::blocked));
    std::atomic<bool> stop{false};
    std::thread flood([&] {
        RawSocket subscriber(LineNet::subscriber(1), 0);
        while (!stop) {
            subscriber.send(numbered(1, 64));
        }
    });
    printLatency("trap to event, another line flooded", measureLatency(engine, 2, size.latencies));
    stop = true;
    flood.join();
}

// Whether the limit holds.
bool reportLogins(const Size& size) {
    if (!privateLogMissing().empty()) {
        ADD_FAILURE() << "logins are not measured: " << privateLogMissing();
        return false;
    }
    const LoginTimes times = measureLogins(size.loginRounds);
    const std::pair<const char*, const std::vector<double>*> rows[] = {
        {"login through the node", &times.quiet},
        {"login, another line flooded", &times.flooded},
        {"login, the flood asks for a login", &times.asked}};
    bool within = true;
    for (const auto& [name, series] : rows) {
        printLatency(name, *series);
        const double ratio = median(*series) / median(times.quiet);
        std::printf("%-44s %10s %8.3f (limit %.2f)\n", "  over the first", "", ratio, loginLimit);
        within = within && ratio < loginLimit;
    }
    std::printf("%-44s %10.0f frames/s\n", "  the flood", times.floodRate);
    return within;
}

}  // namespace

int main(int argc, char** argv) {
    if (geteuid() == 0) {
        enterPrivateLog(argc, argv);
    }
    testing::InitGoogleTest(&argc, argv);
    if (const std::string lacking = missingPrivilege(); !lacking.empty()) {
        std::printf("skipped: %s\n", lacking.c_str());
        return skipped;
    }
    const bool smoke = argc > 1 && std::strcmp(argv[1], "--smoke") == 0;
    const Size size = smoke ? Size{3, 500, 20, 1} : Size{};
    const LineNet net(2);
    Engine engine(2);
    const Times times = measureVariants(engine, size);
    std::printf("%-44s %10s %8s %8s\n", "", "ns/frame", "time", "rate");
    for (const Row& row : rows()) {
        const char* base = row.outward ? "outward: no program"
                           : row.dhcp  ? "DHCP message: gate closed, 0 conditions"
                                       : "no program";
        const double time = ratio(times, row.name, base);
        std::printf("%-44s %10.0f %8.3f %8.3f\n", row.name, median(times.at(row.name)), time,
                    1 / time);
    }
    const double open = ratio(times, "gate open", "empty clsact program");
    const double outward = ratio(times, "outward: gate open", "outward: empty clsact program");
    std::printf("%-44s %10s %8.3f (limit %.2f)\n", "gate open / empty program", "", open,
                openLimit);
    std::printf("%-44s %10s %8.3f (limit %.2f)\n", "outward: gate open / empty program", "",
                outward, openLimit);
    measureLatencies(engine, size);
    const bool logins = reportLogins(size);
    const bool failed = testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed();
    return failed || (!smoke && (open > openLimit || outward > openLimit || !logins)) ? 1 : 0;
}
