// The login state of one access interface: what is asked, what was answered and whether its
// gate is open. Pure: no I/O, no clock of its own; every input returns what is to be done.
// Not thread-safe: the engine calls it under its lock.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "node/engine/counters.h"
#include "node/time.h"

namespace node {

enum class Stage : size_t { authentication = 0, authorization = 1 };

// The gate lets frames through only in `open`.
enum class PortState { blocked, pending, open, rejected };

// What management reads: the numbers are part of the interface.
enum class ForwardingState : uint32_t { blocked = 0, pending = 1, open = 2 };
enum class StageState : uint32_t { off = 0, idle = 1, pending = 2, accepted = 3, rejected = 4 };

enum class Cause {
    none,
    traffic,
    storedRequest,
    automaticRequest,
    accepted,
    rejected,
    timeout,
    linkLoss,
    switchedOff,  // TAL on the node, on the line, or its last stage
    switchedOn,   // a stage that has not accepted the line
    ended,        // by ISA, which may ask for another login
};

std::string_view portStateName(PortState state);
std::string_view causeName(Cause cause);

constexpr Time rejectBackOff = std::chrono::seconds(30);

class Port {
public:
    using Bytes = std::vector<uint8_t>;

    // What an input led to. A request was raised when `to` is pending and differs from `from`.
    // A lost link and switching off are a cause also when the gate was closed already.
    struct Outcome {
        PortState from = PortState::blocked;
        PortState to = PortState::blocked;
        Cause cause = Cause::none;
        std::vector<Bytes> forward;  // frames kept until now, oldest first
        bool forwardFrame = false;   // the frame just given

        bool moved() const { return from != to; }
        bool raised() const { return moved() && to == PortState::pending; }
    };

    // Traffic. `matches`: the frame may raise a login; asked only while the gate is closed.
    Outcome frame(std::span<const uint8_t> bytes, bool matches, Time now);

    // The line.
    Outcome linkUp(Time now);
    Outcome linkDown(Time now);
    bool link() const { return link_; }

    // Requests and answers.
    Outcome storedRequest(Time now);  // kept until the line can ask, if it cannot now
    std::optional<Outcome> reply(Stage stage, bool accepted, Time now);  // empty: not waited for
    Outcome expire(Time now);                                            // when the deadline passed
    Outcome end(Time now);                 // closes the gate; the next request may follow at once
    std::optional<Time> deadline() const;  // of the request that is open
    Cause raisedBy() const { return raisedBy_; }  // why the last request was raised
    uint32_t requests() const { return counters_[Counter::requestsRaised]; }  // tells them apart

    // A gate in the kernel. One that was found open stays so while a stored request is on its
    // way and until its end; false: there is none, the gate closes.
    bool holdOpen();
    // A kept frame that was given out did not pass after all.
    void lost(size_t octets);
    bool passes() const { return state_ == PortState::open || held_; }
    // How many matching frames the gate should hand up: what can be asked and kept now.
    uint32_t framesWanted(Time now) const;
    std::optional<Time> backOffEnd() const;  // after a reject

    // Settings. The port's own are off but for the stages, as in a new engine.
    Outcome setNodeAdmin(bool on, Time now);
    Outcome setRequests(bool on, Time now);
    Outcome setAdmin(bool on, Time now);
    Outcome setStageAdmin(Stage stage, bool on, Time now);
    Outcome setStageOper(Stage stage, bool up, Time now);
    void setAutoRequest(bool on) { autoRequest_ = on; }
    void setTimeout(uint32_t seconds) { timeout_ = seconds; }  // of requests raised later
    void setMaxQueue(uint32_t frames) { maxQueue_ = frames; }  // of frames kept later

    bool admin() const { return admin_; }
    bool active() const { return nodeAdmin_ && admin_; }
    bool stageAdmin(Stage stage) const { return part(stage).admin; }
    bool stageOper(Stage stage) const { return part(stage).operUp; }
    bool autoRequest() const { return autoRequest_; }
    uint32_t timeout() const { return timeout_; }
    uint32_t maxQueue() const { return maxQueue_; }

    PortState state() const { return state_; }
    ForwardingState forwardingState() const;
    StageState stageState(Stage stage) const;
    const Counters& counters() const { return counters_; }
    uint64_t forwardedOctets() const { return forwardedOctets_; }

private:
    enum class Answer { none, waiting, accepted, rejected };
    struct Part {
        bool admin = true;
        bool operUp = true;
        Answer answer = Answer::none;
    };

    Part& part(Stage stage) { return parts_[static_cast<size_t>(stage)]; }
    const Part& part(Stage stage) const { return parts_[static_cast<size_t>(stage)]; }
    bool canAsk() const;
    bool anyStage() const;
    bool allAccepted() const;
    Outcome unchanged() const { return {state_, state_, Cause::none, {}, false}; }
    Outcome moveTo(PortState to, Cause cause, Time now);
    Outcome ask(Cause cause, Time now);
    Outcome askStored(Time now);
    Outcome block(Cause cause, Time now);
    void forget();
    void dropQueue();

    std::array<Part, 2> parts_;
    bool link_ = false;
    bool nodeAdmin_ = false;
    bool requests_ = true;
    bool admin_ = false;
    bool autoRequest_ = false;
    bool storedWanted_ = false;
    bool held_ = false;
    uint32_t timeout_ = 120;
    uint32_t maxQueue_ = 1;
    PortState state_ = PortState::blocked;
    Time since_{0};
    Time deadline_{0};
    std::deque<Bytes> queue_;
    Counters counters_;
    Cause raisedBy_ = Cause::none;
    uint64_t forwardedOctets_ = 0;  // of the frames that were counted as forwarded
};

}  // namespace node
