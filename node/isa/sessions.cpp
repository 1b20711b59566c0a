// A session is written to the file before its Start is sent, and stays there until its Stop was
// taken, so that a process that dies in between leaves nothing half-told: the next one goes on
// with a session whose login is replayed and stops the others. What was sent but not known to be
// taken is sent again under the same session id, which servers recognise. Changes are gathered
// for a moment, so that many lines at once cost one write. A file that cannot be written costs
// nobody the accounting: servers are told all the same, and only a restart would not know of it.
//
// A Stop waits for its Start, and the Start of a line's next session for that Stop. In between only
// one record of a session is under way, and an interim record that finds another one under way is
// left out. Only as many are given to the client as the servers may have at a time and a few more;
// the others wait here, the oldest first, where the oldest is also dropped when there are too many.
// Tested by tests/unit/node_host/sessions_test.cpp; with a real server by
// tests/scenario/radius_node_test.py.
#include "node/isa/sessions.h"

#include <openssl/rand.h>

#include <algorithm>
#include <cstdio>

namespace node {

namespace {

constexpr Time gathering = std::chrono::milliseconds(20);
constexpr size_t mostSessions = 16384;
constexpr size_t readyToGo = 64;  // Starts and Stops that wait beyond the windows of the servers
constexpr Time tryAgain = std::chrono::seconds(5);  // after a full queue or a failed write

constexpr int64_t clockWasSet = 1'577'836'800;  // 2020: earlier times are of a clock that was not

using radius::AccountingStatus;

// Unlike any other of this node, also after its clock was set back.
std::string newId(unsigned ifId, int64_t now) {
    uint32_t random = 0;
    if (RAND_bytes(reinterpret_cast<unsigned char*>(&random), sizeof random) != 1) {
        throw std::runtime_error("OpenSSL has no randomness");
    }
    char text[40];
    snprintf(text, sizeof text, "%08llx-%02u-%08x", static_cast<unsigned long long>(now), ifId,
             random);
    return text;
}

Traffic sum(const Traffic& a, const Traffic& b) {
    return {a.inputOctets + b.inputOctets, a.outputOctets + b.outputOctets,
            a.inputPackets + b.inputPackets, a.outputPackets + b.outputPackets};
}

// Packets are counted in 32 bits and wrap. Octets do not: with fewer than before the counting began
// anew, and nothing is known.
Traffic passedSince(const Traffic& now, const Traffic& then) {
    if (now.inputOctets < then.inputOctets || now.outputOctets < then.outputOctets) {
        return {};
    }
    return {now.inputOctets - then.inputOctets, now.outputOctets - then.outputOctets,
            static_cast<uint32_t>(now.inputPackets - then.inputPackets),
            static_cast<uint32_t>(now.outputPackets - then.outputPackets)};
}

// A text as a template of itself. What would begin a place is put in by one.
radius::TextTemplate literal(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        escaped += c == '{' ? "{interface}" : std::string(1, c);
    }
    return radius::TextTemplate::parse(escaped).value();
}

// How long a session that an earlier process left has lasted.
int64_t secondsLeft(const StoredSession& stored, int64_t now) {
    const int64_t saved = stored.seconds;
    return stored.began < clockWasSet ? saved : std::max(saved, now - stored.began);
}

}  // namespace

Sessions::Sessions(Reactor& reactor, EventLog& log, Settings settings)
    : reactor_(reactor),
      log_(log),
      settings_(std::move(settings)),
      interims_(reactor, [this](uint64_t ifId) { interimDue(static_cast<unsigned>(ifId)); }) {
    if (settings_.file.empty()) {
        return;
    }
    for (StoredSession& stored : readSessionFile(settings_.file)) {
        Session session;
        session.before = stored.traffic;
        session.left = stored.ended == 0;
        session.secondsBefore = secondsLeft(stored, settings_.wall());
        session.since = reactor_.now();
        session.stored = std::move(stored);
        const Id id = session.stored.id;
        if (session.left) {
            current_[session.stored.ifId] = id;
        }
        sessions_.emplace(id, std::move(session));
    }
}

Sessions::~Sessions() {
    if (flushTimer_) {
        finish();
    }
}

