// Settings, rules and users can change while the node runs. What the module reads only when it
// starts, and what has a place in the run's time, cannot.
#include "node/config/reload.h"

#include <algorithm>

namespace node {

namespace {

const Config::Interface* find(const Config& config, unsigned id) {
    const auto found =
        std::find_if(config.interfaces.begin(), config.interfaces.end(),
                     [id](const Config::Interface& interface) { return interface.id == id; });
    return found == config.interfaces.end() ? nullptr : &*found;
}

std::string differentKey(const Config::Node& now, const Config::Node& next) {
    return now.shelf != next.shelf                   ? "shelf"
           : now.boardPosition != next.boardPosition ? "board-position"
           : now.boardType != next.boardType         ? "board-type"
           : now.mac != next.mac                     ? "mac"
                                                     : "";
}

std::string differentKey(const Config::Interface& now, const Config::Interface& next) {
    return now.name != next.name                 ? "name"
           : now.kernelName != next.kernelName   ? "kernel-name"
           : now.capture != next.capture         ? "capture"
           : now.device != next.device           ? "device"
           : now.outwardOpen != next.outwardOpen ? "outward-open"
           : now.start != next.start             ? "start-ms"
           : now.outages != next.outages         ? "outage"
                                                 : "";
}

}  // namespace

std::string needsRestart(const Config& now, const Config& next) {
    constexpr char cannot[] = " cannot change while the node runs";
    if (const std::string key = differentKey(now.node, next.node); !key.empty()) {
        return next.file + ": node." + key + cannot;
    }
    if (now.control != next.control) {
        return next.file + ": control" + cannot;
    }
    if (now.radius.has_value() != next.radius.has_value()) {
        return next.file + ": who answers logins, [isa] or [radius]," + cannot;
    }
    if (now.radius) {
        if (const std::string key = radiusNeedsRestart(*now.radius, *next.radius); !key.empty()) {
            return next.file + ": radius." + key + cannot;
        }
    }
    if (now.profiles.file != next.profiles.file) {
        return next.file + ": profiles.file" + cannot;
    }
    if (now.engine != next.engine) {
        return next.file + ": engine" + cannot;
    }
    for (const Config::Interface& interface : next.interfaces) {
        const Config::Interface* const before = find(now, interface.id);
        if (!before) {
            return interface.where + ": an interface cannot be added while the node runs";
        }
        if (const std::string key = differentKey(*before, interface); !key.empty()) {
            return interface.where + "." + key + cannot;
        }
    }
    for (const Config::Interface& interface : now.interfaces) {
        if (!find(next, interface.id)) {
            return next.file + ": interface " + interface.name +
                   " is missing, an interface cannot be removed while the node runs";
        }
    }
    return "";
}

}  // namespace node
