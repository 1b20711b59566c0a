// ISA over RADIUS: asks servers instead of the user list, keeps the sessions of open lines, lets
// servers end or change them. Loop thread, but for what LoginAuthority declares and servers().
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "node/isa/isa.h"
#include "node/isa/radius_setup.h"
#include "node/isa/sessions.h"

namespace node::radius {
class DynamicListener;
}

namespace node {

// One server in one role, for management.
struct RadiusServerInfo {
    std::string name;
    std::string address;  // "192.0.2.1:1812"
    bool accounting = false;
    bool tls = false;
    radius::ServerState state = radius::ServerState::alive;
    size_t inFlight = 0;
    size_t channels = 0;
    radius::ServerCounters counters;
};

class RadiusIsa : public LoginAuthority {
public:
    enum class Gate { closed, asking, open };
    enum class Why { raised, answered, timeout, linkLost, switchedOff, ended };

    struct LineState {
        Gate gate = Gate::closed;
        uint32_t request = 0;  // how many it has raised: the number of the last one
        bool replays = false;  // the last one is a stored one
        bool on = false;       // and has a link
    };

    // The node's other parts.
    struct Lines {
        std::function<LineState(unsigned ifId)> state;
        std::function<Traffic(unsigned ifId)> traffic;
        std::function<std::string(unsigned ifId)> name;
        std::function<void(unsigned ifId)> ask;  // raise a stored request
        std::function<void(unsigned ifId)> end;  // close the gate, another request may follow
        std::function<void(unsigned ifId, const LoginProfiles& profiles)> profiles;
    };

    // How servers are reached and what time it is; tests have their own.
    struct World {
        std::function<RadiusSetup(const RadiusConfig&, const radius::Secrets&, Reactor&)> setup;
        Sessions::WallSeconds wall;
    };
    static World realWorld();

    // Throws ConfigError, SessionFileError or std::system_error when it cannot work like this.
    RadiusIsa(Loop& loop, EventLog& log, Isa& isa, Lines lines, const RadiusConfig& config,
              World world = realWorld());
    ~RadiusIsa() override;
    RadiusIsa(const RadiusIsa&) = delete;
    RadiusIsa& operator=(const RadiusIsa&) = delete;

    // The configuration may differ where radiusNeedsRestart allows. Requests under way are asked
    // again when servers changed. Throws ConfigError or std::system_error; then nothing has
    // changed.
    void reload(const RadiusConfig& config);

    // A line's gate moved, to what Lines::state says, or a closed one lost its link or was switched
    // off. `request` is the number of the last one raised by then. A request's own word comes
    // before what the module asks because of it.
    void gateMoved(unsigned ifId, Why why, uint32_t request);
    // The node ends, and the engine still has its gates: sessions are written, and nothing is
    // answered, ended or asked any more.
    void close();

    // Any thread.
    void prepare(rpcTalLoginBlockBll& block) override;
    void ask(const rpcTalLoginBlockBll& block) override;
    void forgetConfiguration() override;
    std::vector<RadiusServerInfo> servers() const;  // at most a quarter of a second old

    size_t untold() const { return sessions_.untold(); }  // as of Sessions; on the loop

private:
    // What is known of a login to ask again for; the event line of the engine does not carry it.
    struct Again {
        rpcTalLoginBlockBll block{};
        bool wasOpen = false;
    };

    struct Login {
        rpcTalLoginBlockBll block{};
        radius::Client::Ticket ticket = 0;
        uint32_t request = 0;   // of the line; the last one that was asked for
        bool asking = false;    // the module waits for an answer
        bool wasOpen = false;   // the failure policy may open it
        bool paced = false;     // not asked for by a subscriber just now
        bool open = false;      // as far as its session goes
        bool unproven = false;  // open by the failure policy; the servers are still asked
        bool wanted = false;    // blocked without an answer; asked again some time
        radius::Grant grant;
        std::optional<radius::TerminateCause> endCause;  // why it is being ended from here
        std::optional<Reactor::Timer> timer;             // of wanted, or of the session's end
    };

    void use(const RadiusConfig& config, RadiusSetup setup);
    void serverChanged(bool accounting, const std::string& name, radius::ServerState state);
    bool anyAlive() const;

    void asked(const rpcTalLoginBlockBll& block, uint32_t request);
    void submit(unsigned ifId);
    void answered(unsigned ifId, const radius::Answer& answer);
    void accepted(unsigned ifId, const radius::Answer& answer);
    void unanswered(unsigned ifId);
    void giveVerdict(unsigned ifId, bool accepted, const LoginProfiles& profiles);
    bool isOutdated(unsigned ifId, uint32_t request);
    bool isCurrent(unsigned ifId, const Login& login) const;
    bool isAwaited(unsigned ifId, const Login& login) const;
    void newRequest(unsigned ifId, Login& login, uint32_t request);
    void withdraw(unsigned ifId, Login& login, Why why);
    void dropTicket(Login& login, bool overdue);

    void opened(unsigned ifId, Login& login);
    void closed(unsigned ifId, Login& login, Why why);
    void forget(unsigned ifId, Login& login, uint32_t request);
    void armSession(unsigned ifId, Login& login);
    void sessionOver(unsigned ifId);
    void want(unsigned ifId, Login& login);
    void askAgain(unsigned ifId);
    void setTimer(Login& login, Time after, Task task);
    void stopTimer(Login& login);
    void lookForLeft();

    std::optional<radius::ErrorCause> judge(const radius::DynamicRequest& request);
    std::optional<radius::ErrorCause> change(const std::vector<unsigned>& lines,
                                             const radius::Grant& grant);
    bool fits(unsigned ifId, const Login& login, const radius::DynamicRequest& request) const;
    LoginProfiles profilesOf(unsigned ifId, const std::vector<std::string>& texts);

    void keepSnapshot();
    void takeSnapshot();

    Loop& loop_;
    EventLog& log_;
    Isa& isa_;
    Lines lines_;
    const World world_;
    RadiusConfig config_;
    radius::Secrets secrets_;
    radius::LoginFormat format_;
    std::optional<radius::Secret> password_;
    Sessions sessions_;
    std::unique_ptr<radius::Client> client_;  // null: the configuration was forgotten
    radius::DynamicAuthority authority_;
    std::unique_ptr<radius::DynamicListener> listener_;
    std::map<unsigned, Login> logins_;
    bool open_ = true;
    std::optional<Reactor::Timer> snapshotTimer_;
    std::optional<Reactor::Timer> leftTimer_;

    mutable std::mutex mutex_;  // guards the three below
    std::map<unsigned, Again> again_;
    std::map<unsigned, uint32_t> raised_;  // the last request of each line that was heard of
    std::vector<RadiusServerInfo> snapshot_;
};

}  // namespace node
