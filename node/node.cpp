// The parts of the node do not know each other; here they are put together:
//   captures -> engine -> (loop) -> module -> ISA -> (loop) -> module -> engine.
// Everything between the parts goes through the loop, so the module is never called from
// inside one of its own calls.
#include "node/node.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "node/engine/bridge.h"
#include "node/host/board.h"
#include "node/host/interfaces.h"
#include "node/host/manager.h"
#include "node/host/module_log.h"
#include "node/isa/login_text.h"
#include "node/module/lifecycle.h"
#include "node/store/stored_logins.h"
#include "platform/itbridge.h"

namespace node {

namespace {

std::optional<IsaAnswer> answerOf(Config::Verdict verdict, Config::Milliseconds delay) {
    if (verdict == Config::Verdict::never) {
        return std::nullopt;
    }
    return IsaAnswer{verdict == Config::Verdict::accept, delay};
}

UserList userList(const Config::Isa& isa) {
    UserList users(answerOf(isa.unknown, Config::Milliseconds(0)));
    for (const Config::User& user : isa.users) {
        users.add(user.circuitId, answerOf(user.verdict, user.delay));
    }
    return users;
}

// Without captures there is no time but the wall's.
Pace paceOf(const Config& config, const Node::Options& options) {
    const bool captures =
        std::any_of(config.interfaces.begin(), config.interfaces.end(),
                    [](const Config::Interface& interface) { return !interface.capture.empty(); });
    return captures && !options.recordedPace ? Pace::instant : Pace::recorded;
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

void require(uint32_t result, const std::string& what) {
    if (result != 0) {
        throw std::runtime_error(what + " was refused by the module (result " +
                                 std::to_string(result) + ")");
    }
}

}  // namespace

Node::Node(const Config& config, const Options& options, std::ostream& out)
    : config_(config),
      options_(options),
      log_(out),
      loop_(paceOf(config, options)),
      engine_(loop_, log_),
      isa_(loop_, log_, userList(config.isa)) {
    log_.setClock([this] { return loop_.now(); });
    for (const Config::Interface& interface : config_.interfaces) {
        log_.setLabel(interface.id, interface.kernelName + " " + interface.name);
        engine_.addLine(interface.id, interface.kernelName);
        PlayedLine line{&interface, nullptr};
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
}

Node::~Node() {
    if (library_) {  // nothing of the module is left behind, also after a failed start
        dropEverythingOfTheModule();
    }
    attachBridge(nullptr);
    attachIsa(nullptr);
    attachModuleLog(nullptr);
    if (signalFd_ >= 0) {
        close(signalFd_);
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
    isa_.onAnswered([this](unsigned ifId, bool accepted) {
        if (accepted) {
            noteStored(ifId);
        }
    });
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

void Node::applyInterfaceSettings(const Config::Interface& interface) {
    const unsigned id = interface.id;
    const std::string where = " of interface " + interface.name;
    require(library_->timeoutSet(id, interface.timeout), "timeout" + where);
    require(library_->maxQueueSizeSet(id, interface.maxQueueSize), "max-queue-size" + where);
    require(library_->intfAuthenAdminStateSet(id, interface.authentication),
            "authentication" + where);
    require(library_->intfAuthorAdminStateSet(id, interface.authorization),
            "authorization" + where);
    // Set only when on: the module forgets the stored login of a line without rules whenever
    // automatic requests are switched on, and they are off in a new module.
    if (interface.autoRequest) {
        require(library_->intfAutoReqAdminStateSet(id, 1), "auto-request" + where);
    }
    require(library_->intfAdminStateSet(id, interface.admin), "tal" + where);
}

void Node::applySettings() {
    applyConfiguration([this] {
        require(library_->adminStateSet(config_.node.tal), "tal of the node");
        for (const Config::Interface& interface : config_.interfaces) {
            applyInterfaceSettings(interface);
        }
    });
    log_.line("module", "configuration applied");
}

void Node::setLink(unsigned ifId, bool up) {
    engine_.link(ifId, up);
    if (up) {
        deliverInterfaceUp(ifId);
    }
}

void Node::scheduleLinks() {
    for (const Config::Interface& interface : config_.interfaces) {
        const unsigned id = interface.id;
        loop_.post([this, id] { setLink(id, true); });
        for (const Config::Outage& outage : interface.outages) {
            loop_.at(outage.from, [this, id] { setLink(id, false); });
            loop_.at(outage.to, [this, id] { setLink(id, true); });
        }
    }
}

void Node::watchSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signalFd_ = signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC);
    if (signalFd_ < 0) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    loop_.watch(signalFd_, [this] {
        signalfd_siginfo info{};
        if (read(signalFd_, &info, sizeof info) == sizeof info) {
            end_ = info.ssi_signo == SIGTERM ? "of SIGTERM" : "of SIGINT";
            loop_.stop();
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
    isa_.close();
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
    applySettings();
    scheduleLinks();
    loop_.everySecond([this] { showProgress(); });
    const bool captures = std::any_of(lines_.begin(), lines_.end(), [](const PlayedLine& line) {
        return line.capture != nullptr;
    });
    loop_.run(captures && !options_.stay);
    for (const PlayedLine& line : lines_) {
        if (line.capture && !line.capture->damage().empty()) {
            log_.line(line.config->id, "capture", line.capture->damage());
        }
    }
    RunReport result = report();
    stop();
    return result;
}

LineReport Node::reportLine(const PlayedLine& line,
                            const std::map<unsigned, std::string>& stored) const {
    const Config::Interface& interface = *line.config;
    const Isa::Record record = isa_.record(interface.id);
    const Engine::LineStatus status = engine_.status(interface.id).value_or(Engine::LineStatus{});
    LineReport result;
    result.id = interface.id;
    result.name = interface.name;
    result.kernelName = interface.kernelName;
    result.frames = line.capture ? line.capture->frames() : 0;
    result.replayed = status.counters[Counter::storedRequests];
    result.traps = status.counters[Counter::requestsRaised] - result.replayed;
    result.verdict = verdictText(record.verdict);
    result.gate = portStateName(status.state);
    result.stored = stored.count(interface.id) != 0;
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
    result.end = end_;
    result.seconds = static_cast<double>(loop_.now().count()) / 1e6;
    return result;
}

}  // namespace node
