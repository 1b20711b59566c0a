// Sessions of accepted logins: what is open since when, and accounting of it to the servers.
// Why: a server must see each session once, whatever dies in between. Loop thread.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "node/isa/radius/client/client.h"
#include "node/isa/session_file.h"
#include "node/log/event_log.h"

namespace node {

class Sessions {
public:
    using TrafficOf = std::function<Traffic(unsigned ifId)>;  // since the process began
    using WallSeconds = std::function<int64_t()>;             // since 1970

    struct Settings {
        std::string file;  // empty: sessions do not outlive the process
        TrafficOf trafficOf;
        WallSeconds wall;
    };

    // Reads what an earlier process left: sessions of lines whose login is not known yet. Throws
    // SessionFileError.
    Sessions(Reactor& reactor, EventLog& log, Settings settings);
    ~Sessions();  // as finish(), when something was to be written
    Sessions(const Sessions&) = delete;
    Sessions& operator=(const Sessions&) = delete;

    // Who is told, and how often in between (0: not). Without servers nobody is; what is not told
    // yet waits. Throws std::invalid_argument as radius::Client does.
    void useServers(std::optional<radius::ClientSettings> servers,
                    const radius::LoginFormat& format, Time interim);
    void onServerChange(radius::Client::ServerChanged changed) { changed_ = std::move(changed); }

    // The line's gate opened. Goes on with what an earlier process left of the line when `resume`
    // says that the login is its replay, else ends that.
    void open(unsigned ifId, const radius::Line& line, const std::vector<radius::Buffer>& classes,
              bool resume);
    void changeClasses(unsigned ifId, const std::vector<radius::Buffer>& classes);
    void close(unsigned ifId, radius::TerminateCause cause);
    // The gate that was held open for a session left by an earlier process closed, for now.
    void settle(unsigned ifId);

    // The process ends: open sessions are written with what passed so far, and left to the next
    // one. Nobody is told anything any more. While trafficOf still knows.
    void finish();

    bool isLeft(unsigned ifId) const;       // by an earlier process, not yet gone on with
    std::set<unsigned> left() const;        // lines of such sessions
    std::string idOf(unsigned ifId) const;  // of the open session; empty: none

    // What the open session is called towards servers.
    struct Names {
        std::string userName;
        std::string nasPortId;
    };
    std::optional<Names> namesOf(unsigned ifId) const;

    std::vector<radius::ServerStatus> servers() const;
    size_t untold() const;    // sessions whose Start or Stop no server has taken yet
    size_t underWay() const;  // of these, given to the client

private:
    struct Session {
        StoredSession stored;
        Traffic before;             // of earlier processes, and until it was settled
        Traffic atOpen;             // the line's numbers before it began, or was settled, here
        int64_t secondsBefore = 0;  // that it had lived before `since`
        Time since{0};              // of this process
        bool left = false;
        radius::Client::Ticket ticket = 0;  // of the Start, Interim or Stop under way
        Time nextInterim{0};
    };
    using Id = std::string;

    Session* current(unsigned ifId);
    const Session* current(unsigned ifId) const;
    Traffic trafficOf(const Session& session) const;
    uint32_t secondsOf(const Session& session) const;
    void setNames(StoredSession& stored) const;
    radius::LoginFormat formatOf(const StoredSession& stored, radius::Line& line) const;
    void makeRoom();
    void dropTicket(Session& session);
    std::vector<Id> dueIds() const;
    void end(Session& session, radius::TerminateCause cause, const Traffic& until);
    void changed();  // to be written, and told, soon
    void flush();
    void write();
    void tell(const Id& id, radius::AccountingStatus status);
    void told(const Id& id, radius::AccountingStatus status);
    void interimDue(unsigned ifId);
    void scheduleInterim(Session& session);

    Reactor& reactor_;
    EventLog& log_;
    const Settings settings_;
    std::map<Id, Session> sessions_;
    std::map<unsigned, Traffic> counted_;  // of each line, in sessions that ended
    std::map<unsigned, Id> current_;       // of each line, not yet ended
    radius::LoginFormat format_;
    Time interim_{0};
    size_t mostUnderWay_ = 0;
    std::unique_ptr<radius::Client> client_;
    radius::Client::ServerChanged changed_;
    std::optional<Reactor::Timer> flushTimer_;
    radius::Deadlines interims_;
    bool writeFailed_ = false;
};

}  // namespace node
