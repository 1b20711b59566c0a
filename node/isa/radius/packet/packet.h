// A RADIUS packet as it lies on the wire: numbers, a checked view, a writer.
// Why: every length of a foreign packet is looked at in one place. Pure; any thread, an object
// by one thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace node::radius {

using Bytes = std::span<const uint8_t>;
using Buffer = std::vector<uint8_t>;
using Authenticator = std::array<uint8_t, 16>;

enum class Code : uint8_t {
    accessRequest = 1,
    accessAccept = 2,
    accessReject = 3,
    accountingRequest = 4,
    accountingResponse = 5,
    accessChallenge = 11,
    statusServer = 12,
    disconnectRequest = 40,
    disconnectAck = 41,
    disconnectNak = 42,
    coaRequest = 43,
    coaAck = 44,
    coaNak = 45,
};

constexpr size_t headerSize = 20;
constexpr size_t longestPacket = 4096;
constexpr size_t longestValue = 253;
constexpr size_t longestVendorValue = 247;
constexpr size_t authenticatorOffset = 4;

// Which attribute: a standard one, or one of a vendor.
struct AttributeName {
    uint32_t vendor = 0;  // 0: a standard attribute
    uint8_t type = 0;

    bool operator==(const AttributeName&) const = default;
};

constexpr uint32_t accessLoopVendor = 3561;

namespace attribute {
constexpr AttributeName userName{0, 1};
constexpr AttributeName userPassword{0, 2};
constexpr AttributeName nasIpAddress{0, 4};
constexpr AttributeName nasPort{0, 5};
constexpr AttributeName framedIpAddress{0, 8};
constexpr AttributeName filterId{0, 11};
constexpr AttributeName replyMessage{0, 18};
constexpr AttributeName state{0, 24};
constexpr AttributeName classOfLogin{0, 25};
constexpr AttributeName vendorSpecific{0, 26};
constexpr AttributeName sessionTimeout{0, 27};
constexpr AttributeName callingStationId{0, 31};
constexpr AttributeName nasIdentifier{0, 32};
constexpr AttributeName proxyState{0, 33};
constexpr AttributeName acctStatusType{0, 40};
constexpr AttributeName acctInputOctets{0, 42};
constexpr AttributeName acctOutputOctets{0, 43};
constexpr AttributeName acctSessionId{0, 44};
constexpr AttributeName acctSessionTime{0, 46};
constexpr AttributeName acctInputPackets{0, 47};
constexpr AttributeName acctOutputPackets{0, 48};
constexpr AttributeName acctTerminateCause{0, 49};
constexpr AttributeName acctInputGigawords{0, 52};
constexpr AttributeName acctOutputGigawords{0, 53};
constexpr AttributeName eventTimestamp{0, 55};
constexpr AttributeName messageAuthenticator{0, 80};
constexpr AttributeName nasPortId{0, 87};
constexpr AttributeName nasIpv6Address{0, 95};
constexpr AttributeName errorCause{0, 101};
constexpr AttributeName agentCircuitId{accessLoopVendor, 1};
constexpr AttributeName agentRemoteId{accessLoopVendor, 2};
}  // namespace attribute

// "11" or "3561:1"; empty when it is neither. Type 26 and vendor 0 name nothing.
std::optional<AttributeName> attributeNameFromText(std::string_view text);

enum class PacketError {
    none,
    tooShort,      // less than a header, or than the length it states
    badLength,     // a stated length below 20 or above 4096
    badAttribute,  // an attribute of length 0 or 1, or beyond the end
};

// A whole packet with sound lengths. Refers to the bytes it was made from.
class PacketView {
public:
    struct Entry {
        uint8_t type;
        Bytes value;    // 0 to 253 bytes
        size_t offset;  // of the value in the packet
    };

    // Bytes beyond the stated length are padding and no part of the view.
    static std::optional<PacketView> parse(Bytes datagram, PacketError* error = nullptr);

    Code code() const { return static_cast<Code>(packet_[0]); }
    uint8_t id() const { return packet_[1]; }
    Bytes bytes() const { return packet_; }
    Bytes attributes() const { return packet_.subspan(headerSize); }
    Authenticator authenticator() const;

    // Attributes in the packet's order. A vendor's attribute that is not made of type, length
    // and value is none of ours and is passed over.
    std::vector<Bytes> all(AttributeName name) const;
    std::optional<Bytes> first(AttributeName name) const;
    std::optional<Entry> firstEntry(uint8_t type) const;
    size_t count(uint8_t type) const;

    // Calls `visit(Entry)` for each until it returns false.
    template <typename Visit>
    void forEach(Visit visit) const {
        for (size_t at = headerSize; at < packet_.size(); at += packet_[at + 1]) {
            const size_t length = packet_[at + 1];
            if (!visit(Entry{packet_[at], packet_.subspan(at + 2, length - 2), at + 2})) {
                return;
            }
        }
    }

private:
    explicit PacketView(Bytes packet) : packet_(packet) {}

    Bytes packet_;
};

std::string textOf(Bytes value);
std::optional<uint32_t> numberOf(Bytes value);  // empty unless it has four bytes

// A run of attributes in the making. What does not fit is refused and leaves no trace.
class AttributeWriter {
public:
    bool add(AttributeName name, Bytes value);
    bool addText(AttributeName name, std::string_view text);
    bool addNumber(AttributeName name, uint32_t number);
    bool addRaw(Bytes attributes);  // attributes made earlier

    const Buffer& bytes() const { return bytes_; }
    Buffer take() { return std::move(bytes_); }

private:
    Buffer bytes_;
};

// Header with a zero authenticator, then an empty Message-Authenticator, then `attributes`.
// Empty when that is longer than a packet may be.
std::optional<Buffer> packetOf(Code code, uint8_t id, Bytes attributes);

}  // namespace node::radius
