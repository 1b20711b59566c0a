#include "node/control/refusal.h"

namespace node::control {

grpc::Status statusOf(uint32_t result, unsigned ifId, const std::string& what) {
    const std::string refused = "the node refused to " + what;
    switch (result) {
        case 0:
            return grpc::Status::OK;
        case 2:
            return {grpc::StatusCode::FAILED_PRECONDITION,
                    refused +
                        ": rules for DHCP, its options and IP addresses do not go together with "
                        "an EtherType other than 0x0800 on one interface"};
        case 3:
            return {grpc::StatusCode::NOT_FOUND, "there is no interface " + std::to_string(ifId)};
        case 4:
            return {grpc::StatusCode::FAILED_PRECONDITION,
                    refused + ": ISA could not be told, so nothing was changed"};
        default:
            return {grpc::StatusCode::FAILED_PRECONDITION, refused + "; its log says what failed"};
    }
}

}  // namespace node::control
