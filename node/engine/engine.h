// The forwarding engine: the lines with their gates, the named objects of the bridge and the
// event lines. Callable from any thread; calls nothing back while its lock is held and raises
// event lines only from the loop.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "node/engine/line_gates.h"
#include "node/engine/port.h"
#include "node/engine/rule_book.h"
#include "node/log/event_log.h"
#include "node/loop/loop.h"

namespace node {

class Engine {
public:
    using RaiseEvent = std::function<void(const std::string& line)>;
    using Forward = std::function<void(unsigned ifId, std::span<const uint8_t> frame)>;
    // `request`: how many the line had raised by then, so that one is told from the next.
    using Moved = std::function<void(unsigned ifId, Cause cause, uint32_t request)>;

    struct LineStatus {
        PortState state = PortState::blocked;
        ForwardingState forwarding = ForwardingState::blocked;
        StageState authentication = StageState::idle;
        StageState authorization = StageState::idle;
        bool passes = false;  // the gate lets frames through
        Counters counters;
        std::vector<std::string> rules;  // the conditions of its selector, as rules are written
        std::string trapRule;            // the one that matched last
    };

    Engine(Loop& loop, EventLog& log) : loop_(loop), log_(log) {}

    // Wiring, before anything else. `raise` is called on the loop, `forward` from frame() or
    // a reply with frames that pass an open gate, `moved` on any thread and not under the lock;
    // it is also told of a lost link and of switching off that found the gate closed.
    void onEvent(RaiseEvent raise) { raise_ = std::move(raise); }
    void onForward(Forward forward) { forward_ = std::move(forward); }
    void onMoved(Moved moved) { moved_ = std::move(moved); }
    void addLine(unsigned ifId, const std::string& kernelName);

    // From here on the line's gate is one of `gates` and does what the port does; empty: none,
    // it stays as it is. A gate that is open stays so only for the replay of a stored login;
    // whether this one does. `gates` must outlive its lines here.
    // What went through the gate until now is not counted by passed().
    bool gateBy(unsigned ifId, LineGates* gates);
    // The same for a line whose interface came only after gateBy().
    void passedBegins(unsigned ifId);
    // The line's interface is new: the gate gets the line's state, rules and traps again.
    void renewGate(unsigned ifId);

    // A kept frame that was to be forwarded could not be.
    void lost(unsigned ifId, size_t octets);

    // The subscriber side.
    void frame(unsigned ifId, std::span<const uint8_t> bytes);
    void link(unsigned ifId, bool up);

    // The bridge side; false: refused, nothing changed. Interface 0 stands for no line: what
    // is set there is accepted and forgotten, because the module's walks over all interfaces
    // may meet an entry of that number and would end at a refusal.
    template <class Result>
    Result withRules(const std::function<Result(RuleBook&)>& use) {
        const std::lock_guard<std::mutex> lock(mutex_);
        Result result = use(rules_);
        tellRules();
        return result;
    }
    bool setNodeAdmin(bool on);
    bool nodeAdmin() const;
    bool setRequests(bool on);
    bool setAdmin(unsigned ifId, bool on);
    bool setStageAdmin(unsigned ifId, Stage stage, bool on);
    bool setStageOper(unsigned ifId, Stage stage, bool up);
    bool setAutoRequest(unsigned ifId, bool on);
    bool setTimeout(unsigned ifId, uint32_t seconds);
    bool setMaxQueue(unsigned ifId, uint32_t frames);
    bool reply(unsigned ifId, Stage stage, bool accepted);
    bool sendStoredRequest(unsigned ifId);
    void end(unsigned ifId);  // of a login, by ISA
    // Runs `read` on the port; false when there is no such line.
    bool read(unsigned ifId, const std::function<void(const Port&)>& use) const;

    std::optional<LineStatus> status(unsigned ifId) const;
    // The port's and the gate's. Empty: no such line.
    std::optional<Counters> counters(unsigned ifId) const;

    // What passed the line's gate in this process. Frames to the subscriber are seen by gates in
    // the kernel only.
    struct Passed {
        uint64_t inwardOctets = 0;
        uint64_t outwardOctets = 0;
        uint32_t inwardFrames = 0;  // wrapping, as is the next
        uint32_t outwardFrames = 0;
    };
    Passed passed(unsigned ifId) const;

private:
    struct Line {
        std::string kernelName;
        Port port;
        std::optional<Loop::Timer> timeout;  // of the request that is open
        std::string trapRule;                // the rule that matched last
        LineGates* gates = nullptr;
        LineGates::Totals before;              // of the gate when this process got it
        RuleBook::Conditions told;             // the rules that the gate has
        uint32_t armed = 0;                    // traps that it was given last
        std::optional<Loop::Timer> nextTraps;  // when the back-off after a reject ends
    };
    // What is done once the lock is released.
    struct Followup {
        unsigned ifId = 0;
        Port::Outcome outcome;
        uint32_t request = 0;  // the line's last by then
        std::string eventLine;
        std::string trapText;
    };

    using Input = std::function<std::optional<Port::Outcome>(Port&)>;
    bool apply(unsigned ifId, const Input& input);
    Followup followupOf(unsigned ifId, Line& line, Port::Outcome outcome, bool ofFrame = false);
    void moveGate(unsigned ifId, Line& line, const Port::Outcome& outcome, bool ofFrame);
    void armAfterBackOff(unsigned ifId, Line& line);
    void tellRules();
    static Counters sumOf(unsigned ifId, const Line& line);
    void carryOut(Followup followup, std::span<const uint8_t> frame = {});
    void tellMove(const Followup& followup);
    void logMove(unsigned ifId, const Port::Outcome& outcome);
    void expire(unsigned ifId);

    Loop& loop_;
    EventLog& log_;
    RaiseEvent raise_;
    Forward forward_;
    Moved moved_;
    mutable std::mutex mutex_;  // guards the three below
    std::map<unsigned, Line> lines_;
    RuleBook rules_;
    bool nodeAdmin_ = false;
};

}  // namespace node
