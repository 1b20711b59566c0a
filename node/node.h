// One run of the node: everything of the configuration put together, the module loaded, run
// and unloaded. Main thread, which is the loop's.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "node/config/config.h"
#include "node/engine/capture/capture.h"
#include "node/engine/engine.h"
#include "node/isa/isa.h"
#include "node/isa/radius_isa.h"
#include "node/live/live_engine.h"
#include "node/log/event_log.h"
#include "node/loop/loop.h"
#include "node/management/management.h"
#include "node/module/library.h"
#include "node/profiles/profile_store.h"
#include "node/report/report.h"

namespace node {

class Node {
public:
    struct Options {
        std::string library;          // path of libtal.so
        bool recordedPace = false;    // captures as fast as they were taken
        bool stay = false;            // until a signal, also after the captures
        std::string controlSocket{};  // empty: the configuration's
    };

    // Opens the captures, the profiles, what RADIUS needs and the devices; CaptureError,
    // ProfileError, ConfigError, SessionFileError or LiveError when one cannot be used at all.
    // With devices the process gives up privileges, for good.
    Node(const Config& config, const Options& options, std::ostream& out);
    ~Node();
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    // From load to unload. Blocks SIGTERM, SIGINT and SIGHUP in the calling thread; the first
    // two end the run, the third reloads the configuration's file. Throws std::runtime_error
    // with one line when the module cannot be run.
    RunReport run();

    // Makes settings, rules and users what the file says, from within the run: on the loop.
    // Empty when all was applied; else what is wrong, in one line. Then nothing is changed,
    // unless the module itself refused something: what came before that stays applied.
    std::string reload(const std::string& path);

    // All profiles, by kind and name. Any thread, from construction on.
    std::vector<ProfileInfo> profiles() const { return profiles_.list(); }

    // Takes the gates of earlier runs off the configuration's devices. Throws LiveError.
    static void release(const Config& config, std::ostream& out);

private:
    struct PlayedLine {
        unsigned id;
        std::string name;
        std::string kernelName;
        std::unique_ptr<Capture> capture;  // null: no traffic
    };

    void attach();
    void useRadius(const RadiusConfig& config);
    void start();
    void applyConfig();
    void noteDeleted();
    void openDevices();
    void scheduleLinks();
    void scheduleChanges();
    void setLink(unsigned ifId, bool up);
    void watchSignals();
    void startManagement();
    void watchStorage();
    void stop();
    void noteStored(unsigned ifId);
    void createProfiles(unsigned ifId, const LoginProfiles& profiles);
    void showProgress();
    RunReport report() const;
    LineReport reportLine(const PlayedLine& line,
                          const std::map<unsigned, std::string>& stored) const;

    const std::string file_;  // what SIGHUP reads again
    Config config_;           // as applied last
    const Options options_;
    EventLog log_;
    Loop loop_;
    Engine engine_;
    Isa isa_;
    std::unique_ptr<RadiusIsa> radius_;  // null: the list of users answers
    ProfileStore profiles_;
    std::vector<PlayedLine> lines_;
    std::unique_ptr<LiveEngine> live_;        // null: no line has a device
    std::map<unsigned, std::string> stored_;  // the storage file as last seen
    std::vector<BLEntity*> order_;
    std::optional<Library> library_;
    std::unique_ptr<Management> management_;  // gone before the library is
    std::string end_ = "the captures were played";
    uint64_t framesShown_ = 0;
    int signalFd_ = -1;
    int storageFd_ = -1;
};

}  // namespace node
