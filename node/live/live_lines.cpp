// Decisions:
// - Gates are put on at the very start and moved by the engine only after the module has been
//   configured: until then a gate of an earlier run is as that run left it, so that starting the
//   module, which switches everything off first, disturbs nobody.
// - A gate found open stays open for the replay of its line's stored login. Without a stored
//   login, or without a link, it closes.
// - The gate closes first and the engine hears of the lost link afterwards.
// - A device that comes back gets its gate before its link is reported. One whose gate cannot be
//   put on has no link as far as the engine knows, and it is tried again every second.
// - Nothing tells the node that somebody took a gate off, with the qdisc it lives on or alone; so
//   every two seconds it looks whether all are there.
//
// Tests: tests/unit/node_host/live_lines_test.cpp, tests/live.
#include "node/live/live_lines.h"

#include <algorithm>
#include <utility>

namespace node {

namespace {

constexpr auto tryAgainAfter = std::chrono::seconds(1);
constexpr auto lookAfter = std::chrono::seconds(2);

std::string foundText(LineGates::Found found, bool open) {
    switch (found) {
        case LineGates::Found::nothing:
            return "new";
        case LineGates::Found::own:
        case LineGates::Found::older:
            return open ? "found open" : "found closed";
        case LineGates::Found::linkLost:
            return "found, but the link was lost meanwhile";
        case LineGates::Found::unreadable:
            return "found, but it may not be read (that takes root or pins)";
    }
    return "";
}

}  // namespace

LiveLines::LiveLines(std::vector<Line> lines, LineGates& gates, EventLog& log)
    : lines_(std::move(lines)), gates_(gates), log_(log) {}

const LiveLines::Line* LiveLines::lineOf(const std::string& device) const {
    const auto found = std::find_if(lines_.begin(), lines_.end(),
                                    [&](const Line& line) { return line.device == device; });
    return found == lines_.end() ? nullptr : &*found;
}

bool LiveLines::put(const Line& line, const LinkState& state, std::string& error) {
    const auto found =
        gates_.attach({line.ifId, state.ifIndex, state.carrierDowns, line.outwardOpen}, error);
    states_[line.ifId] = {found.has_value(), state, gates_.totals(line.ifId).trapsLost};
    if (!found) {
        return false;
    }
    if (known_.insert(line.ifId).second && engine_) {
        engine_->passedBegins(line.ifId);
    }
    log_.line(line.ifId, "device",
              line.device + ": gate " + foundText(*found, gates_.gate(line.ifId) == Gate::open));
    if (!state.up) {
        gates_.linkDown(line.ifId, state.carrierDowns);
    }
    return true;
}

bool LiveLines::attach(const Line& line, const std::optional<LinkState>& state,
                       std::string& error) {
    if (!state) {
        log_.line(line.ifId, "device", line.device + ": not there yet");
        return true;
    }
    return put(line, *state, error);
}

void LiveLines::begin(Engine& engine, Reactor& loop, SetLink setLink) {
    engine_ = &engine;
    loop_ = &loop;
    setLink_ = std::move(setLink);
    for (const Line& line : lines_) {
        const bool open = gates_.gate(line.ifId) == Gate::open;
        const bool held = engine.gateBy(line.ifId, &gates_);
        if (open) {
            log_.line(line.ifId, "gate",
                      held ? "stays open while the stored login is replayed"
                           : "closed: it was found open, but there is no stored login");
        }
        const State& state = states_[line.ifId];
        if (state.attached && state.link.up) {
            setLink_(line.ifId, true);
        }
    }
    gates_.poll();
    lookAgain();
}

void LiveLines::end() {
    if (!engine_) {
        return;
    }
    for (const Line& line : lines_) {
        engine_->gateBy(line.ifId, nullptr);
    }
    if (nextLook_) {
        loop_->cancel(*nextLook_);
        nextLook_.reset();
    }
    engine_ = nullptr;
}

void LiveLines::changed(const std::string& device, LinkEvent event, const LinkState& state) {
    const Line* const line = lineOf(device);
    if (!line || !engine_) {
        return;
    }
    states_[line->ifId].link = state;
    switch (event) {
        case LinkEvent::appeared:
            appeared(*line, state);
            break;
        case LinkEvent::up:
            if (states_[line->ifId].attached) {
                // The gate is still closed: losses on the way here are none of the next login's.
                gates_.linkDown(line->ifId, state.carrierDowns);
                setLink_(line->ifId, true);
            }
            break;
        case LinkEvent::down:
            down(*line, state);
            break;
        case LinkEvent::gone:
            states_[line->ifId] = {};
            log_.line(line->ifId, "device", device + ": gone");
            break;
    }
}

void LiveLines::appeared(const Line& line, const LinkState& state) {
    std::string error;
    if (put(line, state, error)) {
        engine_->renewGate(line.ifId);
        gates_.poll();
        return;
    }
    log_.line(line.ifId, "device", line.device + ": WITHOUT A GATE: " + error);
    tryAgain(line);
}

void LiveLines::tryAgain(const Line& line) {
    loop_->at(loop_->now() + tryAgainAfter, [this, &line] {
        const State state = states_[line.ifId];
        if (!engine_ || state.attached || state.link.ifIndex == 0) {
            return;
        }
        std::string error;
        if (!put(line, state.link, error)) {
            tryAgain(line);
            return;
        }
        engine_->renewGate(line.ifId);
        gates_.poll();
        if (state.link.up) {
            setLink_(line.ifId, true);
        }
    });
}

void LiveLines::lookAgain() {
    nextLook_ = loop_->at(loop_->now() + lookAfter, [this] {
        for (const Line& line : lines_) {
            if (states_[line.ifId].attached) {
                lookAt(line);
            }
        }
        lookAgain();
    });
}

void LiveLines::lookAt(const Line& line) {
    if (!gates_.inPlace(line.ifId)) {
        restore(line);
        return;
    }
    uint32_t& told = states_[line.ifId].trapsLost;
    const uint32_t lost = gates_.totals(line.ifId).trapsLost;
    if (lost != told) {
        log_.line(line.ifId, "device",
                  line.device + ": no room for " + std::to_string(lost - told) +
                      " frames that ask; the next one asks again");
        told = lost;
    }
}

// What was decided about the line holds, and may be decided anew meanwhile by another thread; only
// its interface was without a gate for a while.
void LiveLines::restore(const Line& line) {
    const LinkState link = states_[line.ifId].link;
    log_.line(line.ifId, "device", line.device + ": WITHOUT A GATE: somebody took it off");
    std::string error;
    if (gates_.restore(line.ifId, error)) {
        log_.line(line.ifId, "device", line.device + ": gate put on again");
        return;
    }
    log_.line(line.ifId, "device", line.device + ": WITHOUT A GATE: " + error);
    states_[line.ifId].attached = false;
    if (link.up) {
        setLink_(line.ifId, false);
    }
    tryAgain(line);
}

void LiveLines::down(const Line& line, const LinkState& state) {
    gates_.linkDown(line.ifId, state.carrierDowns);
    setLink_(line.ifId, false);
}

void LiveLines::forward(unsigned ifId, std::span<const uint8_t> frame) {
    const auto state = states_.find(ifId);
    std::string error;
    if (state == states_.end() || gates_.reinject(ifId, frame, error)) {
        return;
    }
    log_.line(ifId, "device", "a kept frame is lost: " + error);
    if (engine_) {
        engine_->lost(ifId, frame.size());
    }
}

}  // namespace node
