// Gates that remember what was done to them. Test code, one thread.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "node/engine/line_gates.h"

namespace node_test {

class FakeGates : public node::LineGates {
public:
    struct State {
        bool attached = false;
        bool takenOff = false;  // by somebody else
        Line line;
        node::Gate gate = node::Gate::blocked;
        std::vector<ittalCondition> rules;
        uint32_t traps = 0;
        unsigned arms = 0;          // how often traps were given or taken
        unsigned rulesWritten = 0;  // how often
        Totals totals;
    };

    std::map<unsigned, State> lines;
    std::vector<std::string> calls;  // attach, restore, linkDown, reinject, in their order
    unsigned polls = 0;
    Found finds = Found::nothing;
    bool refusesRules = false;
    std::string refuses;  // attaching and reinjecting fail with this text, unless empty

    std::optional<Found> attach(const Line& line, std::string& error) override {
        calls.push_back("attach " + std::to_string(line.ifId) + " at " +
                        std::to_string(line.ifIndex));
        if (!refuses.empty()) {
            error = refuses;
            return std::nullopt;
        }
        State& state = lines[line.ifId];
        const bool stays = finds == Found::own || finds == Found::older;
        state = {.attached = true,
                 .takenOff = false,
                 .line = line,
                 .gate = stays ? state.gate : node::Gate::blocked,
                 .rules = {},
                 .arms = state.arms,
                 .rulesWritten = state.rulesWritten,
                 .totals = state.totals};
        return finds;
    }
    bool inPlace(unsigned ifId) const override {
        const auto found = lines.find(ifId);
        return found != lines.end() && found->second.attached && !found->second.takenOff;
    }
    bool restore(unsigned ifId, std::string& error) override {
        calls.push_back("restore " + std::to_string(ifId));
        State* const state = find(ifId);
        error = refuses;
        if (!state || !refuses.empty()) {
            return false;
        }
        state->takenOff = false;
        return true;
    }
    bool setGate(unsigned ifId, node::Gate gate) override {
        State* const state = find(ifId);
        if (state) {
            state->gate = gate;
            state->traps = gate == node::Gate::open ? 0 : state->traps;
        }
        return state != nullptr;
    }
    node::Gate gate(unsigned ifId) const override {
        const auto found = lines.find(ifId);
        return found == lines.end() ? node::Gate::blocked : found->second.gate;
    }
    bool linkDown(unsigned ifId, uint32_t carrierDowns) override {
        calls.push_back("linkDown " + std::to_string(ifId) + " count " +
                        std::to_string(carrierDowns));
        return setGate(ifId, node::Gate::blocked) && arm(ifId, 0);
    }
    bool setRules(unsigned ifId, std::span<const ittalCondition> conditions) override {
        State* const state = find(ifId);
        if (refusesRules) {
            return false;
        }
        if (state) {
            state->rules.assign(conditions.begin(), conditions.end());
            ++state->rulesWritten;
        }
        return state != nullptr;
    }
    bool arm(unsigned ifId, uint32_t frames) override {
        State* const state = find(ifId);
        if (state) {
            state->traps = frames;
            ++state->arms;
        }
        return state != nullptr;
    }
    bool reinject(unsigned ifId, std::span<const uint8_t> frame, std::string& error) override {
        calls.push_back("reinject " + std::to_string(ifId) + " " + std::to_string(frame.size()));
        error = refuses;
        return refuses.empty();
    }
    Totals totals(unsigned ifId) const override {
        const auto found = lines.find(ifId);
        return found == lines.end() || !found->second.attached ? Totals{} : found->second.totals;
    }

    size_t poll() override {
        ++polls;
        return 0;
    }

    // A frame that the kernel hands up uses up a trap.
    bool takeTrap(unsigned ifId) {
        State& state = lines[ifId];
        if (state.traps == 0) {
            return false;
        }
        --state.traps;
        return true;
    }

private:
    State* find(unsigned ifId) {
        const auto found = lines.find(ifId);
        return found == lines.end() || !found->second.attached ? nullptr : &found->second;
    }
};

}  // namespace node_test
