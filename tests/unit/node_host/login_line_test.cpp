#include "node/isa/login_line.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

TEST(LoginLine, OnlyWhatTheBlockSaysIsPresentIsTaken) {
    rpcTalLoginBlockBll block{};
    block.interface = 12;
    std::memset(block.circuitId, 'c', sizeof block.circuitId);  // without an end
    std::strcpy(block.remoteId, "remote");
    std::strcpy(block.vendorId, "vendor");
    std::strcpy(block.clientId, "client");
    block.sourceMac[5] = 7;
    block.sourceIP = 0xc0000201;
    block.vlanId = 100;

    node::radius::Line line = node::loginLine(block, "1/12");
    EXPECT_EQ("1/12", line.interfaceName);
    EXPECT_EQ(12U, line.interfaceNumber);
    EXPECT_EQ("", line.circuitId + line.remoteId + line.vendorClass + line.clientId);
    EXPECT_FALSE(line.mac);
    EXPECT_FALSE(line.address);
    EXPECT_EQ(0, line.vlan);

    block.loginIdType = 0xff;
    line = node::loginLine(block, "1/12");
    EXPECT_EQ(std::string(64, 'c'), line.circuitId);
    EXPECT_EQ("remote", line.remoteId);
    EXPECT_EQ("vendor", line.vendorClass);
    EXPECT_EQ("client", line.clientId);
    EXPECT_EQ("00-00-00-00-00-07", node::radius::macText(line.mac.value()));
    EXPECT_EQ(0xc0000201U, line.address);
    EXPECT_EQ(100, line.vlan);
}

}  // namespace
