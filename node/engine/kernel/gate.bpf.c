// The gate of every access interface, on the clsact hook: one look at the line's record and two
// counters while it is open; while it is closed every frame is dropped, but not before the
// line's rules have had a look at it and the node has got the frames it asked for.
//
// Decisions:
// - An interface that is in no record is closed. So is a record of zeroes.
// - An open gate hands the frame on to whatever else is attached (TC_ACT_UNSPEC).
// - Towards the subscriber a closed gate drops as well, unless the line says otherwise; such
//   frames are in a counter of their own, because the thirteen speak of the subscriber's frames.
// - A frame is counted by whoever decides about it: here, or by the node for frames handed up.
//   So the sum of both sides is right whatever the node makes of its frames.
// - Nothing is kept here but numbers. A request, its queue and its time belong to the node.
// - The maps are all there is to carry over to the next process; layout.h numbers their form.
//
// Tests: tests/kernel.
#include <linux/bpf.h>
#include <linux/if_ether.h>
#include <linux/in.h>
#include <linux/pkt_cls.h>

#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>

#include "node/engine/kernel/frame.bpf.h"
#include "node/engine/kernel/layout.h"

// Tells the kernel only which of its helpers may be called; the program needs none of those
// that are reserved.
char licenseText[] SEC("license") = "unspecified";

struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(max_entries, 1);
    __type(key, uint32_t);
    __type(value, struct KernelMeta);
} talMeta SEC(".maps");

// Interface index to line.
struct {
    __uint(type, BPF_MAP_TYPE_HASH);
    __uint(max_entries, KERNEL_LINES);
    __type(key, uint32_t);
    __type(value, uint32_t);
} talSlots SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(map_flags, BPF_F_MMAPABLE);
    __uint(max_entries, KERNEL_LINES);
    __type(key, uint32_t);
    __type(value, struct KernelLineRecord);
} talLines SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(max_entries, 2 * KERNEL_LINES);
    __type(key, uint32_t);
    __type(value, struct KernelRules);
} talRules SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_PERCPU_ARRAY);
    __uint(max_entries, KERNEL_LINES);
    __type(key, uint32_t);
    __type(value, struct KernelCounters);
} talCounters SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_RINGBUF);
    __uint(max_entries, KERNEL_EVENT_BYTES);
} talEvents SEC(".maps");

struct {
    __uint(type, BPF_MAP_TYPE_PERCPU_ARRAY);
    __uint(max_entries, 1);
    __type(key, uint32_t);
    __type(value, struct Scratch);
} talScratch SEC(".maps");

#define KERNEL_TURNS 8

#define READ_ONCE(word) (*(const volatile __typeof__(word)*)&(word))

// Copies the frame as it was on the wire: the outer tag, which the stack keeps aside, in line.
static __always_inline void loadFrame(struct __sk_buff* skb, struct Scratch* scratch) {
    uint32_t from = 0;
    uint32_t to = 0;
    scratch->size = 0;
    if (skb->vlan_present) {
        if (bpf_skb_load_bytes(skb, 0, scratch->frame, MATCH_ETHER_TYPE) != 0) {
            return;
        }
        const uint32_t type = skb->vlan_proto;  // in the frame's byte order
        const uint32_t control = skb->vlan_tci;
        scratch->frame[MATCH_ETHER_TYPE] = (uint8_t)type;
        scratch->frame[MATCH_ETHER_TYPE + 1] = (uint8_t)(type >> 8);
        scratch->frame[MATCH_ETHER_TYPE + 2] = (uint8_t)(control >> 8);
        scratch->frame[MATCH_ETHER_TYPE + 3] = (uint8_t)control;
        from = MATCH_ETHER_TYPE;
        to = MATCH_ETHER_TYPE + MATCH_TAG_SIZE;
    }
    uint32_t rest = skb->len - from;
    scratch->trap.wireSize = rest + to;
    if (rest > KERNEL_FRAME - to) {
        rest = KERNEL_FRAME - to;
    }
    if (rest == 0 || rest > KERNEL_FRAME) {
        return;
    }
    if (bpf_skb_load_bytes(skb, from, &scratch->frame[to], rest) == 0) {
        scratch->size = to + rest;
    }
}

