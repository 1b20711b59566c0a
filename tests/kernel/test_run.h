// Runs a program of the gate on a frame, without any interface's traffic.
// Test code, any thread.
#pragma once

#include <bpf/bpf.h>
#include <linux/bpf.h>

#include <cstdint>
#include <optional>
#include <span>

namespace node_test {

// As if the frame had come `times` times on the interface. What the program said; empty: the kernel
// does not run it on such a frame.
inline std::optional<uint32_t> testRun(int program, __sk_buff context,
                                       std::span<const uint8_t> frame, int times = 1) {
    bpf_test_run_opts opts{};
    opts.sz = sizeof opts;
    opts.data_in = frame.data();
    opts.data_size_in = static_cast<uint32_t>(frame.size());
    opts.ctx_in = &context;
    opts.ctx_size_in = sizeof context;
    opts.repeat = times;
    return bpf_prog_test_run_opts(program, &opts) == 0 ? std::optional(opts.retval) : std::nullopt;
}

inline __sk_buff arrivedOn(unsigned ifIndex) {
    __sk_buff context{};
    context.ifindex = ifIndex;
    return context;
}

}  // namespace node_test
