// Every input takes the lock, moves one port and describes what follows; logging, forwarding,
// timers and event lines come after the lock is released, event lines through the loop, so
// that the module is never called from inside a call it makes itself.
#include "node/engine/engine.h"

#include <utility>
#include <vector>

#include "node/engine/classify.h"
#include "node/engine/event_line.h"
#include "node/engine/trap_text.h"

namespace node {

void Engine::addLine(unsigned ifId, const std::string& kernelName) {
    const std::lock_guard<std::mutex> lock(mutex_);
    lines_[ifId].kernelName = kernelName;
}

Engine::Followup Engine::followupOf(unsigned ifId, Line& line, Port::Outcome outcome,
                                    bool ofFrame) {
    if (line.gates) {
        moveGate(ifId, line, outcome, ofFrame);
    }
    Followup followup{ifId, std::move(outcome), line.port.requests(), {}, {}};
    if (followup.outcome.moved() && line.timeout) {
        loop_.cancel(*line.timeout);
        line.timeout.reset();
    }
    if (followup.outcome.raised()) {
        line.timeout = loop_.at(*line.port.deadline(), [this, ifId] { expire(ifId); });
        if (followup.outcome.cause == Cause::storedRequest) {
            followup.eventLine = storedLine(line.kernelName);
        } else if (followup.outcome.cause == Cause::automaticRequest) {
            followup.eventLine = automaticLine(line.kernelName);
        }
    }
    return followup;
}

void Engine::frame(unsigned ifId, std::span<const uint8_t> bytes) {
    Followup followup;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = lines_.find(ifId);
        if (found == lines_.end()) {
            return;
        }
        Line& line = found->second;
        std::optional<Frame> frame;
        const ittalCondition* rule = nullptr;
        if (line.port.state() != PortState::open) {
            const RuleBook::Conditions* const conditions = rules_.conditionsOf(ifId);
            frame = parseFrame(bytes);
            rule = frame && conditions ? firstMatch(*frame, *conditions) : nullptr;
        }
        followup =
            followupOf(ifId, line, line.port.frame(bytes, rule != nullptr, loop_.now()), true);
        if (followup.outcome.raised()) {
            line.trapRule = conditionText(*rule);
            followup.eventLine = trafficLine(line.kernelName, *frame);
            followup.trapText = trapText(*frame, line.trapRule);
        }
    }
    carryOut(std::move(followup), bytes);
}

void Engine::carryOut(Followup followup, std::span<const uint8_t> frame) {
    const Port::Outcome& outcome = followup.outcome;
    if (!followup.trapText.empty()) {
        log_.line(followup.ifId, "trap", followup.trapText);
    }
    tellMove(followup);
    if (forward_) {
        for (const Port::Bytes& kept : outcome.forward) {
            forward_(followup.ifId, kept);
        }
        if (outcome.forwardFrame) {
            forward_(followup.ifId, frame);
        }
    }
    if (!followup.eventLine.empty()) {
        loop_.post([this, line = std::move(followup.eventLine)] { raise_(line); });
    }
}

void Engine::tellMove(const Followup& followup) {
    const Port::Outcome& outcome = followup.outcome;
    if (outcome.moved()) {
        logMove(followup.ifId, outcome);
    }
    if (moved_ && (outcome.moved() || outcome.cause == Cause::linkLoss ||
                   outcome.cause == Cause::switchedOff)) {
        moved_(followup.ifId, outcome.cause, followup.request);
    }
}

void Engine::logMove(unsigned ifId, const Port::Outcome& outcome) {
    std::string text(portStateName(outcome.from));
    text.append(" -> ").append(portStateName(outcome.to));
    text.append(" (").append(causeName(outcome.cause)).append(")");
    if (!outcome.forward.empty()) {
        text += ", " + std::to_string(outcome.forward.size()) + " kept frame" +
                (outcome.forward.size() == 1 ? "" : "s") + " forwarded";
    }
    log_.line(ifId, "gate", text);
}

bool Engine::apply(unsigned ifId, const Input& input) {
    Followup followup;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = lines_.find(ifId);
        if (found == lines_.end()) {
            return ifId == 0;
        }
        std::optional<Port::Outcome> outcome = input(found->second.port);
        if (!outcome) {
            return false;
        }
        followup = followupOf(ifId, found->second, std::move(*outcome));
    }
    carryOut(std::move(followup));
    return true;
}

void Engine::expire(unsigned ifId) {
    apply(ifId, [this](Port& port) { return port.expire(loop_.now()); });
}

void Engine::link(unsigned ifId, bool up) {
    log_.line(ifId, "link", up ? "up" : "down");
    apply(ifId, [this, up](Port& port) {
        return up ? port.linkUp(loop_.now()) : port.linkDown(loop_.now());
    });
}

