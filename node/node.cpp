// The parts of the node do not know each other; here they are put together:
//   captures, devices -> engine -> (loop) -> module -> ISA -> (loop) -> module -> engine.
// Everything between the parts goes through the loop, so the module is never called from
// inside one of its own calls.
#include "node/node.h"

#include <signal.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "node/config/reload.h"
#include "node/engine/bridge.h"
#include "node/host/board.h"
#include "node/host/interfaces.h"
#include "node/host/manager.h"
#include "node/host/module_log.h"
#include "node/isa/login_text.h"
#include "node/module/lifecycle.h"
#include "node/module/settings.h"
#include "node/store/stored_logins.h"
#include "platform/itbridge.h"

namespace node {

namespace {

std::optional<IsaAnswer> answerOf(Config::Verdict verdict, Config::Milliseconds delay,
                                  const LoginProfiles& profiles) {
    if (verdict == Config::Verdict::never) {
        return std::nullopt;
    }
    return IsaAnswer{verdict == Config::Verdict::accept, delay, profiles};
}

UserList userList(const Config::Isa& isa) {
    UserList users(answerOf(isa.unknown, Config::Milliseconds(0), {}));
    for (const Config::User& user : isa.users) {
        users.add(user.circuitId, answerOf(user.verdict, user.delay, user.profiles));
    }
    return users;
}

bool hasCaptures(const Config& config) {
    return std::any_of(config.interfaces.begin(), config.interfaces.end(),
                       [](const Config::Interface& each) { return !each.capture.empty(); });
}

bool hasDevices(const Config& config) {
    return std::any_of(config.interfaces.begin(), config.interfaces.end(),
                       [](const Config::Interface& each) { return !each.device.empty(); });
}

// Without captures there is no time but the wall's; devices and servers know no other either.
Pace paceOf(const Config& config, const Node::Options& options) {
    const bool jumps =
        hasCaptures(config) && !hasDevices(config) && !config.radius && !options.recordedPace;
    return jumps ? Pace::instant : Pace::recorded;
}

LiveEngine::Settings liveSettings(const Config& config) {
    LiveEngine::Settings settings{
        {}, config.engine.pinDirectory, config.engine.freeRemoved, config.control.socketGroup};
    for (const Config::Interface& interface : config.interfaces) {
        if (!interface.device.empty()) {
            settings.lines.push_back({interface.id, interface.device, interface.outwardOpen});
        }
    }
    return settings;
}

std::string verdictText(Isa::Verdict verdict) {
    switch (verdict) {
        case Isa::Verdict::none:
            return "-";
        case Isa::Verdict::waiting:
            return "waiting";
        case Isa::Verdict::accepted:
            return "accepted";
        case Isa::Verdict::rejected:
            return "rejected";
        case Isa::Verdict::neverAnswered:
            return "no answer";
    }
    return "";
}

void dropEverythingOfTheModule() {
    dropCallbacks();
    for (BLEntity* entity : registeredEntities()) {
        forgetEntity(*entity);
    }
}

}  // namespace

Node::Node(const Config& config, const Options& options, std::ostream& out)
    : file_(config.file),
      config_(config),
      options_(options),
      log_(out),
      loop_(paceOf(config, options)),
      engine_(loop_, log_),
      isa_(loop_, log_, userList(config.isa)),
      profiles_({config.profiles.file, hasDslLines(config.node.boardType)}, log_) {
    log_.setClock([this] { return loop_.now(); });
    for (const Config::Interface& interface : config_.interfaces) {
        log_.setLabel(interface.id, interface.kernelName + " " + interface.name);
        engine_.addLine(interface.id, interface.kernelName);
        PlayedLine line{interface.id, interface.name, interface.kernelName, nullptr};
        if (!interface.capture.empty()) {
            line.capture = std::make_unique<Capture>(
                Capture::Settings{interface.capture, interface.start, config_.node.mac},
                [this, id = interface.id](std::span<const uint8_t> frame) {
                    engine_.frame(id, frame);
                });
            loop_.add(*line.capture);
        }
        lines_.push_back(std::move(line));
    }
    if (config_.radius) {
        useRadius(*config_.radius);
    }
    if (hasDevices(config_)) {  // last: it gives up privileges that files may need
        openDevices();
    }
}

void Node::openDevices() {
    live_ = std::make_unique<LiveEngine>(liveSettings(config_), log_);
    engine_.onForward(
        [this](unsigned ifId, std::span<const uint8_t> frame) { live_->forward(ifId, frame); });
}

void Node::release(const Config& config, std::ostream& out) {
    EventLog log(out);
    for (const Config::Interface& interface : config.interfaces) {
        log.setLabel(interface.id, interface.kernelName + " " + interface.name);
    }
    LiveEngine::release(liveSettings(config), log);
}

Node::~Node() {
    management_.reset();
    if (radius_) {
        radius_->close();  // of a run that was cut off, too: while the gates say what passed
    }
    if (library_) {  // nothing of the module is left behind, also after a failed start
        dropEverythingOfTheModule();
    }
    attachBridge(nullptr);
    attachIsa(nullptr);
    attachProfiles(nullptr);
    attachModuleLog(nullptr);
    if (signalFd_ >= 0) {
        close(signalFd_);
    }
    if (storageFd_ >= 0) {
        close(storageFd_);
    }
}

void Node::attach() {
    setBoard({config_.node.shelf, config_.node.boardPosition, config_.node.boardType});
    std::vector<AccessInterface> interfaces;
    for (const Config::Interface& interface : config_.interfaces) {
        interfaces.push_back({interface.id, interface.name, interface.kernelName});
    }
    setInterfaces(std::move(interfaces));
    attachModuleLog(&log_);
    attachBridge(&engine_);
    attachIsa(&isa_);
    attachProfiles(&profiles_);
    engine_.onEvent([](const std::string& line) { deliverEvent(line); });
    isa_.onReply([this](unsigned ifId, unsigned kind, int result) {
        return library_->reply(ifId, kind, result);
    });
    isa_.onStages([this](unsigned ifId) {
        Isa::Stages stages;
        const bool read = library_->intfAuthenAdminStateGet(ifId, &stages.authentication) == 0 &&
                          library_->intfAuthorAdminStateGet(ifId, &stages.authorization) == 0;
        return read ? stages : Isa::Stages{};
    });
    isa_.onAnswered([this](unsigned ifId, const IsaAnswer& answer) {
        if (answer.accepted) {
            noteStored(ifId);
            createProfiles(ifId, answer.profiles);
        }
    });
}

// Switching a line or the node off deletes profiles under the exclusive lock. Under the shared
// one the states that are read stay true until the profiles are there, so that none of a line
// that was switched off meanwhile is left behind.
void Node::createProfiles(unsigned ifId, const LoginProfiles& profiles) {
    const BLLManager::sharedLock_t lock;
    bool nodeOn = false;
    bool lineOn = false;
    if (lock.isLocked() && library_->adminStateGet(&nodeOn) == 0 && nodeOn &&
        library_->intfAdminStateGet(ifId, &lineOn) == 0 && lineOn) {
        profiles_.login(ifId, profiles);
    } else if (!profiles.empty()) {
        log_.line(ifId, "profile", "none created: TAL is off");
    }
}

void Node::noteStored(unsigned ifId) {
    std::map<unsigned, std::string> now = readStoredLogins(storedLoginsFile);
    const auto entry = now.find(ifId);
    if (entry == now.end()) {
        log_.line(ifId, "stored", std::string("not in ") + storedLoginsFile);
    } else if (const auto before = stored_.find(ifId);
               before != stored_.end() && before->second == entry->second) {
        log_.line(ifId, "stored", std::string("kept as it is in ") + storedLoginsFile);
    } else {
        log_.line(ifId, "stored", std::string("written to ") + storedLoginsFile);
    }
    stored_ = std::move(now);
}

void Node::start() {
    BLLManager& manager = singleton<BLLManager>::instance();
    manager.registerEntity(singleton<Interfaces>::instance());
    manager.registerEntity(singleton<itbridge>::instance());
    library_.emplace(options_.library);
    log_.line("module", "loaded " + options_.library);
    order_ = startOrder(registeredEntities());
    startEntities(order_);
    std::string names;
    for (const BLEntity* entity : order_) {
        names += (names.empty() ? "" : ", ") + entity->getName();
    }
    log_.line("module", "started " + names);
}

void Node::noteDeleted() {
    std::map<unsigned, std::string> now = readStoredLogins(storedLoginsFile);
    for (const auto& [ifId, block] : stored_) {
        if (now.count(ifId) == 0) {
            log_.line(ifId, "stored", std::string("deleted from ") + storedLoginsFile);
        }
    }
    stored_ = std::move(now);
}

void Node::applyConfig() {
    try {
        applyConfiguration([&] { applySettings(*library_, config_, log_); });
    } catch (...) {
        noteDeleted();
        throw;
    }
    noteDeleted();
}

std::string Node::reload(const std::string& path) {
    std::string problem;
    try {
        Config next = loadConfig(path);
        problem = needsRestart(config_, next);
        if (problem.empty()) {
            if (radius_) {
                radius_->reload(*next.radius);
            }
            isa_.replaceUsers(userList(next.isa));
            config_ = std::move(next);
            applyConfig();
        }
    } catch (const std::exception& error) {
        problem = error.what();
    }
    log_.line("reload", problem.empty() ? path + " applied" : "refused: " + problem);
    return problem;
}

void Node::setLink(unsigned ifId, bool up) {
    engine_.link(ifId, up);
    if (up) {
        deliverInterfaceUp(ifId);
    }
}

void Node::scheduleLinks() {
    if (live_) {
        live_->begin(engine_, loop_, [this](unsigned ifId, bool up) { setLink(ifId, up); });
    }
    for (const Config::Interface& interface : config_.interfaces) {
        if (!interface.device.empty()) {
            continue;
        }
        const unsigned id = interface.id;
        loop_.post([this, id] { setLink(id, true); });
        for (const Config::Outage& outage : interface.outages) {
            loop_.at(outage.from, [this, id] { setLink(id, false); });
            loop_.at(outage.to, [this, id] { setLink(id, true); });
        }
    }
}

void Node::scheduleChanges() {
    for (const Config::Change& change : config_.changes) {
        loop_.at(change.at, [this, path = change.config] { reload(path); });
    }
}

void Node::watchSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signalFd_ = signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC);
    if (signalFd_ < 0) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    loop_.watch(signalFd_, [this] {
        signalfd_siginfo info{};
        if (read(signalFd_, &info, sizeof info) != sizeof info) {
            return;
        }
        if (info.ssi_signo == SIGHUP) {
            reload(file_);
        } else {
            end_ = info.ssi_signo == SIGTERM ? "of SIGTERM" : "of SIGINT";
            loop_.stop();
        }
    });
}

