// A login is asked for once per request of the engine; Isa joins duplicates. Nothing blocks:
// requests are handed to the loop, answers come from the client on the loop.
//
// No answer. The client hands a request from server to server until its patience ends. Then, by
// the configured policy, the request is put again (the line stays blocked), or a line that was
// open before the restart, or until its session was over, is opened as it was and asked for
// until a server is back ("unproven"). When the engine gives up a request the line is "wanted":
// it is asked for again when a server returns, or after a while. The engine raises that request
// like a stored one. Its event line holds nothing but the line's name, so prepare() fills in what
// the last request knew; otherwise the module would store an almost empty login.
//
// End of a session (Session-Timeout): the gate closes and the line logs in again by itself, as
// above, without waiting for traffic. A subscriber whom the servers still accept is cut off for
// the time of one answer. With the policy "keep" a session does not end while no server lives.
// Disconnect closes by a rejecting answer to the module, so that the line waits its back-off and
// then for traffic: whoever was thrown out is not let in again in the same instant. In both cases
// the stored login stays, as after any reject: a restart asks the servers again.
//
// A line's requests have numbers, by which the gate's moves and what the module asks because of
// them are told from those of the request before, however many of them one turn of the loop brings.
// Whom a request was about is forgotten with the line's link, and when it is switched off.
// Tested by tests/unit/node_host/radius_isa_test.cpp and tests/scenario/radius_node_test.py.
#include "node/isa/radius_isa.h"

#include <algorithm>
#include <ctime>

#include "node/config/config.h"
#include "node/isa/grant_profiles.h"
#include "node/isa/login_line.h"
#include "node/isa/login_text.h"
#include "node/isa/radius/dynamic/listener.h"

namespace node {

namespace {

constexpr Time leftAtMost = std::chrono::minutes(5);
constexpr Time queueFull = std::chrono::seconds(1);

radius::TerminateCause causeOf(RadiusIsa::Why why) {
    switch (why) {
        case RadiusIsa::Why::linkLost:
            return radius::TerminateCause::lostCarrier;
        case RadiusIsa::Why::switchedOff:
            return radius::TerminateCause::adminReset;
        default:
            return radius::TerminateCause::nasRequest;
    }
}

radius::DynamicSettings nobodyMayAsk(const RadiusConfig& config) {
    radius::DynamicSettings settings;
    settings.window = static_cast<uint32_t>(config.dynamic.window.count());
    return settings;
}

bool headerOnly(const rpcTalLoginBlockBll& block) {
    return (block.loginIdType & ~static_cast<unsigned>(talLoginIdCircuitId)) == 0;
}

}  // namespace

RadiusIsa::World RadiusIsa::realWorld() {
    return {radiusSetup, [] { return static_cast<int64_t>(std::time(nullptr)); }};
}

RadiusIsa::RadiusIsa(Loop& loop, EventLog& log, Isa& isa, Lines lines, const RadiusConfig& config,
                     World world)
    : loop_(loop),
      log_(log),
      isa_(isa),
      lines_(std::move(lines)),
      world_(std::move(world)),
      config_(config),
      secrets_(radiusSecrets(config)),
      sessions_(loop, log, {config.sessionFile, lines_.traffic, world_.wall}),
      authority_(nobodyMayAsk(config), world_.wall,
                 [this](const radius::DynamicRequest& request) { return judge(request); }) {
    sessions_.onServerChange([this](const std::string& name, radius::ServerState state) {
        serverChanged(true, name, state);
    });
    use(config, world_.setup(config, secrets_, loop_));
    keepSnapshot();
    if (!sessions_.left().empty()) {
        leftTimer_ = loop_.at(loop_.now() + leftAtMost, [this] { lookForLeft(); });
    }
}

RadiusIsa::~RadiusIsa() {
    close();
}

void RadiusIsa::close() {
    if (!open_) {
        return;
    }
    open_ = false;
    for (auto& [ifId, login] : logins_) {
        stopTimer(login);
    }
    for (const auto& timer : {snapshotTimer_, leftTimer_}) {
        if (timer) {
            loop_.cancel(*timer);
        }
    }
    listener_.reset();
    client_.reset();
    sessions_.finish();
}

// A request and its answer.

void RadiusIsa::prepare(rpcTalLoginBlockBll& block) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto again = again_.find(block.interface);
    if (again == again_.end() || !headerOnly(block)) {
        return;
    }
    const rpcTalLoginBlockBll header = block;
    block = again->second.block;
    block.LoginAAAtype = header.LoginAAAtype;
}

