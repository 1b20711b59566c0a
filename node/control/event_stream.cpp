// A stream is in one state, and each step is taken by whoever moves it there: a write is started
// only by the thread that moved it from idle to writing, the end only by the one that moved it to
// finished. No lock is held while the transport is called, which may call back at once.
//
// A client that does not read: the transport takes messages until its window is full, then one
// write stays under way. The hub's ring turns on; once it has overwritten what this client had
// still to get, the client is lost. If it reads again within a moment it is told so with the
// status; if not, the call is cut off, as a status would wait behind the same full window. Either
// way the node's log says who was dropped and why.
//
// Tests: tests/control/event_stream_test.cpp.
#include "node/control/event_stream.h"

#include <utility>

#include "node/control/message.h"

namespace node::control {

namespace {

using grpc::Status;
using grpc::StatusCode;

const char lostReason[] = "dropped: events were overwritten before this client had read them";

// A stream that ends before it has begun.
class Refusal final : public EventStream::Reactor {
public:
    explicit Refusal(const Status& status) { Finish(status); }
    void OnDone() override { delete this; }
};

}  // namespace

EventStream::Reactor* EventStream::refuse(const Status& status) {
    return new Refusal(status);
}

EventStream::Reactor* EventStream::open(grpc::CallbackServerContext& context, EventHub& hub,
                                        EventHub::Filter filter,
                                        std::chrono::milliseconds stalledFor, const Log& log) {
    const std::shared_ptr<EventStream> stream(new EventStream(context, stalledFor, log));
    stream->reader_ = hub.subscribe(std::move(filter), [weak = std::weak_ptr<EventStream>(stream)] {
        if (const auto alive = weak.lock()) {
            alive->wake();
        }
    });
    if (!stream->reader_) {
        return refuse({StatusCode::RESOURCE_EXHAUSTED, "too many clients listen to events"});
    }
    stream->self_ = stream;
    stream->StartSendInitialMetadata();
    return stream.get();
}

bool EventStream::enter(State from, State to) {
    const std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (state_ != from) {
        return false;
    }
    state_ = to;
    return true;
}

void EventStream::finish(State from, const Status& status) {
    if (enter(from, State::finished)) {
        Finish(status);
    }
}

void EventStream::OnSendInitialMetadataDone(bool ok) {
    if (!ok) {
        finish(State::starting, Status::CANCELLED);
    } else if (enter(State::starting, State::writing)) {
        proceed();
    }
}

void EventStream::wake() {
    if (enter(State::idle, State::writing)) {
        proceed();
    } else {
        const std::lock_guard<std::recursive_mutex> lock(mutex_);
        wokenWhileWriting_ = true;
        cutOffWhenStalled();
    }
}

// In state writing, and only there: whoever moved the stream there goes on here.
void EventStream::proceed() {
    std::shared_ptr<const EventHub::Record> record;
    do {
        switch (reader_->next(record)) {
            case EventHub::Reader::Found::event:
                message_ = messageOf(*record);
                StartWrite(&message_);
                return;
            case EventHub::Reader::Found::nothing:
                break;
            case EventHub::Reader::Found::lost:
                log_("events: client " + context_.peer() + " " + lostReason);
                finish(State::writing, {StatusCode::RESOURCE_EXHAUSTED, lostReason});
                return;
            case EventHub::Reader::Found::closed:
                finish(State::writing, {StatusCode::UNAVAILABLE, "the node stops"});
                return;
        }
    } while (!rest());
}

// True when there is nothing to be done until the next wake; false: news came meanwhile.
bool EventStream::rest() {
    {
        const std::lock_guard<std::recursive_mutex> lock(mutex_);
        if (std::exchange(wokenWhileWriting_, false)) {
            return false;
        }
        if (!cancelled_) {
            state_ = State::idle;
            return true;
        }
    }
    finish(State::writing, Status::CANCELLED);
    return true;
}

// Under the lock, so that the call is still there. It may call OnCancel at once.
void EventStream::cutOffWhenStalled() {
    if (state_ != State::writing || cancelled_ || !reader_->lost()) {
        lostSince_.reset();
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    if (!lostSince_) {
        lostSince_ = now;
    }
    if (now - *lostSince_ >= stalledFor_) {
        log_("events: client " + context_.peer() + " " + lostReason + ", and it does not read");
        cancelled_ = true;
        context_.TryCancel();
    }
}

void EventStream::OnWriteDone(bool ok) {
    if (ok) {
        proceed();
    } else {
        finish(State::writing, Status::CANCELLED);
    }
}

void EventStream::OnCancel() {
    {
        const std::lock_guard<std::recursive_mutex> lock(mutex_);
        cancelled_ = true;
    }
    finish(State::idle, Status::CANCELLED);
}

// Nobody else calls the transport for this stream any more: that needs the state writing.
void EventStream::OnDone() {
    const std::shared_ptr<EventStream> last = std::move(self_);
}

}  // namespace node::control
