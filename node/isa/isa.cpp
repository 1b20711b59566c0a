// A line has one question at a time: a duplicate while it is open joins it and gets no answer
// of its own, as a retransmission would. An accepted authentication is followed by the answer
// to authorization, each only when the line has that stage switched on. A line whose request
// is never answered stays open here; the engine's timeout ends it there.
#include "node/isa/isa.h"

#include <exception>
#include <utility>

#include "node/isa/login_text.h"
#include "platform/isaradiusbll.h"

namespace node {

namespace {

constexpr unsigned kindAuthentication = 2;
constexpr unsigned kindAuthorization = 3;
constexpr int resultAccepted = 0;
constexpr int resultRejected = -1;

Isa* attached = nullptr;

}  // namespace

void Isa::request(rpcTalLoginBlockBll& block) {
    const unsigned ifId = block.interface;
    std::optional<IsaAnswer> answer;
    bool joined = false;
    if (authority_) {
        authority_->prepare(block);
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        Line& line = lines_[ifId];
        joined = line.waiting;
        answer = users_.find(fieldText(block.circuitId));
        ++line.record.requests;
        line.record.last = block;
        if (!joined) {
            line.waiting = true;
            line.record.verdict = answer || authority_ ? Verdict::waiting : Verdict::neverAnswered;
        }
    }
    log_.line(ifId, "request", loginText(block) + (joined ? " (joins the open request)" : ""));
    if (authority_ && !joined) {
        authority_->ask(block);
    }
    if (joined || authority_ || !answer) {
        return;
    }
    loop_.at(loop_.now() + answer->delay,
             [this, ifId, answer = std::move(*answer)] { give(ifId, answer); });
}

bool Isa::send(unsigned ifId, unsigned kind, bool accepted) {
    std::string text(kind == kindAuthentication ? "authentication " : "authorization ");
    text += accepted ? "accepted" : "rejected";
    log_.line(ifId, "verdict", text);
    const uint32_t result = reply_(ifId, kind, accepted ? resultAccepted : resultRejected);
    if (result != 0) {
        log_.line(ifId, "verdict",
                  text + ": not taken by the module, result " + std::to_string(result));
    }
    return result == 0;
}

void Isa::give(unsigned ifId, const IsaAnswer& answer) {
    const bool accepted = answer.accepted;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (closed_) {
            return;
        }
        lines_[ifId].waiting = false;
    }
    const Stages stages = stagesOf_(ifId);
    bool taken = stages.authentication || stages.authorization;
    if (stages.authentication) {
        taken = send(ifId, kindAuthentication, accepted);
    }
    if (stages.authorization && taken && (accepted || !stages.authentication)) {
        taken = send(ifId, kindAuthorization, accepted);
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        Record& record = lines_[ifId].record;
        if (taken) {
            record.verdict = accepted ? Verdict::accepted : Verdict::rejected;
        } else {
            ++record.late;
        }
    }
    if (taken && answered_) {
        answered_(ifId, answer);
    }
}

void Isa::withdraw(unsigned ifId) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Line& line = lines_[ifId];
    if (line.waiting) {
        line.waiting = false;
        line.record.verdict = Verdict::neverAnswered;
    }
}

void Isa::talMode(bool on) {
    log_.line("isa", on ? "TAL is on" : "TAL is off");
}

void Isa::replaceUsers(UserList users) {
    const std::lock_guard<std::mutex> lock(mutex_);
    users_ = std::move(users);
}

void Isa::clearUsers() {
    if (authority_) {
        authority_->forgetConfiguration();
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        users_.clear();
    }
    log_.line("isa", "configuration cleared: every circuit id is unknown now");
}

void Isa::close() {
    const std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
}

Isa::Record Isa::record(unsigned ifId) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto line = lines_.find(ifId);
    return line == lines_.end() ? Record{} : line->second.record;
}

void attachIsa(Isa* isa) {
    attached = isa;
}

}  // namespace node

unsigned isaradiusbll::isaradiusbllLoginRequest(rpcTalLoginBlockBll* block,
                                                rpcIsaBllLoginRes* result) {
    if (!node::attached || !block) {
        return 1;
    }
    try {
        node::attached->request(*block);
    } catch (const std::exception&) {
        return 1;
    }
    if (result) {
        result->result = 0;
    }
    return 0;
}

unsigned isaradiusbll::isaradiusbllTalMode(int mode) {
    if (!node::attached) {
        return 1;
    }
    node::attached->talMode(mode != 0);
    return 0;
}

unsigned isaradiusbll::isaradiusbllClearConfig() {
    if (!node::attached) {
        return 1;
    }
    node::attached->clearUsers();
    return 0;
}

template <>
isaradiusbll& singleton<isaradiusbll>::instance() {
    static isaradiusbll isa;
    return isa;
}
