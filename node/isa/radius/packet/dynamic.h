// A server's wish to end or change a login (CoA- and Disconnect-Request), taken apart. Pure.
#pragma once

#include "node/isa/radius/packet/login.h"

namespace node::radius {

// Why a wish is refused, as the answer tells it.
enum class ErrorCause : uint32_t {
    unsupportedAttribute = 401,
    missingAttribute = 402,
    nasIdentificationMismatch = 403,
    invalidRequest = 404,
    invalidAttributeValue = 407,
    administrativelyProhibited = 501,
    sessionContextNotFound = 503,
    resourcesUnavailable = 506,
};

struct DynamicRequest {
    enum class Kind { change, disconnect };

    Kind kind = Kind::disconnect;
    // Which login; at least one is set. All that are set must fit the line.
    std::optional<std::string> userName;
    std::optional<uint32_t> nasPort;
    std::optional<std::string> nasPortId;
    std::optional<std::string> circuitId;
    std::optional<std::string> remoteId;
    std::optional<std::string> callingStationId;
    std::optional<uint32_t> framedIpAddress;
    std::optional<std::string> sessionId;
    // Change only: what is granted from now on.
    Grant grant;
};

struct DynamicReading {
    std::optional<DynamicRequest> request;  // empty: refuse with `error`
    ErrorCause error = ErrorCause::invalidRequest;
};

// `format` names this node and the profile attribute.
DynamicReading readDynamicRequest(const PacketView& packet, const LoginFormat& format);

std::optional<uint32_t> eventTimestamp(const PacketView& packet);  // seconds since 1970

}  // namespace node::radius
