// Between a line's login and RADIUS attributes, in both directions, and accounting records.
// Why: what is sent and what is understood stands in one place. Pure.
#pragma once

#include "node/isa/radius/packet/packet.h"
#include "node/isa/radius/packet/text_template.h"

namespace node::radius {

// How logins of lines are written; from the configuration.
struct LoginFormat {
    TextTemplate userName = *TextTemplate::parse("{circuit-id}");
    TextTemplate nasPortId = *TextTemplate::parse("{interface}");
    std::string nasIdentifier;
    Buffer nasIpAddress;                           // of this node, 4 bytes; empty: none
    Buffer nasIpv6Address;                         // 16 bytes
    std::optional<AttributeName> vendorClass;      // carries DHCP option 60
    std::optional<AttributeName> clientId;         // carries DHCP option 61
    AttributeName profiles = attribute::filterId;  // names profiles in answers
};

// Attributes without User-Password and Message-Authenticator, which depend on the server.
// Empty when the user name comes out empty or a value is too long for its attribute.
std::optional<Buffer> loginAttributes(const Line& line, const LoginFormat& format);

// What an accept grants.
struct Grant {
    std::vector<Buffer> classes;             // to be returned with accounting, in this order
    std::optional<uint32_t> sessionTimeout;  // seconds
    std::vector<std::string> filterIds;
    std::vector<std::string> profiles;  // of the configured attribute, text only

    bool operator==(const Grant&) const = default;
};

// `attributes` as an answer carried them. Empty when Session-Timeout has not four bytes, or a
// Filter-Id or profile is empty or holds a control character: such an accept is a refusal.
std::optional<Grant> readGrant(const PacketView& answer, const LoginFormat& format);

enum class AccountingStatus : uint32_t { start = 1, stop = 2, interim = 3, on = 7, off = 8 };

enum class TerminateCause : uint32_t {
    userRequest = 1,
    lostCarrier = 2,
    idleTimeout = 4,
    sessionTimeout = 5,
    adminReset = 6,
    nasRequest = 10,
    nasReboot = 11,
};

struct AccountingRecord {
    AccountingStatus status = AccountingStatus::start;
    std::string sessionId;   // not empty; at most 253 bytes
    uint32_t eventTime = 0;  // seconds since 1970
    std::vector<Buffer> classes;
    // Interim and stop only.
    uint32_t sessionSeconds = 0;
    uint64_t inputOctets = 0;
    uint64_t outputOctets = 0;
    uint32_t inputPackets = 0;
    uint32_t outputPackets = 0;
    std::optional<TerminateCause> cause;  // stop only
};

std::optional<Buffer> accountingAttributes(const Line& line, const LoginFormat& format,
                                           const AccountingRecord& record);

}  // namespace node::radius
