#include "tests/kernel/line_net.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

#include "node/engine/kernel/capabilities.h"
#include "node/engine/kernel/link_monitor.h"

namespace node_test {
namespace {

constexpr uint16_t probeType = 0x88b6;

std::string errnoText() {
    return std::strerror(errno);
}

}  // namespace

bool eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

void run(const std::string& command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

std::string missingPrivilege() {
    if (geteuid() != 0) {
        return "needs root";
    }
    std::ifstream map("/proc/self/uid_map");
    uint64_t inside = 0, outside = 0, count = 0;
    if (!(map >> inside >> outside >> count) || outside != 0 || count < 0xffffffff) {
        return "needs root, and not of a user namespace";
    }
    return node::missingCapabilitiesText();
}

RawSocket::RawSocket(const std::string& interface, uint16_t etherType)
    : fd_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)), ifIndex_(LineNet::index(interface)) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(etherType);
    address.sll_ifindex = static_cast<int>(ifIndex_);
    const int on = 1;
    const int room = 1 << 24;
    EXPECT_EQ(setsockopt(fd_.get(), SOL_PACKET, PACKET_AUXDATA, &on, sizeof on), 0);
    EXPECT_EQ(setsockopt(fd_.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on), 0);
    EXPECT_EQ(setsockopt(fd_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room), 0);
    EXPECT_EQ(bind(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0)
        << interface << ": " << errnoText();
}

bool RawSocket::trySend(std::span<const uint8_t> frame) {
    return ::send(fd_.get(), frame.data(), frame.size(), 0) == static_cast<ssize_t>(frame.size());
}

void RawSocket::send(std::span<const uint8_t> frame) {
    EXPECT_TRUE(trySend(frame)) << frame.size() << " bytes: " << errnoText();
}

std::optional<Buffer> RawSocket::receive(std::chrono::milliseconds wait) {
    pollfd waiting{fd_.get(), POLLIN, 0};
    if (poll(&waiting, 1, static_cast<int>(wait.count())) <= 0) {
        return std::nullopt;
    }
    Buffer frame(1 << 16);
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(tpacket_auxdata))];
    iovec part{frame.data(), frame.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(fd_.get(), &message, 0);
    if (size < 0) {
        return std::nullopt;
    }
    frame.resize(static_cast<size_t>(size));
    const cmsghdr* head = CMSG_FIRSTHDR(&message);
    if (head != nullptr && head->cmsg_type == PACKET_AUXDATA) {
        tpacket_auxdata aux;
        std::memcpy(&aux, CMSG_DATA(head), sizeof aux);
        if ((aux.tp_status & TP_STATUS_VLAN_VALID) != 0) {
            const uint8_t tag[] = {
                static_cast<uint8_t>(aux.tp_vlan_tpid >> 8), static_cast<uint8_t>(aux.tp_vlan_tpid),
                static_cast<uint8_t>(aux.tp_vlan_tci >> 8), static_cast<uint8_t>(aux.tp_vlan_tci)};
            frame.insert(frame.begin() + 12, std::begin(tag), std::end(tag));
        }
    }
    return frame;
}

LineNet::LineNet(unsigned lines, unsigned mtu) {
    EXPECT_EQ(unshare(CLONE_NEWNET), 0) << errnoText();
    for (const char* which : {"all", "default"}) {
        std::ofstream(std::string("/proc/sys/net/ipv6/conf/") + which + "/disable_ipv6") << 1;
    }
    const std::string size = " mtu " + std::to_string(mtu);
    std::string batch =
        "link add br0 type bridge mcast_snooping 0\nlink set br0 up\n"
        "link add uplink" +
        size + " type veth peer name core" + size +
        "\n"
        "link set uplink master br0 up\nlink set core up\n";
    for (unsigned line = 1; line <= lines; ++line) {
        batch += "link add " + access(line) + size + " type veth peer name " + subscriber(line) +
                 size + "\nlink set " + access(line) + " master br0 up\nlink set " +
                 subscriber(line) + " up\n";
    }
    run("printf '" + batch + "' | ip -batch -");
    for (unsigned line = 1; line <= lines; ++line) {
        awaitForwarding(line);
    }
}

void LineNet::awaitForwarding(unsigned line) {
    // A type of its own: a late probe reaches no socket of the test.
    Buffer probe = numbered(line);
    probe[13] = probeType & 0xff;
    const auto wait = std::chrono::milliseconds(50);
    RawSocket sub(subscriber(line), probeType), core("core", probeType);
    EXPECT_TRUE(eventually([&] {
        sub.send(probe);
        return core.receive(wait) == probe;
    })) << "from line "
        << line;
    EXPECT_TRUE(eventually([&] {
        core.send(probe);
        return sub.receive(wait) == probe;
    })) << "to line "
        << line;
}

unsigned LineNet::index(const std::string& interface) {
    const unsigned found = if_nametoindex(interface.c_str());
    EXPECT_NE(found, 0U) << interface;
    return found;
}

uint32_t LineNet::carrierDowns(const std::string& interface) {
    std::string error;
    const auto monitor = node::LinkMonitor::open([](auto&&...) {}, error);
    if (!monitor) {
        ADD_FAILURE() << error;
        return 0;
    }
    monitor->watch(interface);
    EXPECT_TRUE(eventually([&] { return monitor->read(error) && monitor->state(interface); }));
    const auto state = monitor->state(interface);
    return state ? state->carrierDowns : 0;
}

Buffer numbered(uint32_t number, size_t size) {
    Buffer frame(size, 0);
    for (size_t i = 0; i < 6; ++i) {
        frame[i] = 0xff;
        frame[6 + i] = static_cast<uint8_t>(0x20 + i);
    }
    frame[6] = 0x02;
    frame[12] = static_cast<uint8_t>(experimentalType >> 8);
    frame[13] = static_cast<uint8_t>(experimentalType & 0xff);
    for (unsigned i = 0; i < 4; ++i) {
        frame[14 + i] = static_cast<uint8_t>(number >> 8 * (3 - i));
    }
    return frame;
}

}  // namespace node_test