void RadiusIsa::ask(const rpcTalLoginBlockBll& block) {
    uint32_t request = 0;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        request = raised_[block.interface];
    }
    loop_.post([this, block, request] { asked(block, request); });
}

void RadiusIsa::asked(const rpcTalLoginBlockBll& block, uint32_t request) {
    const unsigned ifId = block.interface;
    const LineState state = lines_.state(ifId);
    if (!open_ || isOutdated(ifId, request)) {
        return;  // and was withdrawn
    }
    Login& login = logins_[ifId];
    stopTimer(login);
    login.wanted = false;
    login.block = block;
    login.request = request;
    login.asking = isCurrent(ifId, login);
    login.paced = state.replays;
    login.wasOpen = false;
    if (login.paced) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto again = again_.find(ifId);
        login.wasOpen = sessions_.isLeft(ifId) || (again != again_.end() && again->second.wasOpen);
    }
    login.grant = {};
    login.unproven = false;
    if (login.asking) {
        submit(ifId);
        return;
    }
    isa_.withdraw(ifId);  // given up before it was looked at
    if (state.gate == Gate::closed && state.on) {
        want(ifId, login);
    }
}

void RadiusIsa::submit(unsigned ifId) {
    Login& login = logins_[ifId];
    login.ticket = 0;
    if (!client_) {
        log_.line(ifId, "radius", "nobody is asked: the configuration was cleared");
        return;
    }
    std::optional<radius::Buffer> attributes =
        radius::loginAttributes(loginLine(login.block, lines_.name(ifId)), format_);
    if (!attributes) {
        log_.line(ifId, "radius", "not asked: no user name, or a value is too long");
        loop_.post([this, ifId] { giveVerdict(ifId, false, {}); });
        return;
    }
    radius::Request request;
    request.attributes = std::move(*attributes);
    request.password = password_;
    request.replay = login.paced;
    login.ticket = client_->submit(
        std::move(request), [this, ifId](const radius::Answer& answer) { answered(ifId, answer); });
    if (login.ticket == 0) {
        log_.line(ifId, "radius", "too many requests wait; tried again");
        setTimer(login, queueFull, [this, ifId] { submit(ifId); });
    }
}

void RadiusIsa::answered(unsigned ifId, const radius::Answer& answer) {
    Login& login = logins_[ifId];
    login.ticket = 0;
    if (!isAwaited(ifId, login)) {
        return;  // the gate has moved on, and word of that is on its way
    }
    switch (answer.outcome) {
        case radius::Outcome::accepted:
            accepted(ifId, answer);
            break;
        case radius::Outcome::rejected:
            log_.line(ifId, "radius",
                      (answer.challenged ? "challenged, which is a refusal, by " : "rejected by ") +
                          answer.server);
            giveVerdict(ifId, false, {});
            break;
        case radius::Outcome::unanswered:
            unanswered(ifId);
            break;
    }
}

void RadiusIsa::accepted(unsigned ifId, const radius::Answer& answer) {
    std::optional<radius::Grant> grant = radius::readGrant(*answer.packet, format_);
    if (!grant) {
        log_.line(ifId, "radius",
                  "accepted by " + answer.server + " with a value that cannot be: a refusal");
        giveVerdict(ifId, false, {});
        return;
    }
    Login& login = logins_[ifId];
    login.grant = std::move(*grant);
    log_.line(ifId, "radius", "accepted by " + answer.server);
    const LoginProfiles profiles = profilesOf(ifId, login.grant.profiles);
    if (!(login.open && login.unproven)) {
        giveVerdict(ifId, true, profiles);
        return;
    }
    login.unproven = false;
    sessions_.changeClasses(ifId, login.grant.classes);
    lines_.profiles(ifId, profiles);
    armSession(ifId, login);
}

