// What the engine does to gates that are elsewhere, in the kernel. All of it happens under the
// engine's lock, so that the gate of a line never lags behind its port, whichever threads move it:
// LineGates' calls are stores into shared memory, or one short system call for rules.
//
// A gate hands up a number of matching frames and then only counts. It is given a number when
// the line begins to want frames (framesWanted), when it ends up where a new request is due, and
// when a frame came that led to nothing. Frames that raise or join a request give nothing back:
// that is what keeps a storm on one line away from the node.
//
// Tested by tests/unit/node_host/engine_gates_test.cpp.
#include <cstring>

#include "node/engine/engine.h"

namespace node {

namespace {

bool same(const RuleBook::Conditions& one, const RuleBook::Conditions& other) {
    return one.size() == other.size() &&
           (one.empty() ||
            std::memcmp(one.data(), other.data(), one.size() * sizeof(ittalCondition)) == 0);
}

Gate gateOf(const Port& port) {
    return port.passes() ? Gate::open : static_cast<Gate>(port.state());
}

}  // namespace

void Engine::moveGate(unsigned ifId, Line& line, const Port::Outcome& outcome, bool ofFrame) {
    line.gates->setGate(ifId, gateOf(line.port));
    const uint32_t wanted = line.port.framesWanted(loop_.now());
    const bool usedUp = outcome.moved() ? outcome.cause != Cause::traffic
                                        : ofFrame && line.port.state() != PortState::pending;
    if (wanted != line.armed || (wanted > 0 && usedUp)) {
        line.gates->arm(ifId, wanted);
        line.armed = wanted;
    }
    armAfterBackOff(ifId, line);
}

void Engine::armAfterBackOff(unsigned ifId, Line& line) {
    const std::optional<Time> end = line.port.backOffEnd();
    if (!end && line.nextTraps) {
        loop_.cancel(*line.nextTraps);
        line.nextTraps.reset();
    } else if (end && !line.nextTraps) {
        line.nextTraps = loop_.at(*end, [this, ifId] {
            apply(ifId, [](Port& port) {
                return Port::Outcome{port.state(), port.state(), Cause::none, {}, false};
            });
        });
    }
}

void Engine::tellRules() {
    for (auto& [ifId, line] : lines_) {
        if (!line.gates) {
            continue;
        }
        const RuleBook::Conditions* const bound = rules_.conditionsOf(ifId);
        const RuleBook::Conditions& wanted = bound ? *bound : RuleBook::Conditions{};
        if (!same(line.told, wanted) && line.gates->setRules(ifId, wanted)) {
            line.told = wanted;
        }
    }
}

bool Engine::gateBy(unsigned ifId, LineGates* gates) {
    bool held = false;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = lines_.find(ifId);
        if (found == lines_.end()) {
            return false;
        }
        found->second.gates = gates;
        found->second.before = gates ? gates->totals(ifId) : LineGates::Totals{};
        held = gates && gates->gate(ifId) == Gate::open && found->second.port.holdOpen();
    }
    renewGate(ifId);
    return held;
}

void Engine::passedBegins(unsigned ifId) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = lines_.find(ifId);
    if (found != lines_.end() && found->second.gates) {
        found->second.before = found->second.gates->totals(ifId);
    }
}

void Engine::renewGate(unsigned ifId) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = lines_.find(ifId);
    if (found == lines_.end() || !found->second.gates) {
        return;
    }
    Line& line = found->second;
    const RuleBook::Conditions* const bound = rules_.conditionsOf(ifId);
    const RuleBook::Conditions& rules = bound ? *bound : RuleBook::Conditions{};
    // Rules that were refused are told again with the next change.
    line.told = line.gates->setRules(ifId, rules) ? rules : RuleBook::Conditions{};
    line.gates->setGate(ifId, gateOf(line.port));
    line.armed = line.port.framesWanted(loop_.now());
    line.gates->arm(ifId, line.armed);
    armAfterBackOff(ifId, line);
}

void Engine::lost(unsigned ifId, size_t octets) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = lines_.find(ifId);
    if (found != lines_.end()) {
        found->second.port.lost(octets);
    }
}

}  // namespace node