void Sessions::finish() {
    if (flushTimer_) {
        reactor_.cancel(*flushTimer_);
        flushTimer_.reset();
    }
    client_.reset();
    write();
}

void Sessions::useServers(std::optional<radius::ClientSettings> servers,
                          const radius::LoginFormat& format, Time interim) {
    std::unique_ptr<radius::Client> client;
    size_t mostUnderWay = readyToGo;
    if (servers) {
        for (const radius::ServerSettings& server : servers->servers) {
            mostUnderWay += server.window;
        }
        client = std::make_unique<radius::Client>(reactor_, std::move(*servers));
        client->onServerChange([this](const std::string& name, radius::ServerState state) {
            if (changed_) {
                changed_(name, state);
            }
        });
    }
    client_ = std::move(client);
    mostUnderWay_ = mostUnderWay;
    format_ = format;
    for (auto& [id, session] : sessions_) {
        session.ticket = 0;
        if (session.stored.userName.empty()) {
            setNames(session.stored);
        }
        if (session.nextInterim != Time(0)) {
            interims_.remove(session.nextInterim, session.stored.ifId);
            session.nextInterim = Time(0);
        }
    }
    interim_ = interim;
    for (const auto& [ifId, id] : current_) {
        scheduleInterim(sessions_.at(id));
    }
    changed();
}

// The life of a session.

Sessions::Session* Sessions::current(unsigned ifId) {
    const auto found = current_.find(ifId);
    return found == current_.end() ? nullptr : &sessions_.at(found->second);
}

const Sessions::Session* Sessions::current(unsigned ifId) const {
    const auto found = current_.find(ifId);
    return found == current_.end() ? nullptr : &sessions_.at(found->second);
}

// Of a session that is left: what its gate lets pass while it is held open for it.
Traffic Sessions::trafficOf(const Session& session) const {
    return sum(session.before,
               passedSince(settings_.trafficOf(session.stored.ifId), session.atOpen));
}

uint32_t Sessions::secondsOf(const Session& session) const {
    const int64_t lived = (reactor_.now() - session.since) / std::chrono::seconds(1);
    return static_cast<uint32_t>(std::clamp<int64_t>(session.secondsBefore + lived, 0, UINT32_MAX));
}

// The names of a session are those it began with, whatever the configuration says later: a server
// would not know it by others.
void Sessions::setNames(StoredSession& stored) const {
    stored.userName = format_.userName.fill(stored.line, format_.nasIdentifier);
    stored.nasPortId = format_.nasPortId.fill(stored.line, format_.nasIdentifier);
}

radius::LoginFormat Sessions::formatOf(const StoredSession& stored, radius::Line& line) const {
    line = stored.line;
    line.interfaceName = "{";  // see literal()
    radius::LoginFormat format = format_;
    format.userName = literal(stored.userName);
    format.nasPortId = literal(stored.nasPortId);
    return format;
}

void Sessions::open(unsigned ifId, const radius::Line& line,
                    const std::vector<radius::Buffer>& classes, bool resume) {
    if (Session* const before = current(ifId)) {
        if (before->left && resume) {
            before->left = false;
            before->stored.classes = classes.empty() ? before->stored.classes : classes;
            log_.line(ifId, "session", before->stored.id + " goes on");
            scheduleInterim(*before);
            changed();
            return;
        }
        // What has passed since the gate of one that is left closed is the next session's.
        end(*before, radius::TerminateCause::nasReboot,
            before->left ? before->atOpen : settings_.trafficOf(ifId));
    }
    makeRoom();
    Session session;
    session.stored.ifId = ifId;
    session.stored.began = settings_.wall();
    session.stored.id = newId(ifId, session.stored.began);
    session.stored.line = line;
    session.stored.classes = classes;
    setNames(session.stored);
    session.since = reactor_.now();
    session.atOpen = counted_[ifId];
    log_.line(ifId, "session", session.stored.id + " begins");
    const Id id = session.stored.id;
    current_[ifId] = id;
    scheduleInterim(sessions_.emplace(id, std::move(session)).first->second);
    changed();
}

// Servers that never take anything must not fill memory and disk; the oldest Stops go first.
void Sessions::makeRoom() {
    for (auto each = sessions_.begin();
         sessions_.size() >= mostSessions && each != sessions_.end();) {
        if (each->second.stored.ended != 0) {
            log_.line(each->second.stored.ifId, "session",
                      each->first + " forgotten: too many wait for a server");
            dropTicket(each->second);
            each = sessions_.erase(each);
        } else {
            ++each;
        }
    }
}

