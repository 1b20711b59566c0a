// Gates of lines whose frames do not pass through the node: what the engine and the links of the
// lines do to them. An interface, because the gates are in the kernel and tests have none there.
// Any thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "node/engine/counters.h"
#include "platform/ittal.h"

namespace node {

// In the order of the port's states. Frames pass only the open gate.
enum class Gate : uint32_t { blocked = 0, pending = 1, open = 2, rejected = 3 };

class LineGates {
public:
    struct Line {
        unsigned ifId = 0;
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
        // The thirteen in the engine's order. Of the frames that this process was handed none
        // are in them: add what the line's port has counted.
        std::array<uint32_t, counterCount> counters{};
        uint32_t trapped = 0;         // handed up
        uint32_t trapsLost = 0;       // not handed up for want of room, and counted as dropped
        uint32_t droppedOutward = 0;  // towards the subscriber
        uint32_t passedOutward = 0;
        uint64_t inwardOctets = 0;  // of frames that passed, those of this process included
        uint64_t outwardOctets = 0;
    };

    virtual ~LineGates() = default;

    // Puts the gate on an interface; again after the interface came back under a new index.
    // Rules and traps of an earlier process are gone afterwards, its gate is as Found says.
    // Frames that waited are given out by the next poll(), and nothing else announces them.
    virtual std::optional<Found> attach(const Line& line, std::string& error) = 0;
    // False when the interface surely has not the gate any more that attach() put there.
    virtual bool inPlace(unsigned ifId) const = 0;
    // Puts it there again. Gate, rules and traps are what they are, whoever moves them meanwhile.
    virtual bool restore(unsigned ifId, std::string& error) = 0;
    // False: no such line.
    virtual bool setGate(unsigned ifId, Gate gate) = 0;
    virtual Gate gate(unsigned ifId) const = 0;
    // The link was lost, or is back and was lost more often: blocks the gate, takes back the traps,
    // notes the interface's count.
    virtual bool linkDown(unsigned ifId, uint32_t carrierDowns) = 0;
    // Alternatives, in force for the next frame; none: nothing matches. False also when there
    // are too many.
    virtual bool setRules(unsigned ifId, std::span<const ittalCondition> conditions) = 0;
    // The next `frames` matching frames of the closed gate are handed up, further ones only
    // counted. Replaces what is left of an earlier number; 0: none.
    virtual bool arm(unsigned ifId, uint32_t frames) = 0;
    // Lets a kept frame in through the open gate, as if it had just arrived.
    virtual bool reinject(unsigned ifId, std::span<const uint8_t> frame, std::string& error) = 0;
    virtual Totals totals(unsigned ifId) const = 0;
    // Gives out all frames that were handed up; how many.
    virtual size_t poll() = 0;
};

}  // namespace node
