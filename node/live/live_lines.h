// Lines on real interfaces: joins their links, their gates and the engine.
// Loop thread, or before the loop runs.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "node/engine/engine.h"
#include "node/engine/kernel/link_monitor.h"
#include "node/engine/line_gates.h"
#include "node/log/event_log.h"
#include "node/loop/reactor.h"

namespace node {

class LiveLines {
public:
    struct Line {
        unsigned ifId = 0;
        std::string device;
        bool outwardOpen = false;
    };
    using SetLink = std::function<void(unsigned ifId, bool up)>;  // engine, then module

    // Everything given must outlive it.
    LiveLines(std::vector<Line> lines, LineGates& gates, EventLog& log);

    const std::vector<Line>& lines() const { return lines_; }

    // Puts a gate on the line's device before anything of the node runs; a gate that is there
    // stays as it is. Without a device: later, when it appears. False on failure.
    bool attach(const Line& line, const std::optional<LinkState>& state, std::string& error);

    // From here on the engine moves the gates, and links are reported. After the module has said
    // which stored logins it replays.
    void begin(Engine& engine, Reactor& loop, SetLink setLink);
    void changed(const std::string& device, LinkEvent event, const LinkState& state);
    // The gates stay as they are from here on.
    void end();

    // A kept frame goes on through the line's open gate. Lines without device: nothing.
    void forward(unsigned ifId, std::span<const uint8_t> frame);

private:
    struct State {
        bool attached = false;
        LinkState link;          // as last heard of
        uint32_t trapsLost = 0;  // as last told
    };

    const Line* lineOf(const std::string& device) const;
    bool put(const Line& line, const LinkState& state, std::string& error);
    void appeared(const Line& line, const LinkState& state);
    void tryAgain(const Line& line);
    void lookAgain();
    void lookAt(const Line& line);
    void restore(const Line& line);
    void down(const Line& line, const LinkState& state);

    const std::vector<Line> lines_;
    LineGates& gates_;
    EventLog& log_;
    std::map<unsigned, State> states_;
    std::set<unsigned> known_;  // lines whose gate was put on once
    Engine* engine_ = nullptr;
    Reactor* loop_ = nullptr;
    SetLink setLink_;
    std::optional<Reactor::Timer> nextLook_;
};

}  // namespace node
