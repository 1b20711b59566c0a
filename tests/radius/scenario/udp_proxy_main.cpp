// The proxy as a program, for tests that start whole nodes: prints its port, then takes lines of
// faults, as "loss 0.3 delay-ms 2000 forge 1", each instead of the one before, and answers each
// with "done". It ends with its input.
#include <unistd.h>

#include <iostream>
#include <sstream>

#include "tests/radius/scenario/epoll_reactor.h"
#include "tests/radius/scenario/udp_proxy.h"

namespace {

radius_test::UdpProxy::Faults faultsOf(const std::string& text) {
    radius_test::UdpProxy::Faults faults;
    std::istringstream words(text);
    std::string name;
    double value = 0;
    while (words >> name >> value) {
        const node::Time time(static_cast<node::Time::rep>(value * 1000));
        if (name == "loss") {
            faults.loss = value;
        } else if (name == "duplicate") {
            faults.duplicate = value;
        } else if (name == "corrupt") {
            faults.corrupt = value;
        } else if (name == "forge") {
            faults.forge = value;
        } else if (name == "delay-ms") {
            faults.delay = time;
        } else if (name == "spread-ms") {
            faults.spread = time;
        } else {
            throw std::invalid_argument(name);
        }
    }
    return faults;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "udp_proxy SERVER-PORT\n";
        return 2;
    }
    radius_test::EpollReactor loop;
    bool ended = false;
    radius_test::UdpProxy proxy(loop, static_cast<uint16_t>(std::stoi(argv[1])), 7);
    std::string pending;
    loop.watch(STDIN_FILENO, [&] {
        char buffer[1024];
        const ssize_t got = read(STDIN_FILENO, buffer, sizeof buffer);
        if (got <= 0) {
            ended = true;
            return;
        }
        pending.append(buffer, static_cast<size_t>(got));
        for (size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
            proxy.spoil(faultsOf(pending.substr(0, end)));
            pending.erase(0, end + 1);
            std::cout << "done" << std::endl;
        }
    });
    std::cout << proxy.port() << std::endl;
    loop.runUntil([&ended] { return ended; }, std::chrono::hours(1));
    return 0;
}
