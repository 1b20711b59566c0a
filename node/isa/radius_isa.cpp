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
// Tested by tests/scenario/radius_node_test.py.
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

constexpr Time snapshotEvery = std::chrono::milliseconds(250);
constexpr Time leftAtMost = std::chrono::minutes(5);
constexpr Time queueFull = std::chrono::seconds(1);

int64_t wallSeconds() {
    return std::time(nullptr);
}

std::string_view stateName(radius::ServerState state) {
    switch (state) {
        case radius::ServerState::alive:
            return "alive";
        case radius::ServerState::dead:
            return "dead";
        case radius::ServerState::trial:
            return "tried with one request";
    }
    return "";
}

std::string addressOf(const std::string& host, uint16_t port) {
    return (host.find(':') == std::string::npos ? host : '[' + host + ']') + ':' +
           std::to_string(port);
}

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

bool headerOnly(const rpcTalLoginBlockBll& block) {
    return (block.loginIdType & ~static_cast<unsigned>(talLoginIdCircuitId)) == 0;
}

}  // namespace

RadiusIsa::RadiusIsa(Loop& loop, EventLog& log, Isa& isa, Lines lines, const RadiusConfig& config)
    : loop_(loop),
      log_(log),
      isa_(isa),
      lines_(std::move(lines)),
      config_(config),
      secrets_(radiusSecrets(config)),
      sessions_(loop, log, {config.sessionFile, lines_.traffic, wallSeconds}) {
    sessions_.onServerChange([this](const std::string& name, radius::ServerState state) {
        serverChanged(true, name, state);
    });
    use(config, radiusSetup(config, secrets_, loop_));
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
}

// Configuration.

void RadiusIsa::use(const RadiusConfig& config, RadiusSetup setup) {
    auto client = std::make_unique<radius::Client>(loop_, std::move(setup.logins));
    client->onServerChange([this](const std::string& name, radius::ServerState state) {
        serverChanged(false, name, state);
    });
    client_ = std::move(client);
    format_ = setup.format;
    password_ = setup.password;
    sessions_.useServers(std::move(setup.accounting), format_, config.accounting.interim);
    config_ = config;
    listen(setup);
    for (auto& [ifId, login] : logins_) {
        if (login.asking || (login.unproven && login.open)) {
            login.paced = true;
            submit(ifId);
        }
    }
    takeSnapshot();
}

void RadiusIsa::listen(RadiusSetup& setup) {
    listener_.reset();
    authority_.reset();
    if (setup.dynamic.clients.empty()) {
        return;
    }
    authority_ = std::make_unique<radius::DynamicAuthority>(
        std::move(setup.dynamic), wallSeconds,
        [this](const radius::DynamicRequest& request) { return judge(request); });
    const RadiusConfig::Address& address = config_.dynamic.listen;
    listener_ = std::make_unique<radius::DynamicListener>(
        loop_, radius::SocketAddress::parse(address.host, address.port).value(), *authority_);
}

void RadiusIsa::reload(const RadiusConfig& config) {
    radius::Secrets secrets = radiusSecrets(config);
    const bool overTls = std::any_of(config.servers.begin(), config.servers.end(),
                                     [](const RadiusConfig::Server& server) { return server.tls; });
    // Certificates may be new under their old names.
    if (client_ && config == config_ && sameSecrets(secrets, secrets_) && !overTls) {
        return;
    }
    RadiusSetup setup = radiusSetup(config, secrets, loop_);
    secrets_ = std::move(secrets);
    use(config, std::move(setup));
    log_.line("radius", "servers and what is sent to them as configured; counters begin again");
}

void RadiusIsa::forgetConfiguration() {
    loop_.post([this] {
        if (!open_) {
            return;
        }
        client_.reset();
        for (auto& [ifId, login] : logins_) {
            login.ticket = 0;
        }
        listener_.reset();
        sessions_.useServers(std::nullopt, format_, Time(0));
        takeSnapshot();
        log_.line("radius", "configuration cleared: nobody is asked until it is read again");
    });
}

