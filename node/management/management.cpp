// Nothing here waits for the loop: the node's parts that are read have locks of their own, which
// are held for moments, and what cannot change is copied at the start. The log is listened to
// while the server is there and no longer, so that no line finds a server that is going away.
//
// Tests: tests/unit/node_host/management_test.cpp, tests/scenario/managed_node_test.py.
#include "node/management/management.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

#include "node/management/server_view.h"
#include "node/store/stored_logins.h"

namespace node {

namespace {

control::PortState portState(PortState state) {
    switch (state) {
        case PortState::blocked:
            break;
        case PortState::pending:
            return control::PortState::pending;
        case PortState::open:
            return control::PortState::open;
        case PortState::rejected:
            return control::PortState::rejected;
    }
    return control::PortState::blocked;
}

control::ServerOptions serverOptions(const Config::Control& control) {
    control::ServerOptions options;
    options.socketPath = control.socket;
    options.socketGroup = control.socketGroup;
    if (!control.listen.empty()) {
        options.tcp = {control.listen, {control.certificate, control.key, control.clientCa}};
    }
    return options;
}

}  // namespace

bool liveEventKind(std::string_view logKind, control::EventKind& kind) {
    constexpr std::pair<std::string_view, control::EventKind> kinds[] = {
        {"trap", control::EventKind::trap},       {"request", control::EventKind::request},
        {"verdict", control::EventKind::verdict}, {"gate", control::EventKind::gate},
        {"stored", control::EventKind::store},
    };
    const auto found = std::find_if(std::begin(kinds), std::end(kinds),
                                    [&](const auto& each) { return each.first == logKind; });
    if (found == std::end(kinds)) {
        return false;
    }
    kind = found->second;
    return true;
}

Management::Management(const Config& config, const Library& library, const Engine& engine,
                       const ProfileStore& profiles, EventLog& log, const RadiusIsa* radius)
    : node_(config.node),
      library_(library),
      engine_(engine),
      profiles_(profiles),
      log_(log),
      radius_(radius) {
    for (const Config::Interface& interface : config.interfaces) {
        lines_.push_back({interface.id, interface.name, interface.kernelName});
    }
    std::sort(lines_.begin(), lines_.end(),
              [](const Line& a, const Line& b) { return a.id < b.id; });
    control::NodeView& view = *this;
    server_ = std::make_unique<control::Server>(
        library_, view, serverOptions(config.control),
        [this](const std::string& line) { log_.line("control", line); });
    log_.setListener([this](unsigned ifId, std::string_view kind, std::string_view text) {
        publish(ifId, kind, text);
    });
    if (!config.control.socket.empty()) {
        log_.line("control", "listening on " + config.control.socket);
    }
    if (!config.control.listen.empty()) {
        log_.line("control", "listening on " + config.control.listen);
    }
}

Management::~Management() {
    log_.setListener({});
}

void Management::publish(unsigned ifId, std::string_view kind, std::string_view text) {
    control::LiveEvent event;
    if (!liveEventKind(kind, event.kind)) {
        return;
    }
    event.ifId = ifId;
    const auto line = std::find_if(lines_.begin(), lines_.end(),
                                   [ifId](const Line& each) { return each.id == ifId; });
    if (line != lines_.end()) {
        event.interfaceName = line->name;
    }
    event.text = text;
    server_->publish(std::move(event));
}

control::Identity Management::identity() const {
    return {node_.shelf,     node_.boardPosition,
            node_.boardType, TAL_VERSION,
            started_,        std::chrono::steady_clock::now() - up_};
}

control::InterfaceView Management::viewOf(const Line& line) const {
    control::InterfaceView view;
    view.id = line.id;
    view.name = line.name;
    view.kernelName = line.kernelName;
    engine_.read(line.id, [&view](const Port& port) {
        view.portState = portState(port.state());
        view.gateOpen = port.state() == PortState::open;
        view.timeout = port.timeout();
        view.maxQueueSize = port.maxQueue();
    });
    view.anyRule = library_.anyRuleExists(line.id);
    return view;
}

std::vector<control::InterfaceView> Management::interfaces() const {
    std::vector<control::InterfaceView> views;
    for (const Line& line : lines_) {
        views.push_back(viewOf(line));
    }
    return views;
}

std::vector<control::ServerView> Management::servers() const {
    std::vector<control::ServerView> views;
    if (radius_) {
        for (const RadiusServerInfo& server : radius_->servers()) {
            views.push_back(serverView(server));
        }
    }
    return views;
}

// The module replaces the file as a whole, so that no lock is needed to read it.
std::string Management::storageFile() const {
    std::ifstream file(storedLoginsFile, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

uint32_t Management::anyRuleSet(unsigned ifId, bool present) {
    return library_.anyRuleSet(ifId, present);
}

}  // namespace node
