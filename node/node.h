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
#include "node/log/event_log.h"
#include "node/loop/loop.h"
#include "node/module/library.h"
#include "node/report/report.h"

namespace node {

class Node {
public:
    struct Options {
        std::string library;        // path of libtal.so
        bool recordedPace = false;  // captures as fast as they were taken
        bool stay = false;          // until a signal, also after the captures
    };

    // Opens the captures; CaptureError when one cannot be played at all.
    Node(const Config& config, const Options& options, std::ostream& out);
    ~Node();
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    // From load to unload. Blocks SIGTERM and SIGINT in the calling thread; either ends the
    // run. Throws std::runtime_error with one line when the module cannot be run.
    RunReport run();

private:
    struct PlayedLine {
        const Config::Interface* config;
        std::unique_ptr<Capture> capture;  // null: no traffic
    };

    void attach();
    void start();
    void applySettings();
    void applyInterfaceSettings(const Config::Interface& interface);
    void scheduleLinks();
    void setLink(unsigned ifId, bool up);
    void watchSignals();
    void stop();
    void noteStored(unsigned ifId);
    void showProgress();
    RunReport report() const;
    LineReport reportLine(const PlayedLine& line,
                          const std::map<unsigned, std::string>& stored) const;

    const Config config_;
    const Options options_;
    EventLog log_;
    Loop loop_;
    Engine engine_;
    Isa isa_;
    std::vector<PlayedLine> lines_;
    std::map<unsigned, std::string> stored_;  // the storage file as last seen
    std::vector<BLEntity*> order_;
    std::optional<Library> library_;
    std::string end_ = "the captures were played";
    uint64_t framesShown_ = 0;
    int signalFd_ = -1;
};

}  // namespace node
