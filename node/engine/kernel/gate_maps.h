// One set of the maps that gates live in, in this layout or in an older one. It is found
// through an attached program or through pins, and outlives the process that made it.
// Not thread-safe.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "node/engine/kernel/fd.h"
#include "node/engine/kernel/layout.h"

namespace node {

class GateMaps {
public:
    enum Map : size_t { meta, slots, lines, rules, counters, events, mapCount };
    static std::string_view name(Map map);

    enum class Owner { node, hidden, others };  // hidden: looking takes CAP_SYS_ADMIN
    // Whose program it is; the node's for either direction, of whatever process.
    static Owner ownerOf(uint32_t programId);
    // Empty when the program is not the node's. An unreadable one (that takes CAP_SYS_ADMIN)
    // is empty as well, with `refused` set.
    static std::optional<GateMaps> ofProgram(uint32_t programId, bool& refused);
    static std::optional<GateMaps> pinnedIn(const std::string& directory);

    int fd(Map map) const { return fds_[map].get(); }
    void take(Map map, Fd fd) { fds_[map] = std::move(fd); }

    bool complete() const;
    uint32_t layout() const;  // 0: none
    bool sameAs(const GateMaps&) const;
    // Whether the program uses this set; empty when it cannot be read.
    std::optional<bool> usedBy(uint32_t programId) const;
    uint32_t id() const;  // of the set as long as it is there; 0: none

    // Any layout. Empty: no line has that interface. Numbers unknown here are blocked.
    std::optional<uint32_t> lineOf(unsigned ifIndex) const;
    KernelGate gateOf(unsigned ifIndex) const;
    // From here on no line of this set has that interface.
    void forget(unsigned ifIndex) const;

    // Empty for other layouts than this one.
    std::optional<uint32_t> carrierDownsOf(unsigned ifIndex) const;

    // Replaces earlier pins of the same names.
    bool pin(const std::string& directory, std::string& error) const;

private:
    std::vector<uint8_t> recordOf(unsigned ifIndex) const;

    std::array<Fd, mapCount> fds_;
};

}  // namespace node