void RadiusIsa::serverChanged(bool accounting, const std::string& name, radius::ServerState state) {
    log_.line("radius", (accounting ? "accounting server " : "server ") + name + " is " +
                            std::string(stateName(state)));
    takeSnapshot();
    if (accounting || state == radius::ServerState::dead) {
        return;
    }
    for (auto& [ifId, login] : logins_) {
        if (login.wanted) {
            // Not from here, where the client is at work.
            loop_.post([this, id = ifId] { askAgain(id); });
        }
    }
}

bool RadiusIsa::anyAlive() const {
    const std::vector<radius::ServerStatus> servers =
        client_ ? client_->status() : std::vector<radius::ServerStatus>();
    return std::any_of(servers.begin(), servers.end(), [](const radius::ServerStatus& server) {
        return server.state != radius::ServerState::dead;
    });
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
    loop_.post([this, block] { asked(block); });
}

void RadiusIsa::asked(const rpcTalLoginBlockBll& block) {
    const unsigned ifId = block.interface;
    if (!open_ || lines_.gate(ifId) != Gate::asking) {
        isa_.withdraw(ifId);  // given up before it was looked at
        return;
    }
    Login& login = logins_[ifId];
    stopTimer(login);
    login.wanted = false;
    login.block = block;
    login.asking = true;
    login.paced = lines_.replays(ifId);
    login.wasOpen = false;
    if (login.paced) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto again = again_.find(ifId);
        login.wasOpen = sessions_.isLeft(ifId) || (again != again_.end() && again->second.wasOpen);
    }
    login.grant = {};
    submit(ifId);
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
    logins_[ifId].ticket = 0;
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
    if (!login.unproven) {
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
    Login& login = logins_[ifId];
    login.asking = false;
    isa_.answer(ifId, {accepted, std::chrono::milliseconds(0), profiles});
}

void RadiusIsa::dropTicket(Login& login) {
    if (login.ticket != 0 && client_) {
        client_->cancel(login.ticket);
    }
    login.ticket = 0;
}

void RadiusIsa::withdraw(unsigned ifId, Login& login, Why why) {
    dropTicket(login);
    stopTimer(login);
    login.asking = false;
    isa_.withdraw(ifId);
    if (why == Why::timeout) {
        want(ifId, login);
    }
}

// Gates and sessions.

