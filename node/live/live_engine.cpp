// The order matters: what is missing is said first; locks come before anything is touched; gates
// before privileges are given up, because only root finds the maps of an earlier run; all of it
// before the module is loaded and before any thread is there, because privileges belong to a
// thread. Afterwards root is a user without power over files that are not its own; its own, as
// everything below /var/log and the control socket, it may still write. Handing the socket to a
// group takes being in it, so that group is joined while that is possible.
//
// Tests: tests/live.
#include "node/live/live_engine.h"

#include <grp.h>
#include <net/if.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>

#include "node/engine/kernel/capabilities.h"
#include "node/engine/kernel/tc_hook.h"

namespace node {

namespace {

constexpr int patienceMilliseconds = 5000;

void joinGroup(const std::string& name) {
    const group* const found = getgrnam(name.c_str());
    if (!found) {
        return;  // whoever needs it says so
    }
    std::vector<gid_t> groups(static_cast<size_t>(std::max(getgroups(0, nullptr), 0)));
    if (getgroups(static_cast<int>(groups.size()), groups.data()) < 0) {
        groups.clear();
    }
    groups.push_back(found->gr_gid);
    // Without the privilege the process may be in the group already; else the socket says so.
    (void)!setgroups(groups.size(), groups.data());
}

std::string nameOf(unsigned ifIndex) {
    char name[IF_NAMESIZE];
    return if_indextoname(ifIndex, name) ? name : "interface " + std::to_string(ifIndex);
}

}  // namespace

LiveEngine::LiveEngine(const Settings& settings, EventLog& log, Bare) : log_(log) {
    if (const std::string missing = missingCapabilitiesText(); !missing.empty()) {
        throw LiveError(missing);
    }
    std::string error;
    std::vector<std::string> shared;
    for (const LiveLines::Line& line : settings.lines) {
        shared.push_back(line.device);
    }
    if (!settings.pinDirectory.empty()) {
        shared.push_back(settings.pinDirectory);
    }
    for (const std::string& what : shared) {
        auto lock = DeviceLock::take(what, error);
        if (!lock) {
            throw LiveError(error);
        }
        locks_.push_back(std::move(*lock));
    }
    links_ = LinkMonitor::open(
        [this](const std::string& device, LinkEvent event, const LinkState& state) {
            if (lines_) {
                lines_->changed(device, event, state);
            }
        },
        error);
    if (!links_) {
        throw LiveError(error);
    }
    std::vector<unsigned> indexes;
    for (const LiveLines::Line& line : settings.lines) {
        links_->watch(line.device);
    }
    do {
        pollfd ready{links_->fd(), POLLIN, 0};
        if (poll(&ready, 1, patienceMilliseconds) != 1 || !links_->read(error)) {
            throw LiveError(error.empty() ? "the kernel does not list its interfaces" : error);
        }
    } while (!links_->complete());
    for (const LiveLines::Line& line : settings.lines) {
        if (const auto state = links_->state(line.device)) {
            indexes.push_back(state->ifIndex);
        }
    }
    gates_ = KernelEngine::start(
        indexes,
        {settings.pinDirectory, [this](const std::string& maps) { return lockMaps(maps); }},
        [this](unsigned ifId, std::span<const uint8_t> frame) {
            if (engine_) {
                engine_->frame(ifId, frame);
            }
        },
        error);
    if (!gates_) {
        throw LiveError(error);
    }
    lines_ = std::make_unique<LiveLines>(settings.lines, *gates_, log);
}

LiveEngine::LiveEngine(const Settings& settings, EventLog& log)
    : LiveEngine(settings, log, Bare()) {
    attachAll();
    treatStrays(settings.freeRemoved);
    if (!settings.keepGroup.empty()) {
        joinGroup(settings.keepGroup);
    }
    std::string error;
    if (!dropOtherCapabilities(error)) {
        throw LiveError(error);
    }
}

// The maps that an earlier run left on a device may be those of a node on another one.
bool LiveEngine::lockMaps(const std::string& maps) {
    std::string error;
    auto lock = DeviceLock::take(maps, error);
    if (lock) {
        locks_.push_back(std::move(*lock));
    } else if (error != refusedMaps_) {
        log_.line("device", error + "; only the gates are taken over");
        refusedMaps_ = error;
    }
    return lock.has_value();
}

LiveEngine::~LiveEngine() {
    end();
}

void LiveEngine::attachAll() {
    for (const LiveLines::Line& line : lines_->lines()) {
        std::string error;
        if (!lines_->attach(line, links_->state(line.device), error)) {
            throw LiveError(line.device + ": " + error);
        }
    }
}

// Gates that nobody looks after: not those of a node that runs beside this one. Nor can one start
// there as long as the lock is held.
std::vector<LiveEngine::Stray> LiveEngine::strays() const {
    std::vector<Stray> found;
    for (const unsigned ifIndex : gates_->strays()) {
        std::string error;
        if (auto lock = DeviceLock::take(nameOf(ifIndex), error)) {
            found.push_back({ifIndex, std::move(*lock)});
        }
    }
    return found;
}

// A gate in other maps may be that of a node that is down just now.
void LiveEngine::treatStrays(bool freeThem) {
    for (const auto& [ifIndex, lock] : strays()) {
        std::string error;
        const std::string name = nameOf(ifIndex);
        if (!gates_->inOwnMaps(ifIndex)) {
            log_.line("device", name +
                                    ": keeps the gate of an earlier run, or of another node that "
                                    "does not run; talnode --release frees it");
        } else if (!freeThem) {
            log_.line("device", name +
                                    ": keeps the gate of an earlier run though no line has it now; "
                                    "free-removed = true in [engine], or talnode --release, "
                                    "frees it");
        } else if (gates_->freeStray(ifIndex, error)) {
            log_.line("device", name + ": freed, no line has it now");
        } else {
            log_.line("device", (name + ": not freed: ").append(error));
        }
    }
}

void LiveEngine::begin(Engine& engine, Reactor& loop, LiveLines::SetLink setLink) {
    engine_ = &engine;
    loop_ = &loop;
    lines_->begin(engine, loop, std::move(setLink));
    loop.watch(links_->fd(), [this] {
        std::string error;
        if (!links_->read(error)) {
            throw LiveError(error);  // a node that hears of no lost link must not go on
        }
    });
    loop.watch(gates_->fd(), [this] { gates_->poll(); });
    log_.line("device", "the lines are live");
}

void LiveEngine::end() {
    if (!engine_) {
        return;
    }
    loop_->unwatch(links_->fd());
    loop_->unwatch(gates_->fd());
    lines_->end();
    engine_ = nullptr;
}

void LiveEngine::release(const Settings& settings, EventLog& log) {
    const LiveEngine live(settings, log, Bare());
    for (const LiveLines::Line& line : settings.lines) {
        std::string error;
        const auto state = live.links_->state(line.device);
        if (!state || !(attachedProgram(state->ifIndex, Direction::fromSubscriber) ||
                        attachedProgram(state->ifIndex, Direction::toSubscriber))) {
            continue;
        }
        if (!live.gates_->freeStray(state->ifIndex, error)) {
            throw LiveError(line.device + ": " + error);
        }
        log.line(line.ifId, "device", line.device + ": freed, everything passes");
    }
    for (const auto& [ifIndex, lock] : live.strays()) {
        std::string error;
        if (!live.gates_->freeStray(ifIndex, error)) {
            throw LiveError(nameOf(ifIndex) + ": " + error);
        }
        log.line("device", nameOf(ifIndex) + ": freed, no line has it now");
    }
}

}  // namespace node