static __always_inline int anyRuleMatches(struct __sk_buff* skb, struct Scratch* scratch,
                                          struct KernelLineRecord* line, uint32_t ifId) {
    const uint32_t version = READ_ONCE(line->rulesVersion);
    const uint32_t key = 2 * ifId + (version & 1);
    struct KernelRules* rules = bpf_map_lookup_elem(&talRules, &key);
    if (!rules || rules->count == 0) {
        return 0;
    }
    loadFrame(skb, scratch);
    if (!parseFrame(scratch)) {
        return 0;
    }
    const uint32_t count = rules->count;
    for (uint32_t i = 0; i < KERNEL_RULES; ++i) {
        if (i >= count) {
            break;
        }
        if (ruleMatches(scratch, &rules->rules[i])) {
            // Adding nothing reads the word behind all reads of the rules, on every processor.
            return __sync_fetch_and_add(&line->rulesBegun, 0) - version < 2;
        }
    }
    return 0;
}

// Takes one of the traps that the node gave, if any is left. The number never goes below zero: a
// trap that is given back after a failure must be one again, whoever else tried meanwhile. One
// that loses every turn to others leaves what is there to the next frame.
static __always_inline int takeTrap(struct KernelLineRecord* line) {
    for (int turn = 0; turn < KERNEL_TURNS; ++turn) {
        const int64_t left = READ_ONCE(line->traps);
        if (left <= 0) {
            return 0;
        }
        if (__sync_val_compare_and_swap(&line->traps, left, left - 1) == left) {
            return 1;
        }
    }
    return 0;
}

// Whether the frame went up.
static __always_inline int handUp(struct Scratch* scratch, struct KernelLineRecord* line,
                                  struct KernelCounters* counters, uint32_t ifId) {
    uint32_t size = scratch->size;
    if (size > KERNEL_FRAME || !takeTrap(line)) {
        return 0;
    }
    scratch->trap.ifId = ifId;
    scratch->trap.size = size;
    scratch->trap.unused = 0;
    if (bpf_ringbuf_output(&talEvents, &scratch->trap, sizeof(scratch->trap) + size, 0) != 0) {
        __sync_fetch_and_add(&line->traps, 1);
        ++counters->values[KERNEL_TRAPS_LOST];
        return 0;
    }
    ++counters->values[KERNEL_TRAPPED];
    return 1;
}

// Global: the verifier looks at the long way of a closed gate on its own.
__attribute__((noinline)) int closedGate(struct __sk_buff* skb, uint32_t ifId) {
    const uint32_t zero = 0;
    struct KernelLineRecord* line = bpf_map_lookup_elem(&talLines, &ifId);
    struct KernelCounters* counters = bpf_map_lookup_elem(&talCounters, &ifId);
    struct Scratch* scratch = bpf_map_lookup_elem(&talScratch, &zero);
    if (!line || !counters || !scratch) {
        return TC_ACT_SHOT;
    }
    const uint32_t gate = READ_ONCE(line->gate);
    const int matched = anyRuleMatches(skb, scratch, line, ifId);
    if (matched && handUp(scratch, line, counters, ifId)) {
        return TC_ACT_SHOT;
    }
    ++counters->values[KERNEL_FRAMES_SEEN];
    if (matched) {
        ++counters->values[KERNEL_FRAMES_MATCHED];
    }
    if (gate == KERNEL_GATE_PENDING) {
        ++counters->values[KERNEL_DROPPED_PENDING];
        if (matched) {
            ++counters->values[KERNEL_QUEUE_OVERFLOWS];
        }
    } else if (gate == KERNEL_GATE_REJECTED) {
        ++counters->values[KERNEL_DROPPED_REJECTED];
    } else {
        ++counters->values[KERNEL_DROPPED_BLOCKED];
    }
    return TC_ACT_SHOT;
}