bool Engine::setNodeAdmin(bool on) {
    std::vector<unsigned> ids;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        nodeAdmin_ = on;
        for (const auto& [ifId, line] : lines_) {
            ids.push_back(ifId);
        }
    }
    for (const unsigned ifId : ids) {
        apply(ifId, [this, on](Port& port) { return port.setNodeAdmin(on, loop_.now()); });
    }
    return true;
}

bool Engine::nodeAdmin() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return nodeAdmin_;
}

bool Engine::setRequests(bool on) {
    std::vector<unsigned> ids;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& [ifId, line] : lines_) {
            ids.push_back(ifId);
        }
    }
    for (const unsigned ifId : ids) {
        apply(ifId, [this, on](Port& port) { return port.setRequests(on, loop_.now()); });
    }
    return true;
}

bool Engine::setAdmin(unsigned ifId, bool on) {
    return apply(ifId, [this, on](Port& port) { return port.setAdmin(on, loop_.now()); });
}

bool Engine::setStageAdmin(unsigned ifId, Stage stage, bool on) {
    return apply(
        ifId, [this, stage, on](Port& port) { return port.setStageAdmin(stage, on, loop_.now()); });
}

bool Engine::setStageOper(unsigned ifId, Stage stage, bool up) {
    return apply(
        ifId, [this, stage, up](Port& port) { return port.setStageOper(stage, up, loop_.now()); });
}

bool Engine::setAutoRequest(unsigned ifId, bool on) {
    return apply(ifId, [on](Port& port) {
        port.setAutoRequest(on);
        return Port::Outcome{};
    });
}

bool Engine::setTimeout(unsigned ifId, uint32_t seconds) {
    return apply(ifId, [seconds](Port& port) {
        port.setTimeout(seconds);
        return Port::Outcome{};
    });
}

bool Engine::setMaxQueue(unsigned ifId, uint32_t frames) {
    return apply(ifId, [frames](Port& port) {
        port.setMaxQueue(frames);
        return Port::Outcome{};
    });
}

bool Engine::reply(unsigned ifId, Stage stage, bool accepted) {
    return ifId != 0 && apply(ifId, [this, stage, accepted](Port& port) {
               return port.reply(stage, accepted, loop_.now());
           });
}

bool Engine::sendStoredRequest(unsigned ifId) {
    return ifId != 0 && apply(ifId, [this](Port& port) { return port.storedRequest(loop_.now()); });
}

void Engine::end(unsigned ifId) {
    apply(ifId, [this](Port& port) { return port.end(loop_.now()); });
}

bool Engine::read(unsigned ifId, const std::function<void(const Port&)>& use) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = lines_.find(ifId);
    if (found == lines_.end()) {
        return false;
    }
    use(found->second.port);
    return true;
}

std::optional<Engine::LineStatus> Engine::status(unsigned ifId) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = lines_.find(ifId);
    if (found == lines_.end()) {
        return std::nullopt;
    }
    const Port& port = found->second.port;
    LineStatus status{port.state(),
                      port.forwardingState(),
                      port.stageState(Stage::authentication),
                      port.stageState(Stage::authorization),
                      port.passes(),
                      sumOf(ifId, found->second),
                      {},
                      found->second.trapRule};
    if (const RuleBook::Conditions* const conditions = rules_.conditionsOf(ifId)) {
        for (const ittalCondition& condition : *conditions) {
            status.rules.push_back(conditionText(condition));
        }
    }
    return status;
}

Counters Engine::sumOf(unsigned ifId, const Line& line) {
    Counters sum = line.port.counters();
    if (line.gates) {
        const LineGates::Totals totals = line.gates->totals(ifId);
        for (size_t i = 0; i < counterCount; ++i) {
            sum.count(static_cast<Counter>(i), totals.counters[i]);
        }
    }
    return sum;
}

std::optional<Counters> Engine::counters(unsigned ifId) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = lines_.find(ifId);
    if (found == lines_.end()) {
        return std::nullopt;
    }
    return sumOf(ifId, found->second);
}

Engine::Passed Engine::passed(unsigned ifId) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = lines_.find(ifId);
    if (found == lines_.end()) {
        return {};
    }
    const Line& line = found->second;
    const uint32_t frames = sumOf(ifId, line)[Counter::forwarded];
    if (!line.gates) {
        return {line.port.forwardedOctets(), 0, frames, 0};
    }
    // Kept frames pass the gate in the kernel once more. Totals of a gate outlive processes.
    const LineGates::Totals totals = line.gates->totals(ifId);
    const LineGates::Totals& before = line.before;
    return {totals.inwardOctets - before.inwardOctets, totals.outwardOctets - before.outwardOctets,
            frames - before.counters[static_cast<size_t>(Counter::forwarded)],
            totals.passedOutward - before.passedOutward};
}

}  // namespace node