void RadiusIsa::unanswered(unsigned ifId) {
    Login& login = logins_[ifId];
    if (login.asking && login.wasOpen && config_.onFailure == RadiusConfig::OnFailure::keep) {
        log_.line(ifId, "radius", "no server answered: opened as it was");
        login.unproven = true;
        giveVerdict(ifId, true, {});
        return;
    }
    log_.line(ifId, "radius", "no server answered: asked again");
    login.paced = true;
    submit(ifId);
}

void RadiusIsa::giveVerdict(unsigned ifId, bool accepted, const LoginProfiles& profiles) {
    if (!open_) {
        return;
    }
    logins_[ifId].asking = false;
    isa_.answer(ifId, {accepted, std::chrono::milliseconds(0), profiles});
}

void RadiusIsa::dropTicket(Login& login, bool overdue) {
    if (login.ticket != 0 && client_) {
        client_->cancel(login.ticket, overdue);
    }
    login.ticket = 0;
}

bool RadiusIsa::isOutdated(unsigned ifId, uint32_t request) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return raised_[ifId] != request;
}

bool RadiusIsa::isCurrent(unsigned ifId, const Login& login) const {
    const LineState state = lines_.state(ifId);
    return state.gate == Gate::asking && state.request == login.request;
}

// By the request, or by a line that was opened without an answer.
bool RadiusIsa::isAwaited(unsigned ifId, const Login& login) const {
    const LineState state = lines_.state(ifId);
    return login.asking ? isCurrent(ifId, login)
                        : login.open && login.unproven && state.gate == Gate::open &&
                              state.request == login.request;
}

// What was still waiting is of an earlier request; its answer must not decide this one.
void RadiusIsa::newRequest(unsigned ifId, Login& login, uint32_t request) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        uint32_t& raised = raised_[ifId];
        if (static_cast<int32_t>(request - raised) <= 0) {
            return;  // two threads moved the gate, and this word of it comes late
        }
        raised = request;
    }
    isa_.withdraw(ifId);
    if (login.asking) {
        withdraw(ifId, login, Why::raised);
    }
}

void RadiusIsa::withdraw(unsigned ifId, Login& login, Why why) {
    dropTicket(login, why == Why::timeout);
    stopTimer(login);
    login.asking = false;
    login.unproven = false;
    isa_.withdraw(ifId);
}

LoginProfiles RadiusIsa::profilesOf(unsigned ifId, const std::vector<std::string>& texts) {
    const GrantedProfiles granted = grantedProfiles(texts);
    for (const std::string& problem : granted.problems) {
        log_.line(ifId, "profile", "none for " + problem);
    }
    return granted.profiles;
}

// Gates and sessions.

void RadiusIsa::gateMoved(unsigned ifId, Why why, uint32_t request) {
    if (!open_) {
        return;
    }
    Login& login = logins_[ifId];
    if (why == Why::raised) {
        newRequest(ifId, login, request);
    }
    const Gate gate = lines_.state(ifId).gate;
    if (gate == Gate::open) {
        if (!login.open) {
            opened(ifId, login);
        }
        return;
    }
    if (login.open) {
        closed(ifId, login, why);
    }
    if (login.asking && !isCurrent(ifId, login)) {
        withdraw(ifId, login, why);
    }
    if (gate == Gate::closed) {
        sessions_.settle(ifId);
        if (why == Why::timeout && login.request == request) {
            want(ifId, login);
        }
    }
    // Also when the line asks again already: not whom the last request was about.
    if (why == Why::linkLost || why == Why::switchedOff ||
        (why == Why::answered && gate == Gate::closed)) {
        forget(ifId, login, request);
    }
}

