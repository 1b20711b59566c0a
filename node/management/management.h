// Management of a running node: the server over the library's service functions, what it shows
// of the node, and the lines of the log that clients see live. Made and dropped by the main
// thread while the module is loaded; calls arrive on the server's threads.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "node/config/config.h"
#include "node/control/node_view.h"
#include "node/control/server.h"
#include "node/engine/engine.h"
#include "node/isa/radius_isa.h"
#include "node/log/event_log.h"
#include "node/module/library.h"
#include "node/profiles/profile_store.h"

namespace node {

// A line of the log as clients get it; false: it is not for them.
bool liveEventKind(std::string_view logKind, control::EventKind& kind);

class Management final : private control::NodeView {
public:
    // Listens on return. Everything given must outlive it; without `radius` a list of users
    // answers. Throws control::ServerError with the text for the operator.
    Management(const Config& config, const Library& library, const Engine& engine,
               const ProfileStore& profiles, EventLog& log, const RadiusIsa* radius = nullptr);
    Management(const Management&) = delete;
    Management& operator=(const Management&) = delete;
    ~Management() override;  // no call runs afterwards

private:
    struct Line {
        unsigned id;
        std::string name;
        std::string kernelName;
    };

    control::Identity identity() const override;
    std::vector<control::InterfaceView> interfaces() const override;
    std::vector<control::ServerView> servers() const override;
    std::vector<ProfileInfo> profiles() const override { return profiles_.list(); }
    std::string storageFile() const override;
    uint32_t anyRuleSet(unsigned ifId, bool present) override;

    control::InterfaceView viewOf(const Line& line) const;
    void publish(unsigned ifId, std::string_view kind, std::string_view text);

    const Config::Node node_;
    std::vector<Line> lines_;  // ascending ids
    const Library& library_;
    const Engine& engine_;
    const ProfileStore& profiles_;
    EventLog& log_;
    const RadiusIsa* const radius_;
    const std::chrono::system_clock::time_point started_ = std::chrono::system_clock::now();
    const std::chrono::steady_clock::time_point up_ = std::chrono::steady_clock::now();
    std::unique_ptr<control::Server> server_;
};

}  // namespace node
