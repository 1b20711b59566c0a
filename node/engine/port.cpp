// blocked -> pending -> open or rejected; link loss, TAL switched off and an unanswered request
// lead back to blocked. Decisions:
// - One request at a time: while it is open, matching frames are kept up to the queue size and
//   then counted and dropped, so a storm on one line costs one request.
// - The gate opens when every stage that is switched on has accepted. A stage that is switched
//   on later closes it: the line has not been accepted by that stage.
// - A stage whose operational state is down takes no part in a new request; with none up
//   nothing is asked. Link loss takes both down; the module sets them up again. A line with
//   automatic request logs in by itself when its link comes up, so there the port does it.
// - An answer nobody waits for (too late, or for a stage that was not asked) is refused, so
//   that the module does not store a login whose line stays blocked. A reject for an open line
//   closes it at once.
// - After a reject a matching frame asks again once the back-off has passed; no timer runs.
// - A stored request that cannot be raised yet waits for the line and goes before an automatic
//   request, which would otherwise replace the stored login by an empty one.
// - A gate in the kernel outlives the process. Found open, it stays open for the replay of the
//   line's stored login and no longer: a reject, no answer, a lost link, switching off, or a
//   link that is up without the replay being asked closes it.
// Tested by tests/unit/node_host/port_test.cpp.
#include "node/engine/port.h"

#include <algorithm>
#include <utility>

