// The gates of the access interfaces in the kernel: opening and closing them, what their frames
// must look like to be handed up, those frames, and the counters. Knows nothing of requests.
// Any thread; attach() and poll() on one thread, and poll() alone calls `trapped`.
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

#include "node/engine/kernel/gate_maps.h"
#include "node/engine/kernel/layout.h"
#include "node/engine/line_gates.h"

struct bpf_object;  // of libbpf, as is the next
struct ring_buffer;

namespace node {

class KernelEngine final : public LineGates {
public:
    // A frame that was handed up, tags in line; valid during the call.
    using Trapped = std::function<void(unsigned ifId, std::span<const uint8_t> frame)>;

    struct Options {
        // A directory on a bpf file system for the maps' pins; empty: none. Without pins a
        // restarted process needs CAP_SYS_ADMIN during start() and attach() to find its lines.
        std::string pinDirectory;
        // Whether this process alone has these maps from here on; asked for every set before it
        // is used. A set that another process has is left to it, only its gates are copied.
        // Empty: always.
        std::function<bool(const std::string& maps)> claim{};
    };

    // Loads the programs. `interfaces` are looked at for maps of an earlier process, which are
    // then used on; nothing is attached or changed yet. Null on failure, with `error` set.
    static std::unique_ptr<KernelEngine> start(std::span<const unsigned> interfaces,
                                               const Options& options, Trapped trapped,
                                               std::string& error);
    ~KernelEngine() override;  // leaves everything attached as it is
    KernelEngine(const KernelEngine&) = delete;
    KernelEngine& operator=(const KernelEngine&) = delete;

    std::optional<Found> attach(const Line& line, std::string& error) override;
    // Frees the interface: from here on it passes everything. Forgets the line.
    bool detach(unsigned ifId, std::string& error);
    // Interfaces that have a gate which this process has not attached, whoever did.
    std::vector<unsigned> strays() const;
    // Whether such a gate is in the maps of this process. One that cannot be read is when they
    // have a line for its interface.
    bool inOwnMaps(unsigned ifIndex) const;
    bool freeStray(unsigned ifIndex, std::string& error);

    bool inPlace(unsigned ifId) const override;
    bool restore(unsigned ifId, std::string& error) override;
    bool setGate(unsigned ifId, Gate gate) override;
    Gate gate(unsigned ifId) const override;
    bool linkDown(unsigned ifId, uint32_t carrierDowns) override;
    bool setRules(unsigned ifId, std::span<const ittalCondition> conditions) override;
    bool arm(unsigned ifId, uint32_t frames = 1) override;
    bool reinject(unsigned ifId, std::span<const uint8_t> frame, std::string& error) override;
    Totals totals(unsigned ifId) const override;

    int fd() const;  // readable when poll() has something to do
    size_t poll() override;
    int program() const;  // of the gate, for test runs

private:
    KernelEngine(Options options, Trapped trapped);
    bool load(std::span<const unsigned> interfaces, std::string& error);
    void findMaps(std::span<const unsigned> interfaces);
    bool usable(const std::optional<GateMaps>& maps) const;
    bool claimed(const GateMaps& maps) const;
    bool loadPrograms(bool reuseMaps, std::string& error);
    bool takeNewMaps(std::string& error);
    bool shareLines(std::string& error);
    bool openEvents(std::string& error);
    int programFd(const char* name) const;
    bool readProgramIds(std::string& error);
    bool known(unsigned ifId) const;
    KernelLineRecord& record(unsigned ifId) const { return lines_[ifId]; }
    struct Before {  // of an interface that gets its gate
        Found found = Found::nothing;
        KernelGate gate = KERNEL_GATE_BLOCKED;
        std::optional<GateMaps> others{};  // its program's, unless they are these
    };
    std::optional<Before> lookAt(const Line& line, std::string& error) const;
    bool enter(const Line& line, KernelGate gate, Found found, std::string& error);
    bool attachPrograms(unsigned ifIndex, std::string& error);
    bool writeRules(unsigned ifId, const KernelRules& rules);
    KernelCounters sumOf(unsigned ifId) const;
    bool isStray(unsigned ifIndex) const;
    bool freeInterface(unsigned ifIndex, std::string& error);
    void forget(unsigned ifIndex);
    void countBefore(unsigned ifId);
    void eachCollected(
        const std::function<void(const KernelTrap&, std::span<const uint8_t>)>& use) const;
    static int collect(void* self, void* data, size_t size);

    const Options options_;
    const Trapped trapped_;
    GateMaps maps_;
    bool pinned_ = false;            // they are what the pins hold
    std::optional<GateMaps> older_;  // pinned, of another layout
    bpf_object* object_ = nullptr;   // the loaded programs
    uint32_t ingressId_ = 0;         // of its programs on interfaces
    uint32_t egressId_ = 0;
    ring_buffer* events_ = nullptr;
    KernelLineRecord* lines_ = nullptr;                       // the kernel's own memory
    std::array<std::atomic<bool>, KERNEL_LINES> attached_{};  // by this process
    // Frames that an earlier process was handed and has, or has not, sent on.
    std::array<std::atomic<uint32_t>, KERNEL_LINES> trappedBefore_{};
    std::array<std::atomic<uint32_t>, KERNEL_LINES> reinjectedBefore_{};
    std::vector<uint8_t> collected_;  // not handed on yet, heads included
    mutable std::mutex mutex_;        // one change of lines and rules at a time
};

}  // namespace node
