// ISA of the node: queues login requests, asks the user list and answers the module from the
// loop. Requests may come from any thread; answers are given with no lock of ISA held.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "node/isa/user_list.h"
#include "node/log/event_log.h"
#include "node/loop/loop.h"
#include "rpc/rpctal.h"

namespace node {

// Who answers instead of a user list: through Isa::answer, on the loop. Any thread.
class LoginAuthority {
public:
    virtual ~LoginAuthority() = default;
    virtual void prepare(rpcTalLoginBlockBll& block) = 0;    // may fill in what is known of a line
    virtual void ask(const rpcTalLoginBlockBll& block) = 0;  // must not answer before it returns
    virtual void forgetConfiguration() = 0;
};

class Isa {
public:
    // The stages that a line's settings ask for.
    struct Stages {
        bool authentication = true;
        bool authorization = true;
    };
    enum class Verdict { none, waiting, accepted, rejected, neverAnswered };

    // What is known of a line's logins.
    struct Record {
        Verdict verdict = Verdict::none;
        uint32_t requests = 0;       // as they arrived
        uint32_t late = 0;           // answers that the module did not take
        rpcTalLoginBlockBll last{};  // the newest request
    };

    using Reply = std::function<uint32_t(unsigned ifId, unsigned kind, int result)>;
    using StagesOf = std::function<Stages(unsigned ifId)>;
    using Answered = std::function<void(unsigned ifId, const IsaAnswer& answer)>;

    Isa(Loop& loop, EventLog& log, UserList users)
        : loop_(loop), log_(log), users_(std::move(users)) {}

    // Wiring, before the first request. `answered` runs on the loop after the module took the
    // last answer of a request.
    void onReply(Reply reply) { reply_ = std::move(reply); }
    void onStages(StagesOf stagesOf) { stagesOf_ = std::move(stagesOf); }
    void onAnswered(Answered answered) { answered_ = std::move(answered); }
    void useAuthority(LoginAuthority& authority) { authority_ = &authority; }  // must outlive it

    void request(rpcTalLoginBlockBll& block);
    void talMode(bool on);
    void replaceUsers(UserList users);  // for requests that arrive from now on
    void clearUsers();                  // everybody is unknown from now on
    void close();  // the module is gone: answers that are still due are dropped

    // On the loop, from an authority. A verdict for a line, asked for or not; and a request that
    // nobody waits for any more, if there is one, so that the next one is asked.
    void answer(unsigned ifId, const IsaAnswer& answer) { give(ifId, answer); }
    void withdraw(unsigned ifId);

    Record record(unsigned ifId) const;

private:
    // One question per line; a request that arrives meanwhile joins it.
    struct Line {
        Record record;
        bool waiting = false;
    };

    void give(unsigned ifId, const IsaAnswer& answer);
    bool send(unsigned ifId, unsigned kind, bool accepted);

    Loop& loop_;
    EventLog& log_;
    Reply reply_;
    StagesOf stagesOf_;
    Answered answered_;
    LoginAuthority* authority_ = nullptr;
    mutable std::mutex mutex_;  // guards the three below
    UserList users_;
    std::map<unsigned, Line> lines_;
    bool closed_ = false;
};

// Puts an ISA behind the platform's class. Before the module is loaded.
void attachIsa(Isa* isa);  // null: every request is refused

}  // namespace node