void RadiusIsa::opened(unsigned ifId, Login& login) {
    login.open = true;
    login.wanted = false;
    login.endCause.reset();
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        again_.erase(ifId);
    }
    sessions_.open(ifId, loginLine(login.block, lines_.name(ifId)), login.grant.classes,
                   login.wasOpen);
    armSession(ifId, login);
    if (login.unproven) {
        login.paced = true;
        submit(ifId);
    }
}

void RadiusIsa::closed(unsigned ifId, Login& login, Why why) {
    login.open = false;
    login.unproven = false;
    stopTimer(login);
    dropTicket(login, false);
    sessions_.close(ifId, login.endCause.value_or(causeOf(why)));
    login.endCause.reset();
}

// Whoever was there may not be the next one. What an earlier process left stays for its replay
// until the line has asked once.
void RadiusIsa::forget(unsigned ifId, Login& login, uint32_t request) {
    if (!login.asking) {
        stopTimer(login);
    }
    login.wanted = false;
    if (request != 0 && sessions_.isLeft(ifId)) {
        sessions_.close(ifId, radius::TerminateCause::nasReboot);
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    again_.erase(ifId);
}

void RadiusIsa::armSession(unsigned ifId, Login& login) {
    stopTimer(login);
    const uint32_t seconds = login.grant.sessionTimeout.value_or(0);
    if (seconds != 0) {
        setTimer(login, std::chrono::seconds(seconds), [this, ifId] { sessionOver(ifId); });
    }
}

void RadiusIsa::sessionOver(unsigned ifId) {
    Login& login = logins_[ifId];
    if (lines_.state(ifId).gate != Gate::open) {
        return;
    }
    if (config_.onFailure == RadiusConfig::OnFailure::keep && !anyAlive()) {
        setTimer(login, config_.askAgain, [this, ifId] { sessionOver(ifId); });
        return;
    }
    log_.line(ifId, "radius", "the session is over; another login is asked for");
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        again_[ifId] = {login.block, true};
    }
    login.endCause = radius::TerminateCause::sessionTimeout;
    lines_.end(ifId);
    closed(ifId, login, Why::ended);
    lines_.ask(ifId);
}

void RadiusIsa::want(unsigned ifId, Login& login) {
    login.wanted = true;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        again_[ifId] = {login.block, login.wasOpen};
    }
    setTimer(login, config_.askAgain, [this, ifId] { askAgain(ifId); });
}

void RadiusIsa::askAgain(unsigned ifId) {
    Login& login = logins_[ifId];
    const LineState state = lines_.state(ifId);
    if (!open_ || !login.wanted || state.gate == Gate::open || !state.on) {
        return;  // without a link or switched off the request would wait for somebody else
    }
    stopTimer(login);
    if (state.gate == Gate::asking || !anyAlive()) {
        setTimer(login, config_.askAgain, [this, ifId] { askAgain(ifId); });
        return;
    }
    login.wanted = false;
    lines_.ask(ifId);
}

void RadiusIsa::setTimer(Login& login, Time after, Task task) {
    stopTimer(login);
    login.timer = loop_.at(loop_.now() + after, std::move(task));
}

void RadiusIsa::stopTimer(Login& login) {
    if (login.timer) {
        loop_.cancel(*login.timer);
        login.timer.reset();
    }
}

// Sessions of lines that were not asked for since the start: nothing of them is stored any more,
// or their link is gone.
void RadiusIsa::lookForLeft() {
    leftTimer_.reset();
    for (const unsigned ifId : sessions_.left()) {
        const Login& login = logins_[ifId];
        if (!login.asking && !login.wanted) {
            sessions_.close(ifId, radius::TerminateCause::nasReboot);
        }
    }
    if (!sessions_.left().empty()) {
        leftTimer_ = loop_.at(loop_.now() + leftAtMost, [this] { lookForLeft(); });
    }
}

}  // namespace node
