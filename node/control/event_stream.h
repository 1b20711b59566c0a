// One client's stream of events: writes what its reader of the hub finds, one message at a time.
// Its functions run on the transport's and the hub's threads; it deletes itself.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <tal/v1/tal.grpc.pb.h>
#include "node/control/event_hub.h"

namespace node::control {

class EventStream final : public grpc::ServerWriteReactor<tal::v1::Event> {
public:
    using Log = std::function<void(const std::string& line)>;
    using Reactor = grpc::ServerWriteReactor<tal::v1::Event>;

    // `log` must outlive the stream.
    static Reactor* open(grpc::CallbackServerContext& context, EventHub& hub,
                         EventHub::Filter filter, std::chrono::milliseconds stalledFor,
                         const Log& log);
    static Reactor* refuse(const grpc::Status& status);

private:
    enum class State { starting, idle, writing, finished };

    EventStream(grpc::CallbackServerContext& context, std::chrono::milliseconds stalledFor,
                const Log& log)
        : context_(context), stalledFor_(stalledFor), log_(log) {}

    void OnSendInitialMetadataDone(bool ok) override;
    void OnWriteDone(bool ok) override;
    void OnCancel() override;
    void OnDone() override;

    void wake();     // there may be news, or time has passed
    void proceed();  // the next message, or the end
    bool rest();
    void cutOffWhenStalled();
    bool enter(State from, State to);
    void finish(State from, const grpc::Status& status);

    grpc::CallbackServerContext& context_;
    const std::chrono::milliseconds stalledFor_;
    const Log& log_;
    std::shared_ptr<EventStream> self_;  // until OnDone
    std::shared_ptr<EventHub::Reader> reader_;
    tal::v1::Event message_;      // being written
    std::recursive_mutex mutex_;  // guards all below
    State state_ = State::starting;
    bool wokenWhileWriting_ = false;
    bool cancelled_ = false;
    std::optional<std::chrono::steady_clock::time_point> lostSince_;
};

}  // namespace node::control
