// Configurations that speak of real interfaces.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "node/config/config.h"
#include "node/config/reload.h"
#include "tests/unit/node_host/temp_dir.h"

namespace {

using node::Config;
using testing::HasSubstr;

constexpr const char* first = R"([[interface]]
id = 1
name = "1/1"
kernel-name = "dsl1"
)";
constexpr const char* second = R"([[interface]]
id = 2
name = "1/2"
kernel-name = "dsl2"
)";

Config parse(const std::string& text, const std::string& directory = ".") {
    return node::parseConfig(text, "node.toml", directory);
}

std::string errorOf(const std::string& text) {
    try {
        parse(text);
    } catch (const node::ConfigError& error) {
        return error.what();
    }
    return "no error";
}

TEST(ConfigLive, NothingSaidMeansNoDevice) {
    const Config config = parse(first);
    EXPECT_EQ(config.interfaces[0].device, "");
    EXPECT_FALSE(config.interfaces[0].outwardOpen);
    EXPECT_EQ(config.engine, Config::Engine{});
    EXPECT_EQ(config.engine.pinDirectory, "");
    EXPECT_FALSE(config.engine.freeRemoved);
}

TEST(ConfigLive, EveryKeyIsRead) {
    const Config config = parse(
        std::string("[engine]\npin-directory = \"pins/x\"\nfree-removed = true\n") + first +
            "device = \"a-name.with_15x\"\noutward-open = true\n" + second + "device = \"eth0\"\n",
        "/etc/tal");
    EXPECT_EQ(config.engine.pinDirectory, "/etc/tal/pins/x");
    EXPECT_TRUE(config.engine.freeRemoved);
    EXPECT_EQ(config.interfaces[0].device, "a-name.with_15x");
    EXPECT_TRUE(config.interfaces[0].outwardOpen);
    EXPECT_EQ(config.interfaces[1].device, "eth0");
    EXPECT_FALSE(config.interfaces[1].outwardOpen);
}

TEST(ConfigLive, AbsolutePinDirectoryStaysAsItIs) {
    EXPECT_EQ(parse(std::string("[engine]\npin-directory = \"/sys/fs/bpf/tal\"\n") + first, "/etc")
                  .engine.pinDirectory,
              "/sys/fs/bpf/tal");
}

TEST(ConfigLive, MistakesAreNamedWithFileLineAndKey) {
    const node_test::TempDir dir;
    const std::string capture = dir.write("a.pcap", "x");
    const struct {
        std::string text;
        std::string error;
    } rows[] = {
        {first + std::string("device = \"veth0\"\ncapture = \"") + capture + "\"\n",
         "node.toml:6: interface.capture: has no meaning beside device"},
        {first + std::string("device = \"veth0\"\nstart-ms = 5\n"),
         "node.toml:6: interface.start-ms: has no meaning beside device"},
        {first + std::string("device = \"veth0\"\n[[interface.outage]]\nfrom-ms = 1\nto-ms = 2\n"),
         "interface.outage: has no meaning beside device"},
        {first + std::string("device = \"\"\n"),
         "node.toml:5: interface.device: must not be empty"},
        {first + std::string("device = \"sixteen-letters-\"\n"),
         "node.toml:5: interface.device: must be at most 15 characters"},
        {first + std::string("device = \"a/b\"\n"),
         "node.toml:5: interface.device: \"a/b\" is no name of an interface"},
        {first + std::string("device = \"a b\"\n"), "is no name of an interface"},
        {first + std::string("device = \"a:b\"\n"), "is no name of an interface"},
        {first + std::string("device = \".\"\n"), "is no name of an interface"},
        {first + std::string("device = \"..\"\n"), "is no name of an interface"},
        {first + std::string("device = 5\n"), "interface.device: must be a text in quotes"},
        {first + std::string("outward-open = true\n"),
         "node.toml:5: interface.outward-open: has no meaning without device"},
        {first + std::string("device = \"veth0\"\noutward-open = 1\n"),
         "interface.outward-open: must be true or false"},
        {first + std::string("device = \"veth0\"\n") + second + "device = \"veth0\"\n",
         "node.toml:10: interface.device: \"veth0\" is used twice"},
        {std::string("[engine]\npin-directory = 1\n") + first,
         "node.toml:2: engine.pin-directory: must be a text in quotes"},
        {std::string("[engine]\nfree-removed = \"yes\"\n") + first,
         "node.toml:2: engine.free-removed: must be true or false"},
        {std::string("[engine]\nspeed = 1\n") + first,
         "node.toml:2: engine.speed: is not a known key"},
        {std::string("engine = 1\n") + first, "node.toml:1: engine: must be a table"},
    };
    for (const auto& row : rows) {
        EXPECT_THAT(errorOf(row.text), HasSubstr(row.error)) << row.text;
    }
}

TEST(ConfigLive, DevicesAndTheEngineCannotChangeWhileTheNodeRuns) {
    const std::string device = first + std::string("device = \"veth0\"\n");
    const Config now = parse(device);
    EXPECT_EQ(needsRestart(now, parse(device)), "");
    EXPECT_THAT(needsRestart(now, parse(first)), HasSubstr("interface.device cannot change"));
    EXPECT_THAT(needsRestart(now, parse(first + std::string("device = \"veth1\"\n"))),
                HasSubstr("interface.device cannot change"));
    EXPECT_THAT(needsRestart(now, parse(device + "outward-open = true\n")),
                HasSubstr("interface.outward-open cannot change"));
    EXPECT_THAT(needsRestart(now, parse("[engine]\nfree-removed = true\n" + device)),
                HasSubstr("engine cannot change"));
}

}  // namespace