void Sessions::dropTicket(Session& session) {
    if (session.ticket != 0 && client_) {
        client_->cancel(session.ticket, false);
    }
    session.ticket = 0;
}

void Sessions::changeClasses(unsigned ifId, const std::vector<radius::Buffer>& classes) {
    if (Session* const session = current(ifId)) {
        session->stored.classes = classes;
        changed();
    }
}

void Sessions::close(unsigned ifId, radius::TerminateCause cause) {
    if (Session* const session = current(ifId)) {
        end(*session, cause, settings_.trafficOf(ifId));
    }
}

void Sessions::settle(unsigned ifId) {
    Session* const session = current(ifId);
    if (session && session->left) {
        session->before = trafficOf(*session);
        session->atOpen = settings_.trafficOf(ifId);
        changed();
    }
}

// `until`: the line's numbers at its end.
void Sessions::end(Session& session, radius::TerminateCause cause, const Traffic& until) {
    session.stored.traffic = sum(session.before, passedSince(until, session.atOpen));
    session.stored.seconds = secondsOf(session);
    counted_[session.stored.ifId] = until;
    session.stored.ended = std::max<int64_t>(settings_.wall(), 1);
    session.stored.cause = cause;
    session.left = false;
    if (session.nextInterim != Time(0)) {
        interims_.remove(session.nextInterim, session.stored.ifId);
        session.nextInterim = Time(0);
    }
    log_.line(session.stored.ifId, "session",
              session.stored.id + " ends, cause " + std::to_string(static_cast<uint32_t>(cause)));
    current_.erase(session.stored.ifId);
    changed();
}

bool Sessions::isLeft(unsigned ifId) const {
    const Session* const session = current(ifId);
    return session && session->left;
}

std::set<unsigned> Sessions::left() const {
    std::set<unsigned> lines;
    for (const auto& [ifId, id] : current_) {
        if (sessions_.at(id).left) {
            lines.insert(ifId);
        }
    }
    return lines;
}

std::string Sessions::idOf(unsigned ifId) const {
    const Session* const session = current(ifId);
    return session ? session->stored.id : "";
}

std::optional<Sessions::Names> Sessions::namesOf(unsigned ifId) const {
    const Session* const session = current(ifId);
    return session ? std::optional(Names{session->stored.userName, session->stored.nasPortId})
                   : std::nullopt;
}

// Writing and telling.

void Sessions::changed() {
    if (!flushTimer_) {
        flushTimer_ = reactor_.at(reactor_.now() + gathering, [this] { flush(); });
    }
}

void Sessions::write() {
    if (settings_.file.empty()) {
        return;
    }
    std::vector<StoredSession> stored;
    for (const auto& [id, session] : sessions_) {
        stored.push_back(session.stored);
        if (session.stored.ended == 0) {
            stored.back().traffic = trafficOf(session);
            stored.back().seconds = secondsOf(session);
        }
    }
    try {
        writeSessionFile(settings_.file, stored);
        if (writeFailed_) {
            log_.line("session", "written again");
        }
        writeFailed_ = false;
    } catch (const SessionFileError& error) {
        if (!writeFailed_) {
            log_.line("session",
                      std::string("not written, servers are told all the same: ") + error.what());
        }
        writeFailed_ = true;
    }
}

void Sessions::flush() {
    flushTimer_.reset();
    if (!client_) {
        // What nobody knows of is over; a Start that was sent may have been taken.
        std::erase_if(sessions_, [](const auto& each) {
            return each.second.stored.ended != 0 && !each.second.stored.sent;
        });
    }
    const std::vector<Id> due = client_ ? dueIds() : std::vector<Id>();
    for (const Id& id : due) {
        sessions_.at(id).stored.sent = true;  // soon, and the file comes first
    }
    write();
    bool refused = writeFailed_;
    size_t room = mostUnderWay_ - std::min(mostUnderWay_, underWay());
    for (const Id& id : due) {
        if (room == 0) {
            break;
        }
        const Session& session = sessions_.at(id);
        tell(id, session.stored.announced ? AccountingStatus::stop : AccountingStatus::start);
        const auto after = sessions_.find(id);
        refused = refused || (after != sessions_.end() && after->second.ticket == 0);
        --room;
    }
    if (refused && !flushTimer_) {
        flushTimer_ = reactor_.at(reactor_.now() + tryAgain, [this] { flush(); });
    }
}