void Node::startManagement() {
    Config config = config_;
    if (!options_.controlSocket.empty()) {
        config.control.socket = options_.controlSocket;
    }
    if (!config.control.socket.empty() || !config.control.listen.empty()) {
        management_ = std::make_unique<Management>(config, *library_, engine_, profiles_, log_,
                                                   radius_.get());
        watchStorage();
    }
}

// The module forgets stored logins within calls of management, on their threads; what is gone is
// noticed by the file. Without a watch the run goes on, only these lines are missing.
void Node::watchStorage() {
    const std::filesystem::path directory = std::filesystem::path(storedLoginsFile).parent_path();
    storageFd_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (storageFd_ < 0 || inotify_add_watch(storageFd_, directory.c_str(),
                                            IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE) < 0) {
        log_.line("control",
                  "deleted logins are not noticed: " + std::generic_category().message(errno));
        return;
    }
    loop_.watch(storageFd_, [this] {
        alignas(inotify_event) char changes[4096];
        if (read(storageFd_, changes, sizeof changes) > 0) {
            noteDeleted();
        }
    });
}

void Node::showProgress() {
    uint64_t frames = 0;
    unsigned percents = 0;
    unsigned captures = 0;
    for (const PlayedLine& line : lines_) {
        if (line.capture) {
            frames += line.capture->frames();
            percents += line.capture->percent();
            ++captures;
        }
    }
    if (captures > 0 && frames != framesShown_) {
        framesShown_ = frames;
        log_.line("progress", std::to_string(frames) + " frames played, " +
                                  std::to_string(percents / captures) + " % of the captures");
    }
}

