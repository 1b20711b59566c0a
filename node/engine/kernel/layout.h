// What the kernel's program and the node share: the records of the maps, and their sizes.
// Plain C, compiled by both sides; kernel_rules.cpp and this header assert that they agree.
// Whoever changes a record here raises KERNEL_LAYOUT, so that a restarted node moves old lines.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define KERNEL_ASSERT(claim) static_assert(claim, #claim)
#else
#define KERNEL_ASSERT(claim) _Static_assert(claim, #claim)
#endif

enum {
    KERNEL_MAGIC = 0x54414c4b,
    KERNEL_LAYOUT = 2,
    KERNEL_LINES = 128,        // records; a line's record is the one of its interface id
    KERNEL_RULES = 16,         // conditions of one line
    KERNEL_FRAME = 16384,      // bytes of a frame that are looked at and handed up; a power of 2
    KERNEL_FRAME_SLACK = 512,  // behind them: an offset within the frame plus a field's offset
    KERNEL_COUNTERS = 18,      // per line: the thirteen, then the program's own
    KERNEL_EVENT_BYTES = 1 << 20,
};

// A line's gate. In every layout this is the first field of the line's record, and 0 is closed.
enum KernelGate {
    KERNEL_GATE_BLOCKED = 0,
    KERNEL_GATE_PENDING = 1,
    KERNEL_GATE_OPEN = 2,
    KERNEL_GATE_REJECTED = 3,
};

// Positions in a line's counters. The first thirteen are the engine's, in the engine's order;
// the program counts those that need no knowledge of requests, and the node adds the others.
enum KernelCounter {
    KERNEL_FRAMES_SEEN = 0,
    KERNEL_FRAMES_MATCHED = 1,
    KERNEL_QUEUE_OVERFLOWS = 8,
    KERNEL_DROPPED_BLOCKED = 9,
    KERNEL_DROPPED_PENDING = 10,
    KERNEL_DROPPED_REJECTED = 11,
    KERNEL_FORWARDED = 12,
    KERNEL_TRAPPED = 13,          // handed up; counted nowhere else by the program
    KERNEL_TRAPS_LOST = 14,       // should have been handed up, but the ring buffer was full
    KERNEL_DROPPED_OUTWARD = 15,  // towards the subscriber, while the gate was closed
    KERNEL_PASSED_OUTWARD = 16,   // towards the subscriber
};

// Map talMeta, one record.
struct KernelMeta {
    uint32_t magic;
    uint32_t layout;
};

// Map talLines. Both sides use it at once, the node through mmap: single words, atomically.
struct KernelLineRecord {
    uint32_t gate;         // written by the node only
    uint32_t outwardOpen;  // frames towards the subscriber pass even a closed gate
    int64_t traps;         // how many more matching frames are handed up; 0 or less: none
    uint32_t rulesBegun;   // see talRules
    uint32_t rulesVersion;
    uint32_t reinjected;    // kept frames that the node sent through the gate
    uint32_t carrierDowns;  // of the interface, when the node last looked
    uint32_t ifIndex;       // of the interface, 0 when the line has none
    uint32_t unused[7];
};
KERNEL_ASSERT(offsetof(struct KernelLineRecord, gate) == 0);
KERNEL_ASSERT(sizeof(struct KernelLineRecord) == 64);

// A condition without its selector: the rest of ittalCondition, byte by byte.
struct KernelRule {
    uint32_t type;
    uint32_t code;
    union {
        struct {
            uint32_t subCode;
            char pattern[255];
            unsigned char length;
            unsigned char selection;
        } match;
        uint16_t value;
        struct {
            unsigned char addr[6];
            unsigned char mask[6];
        } mac;
        struct {
            uint32_t addr;
            uint32_t mask;
        } ip;
        struct {
            uint32_t sequence[32];
            uint32_t mask[32];
        } user;
    } u;
};
KERNEL_ASSERT(sizeof(struct KernelRule) == 272);

// Map talRules: two sets per line, of which rulesVersion & 1 tells the one in use. The node
// announces the next version in rulesBegun, writes the other set, then moves rulesVersion. A
// program that used a set for so long that the set was written again sees that in rulesBegun.
struct KernelRules {
    uint32_t count;
    uint32_t unused;
    struct KernelRule rules[KERNEL_RULES];
};

// Map talCounters, one per processor; the values wrap. Octets are those of frames that passed the
// gate, tags included.
struct KernelCounters {
    uint32_t values[KERNEL_COUNTERS];
    uint64_t inwardOctets;
    uint64_t outwardOctets;
};
KERNEL_ASSERT(sizeof(struct KernelCounters) == 4 * KERNEL_COUNTERS + 16);

// Map talEvents: this head, then `size` bytes of the frame with its tags in line.
struct KernelTrap {
    uint32_t ifId;
    uint32_t size;      // bytes that follow
    uint32_t wireSize;  // bytes that the frame had
    uint32_t unused;
};
KERNEL_ASSERT(sizeof(struct KernelTrap) == 16);
KERNEL_ASSERT((KERNEL_FRAME & (KERNEL_FRAME - 1)) == 0);
