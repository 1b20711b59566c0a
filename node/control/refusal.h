// What an rpc_tal_res means to whoever asked: the status of the call and a sentence. Any thread.
#pragma once

#include <grpcpp/support/status.h>

#include <cstdint>
#include <string>

namespace node::control {

// Key of the trailing metadata that carries the number.
constexpr char resultKey[] = "rpc-tal-res";

// `what` completes "the node refused to ...". Result 0 is OK.
grpc::Status statusOf(uint32_t result, unsigned ifId, const std::string& what);

}  // namespace node::control
