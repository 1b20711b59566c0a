// The place is the first of clsact's filters, but not of all programs: XDP and tcx programs of
// others run before it, and so does a filter that they give the same priority later. docs/node.md
// says what that means for a line.
//
// The clsact qdisc stays when the last program goes: other filters may have come to live on it.
//
// Instead of clsact an interface may have an "ingress" qdisc, which has the same number and one
// list of filters for both directions: there the program for one direction would take the place
// of that for the other. Such an interface is refused, and what is there stays.
#include "node/engine/kernel/tc_hook.h"

#include <bpf/libbpf.h>

#include <cerrno>

#include "node/engine/kernel/hook_kind.h"
#include "node/engine/kernel/libbpf_text.h"

namespace node {
namespace {

constexpr uint32_t priority = 1;
constexpr uint32_t handle = 0x7a1;

bpf_tc_hook hookOf(unsigned ifIndex, Direction direction) {
    bpf_tc_hook hook{};
    hook.sz = sizeof hook;
    hook.ifindex = static_cast<int>(ifIndex);
    hook.attach_point = direction == Direction::fromSubscriber ? BPF_TC_INGRESS : BPF_TC_EGRESS;
    return hook;
}

bpf_tc_opts place() {
    bpf_tc_opts opts{};
    opts.sz = sizeof opts;
    opts.priority = priority;
    opts.handle = handle;
    return opts;
}

std::string describe(const char* what, unsigned ifIndex, int result) {
    return std::string(what) + " interface " + std::to_string(ifIndex) + ": " + libbpfError(result);
}

std::optional<uint32_t> query(unsigned ifIndex, Direction direction, int& failure) {
    const LibbpfText quiet;
    const bpf_tc_hook hook = hookOf(ifIndex, direction);
    bpf_tc_opts opts = place();
    failure = bpf_tc_query(&hook, &opts);
    return failure == 0 ? std::optional(opts.prog_id) : std::nullopt;
}

}  // namespace

// One that is there already may be of another kind, which libbpf takes for clsact.
bool makeHook(unsigned ifIndex, std::string& error) {
    const LibbpfText quiet;
    bpf_tc_hook hook = hookOf(ifIndex, Direction::fromSubscriber);
    const int created = bpf_tc_hook_create(&hook);
    if (created != 0 && created != -EEXIST) {
        error = describe("no traffic hook on", ifIndex, created);
        return false;
    }
    const std::string kind = hookKind(ifIndex, error);
    if (kind != "clsact") {
        error = "interface " + std::to_string(ifIndex) + ": " +
                (kind.empty() ? "its traffic hook cannot be told: " + error
                              : "has the qdisc \"" + kind +
                                    "\" where clsact must be, and whoever put it there must take "
                                    "it off");
        return false;
    }
    return true;
}

std::optional<uint32_t> attachedProgram(unsigned ifIndex, Direction direction) {
    int failure = 0;
    return query(ifIndex, direction, failure);
}

// No qdisc, no filter of the priority, or one of another kind there: EINVAL. None of the handle:
// ENOENT.
bool isWithout(unsigned ifIndex, Direction direction, uint32_t program) {
    int failure = 0;
    const auto there = query(ifIndex, direction, failure);
    return there ? *there != program : failure == -EINVAL || failure == -ENOENT;
}

bool attachProgram(unsigned ifIndex, Direction direction, int program, std::string& error) {
    if (!makeHook(ifIndex, error)) {
        return false;
    }
    const LibbpfText quiet;
    const bpf_tc_hook hook = hookOf(ifIndex, direction);
    bpf_tc_opts opts = place();
    opts.prog_fd = program;
    opts.flags = BPF_TC_F_REPLACE;
    const int attached = bpf_tc_attach(&hook, &opts);
    if (attached != 0) {
        error = describe("program not attached to", ifIndex, attached);
        return false;
    }
    return true;
}

bool detachProgram(unsigned ifIndex, Direction direction, std::string& error) {
    if (!attachedProgram(ifIndex, direction)) {
        return true;
    }
    const LibbpfText quiet;
    const bpf_tc_hook hook = hookOf(ifIndex, direction);
    const bpf_tc_opts opts = place();
    const int result = bpf_tc_detach(&hook, &opts);
    if (result != 0) {
        error = describe("program not detached from", ifIndex, result);
        return false;
    }
    return true;
}

}  // namespace node