// Headers in front of the payload that a large frame carries for several; 0 when they cannot be
// told: behind further tags, extension headers and in tunnels. Global: off the open gate's path.
__attribute__((noinline)) uint32_t sharedHeaders(struct __sk_buff* skb) {
    const uint32_t ip = MATCH_ETHER_HEADER;
    uint8_t first = 0;
    uint8_t protocol = 0;
    uint8_t tcp = 0;
    if (bpf_skb_load_bytes(skb, ip, &first, 1) != 0) {
        return 0;
    }
    const int six = skb->protocol == bpf_htons(ETH_P_IPV6);
    if (!six && skb->protocol != bpf_htons(ETH_P_IP)) {
        return 0;
    }
    const uint32_t segment = ip + (six ? 40U : (first & 0x0fU) * 4);
    if (bpf_skb_load_bytes(skb, ip + (six ? 6 : MATCH_IP_PROTOCOL), &protocol, 1) != 0) {
        return 0;
    }
    if (protocol == MATCH_IP_UDP) {
        return segment + MATCH_UDP_HEADER;
    }
    if (protocol != IPPROTO_TCP || bpf_skb_load_bytes(skb, segment + 12, &tcp, 1) != 0) {
        return 0;
    }
    return segment + (uint32_t)(tcp >> 4) * 4;
}

// What passed, as it is on the wire: the stack lets several frames of one flow travel as a large
// one, with their headers once. The outer tag is kept beside the frame.
struct Passing {
    uint32_t frames;
    uint64_t octets;
};

static __always_inline struct Passing passing(struct __sk_buff* skb) {
    const uint32_t tag = skb->vlan_present ? MATCH_TAG_SIZE : 0;
    const uint32_t segments = skb->gso_segs;
    struct Passing what = {1, skb->len + tag};
    if (segments > 1) {
        const uint32_t headers = sharedHeaders(skb);
        what.frames = segments;
        what.octets += (uint64_t)(segments - 1) * (headers ? headers + tag : 0);
    }
    return what;
}

SEC("tc")
int talIngress(struct __sk_buff* skb) {
    const uint32_t ifIndex = skb->ifindex;
    const uint32_t* slot = bpf_map_lookup_elem(&talSlots, &ifIndex);
    if (!slot) {
        return TC_ACT_SHOT;
    }
    const uint32_t ifId = *slot;
    struct KernelLineRecord* line = bpf_map_lookup_elem(&talLines, &ifId);
    if (!line) {
        return TC_ACT_SHOT;
    }
    if (READ_ONCE(line->gate) != KERNEL_GATE_OPEN) {
        return closedGate(skb, ifId);
    }
    struct KernelCounters* counters = bpf_map_lookup_elem(&talCounters, &ifId);
    if (counters) {
        const struct Passing what = passing(skb);
        counters->values[KERNEL_FRAMES_SEEN] += what.frames;
        counters->values[KERNEL_FORWARDED] += what.frames;
        counters->inwardOctets += what.octets;
    }
    return TC_ACT_UNSPEC;
}

SEC("tc")
int talEgress(struct __sk_buff* skb) {
    const uint32_t ifIndex = skb->ifindex;
    const uint32_t* slot = bpf_map_lookup_elem(&talSlots, &ifIndex);
    if (!slot) {
        return TC_ACT_SHOT;
    }
    const uint32_t ifId = *slot;
    struct KernelLineRecord* line = bpf_map_lookup_elem(&talLines, &ifId);
    if (!line) {
        return TC_ACT_SHOT;
    }
    struct KernelCounters* counters = bpf_map_lookup_elem(&talCounters, &ifId);
    const int passes = READ_ONCE(line->gate) == KERNEL_GATE_OPEN || READ_ONCE(line->outwardOpen);
    if (counters && passes) {
        const struct Passing what = passing(skb);
        counters->values[KERNEL_PASSED_OUTWARD] += what.frames;
        counters->outwardOctets += what.octets;
    } else if (counters) {
        ++counters->values[KERNEL_DROPPED_OUTWARD];
    }
    return passes ? TC_ACT_UNSPEC : TC_ACT_SHOT;
}

// Run by the node with a kept frame: the frame enters the stack as if it had just arrived.
SEC("xdp")
int talPass(struct xdp_md* context) {
    (void)context;
    return XDP_PASS;
}
