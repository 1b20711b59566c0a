// Logins per second through one FreeRADIUS, started for this run: the client, a bare loop and
// `radclient -p 128`, side by side in many short rounds that each begin with another of the three.
// A ratio is the median over the rounds, so that a neighbour on the machine, who slows some
// rounds, does not decide it. Every login must be accepted.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <stdexcept>

#include "bench/radius/bare_loop.h"
#include "node/isa/radius/client/client.h"
#include "node/isa/radius/client/udp_channel.h"
#include "node/isa/radius/packet/login.h"
#include "tests/radius/scenario/epoll_reactor.h"
#include "tests/radius/scenario/free_radius.h"

namespace {

using namespace node::radius;
using radius_test::EpollReactor;
using radius_test::FreeRadius;

constexpr unsigned underWay = 128;
constexpr double clientOverBareLoop = 0.8;
constexpr double clientOverTool = 1.2;
constexpr const char* password = "pw";

struct Options {
    uint64_t logins = 10'000;
    size_t rounds = 21;
    bool limits = true;
};

Line lineOf(int number) {
    Line line;
    line.interfaceName = "1/" + std::to_string(number);
    line.interfaceNumber = static_cast<uint32_t>(number);
    line.circuitId = "line-" + std::to_string(number);
    return line;
}

double throughClient(const FreeRadius& server, const std::string& secret, uint64_t count) {
    EpollReactor reactor;
    ClientSettings settings;
    settings.servers.resize(1);
    ServerSettings& one = settings.servers[0];
    one.name = "bench";
    one.secret = Secret(secret);
    one.window = underWay;
    one.makeChannel =
        udpChannels(reactor, {SocketAddress::parse("127.0.0.1", server.port()).value(), {}});
    Client client(reactor, std::move(settings));
    Request request;
    request.attributes = loginAttributes(lineOf(1), LoginFormat()).value();
    request.password = Secret(password);
    uint64_t asked = 0, accepted = 0, answered = 0;
    const auto ask = [&] {
        while (asked < count && client.outstanding() < underWay) {
            ++asked;
            client.submit(request, [&](const Answer& answer) {
                ++answered;
                accepted += answer.outcome == Outcome::accepted ? 1 : 0;
            });
        }
        return answered == count;
    };
    const node::Time began = reactor.now();
    if (!reactor.runUntil(ask, std::chrono::minutes(2)) || accepted != count) {
        throw std::runtime_error("the client lost a login");
    }
    return std::chrono::duration<double>(reactor.now() - began).count();
}

double throughTool(const FreeRadius& server, const std::string& secret, uint64_t count) {
    const std::string requests = server.file("requests");
    std::ofstream file(requests);
    constexpr uint64_t packets = 200;  // more than are under way; each is sent several times
    for (uint64_t i = 1; i <= packets; ++i) {
        const Line line = lineOf(static_cast<int>(i));
        file << "Message-Authenticator = 0x00\nUser-Name = \"" << line.circuitId
             << "\"\nUser-Password = \"" << password << "\"\nNAS-Port = " << i
             << "\nNAS-Port-Id = \"" << line.interfaceName << "\"\nADSL-Agent-Circuit-Id = \""
             << line.circuitId << "\"\n\n";
    }
    file.close();
    const auto began = std::chrono::steady_clock::now();
    radius_test::run(
        {"radclient", "-q", "-p", std::to_string(underWay), "-c", std::to_string(count / packets),
         "-f", requests, "127.0.0.1:" + std::to_string(server.port()), "auth", secret},
        server.file("radclient.log"));
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

bool report(const char* what, double ratio, double limit) {
    const bool holds = ratio >= limit;
    printf("%-24s %8.2f   at least %.1f   %s\n", what, ratio, limit, holds ? "" : "MISSED");
    return holds;
}

bool measure(const Options& options) {
    const std::string secret = "testing-secret";
    FreeRadius server({});
    server.start();
    const Buffer attributes = loginAttributes(lineOf(1), LoginFormat()).value();
    const std::array<std::function<double()>, 3> contestants{
        [&] { return throughClient(server, secret, options.logins); },
        [&] {
            return bench::bareLoop(server.port(), secret, attributes, password, options.logins,
                                   underWay);
        },
        [&] { return throughTool(server, secret, options.logins); },
    };
    const auto logins = static_cast<double>(options.logins);
    std::array<std::vector<double>, 3> rates;
    std::vector<double> overBare, overTool;
    for (size_t round = 0; round < options.rounds; ++round) {
        for (size_t turn = 0; turn < 3; ++turn) {
            const size_t which = (round + turn) % 3;
            rates[which].push_back(logins / contestants[which]());
        }
        overBare.push_back(rates[0].back() / rates[1].back());
        overTool.push_back(rates[0].back() / rates[2].back());
    }
    printf("logins per second, median of %zu rounds of %.0f, %u under way\n", options.rounds,
           logins, underWay);
    constexpr const char* names[] = {"client", "bare loop", "radclient -p 128"};
    for (size_t which = 0; which < 3; ++which) {
        printf("%-24s %8.0f\n", names[which], median(rates[which]));
    }
    const bool first = report("client / bare loop", median(overBare), clientOverBareLoop);
    const bool second = report("client / radclient", median(overTool), clientOverTool);
    return first && second;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const bool more = i + 1 < argc;
        if (strcmp(argv[i], "--no-limits") == 0) {
            options.limits = false;
        } else if (more && strcmp(argv[i], "--logins") == 0) {
            options.logins = strtoull(argv[++i], nullptr, 10) / 200 * 200;
        } else if (more && strcmp(argv[i], "--rounds") == 0) {
            options.rounds = strtoull(argv[++i], nullptr, 10);
        } else {
            fprintf(stderr, "usage: %s [--logins N] [--rounds N] [--no-limits]\n", argv[0]);
            return 2;
        }
    }
    if (options.logins == 0 || options.rounds == 0) {
        fprintf(stderr, "%s: needs at least 200 logins and one round\n", argv[0]);
        return 2;
    }
    if (!FreeRadius::installed()) {
        fprintf(stderr, "%s: the package freeradius is not installed (script/bootstrap)\n",
                argv[0]);
        return 1;
    }
    try {
        return measure(options) || !options.limits ? 0 : 1;
    } catch (const std::exception& error) {
        fprintf(stderr, "%s: %s\n", argv[0], error.what());
        return 1;
    }
}
