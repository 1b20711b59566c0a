// What the configuration makes of the node's own name and addresses towards servers.
#include "node/isa/radius_setup.h"

#include <gtest/gtest.h>

#include "node/loop/loop.h"

namespace {

using node::RadiusConfig;
using node::radius::Buffer;

TEST(RadiusSetup, AddressesOfTheNodeAreSentAndCompared) {
    RadiusConfig config;
    config.nasIdentifier = "node-7";
    config.servers.emplace_back();
    config.servers[0].name = "first";
    config.servers[0].host = "192.0.2.1";
    const node::radius::Secrets secrets{{"first", node::radius::Secret("a secret")}};
    node::Loop loop(node::Pace::instant);
    node::RadiusSetup setup = radiusSetup(config, secrets, loop);
    EXPECT_EQ(Buffer(), setup.format.nasIpAddress);
    EXPECT_EQ(Buffer(), setup.format.nasIpv6Address);

    config.nasIpAddress = "192.0.2.7";
    config.nasIpv6Address = "2001:db8::7";
    setup = radiusSetup(config, secrets, loop);
    const Buffer six{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7};
    for (const node::radius::LoginFormat& format : {setup.format, setup.dynamic.format}) {
        EXPECT_EQ("node-7", format.nasIdentifier);
        EXPECT_EQ((Buffer{192, 0, 2, 7}), format.nasIpAddress);
        EXPECT_EQ(six, format.nasIpv6Address);
    }
}

}  // namespace
