// The node's configuration file: what it says, read strictly. Pure but for reading files;
// any thread.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "node/config/radius_section.h"
#include "node/profile.h"
#include "rpc/rpctal.h"

namespace node {

// what(): one line, "FILE:LINE: KEY: what is wrong", without what is not known.
class ConfigError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Config {
    using Milliseconds = std::chrono::milliseconds;

    struct Node {
        std::string shelf = "1";
        uint8_t boardPosition = 1;
        unsigned boardType = 2;
        bool tal = true;                            // the global admin state
        std::optional<std::array<uint8_t, 6>> mac;  // frames it sent are left out of captures
    };

    // Where management listens; nothing said: nowhere.
    struct Control {
        std::string socket;       // path of the Unix socket; empty: none
        std::string socketGroup;  // empty: the process's own
        std::string listen;       // "192.0.2.1:7443"; empty: no TCP
        std::string certificate;  // paths; which of them TCP lacks is found out at the start
        std::string key;
        std::string clientCa;
        bool operator==(const Control&) const = default;
    };

    enum class Verdict { accept, reject, never };

    struct User {
        std::string circuitId;
        Verdict verdict = Verdict::accept;
        Milliseconds delay{0};
        LoginProfiles profiles;  // of an accepted user
    };

    struct Isa {
        Verdict unknown = Verdict::reject;  // for circuit ids without an entry
        std::vector<User> users;
    };

    struct Profiles {
        std::string file;  // path; empty: in memory
    };

    // The gates of real interfaces.
    struct Engine {
        std::string pinDirectory;  // path; empty: nothing is pinned
        bool freeRemoved = false;  // interfaces of lines that are configured no more
        bool operator==(const Engine&) const = default;
    };

    struct Outage {
        Milliseconds from{0};
        Milliseconds to{0};
        bool operator==(const Outage&) const = default;
    };

    // One slot of the record is set, that of its type.
    struct Rule {
        rpcTalRule record{};
        std::string where;  // "FILE:LINE: KEY", for what is found out later
    };

    struct Interface {
        unsigned id = 0;              // 1 to 99
        std::string name;             // "1/3"
        std::string kernelName;       // four characters
        std::string capture;          // path; empty: no traffic, or a device's
        std::string device;           // name of a real interface; empty: none
        bool outwardOpen = false;     // towards the subscriber its gate lets all pass
        Milliseconds start{0};        // when the capture's first frame is played
        std::vector<Outage> outages;  // ascending, apart
        bool admin = true;
        bool authentication = true;
        bool authorization = true;
        bool autoRequest = false;
        uint32_t timeout = 120;     // seconds
        uint32_t maxQueueSize = 1;  // frames
        std::vector<Rule> rules;    // ascending types, at most one of each
        std::string where;          // "FILE:LINE: interface"
    };

    // Another configuration takes the place of this one in the middle of a run.
    struct Change {
        Milliseconds at{0};
        std::string config;  // path
    };

    std::string file;  // its name, as given
    Node node;
    Control control;
    Isa isa;
    std::optional<RadiusConfig> radius;  // then isa says nothing
    Profiles profiles;
    Engine engine;
    std::vector<Interface> interfaces;  // at least one, in the file's order
    std::vector<Change> changes;        // ascending
};

// Paths in the text are relative to `directory`; captures must exist. Throws ConfigError.
Config parseConfig(const std::string& text, const std::string& fileName,
                   const std::string& directory);
Config loadConfig(const std::string& path);

}  // namespace node
