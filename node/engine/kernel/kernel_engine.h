// The gates of the access interfaces in the kernel: opening and closing them, what their frames
// must look like to be handed up, those frames, and the counters. Knows nothing of requests.
// Any thread; poll() on one thread at a time, and it alone calls `trapped`.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "node/engine/counters.h"
#include "node/engine/kernel/gate_maps.h"
#include "node/engine/kernel/layout.h"
#include "platform/ittal.h"

struct bpf_object;  // of libbpf, as is the next
struct ring_buffer;

namespace node {

// In the order of the port's states. Frames pass only the open gate.
enum class Gate : uint32_t {
    blocked = KERNEL_GATE_BLOCKED,
    pending = KERNEL_GATE_PENDING,
    open = KERNEL_GATE_OPEN,
    rejected = KERNEL_GATE_REJECTED,
};

class KernelEngine {
public:
    // A frame that was handed up, tags in line; valid during the call.
    using Trapped = std::function<void(unsigned ifId, std::span<const uint8_t> frame)>;

    struct Line {
        unsigned ifId = 0;          // 1 to KERNEL_LINES - 1
        unsigned ifIndex = 0;       // of the interface that carries the line
        uint32_t carrierDowns = 0;  // of that interface, as link events report it
        bool outwardOpen = false;   // towards the subscriber frames pass even a closed gate
    };

    // How attach() found the interface, and therefore what its gate is now.
    enum class Found {
        nothing,     // a new line: blocked
        own,         // an earlier process's gate in these maps: as it was
        older,       // the same in maps of another layout or set: moved here, as it was
        linkLost,    // an earlier process's gate, but the link was lost since: blocked
        unreadable,  // a gate that this process may not read: blocked
    };

    // All since the line was first attached, also by an earlier process; wrapping.
    struct Totals {
        // The thirteen in the engine's order. Only frames the program decided about are in
        // them: add what the line's port counted of the frames that were handed up.
        std::array<uint32_t, counterCount> counters{};
        uint32_t trapped = 0;         // handed up
        uint32_t trapsLost = 0;       // not handed up for want of room, and counted as dropped
        uint32_t droppedOutward = 0;  // towards the subscriber
    };

    struct Options {
        // A directory on a bpf file system for the maps' pins; empty: none. Without pins a
        // restarted process needs CAP_SYS_ADMIN during start() and attach() to find its lines.
        std::string pinDirectory;
    };

    // Loads the programs. `interfaces` are looked at for maps of an earlier process, which are
    // then used on; nothing is attached or changed yet. Null on failure, with `error` set.
    static std::unique_ptr<KernelEngine> start(std::span<const unsigned> interfaces,
                                               const Options& options, Trapped trapped,
                                               std::string& error);
    ~KernelEngine();  // leaves everything attached as it is
    KernelEngine(const KernelEngine&) = delete;
    KernelEngine& operator=(const KernelEngine&) = delete;

    // Puts the gate on an interface; again after the interface came back under a new index.
    // Rules and traps of an earlier process are gone afterwards, its gate is as Found says.
    std::optional<Found> attach(const Line& line, std::string& error);
    // Frees the interface: from here on it passes everything. Forgets the line.
    bool detach(unsigned ifId, std::string& error);
    // Interfaces of lines an earlier process attached and this one has not.
    std::vector<unsigned> strays() const;
    bool freeStray(unsigned ifIndex, std::string& error);

    // False: no such line.
    bool setGate(unsigned ifId, Gate gate);
    Gate gate(unsigned ifId) const;
    // The link was lost: blocks the gate, takes back the traps, notes the interface's count.
    bool linkDown(unsigned ifId, uint32_t carrierDowns);
    // Alternatives, in force for the next frame; none: nothing matches. False also when there
    // are too many.
    bool setRules(unsigned ifId, std::span<const ittalCondition> conditions);
    // The next `frames` matching frames of the closed gate are handed up, further ones only
    // counted. Replaces what is left of an earlier number; 0: none.
    bool arm(unsigned ifId, uint32_t frames = 1);
    // Lets a kept frame in through the open gate, as if it had just arrived.
    bool reinject(unsigned ifId, std::span<const uint8_t> frame, std::string& error);
    Totals totals(unsigned ifId) const;

    int fd() const;       // readable when poll() has something to do
    size_t poll();        // calls `trapped` for all frames there are; how many
    int program() const;  // of the gate, for test runs

private:
    KernelEngine(Options options, Trapped trapped);
    bool load(std::span<const unsigned> interfaces, std::string& error);
    void findMaps(std::span<const unsigned> interfaces);
    bool loadPrograms(bool reuseMaps, std::string& error);
    bool takeNewMaps(std::string& error);
    bool shareLines(std::string& error);
    bool openEvents(std::string& error);
    int programFd(const char* name) const;
    bool known(unsigned ifId) const;
    KernelLineRecord& record(unsigned ifId) const { return lines_[ifId]; }
    std::optional<Found> lookAt(const Line& line, KernelGate& gate, std::string& error) const;
    bool enter(const Line& line, KernelGate gate, Found found, std::string& error);
    bool writeRules(unsigned ifId, const KernelRules& rules);
    static int collect(void* self, void* data, size_t size);

    const Options options_;
    const Trapped trapped_;
    GateMaps maps_;
    std::optional<GateMaps> older_;  // pinned, of another layout
    bpf_object* object_ = nullptr;   // the loaded programs
    ring_buffer* events_ = nullptr;
    KernelLineRecord* lines_ = nullptr;                       // the kernel's own memory
    std::array<std::atomic<bool>, KERNEL_LINES> attached_{};  // by this process
    std::vector<uint8_t> collected_;                          // by poll(), heads included
    mutable std::mutex mutex_;  // one change of lines and rules at a time
};

}  // namespace node
