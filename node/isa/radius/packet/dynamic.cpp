// An attribute that would change something we cannot change must lead to a refusal, not to a
// change of the rest: every attribute has to be one we know. A request that names no login, or
// another node, or one login twice, is refused with the cause that says so. An address of the node
// is compared when one of its kind is configured. Otherwise it says nothing: the request was sent
// here by somebody who may ask, and without the address it would be done.
// Tested by tests/radius/dynamic_test.cpp.
#include "node/isa/radius/packet/dynamic.h"

#include <algorithm>

namespace node::radius {

namespace {

constexpr uint8_t vendorType = attribute::vendorSpecific.type;

template <typename T>
using Field = std::optional<T> DynamicRequest::*;

constexpr std::pair<AttributeName, Field<std::string>> texts[] = {
    {attribute::userName, &DynamicRequest::userName},
    {attribute::nasPortId, &DynamicRequest::nasPortId},
    {attribute::agentCircuitId, &DynamicRequest::circuitId},
    {attribute::agentRemoteId, &DynamicRequest::remoteId},
    {attribute::callingStationId, &DynamicRequest::callingStationId},
    {attribute::acctSessionId, &DynamicRequest::sessionId},
};

constexpr std::pair<AttributeName, Field<uint32_t>> numbers[] = {
    {attribute::nasPort, &DynamicRequest::nasPort},
    {attribute::framedIpAddress, &DynamicRequest::framedIpAddress},
};

// Known besides those of the two tables.
constexpr AttributeName harmless[] = {attribute::nasIdentifier,  attribute::nasIpAddress,
                                      attribute::nasIpv6Address, attribute::messageAuthenticator,
                                      attribute::eventTimestamp, attribute::state,
                                      attribute::proxyState};
// Of a disconnect only: what was granted, and reasons, which are not passed on.
constexpr AttributeName explaining[] = {attribute::classOfLogin, attribute::replyMessage,
                                        attribute::acctTerminateCause};
constexpr AttributeName changing[] = {attribute::sessionTimeout, attribute::filterId,
                                      attribute::classOfLogin};

// One attribute of a vendor and nothing after it that could hide.
bool holdsOnly(const PacketView::Entry& entry, AttributeName name) {
    const Bytes value = entry.value;
    return entry.type == vendorType && value.size() >= 6 &&
           numberOf(value.first(4)) == name.vendor && value[4] == name.type &&
           value[5] + size_t{4} == value.size();
}

bool known(const PacketView::Entry& entry, DynamicRequest::Kind kind, AttributeName profiles) {
    const auto is = [&entry](AttributeName name) {
        return name.vendor == 0 ? entry.type == name.type : holdsOnly(entry, name);
    };
    const auto first = [&is](const auto& pair) { return is(pair.first); };
    if (std::any_of(std::begin(texts), std::end(texts), first) ||
        std::any_of(std::begin(numbers), std::end(numbers), first) ||
        std::any_of(std::begin(harmless), std::end(harmless), is)) {
        return true;
    }
    if (kind == DynamicRequest::Kind::disconnect) {
        return std::any_of(std::begin(explaining), std::end(explaining), is);
    }
    return is(profiles) || std::any_of(std::begin(changing), std::end(changing), is);
}

// What speaks against this node being meant.
std::optional<ErrorCause> otherNode(const PacketView& packet, const LoginFormat& format) {
    for (const Bytes name : packet.all(attribute::nasIdentifier)) {
        if (textOf(name) != format.nasIdentifier) {
            return ErrorCause::nasIdentificationMismatch;
        }
    }
    const struct {
        AttributeName name;
        size_t size;
        const Buffer& own;
    } addresses[] = {{attribute::nasIpAddress, 4, format.nasIpAddress},
                     {attribute::nasIpv6Address, 16, format.nasIpv6Address}};
    for (const auto& [name, size, own] : addresses) {
        for (const Bytes value : packet.all(name)) {
            if (value.size() != size) {
                return ErrorCause::invalidAttributeValue;
            }
            if (!own.empty() && !std::ranges::equal(value, own)) {
                return ErrorCause::nasIdentificationMismatch;
            }
        }
    }
    return std::nullopt;
}

}  // namespace

DynamicReading readDynamicRequest(const PacketView& packet, const LoginFormat& format) {
    DynamicRequest request;
    request.kind = packet.code() == Code::coaRequest ? DynamicRequest::Kind::change
                                                     : DynamicRequest::Kind::disconnect;
    bool allKnown = true;
    packet.forEach([&](const PacketView::Entry& entry) {
        allKnown = known(entry, request.kind, format.profiles);
        return allKnown;
    });
    if (!allKnown) {
        return {std::nullopt, ErrorCause::unsupportedAttribute};
    }
    if (const std::optional<ErrorCause> cause = otherNode(packet, format)) {
        return {std::nullopt, *cause};
    }
    bool named = false;
    for (const auto& [name, field] : texts) {
        const std::vector<Bytes> values = packet.all(name);
        if (values.size() > 1) {
            return {std::nullopt, ErrorCause::invalidRequest};
        }
        if (!values.empty()) {
            request.*field = textOf(values.front());
            named = true;
        }
    }
    for (const auto& [name, field] : numbers) {
        const std::vector<Bytes> values = packet.all(name);
        if (values.size() > 1) {
            return {std::nullopt, ErrorCause::invalidRequest};
        }
        if (!values.empty()) {
            request.*field = numberOf(values.front());
            if (!(request.*field)) {
                return {std::nullopt, ErrorCause::invalidAttributeValue};
            }
            named = true;
        }
    }
    if (!named) {
        return {std::nullopt, ErrorCause::missingAttribute};
    }
    if (request.kind == DynamicRequest::Kind::change) {
        std::optional<Grant> grant = readGrant(packet, format);
        if (!grant) {
            return {std::nullopt, ErrorCause::invalidAttributeValue};
        }
        request.grant = std::move(*grant);
    }
    return {std::move(request), {}};
}

std::optional<uint32_t> eventTimestamp(const PacketView& packet) {
    const std::optional<Bytes> value = packet.first(attribute::eventTimestamp);
    return value ? numberOf(*value) : std::nullopt;
}

}  // namespace node::radius
