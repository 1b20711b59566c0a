// The real interfaces of a node: privileges, locks, the gates in the kernel and the links.
// Made before the process has another thread; then loop thread.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "node/engine/kernel/kernel_engine.h"
#include "node/engine/kernel/link_monitor.h"
#include "node/live/device_lock.h"
#include "node/live/live_lines.h"

namespace node {

// what(): one line.
class LiveError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class LiveEngine {
public:
    struct Settings {
        std::vector<LiveLines::Line> lines;  // at least one
        std::string pinDirectory;            // empty: none
        bool freeRemoved = false;
        std::string keepGroup;  // a group that the process must be in later; empty: none
    };

    // Puts gates on all devices that are there, then gives up every privilege but the three
    // that gates take. Throws LiveError; what was attached by then stays attached.
    LiveEngine(const Settings& settings, EventLog& log);
    ~LiveEngine();  // leaves all gates as they are
    LiveEngine(const LiveEngine&) = delete;
    LiveEngine& operator=(const LiveEngine&) = delete;

    // See LiveLines. The descriptors are watched from begin() to end().
    void begin(Engine& engine, Reactor& loop, LiveLines::SetLink setLink);
    void end();
    void forward(unsigned ifId, std::span<const uint8_t> frame) { lines_->forward(ifId, frame); }

    // Takes the gates off the devices of the settings, and off whatever an earlier run left.
    // Throws LiveError, also when a node is running on a device.
    static void release(const Settings& settings, EventLog& log);

private:
    struct Bare {};
    LiveEngine(const Settings& settings, EventLog& log, Bare);
    bool lockMaps(const std::string& maps);
    void attachAll();
    void treatStrays(bool freeThem);
    struct Stray {
        unsigned ifIndex;
        DeviceLock lock;  // of the device
    };
    std::vector<Stray> strays() const;

    EventLog& log_;
    std::vector<DeviceLock> locks_;
    std::string refusedMaps_;  // as last told
    std::unique_ptr<LinkMonitor> links_;
    std::unique_ptr<KernelEngine> gates_;
    std::unique_ptr<LiveLines> lines_;
    Engine* engine_ = nullptr;
    Reactor* loop_ = nullptr;
};

}  // namespace node