void RadiusIsa::gateMoved(unsigned ifId, Why why) {
    if (!open_) {
        return;
    }
    Login& login = logins_[ifId];
    const Gate gate = lines_.gate(ifId);
    if (gate == Gate::open) {
        if (!login.open) {
            opened(ifId, login);
        }
        return;
    }
    if (login.open) {
        closed(ifId, login, why);
    }
    if (gate == Gate::asking) {
        return;
    }
    if (login.asking) {
        withdraw(ifId, login, why);
    }
    if (why == Why::timeout || why == Why::ended) {
        return;
    }
    stopTimer(login);
    login.wanted = false;
    if (sessions_.isLeft(ifId)) {
        sessions_.close(ifId, radius::TerminateCause::nasReboot);
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    again_.erase(ifId);
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
    dropTicket(login);
    sessions_.close(ifId, login.endCause.value_or(causeOf(why)));
    login.endCause.reset();
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
    if (lines_.gate(ifId) != Gate::open) {
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
    if (!open_ || !login.wanted || lines_.gate(ifId) != Gate::closed) {
        return;
    }
    stopTimer(login);
    if (!anyAlive()) {
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

// What servers ask for.

bool RadiusIsa::fits(unsigned ifId, const Login& login,
                     const radius::DynamicRequest& request) const {
    const radius::Line line = loginLine(login.block, lines_.name(ifId));
    const auto fitsText = [](const std::optional<std::string>& wanted, const std::string& is) {
        return !wanted || *wanted == is;
    };
    return login.open && lines_.gate(ifId) == Gate::open &&
           fitsText(request.userName, format_.userName.fill(line, format_.nasIdentifier)) &&
           fitsText(request.nasPortId, format_.nasPortId.fill(line, format_.nasIdentifier)) &&
           fitsText(request.circuitId, line.circuitId) &&
           fitsText(request.remoteId, line.remoteId) &&
           fitsText(request.callingStationId, line.mac ? radius::macText(*line.mac) : "") &&
           fitsText(request.sessionId, sessions_.idOf(ifId)) &&
           (!request.nasPort || *request.nasPort == ifId) &&
           (!request.framedIpAddress || request.framedIpAddress == line.address);
}

std::optional<radius::ErrorCause> RadiusIsa::judge(const radius::DynamicRequest& request) {
    std::vector<unsigned> lines;
    for (const auto& [ifId, login] : logins_) {
        if (fits(ifId, login, request)) {
            lines.push_back(ifId);
        }
    }
    if (lines.empty()) {
        return radius::ErrorCause::sessionContextNotFound;
    }
    if (request.kind == radius::DynamicRequest::Kind::change) {
        return change(lines, request.grant);
    }
    for (const unsigned ifId : lines) {
        log_.line(ifId, "radius", "a server ends the login");
        logins_[ifId].endCause = radius::TerminateCause::adminReset;
        giveVerdict(ifId, false, {});
        if (lines_.gate(ifId) == Gate::open) {
            logins_[ifId].endCause.reset();
            return radius::ErrorCause::resourcesUnavailable;
        }
    }
    return std::nullopt;
}

std::optional<radius::ErrorCause> RadiusIsa::change(const std::vector<unsigned>& lines,
                                                    const radius::Grant& grant) {
    if (!grant.filterIds.empty() && format_.profiles != radius::attribute::filterId) {
        return radius::ErrorCause::unsupportedAttribute;  // nothing here is filtered by it
    }
    for (const unsigned ifId : lines) {
        Login& login = logins_[ifId];
        log_.line(ifId, "radius", "a server changes the login");
        if (!grant.classes.empty()) {
            login.grant.classes = grant.classes;
            sessions_.changeClasses(ifId, grant.classes);
        }
        if (grant.sessionTimeout) {
            login.grant.sessionTimeout = grant.sessionTimeout;
            armSession(ifId, login);
        }
        if (!grant.profiles.empty()) {
            login.grant.profiles = grant.profiles;
            lines_.profiles(ifId, profilesOf(ifId, grant.profiles));
        }
    }
    return std::nullopt;
}

LoginProfiles RadiusIsa::profilesOf(unsigned ifId, const std::vector<std::string>& texts) {
    const GrantedProfiles granted = grantedProfiles(texts);
    for (const std::string& problem : granted.problems) {
        log_.line(ifId, "profile", "none for " + problem);
    }
    return granted.profiles;
}

// What management sees.

void RadiusIsa::keepSnapshot() {
    takeSnapshot();
    snapshotTimer_ = loop_.at(loop_.now() + snapshotEvery, [this] { keepSnapshot(); });
}

void RadiusIsa::takeSnapshot() {
    std::vector<RadiusServerInfo> rows;
    const auto add = [this, &rows](const std::vector<radius::ServerStatus>& servers,
                                   bool accounting) {
        for (size_t i = 0; i < servers.size() && i < config_.servers.size(); ++i) {
            const RadiusConfig::Server& server = config_.servers[i];
            rows.push_back(
                {server.name,
                 addressOf(server.host, accounting ? server.accountingPort : server.port),
                 accounting, server.tls, servers[i].state, servers[i].inFlight, servers[i].channels,
                 servers[i].counters});
        }
    };
    add(client_ ? client_->status() : std::vector<radius::ServerStatus>(), false);
    add(sessions_.servers(), true);
    const std::lock_guard<std::mutex> lock(mutex_);
    snapshot_ = std::move(rows);
}

std::vector<RadiusServerInfo> RadiusIsa::servers() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return snapshot_;
}

}  // namespace node