void Node::stop() {
    management_.reset();
    isa_.close();
    if (radius_) {
        radius_->close();  // while the gates say what passed
    }
    if (live_) {
        live_->end();  // what the module still does on its way out moves no gate
    }
    for (const std::string& name : stopEntities(order_)) {
        log_.line("module", "entity \"" + name + "\" did not stop cleanly");
    }
    dropEverythingOfTheModule();
    const bool gone = library_->unload();
    log_.line("module", gone ? "stopped and unloaded" : "stopped, but the library is still loaded");
}

RunReport Node::run() {
    watchSignals();
    attach();
    stored_ = readStoredLogins(storedLoginsFile);
    start();
    applyConfig();
    log_.line("module", "configuration applied");
    startManagement();
    scheduleLinks();
    scheduleChanges();
    loop_.everySecond([this] { showProgress(); });
    loop_.run(hasCaptures(config_) && !live_ && !radius_ && !options_.stay);
    for (const PlayedLine& line : lines_) {
        if (line.capture && !line.capture->damage().empty()) {
            log_.line(line.id, "capture", line.capture->damage());
        }
    }
    RunReport result = report();
    stop();
    return result;
}

LineReport Node::reportLine(const PlayedLine& line,
                            const std::map<unsigned, std::string>& stored) const {
    const Isa::Record record = isa_.record(line.id);
    const Engine::LineStatus status = engine_.status(line.id).value_or(Engine::LineStatus{});
    LineReport result;
    result.id = line.id;
    result.name = line.name;
    result.kernelName = line.kernelName;
    result.frames = line.capture ? line.capture->frames() : status.counters[Counter::framesSeen];
    result.replayed = status.counters[Counter::storedRequests];
    result.traps = status.counters[Counter::requestsRaised] - result.replayed;
    result.verdict = verdictText(record.verdict);
    result.gate = portStateName(status.state);
    result.stored = stored.count(line.id) != 0;
    result.rule = status.trapRule;
    result.rules = status.rules;
    for (size_t i = 0; i < counterCount; ++i) {
        result.counters.emplace_back(counterName(static_cast<Counter>(i)),
                                     status.counters.values()[i]);
    }
    if (record.requests != 0) {
        result.request = loginIdentifiers(record.last);
    }
    result.damage = line.capture ? line.capture->damage() : "";
    return result;
}

RunReport Node::report() const {
    const std::map<unsigned, std::string> stored = readStoredLogins(storedLoginsFile);
    RunReport result;
    for (const PlayedLine& line : lines_) {
        result.lines.push_back(reportLine(line, stored));
    }
    addProfiles(result, profiles_.list());
    result.end = end_;
    result.seconds = static_cast<double>(loop_.now().count()) / 1e6;
    return result;
}

}  // namespace node