// Sessions with something to tell that may be told now, the oldest first.
std::vector<Sessions::Id> Sessions::dueIds() const {
    std::set<unsigned> ending;  // lines with a session that has ended
    for (const auto& [id, session] : sessions_) {
        if (session.stored.ended != 0) {
            ending.insert(session.stored.ifId);
        }
    }
    std::vector<Id> ids;
    for (const auto& [id, session] : sessions_) {
        const bool over = session.stored.ended != 0;
        const bool waits = !over && ending.contains(session.stored.ifId);
        if (session.ticket == 0 && !waits && (over || !session.stored.announced)) {
            ids.push_back(id);
        }
    }
    return ids;
}

void Sessions::tell(const Id& id, AccountingStatus status) {
    Session& session = sessions_.at(id);
    const StoredSession& stored = session.stored;
    const bool over = stored.ended != 0;
    const Traffic traffic = over ? stored.traffic : trafficOf(session);
    const int64_t now = settings_.wall();
    radius::AccountingRecord record;
    record.status = status;
    record.sessionId = id;
    record.eventTime = static_cast<uint32_t>(status == AccountingStatus::start  ? stored.began
                                             : status == AccountingStatus::stop ? stored.ended
                                                                                : now);
    record.classes = stored.classes;
    record.sessionSeconds = over ? stored.seconds : secondsOf(session);
    record.inputOctets = traffic.inputOctets;
    record.outputOctets = traffic.outputOctets;
    record.inputPackets = static_cast<uint32_t>(traffic.inputPackets);
    record.outputPackets = static_cast<uint32_t>(traffic.outputPackets);
    record.cause = stored.cause;
    radius::Line line;
    const radius::LoginFormat format = formatOf(stored, line);
    radius::Request request;
    request.kind = radius::Request::Kind::accounting;
    std::optional<radius::Buffer> attributes = radius::accountingAttributes(line, format, record);
    if (!attributes) {  // the login itself fitted, with less in it
        record.classes.clear();
        attributes = radius::accountingAttributes(line, format, record);
    }
    if (!attributes) {
        log_.line(stored.ifId, "session", id + " does not fit into a packet");
        told(id, status);
        return;
    }
    request.attributes = std::move(*attributes);
    session.ticket = client_->submit(std::move(request), [this, id, status](const auto& answer) {
        sessions_.at(id).ticket = 0;
        if (answer.outcome == radius::Outcome::accepted) {
            told(id, status);
        }
    });
}

void Sessions::told(const Id& id, AccountingStatus status) {
    if (status == AccountingStatus::stop) {
        sessions_.erase(id);
    } else if (status == AccountingStatus::start) {
        sessions_.at(id).stored.announced = true;
    }
    changed();
}

void Sessions::scheduleInterim(Session& session) {
    if (interim_ != Time(0) && client_ && !session.left && session.stored.ended == 0) {
        session.nextInterim = reactor_.now() + interim_;
        interims_.add(session.nextInterim, session.stored.ifId);
    }
}

void Sessions::interimDue(unsigned ifId) {
    Session* const session = current(ifId);
    if (!session) {
        return;
    }
    session->nextInterim = Time(0);
    scheduleInterim(*session);
    if (session->stored.announced && session->ticket == 0) {
        tell(session->stored.id, AccountingStatus::interim);
    }
}

std::vector<radius::ServerStatus> Sessions::servers() const {
    return client_ ? client_->status() : std::vector<radius::ServerStatus>();
}

size_t Sessions::untold() const {
    return static_cast<size_t>(
        std::count_if(sessions_.begin(), sessions_.end(), [](const auto& each) {
            return !each.second.stored.announced || each.second.stored.ended != 0;
        }));
}

size_t Sessions::underWay() const {
    return static_cast<size_t>(std::count_if(sessions_.begin(), sessions_.end(),
                                             [](const auto& each) { return each.second.ticket; }));
}

}  // namespace node
