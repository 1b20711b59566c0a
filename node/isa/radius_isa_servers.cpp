// The configuration of ISA over RADIUS, which may change while logins are under way, and what
// management sees of the servers. Requests are in radius_isa.cpp.
#include <algorithm>

#include "node/config/config.h"
#include "node/isa/radius/dynamic/listener.h"
#include "node/isa/radius_isa.h"

namespace node {

namespace {

constexpr Time snapshotEvery = std::chrono::milliseconds(250);

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

}  // namespace

// What can fail comes first, and changes nothing.
void RadiusIsa::use(const RadiusConfig& config, RadiusSetup setup) {
    const bool listens = !setup.dynamic.clients.empty();
    std::unique_ptr<radius::DynamicListener> listener;
    if (listens && !listener_) {
        const RadiusConfig::Address& address = config.dynamic.listen;
        listener = std::make_unique<radius::DynamicListener>(
            loop_, radius::SocketAddress::parse(address.host, address.port).value(), authority_);
    }
    auto client = std::make_unique<radius::Client>(loop_, std::move(setup.logins));
    client->onServerChange([this](const std::string& name, radius::ServerState state) {
        serverChanged(false, name, state);
    });
    sessions_.useServers(std::move(setup.accounting), setup.format, config.accounting.interim);
    client_ = std::move(client);
    format_ = setup.format;
    password_ = setup.password;
    config_ = config;
    authority_.use(std::move(setup.dynamic));
    if (listener || !listens) {
        listener_ = std::move(listener);
    }
    for (auto& [ifId, login] : logins_) {
        if (login.asking || (login.unproven && login.open)) {
            login.paced = true;
            submit(ifId);
        }
    }
    takeSnapshot();
}

void RadiusIsa::reload(const RadiusConfig& config) {
    radius::Secrets secrets = radiusSecrets(config);
    const bool overTls = std::any_of(config.servers.begin(), config.servers.end(),
                                     [](const RadiusConfig::Server& server) { return server.tls; });
    // Certificates may be new under their old names.
    if (client_ && config == config_ && sameSecrets(secrets, secrets_) && !overTls) {
        return;
    }
    RadiusSetup setup = world_.setup(config, secrets, loop_);
    use(config, std::move(setup));
    secrets_ = std::move(secrets);
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
