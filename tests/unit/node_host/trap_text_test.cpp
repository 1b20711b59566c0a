#include "node/engine/trap_text.h"

#include <gtest/gtest.h>

#include "tests/unit/node/condition_builder.h"
#include "tests/unit/node/frame_builder.h"

namespace {

using node_test::Buffer;

std::string textOf(const Buffer& bytes) {
    return node::frameText(*node::parseFrame(bytes));
}

TEST(TrapText, ConditionReadsAsItsRule) {
    EXPECT_EQ(node::conditionText(node_test::anyFrame()), "any");
    EXPECT_EQ(node::conditionText(node_test::etherTypeIs(0x0806)), "ethertype 0x0806");
    EXPECT_EQ(node::conditionText(node_test::dhcpMessage(1)), "dhcp any");
    EXPECT_EQ(node::conditionText(node_test::dhcpMessage(3)), "dhcp discover");
    EXPECT_EQ(node::conditionText(node_test::optionBegins(3, "udhcp")), "vendor-id udhcp*");
    EXPECT_EQ(node::conditionText(node_test::optionBegins(4, "a\xff")), "remote-id hex:61ff*");
    EXPECT_EQ(node::conditionText(node_test::optionBegins(5, std::string_view("\1\0\2", 3))),
              "client-id hex:010002*");
    EXPECT_EQ(node::conditionText(node_test::outerVlanIs(100)), "vlan 100");
    EXPECT_EQ(node::conditionText(node_test::sourceIpIs(0xc0000200, 0xffffff00)),
              "ip 192.0.2.0/24");
    EXPECT_EQ(
        node::conditionText(node_test::sourceMacIs({2, 0, 0, 0, 0, 1}, {0xff, 0, 0, 0, 0, 0})),
        "mac 02:00:00:00:00:01/ff:00:00:00:00:00");
    ittalCondition user = node_test::userPattern();
    user.u.user.sequence[0] = 0x00120000;
    user.u.user.mask[0] = 0x00ff0000;
    EXPECT_EQ(node::conditionText(user), "user-pattern 0012/00ff");
    EXPECT_EQ(node::conditionText(node_test::condition(10, 0)), "type 10");
}

TEST(TrapText, FrameIsCalledByWhatItCarries) {
    EXPECT_EQ(textOf(node_test::dhcpFrame({53, 1, 1, 255})), "DHCP DISCOVER");
    EXPECT_EQ(textOf(node_test::dhcpFrame({53, 1, 8, 255})), "DHCP INFORM");
    EXPECT_EQ(textOf(node_test::dhcpFrame({53, 1, 9, 255})), "DHCP message");
    EXPECT_EQ(textOf(node_test::dhcpFrame({255})), "DHCP BOOTP");
    EXPECT_EQ(textOf(node_test::ether(0x0806, {})), "ARP");
    EXPECT_EQ(textOf(node_test::ether(0x0800, {})), "IPv4");
    EXPECT_EQ(textOf(node_test::ether(0x888e, {})), "EtherType 0x888e");
    EXPECT_EQ(textOf(node_test::ether(0x0026, {})), "802.3 frame");
}

TEST(TrapText, TrapNamesTheRuleAndTheSender) {
    const Buffer bytes = node_test::ether(0x0806, node_test::arp(1), {{0x8100, 100}});
    EXPECT_EQ(node::trapText(*node::parseFrame(bytes), "vlan 100"),
              "ARP (rule: vlan 100) from 00:1a:2b:3c:4d:5e, VLAN 100");
}

}  // namespace