namespace node {

std::string_view portStateName(PortState state) {
    switch (state) {
        case PortState::blocked:
            return "blocked";
        case PortState::pending:
            return "pending";
        case PortState::open:
            return "open";
        case PortState::rejected:
            return "rejected";
    }
    return "";
}

std::string_view causeName(Cause cause) {
    switch (cause) {
        case Cause::none:
            return "";
        case Cause::traffic:
            return "traffic";
        case Cause::storedRequest:
            return "stored request";
        case Cause::automaticRequest:
            return "automatic request";
        case Cause::accepted:
            return "accepted";
        case Cause::rejected:
            return "rejected";
        case Cause::timeout:
            return "no answer in time";
        case Cause::linkLoss:
            return "link lost";
        case Cause::switchedOff:
            return "switched off";
        case Cause::switchedOn:
            return "another stage switched on";
        case Cause::ended:
            return "login ended";
    }
    return "";
}

bool Port::canAsk() const {
    const bool stage = std::any_of(parts_.begin(), parts_.end(),
                                   [](const Part& part) { return part.admin && part.operUp; });
    return link_ && active() && requests_ && stage;
}

bool Port::anyStage() const {
    return std::any_of(parts_.begin(), parts_.end(), [](const Part& part) { return part.admin; });
}

bool Port::allAccepted() const {
    return anyStage() && std::all_of(parts_.begin(), parts_.end(), [](const Part& part) {
               return !part.admin || part.answer == Answer::accepted;
           });
}

void Port::dropQueue() {
    counters_.count(Counter::droppedPending, static_cast<uint32_t>(queue_.size()));
    queue_.clear();
}

void Port::forget() {
    for (Part& part : parts_) {
        part.answer = Answer::none;
    }
}

Port::Outcome Port::moveTo(PortState to, Cause cause, Time now) {
    Outcome outcome{state_, to, cause, {}, false};
    if (to == PortState::open) {
        counters_.count(Counter::forwarded, static_cast<uint32_t>(queue_.size()));
        for (const Bytes& kept : queue_) {
            forwardedOctets_ += kept.size();
        }
        outcome.forward.assign(std::make_move_iterator(queue_.begin()),
                               std::make_move_iterator(queue_.end()));
        queue_.clear();
    } else if (to != PortState::pending) {
        dropQueue();
    }
    held_ = held_ && to == PortState::pending;
    state_ = to;
    since_ = now;
    return outcome;
}

Port::Outcome Port::block(Cause cause, Time now) {
    forget();
    held_ = false;
    if (state_ == PortState::blocked) {
        return {state_, state_, cause, {}, false};
    }
    return moveTo(PortState::blocked, cause, now);
}

Port::Outcome Port::ask(Cause cause, Time now) {
    for (Part& part : parts_) {
        part.answer = part.admin && part.operUp ? Answer::waiting : Answer::none;
    }
    deadline_ = now + std::chrono::seconds(timeout_);
    raisedBy_ = cause;
    counters_.count(Counter::requestsRaised);
    return moveTo(PortState::pending, cause, now);
}

Port::Outcome Port::askStored(Time now) {
    if (!storedWanted_ || state_ != PortState::blocked || !canAsk()) {
        return unchanged();
    }
    storedWanted_ = false;
    counters_.count(Counter::storedRequests);
    return ask(Cause::storedRequest, now);
}

Port::Outcome Port::frame(std::span<const uint8_t> bytes, bool matches, Time now) {
    if (!link_) {
        return unchanged();
    }
    counters_.count(Counter::framesSeen);
    if (state_ == PortState::open) {
        counters_.count(Counter::forwarded);
        forwardedOctets_ += bytes.size();
        Outcome outcome = unchanged();
        outcome.forwardFrame = true;
        return outcome;
    }
    if (matches) {
        counters_.count(Counter::framesMatched);
    }
    const bool mayAsk = state_ == PortState::blocked ||
                        (state_ == PortState::rejected && now - since_ >= rejectBackOff);
    Outcome outcome = matches && mayAsk && canAsk() ? ask(Cause::traffic, now) : unchanged();
    if (state_ != PortState::pending) {
        counters_.count(state_ == PortState::blocked ? Counter::droppedBlocked
                                                     : Counter::droppedRejected);
    } else if (matches && queue_.size() < maxQueue_) {
        counters_.count(Counter::framesQueued);
        queue_.emplace_back(bytes.begin(), bytes.end());
    } else {
        if (matches) {
            counters_.count(Counter::queueOverflows);
        }
        counters_.count(Counter::droppedPending);
    }
    return outcome;
}

Port::Outcome Port::linkUp(Time now) {
    if (link_) {
        return unchanged();
    }
    link_ = true;
    if (autoRequest_) {
        for (Part& part : parts_) {
            part.operUp = true;
        }
    }
    Outcome stored = askStored(now);
    held_ = held_ && stored.moved();
    if (stored.moved() || storedWanted_ || !autoRequest_ || !canAsk()) {
        return stored;
    }
    return ask(Cause::automaticRequest, now);
}

Port::Outcome Port::linkDown(Time now) {
    if (!link_) {
        return unchanged();
    }
    link_ = false;
    for (Part& part : parts_) {
        part.operUp = false;
    }
    return block(Cause::linkLoss, now);
}

Port::Outcome Port::storedRequest(Time now) {
    storedWanted_ = state_ == PortState::blocked;
    return askStored(now);
}

std::optional<Port::Outcome> Port::reply(Stage stage, bool accepted, Time now) {
    Part& answered = part(stage);
    const bool waiting = state_ == PortState::pending && answered.answer == Answer::waiting;
    const bool again = state_ == PortState::open && answered.admin;
    if (!waiting && !again) {
        return std::nullopt;
    }
    counters_.count(accepted ? Counter::accepts : Counter::rejects);
    answered.answer = accepted ? Answer::accepted : Answer::rejected;
    if (!accepted) {
        return moveTo(PortState::rejected, Cause::rejected, now);
    }
    if (state_ == PortState::pending && allAccepted()) {
        return moveTo(PortState::open, Cause::accepted, now);
    }
    return unchanged();
}

std::optional<Time> Port::deadline() const {
    if (state_ != PortState::pending) {
        return std::nullopt;
    }
    return deadline_;
}

Port::Outcome Port::expire(Time now) {
    if (state_ != PortState::pending || now < deadline_) {
        return unchanged();
    }
    counters_.count(Counter::timeouts);
    return block(Cause::timeout, now);
}

Port::Outcome Port::end(Time now) {
    return block(Cause::ended, now);
}

Port::Outcome Port::setNodeAdmin(bool on, Time now) {
    nodeAdmin_ = on;
    if (on) {
        return askStored(now);
    }
    storedWanted_ = false;
    return block(Cause::switchedOff, now);
}

Port::Outcome Port::setRequests(bool on, Time now) {
    requests_ = on;
    return askStored(now);
}

Port::Outcome Port::setAdmin(bool on, Time now) {
    admin_ = on;
    if (on) {
        return askStored(now);
    }
    storedWanted_ = false;
    return block(Cause::switchedOff, now);
}

Port::Outcome Port::setStageAdmin(Stage stage, bool on, Time now) {
    Part& changed = part(stage);
    if (changed.admin == on) {
        return unchanged();
    }
    changed.admin = on;
    changed.answer = Answer::none;
    if (on) {
        return state_ == PortState::open ? block(Cause::switchedOn, now) : askStored(now);
    }
    if (!anyStage()) {
        return block(Cause::switchedOff, now);
    }
    if (state_ == PortState::pending && allAccepted()) {
        return moveTo(PortState::open, Cause::accepted, now);
    }
    return unchanged();
}

Port::Outcome Port::setStageOper(Stage stage, bool up, Time now) {
    part(stage).operUp = up;
    return askStored(now);
}

// It counts as one that was given up with its request, as the next process will see it too.
void Port::lost(size_t octets) {
    counters_.count(Counter::forwarded, ~0U);  // one less
    counters_.count(Counter::droppedPending);
    forwardedOctets_ -= octets;
}

bool Port::holdOpen() {
    held_ = storedWanted_ && state_ == PortState::blocked;
    return held_;
}

uint32_t Port::framesWanted(Time now) const {
    const bool mayAsk = state_ == PortState::blocked ||
                        (state_ == PortState::rejected && now - since_ >= rejectBackOff);
    const bool wanted = state_ == PortState::pending || (mayAsk && canAsk());
    return wanted && !held_ ? std::max(maxQueue_, 1U) : 0;
}

std::optional<Time> Port::backOffEnd() const {
    if (state_ != PortState::rejected) {
        return std::nullopt;
    }
    return since_ + rejectBackOff;
}

ForwardingState Port::forwardingState() const {
    switch (state_) {
        case PortState::pending:
            return ForwardingState::pending;
        case PortState::open:
            return ForwardingState::open;
        default:
            return ForwardingState::blocked;
    }
}

StageState Port::stageState(Stage stage) const {
    if (!part(stage).admin) {
        return StageState::off;
    }
    switch (part(stage).answer) {
        case Answer::waiting:
            return StageState::pending;
        case Answer::accepted:
            return StageState::accepted;
        case Answer::rejected:
            return StageState::rejected;
        default:
            return StageState::idle;
    }
}

}  // namespace node
