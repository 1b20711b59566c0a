// A line has one source of frames: a capture, whose time may jump, or a device, whose time is the
// wall's and whose link comes and goes by itself.
// Tested by tests/unit/node_host/config_live_test.cpp.
#include "node/config/live_keys.h"

#include <algorithm>
#include <filesystem>

namespace node {

namespace {

constexpr size_t longestDeviceName = 15;
constexpr size_t longestPath = 4096;

}  // namespace

Config::Engine readEngine(Section section, const std::string& directory) {
    Config::Engine engine;
    if (section.has("pin-directory")) {
        const std::string name = section.text("pin-directory", longestPath);
        engine.pinDirectory = (std::filesystem::path(directory) / name).lexically_normal().string();
    }
    engine.freeRemoved = section.flag("free-removed", engine.freeRemoved);
    section.refuseUnknown();
    return engine;
}

void readDevice(Section& section, Config::Interface& interface) {
    if (section.has("device")) {
        interface.device = section.text("device", longestDeviceName);
        if (interface.device.find_first_of("/ :") != std::string::npos || interface.device == "." ||
            interface.device == "..") {
            section.fail("device", "\"" + interface.device + "\" is no name of an interface");
        }
        for (const char* key : {"capture", "start-ms", "outage"}) {
            if (section.has(key)) {
                section.fail(key, "has no meaning beside device: a line has a capture or a device");
            }
        }
    }
    interface.outwardOpen = section.flag("outward-open", interface.outwardOpen);
    if (section.has("outward-open") && interface.device.empty()) {
        section.fail("outward-open", "has no meaning without device");
    }
}

void checkDevice(const Section& section, const Config::Interface& interface,
                 const std::vector<Config::Interface>& others) {
    const bool twice = !interface.device.empty() &&
                       std::any_of(others.begin(), others.end(), [&](const auto& other) {
                           return other.device == interface.device;
                       });
    if (twice) {
        section.fail("device", "\"" + interface.device + "\" is used twice");
    }
}

}  // namespace node
