// The view is made only after all lengths were checked once, so that walking it needs no checks.
// Attributes of one type may come several times and apart; look-ups walk, since a packet has a
// dozen attributes. Vendor attributes are compared in the usual form: vendor, then runs of type,
// length, value; some vendors use other forms, which must not spoil the packet. Message-
// Authenticator is always written first, so that nothing an attacker can choose precedes it.
// Tested by tests/radius/packet_test.cpp and tests/radius/fuzz/fuzz_radius_packet.cpp.
#include "node/isa/radius/packet/packet.h"

#include <algorithm>
#include <charconv>

namespace node::radius {

namespace {

constexpr uint8_t vendorType = 26;
constexpr size_t vendorIdSize = 4;
constexpr size_t emptyMessageAuthenticatorSize = 18;
constexpr uint32_t largestVendor = 0xffffff;

uint32_t number(Bytes four) {
    return uint32_t{four[0]} << 24 | uint32_t{four[1]} << 16 | uint32_t{four[2]} << 8 |
           uint32_t{four[3]};
}

// The attributes of one Vendor-Specific value, or nothing when it has another form.
bool vendorFormIsUsual(Bytes rest) {
    while (!rest.empty()) {
        if (rest.size() < 2 || rest[1] < 2 || rest[1] > rest.size()) {
            return false;
        }
        rest = rest.subspan(rest[1]);
    }
    return true;
}

template <typename Visit>
bool forEachOfVendor(Bytes value, uint32_t vendor, Visit visit) {
    if (value.size() < vendorIdSize || number(value) != vendor) {
        return true;
    }
    Bytes rest = value.subspan(vendorIdSize);
    if (!vendorFormIsUsual(rest)) {
        return true;
    }
    while (!rest.empty()) {
        if (!visit(rest[0], rest.subspan(2, rest[1] - 2U))) {
            return false;
        }
        rest = rest.subspan(rest[1]);
    }
    return true;
}

std::optional<uint32_t> decimal(std::string_view text, uint32_t largest) {
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value == 0 || value > largest) {
        return std::nullopt;
    }
    return value;
}

}  // namespace

std::optional<AttributeName> attributeNameFromText(std::string_view text) {
    const size_t colon = text.find(':');
    std::optional<uint32_t> vendor = 0;
    if (colon != std::string_view::npos) {
        vendor = decimal(text.substr(0, colon), largestVendor);
        text.remove_prefix(colon + 1);
    }
    const std::optional<uint32_t> type = decimal(text, 255);
    if (!vendor || !type || (*vendor == 0 && *type == vendorType)) {
        return std::nullopt;
    }
    return AttributeName{*vendor, static_cast<uint8_t>(*type)};
}

std::optional<PacketView> PacketView::parse(Bytes datagram, PacketError* error) {
    const auto refuse = [error](PacketError what) {
        if (error) {
            *error = what;
        }
        return std::nullopt;
    };
    if (datagram.size() < headerSize) {
        return refuse(PacketError::tooShort);
    }
    const size_t length = size_t{datagram[2]} << 8 | datagram[3];
    if (length < headerSize || length > longestPacket) {
        return refuse(PacketError::badLength);
    }
    if (length > datagram.size()) {
        return refuse(PacketError::tooShort);
    }
    const Bytes packet = datagram.first(length);
    for (size_t at = headerSize; at < length; at += packet[at + 1]) {
        if (length - at < 2 || packet[at + 1] < 2 || packet[at + 1] > length - at) {
            return refuse(PacketError::badAttribute);
        }
    }
    refuse(PacketError::none);
    return PacketView(packet);
}

Authenticator PacketView::authenticator() const {
    Authenticator authenticator;
    std::copy_n(packet_.begin() + authenticatorOffset, authenticator.size(), authenticator.begin());
    return authenticator;
}

std::vector<Bytes> PacketView::all(AttributeName name) const {
    std::vector<Bytes> values;
    forEach([&](const Entry& entry) {
        if (name.vendor == 0 && entry.type == name.type) {
            values.push_back(entry.value);
        } else if (name.vendor != 0 && entry.type == vendorType) {
            forEachOfVendor(entry.value, name.vendor, [&](uint8_t type, Bytes value) {
                if (type == name.type) {
                    values.push_back(value);
                }
                return true;
            });
        }
        return true;
    });
    return values;
}

std::optional<Bytes> PacketView::first(AttributeName name) const {
    std::optional<Bytes> found;
    forEach([&](const Entry& entry) {
        if (name.vendor == 0) {
            if (entry.type == name.type) {
                found = entry.value;
            }
        } else if (entry.type == vendorType) {
            forEachOfVendor(entry.value, name.vendor, [&](uint8_t type, Bytes value) {
                if (type == name.type) {
                    found = value;
                }
                return !found;
            });
        }
        return !found;
    });
    return found;
}

std::optional<PacketView::Entry> PacketView::firstEntry(uint8_t type) const {
    std::optional<Entry> found;
    forEach([&](const Entry& entry) {
        if (entry.type == type) {
            found = entry;
        }
        return !found;
    });
    return found;
}

size_t PacketView::count(uint8_t type) const {
    size_t count = 0;
    forEach([&](const Entry& entry) {
        count += entry.type == type ? 1 : 0;
        return true;
    });
    return count;
}

std::string textOf(Bytes value) {
    return {value.begin(), value.end()};
}

std::optional<uint32_t> numberOf(Bytes value) {
    return value.size() == 4 ? std::optional<uint32_t>(number(value)) : std::nullopt;
}

bool AttributeWriter::add(AttributeName name, Bytes value) {
    const bool ofVendor = name.vendor != 0;
    const size_t size = value.size() + (ofVendor ? 2 + vendorIdSize + 2 : 2);
    if (value.size() > (ofVendor ? longestVendorValue : longestValue) ||
        bytes_.size() + size > longestPacket - headerSize) {
        return false;
    }
    if (ofVendor) {
        bytes_.push_back(vendorType);
        bytes_.push_back(static_cast<uint8_t>(size));
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes_.push_back(static_cast<uint8_t>(name.vendor >> shift));
        }
    }
    bytes_.push_back(name.type);
    bytes_.push_back(static_cast<uint8_t>(value.size() + 2));
    bytes_.insert(bytes_.end(), value.begin(), value.end());
    return true;
}

bool AttributeWriter::addText(AttributeName name, std::string_view text) {
    const Buffer bytes(text.begin(), text.end());
    return add(name, bytes);
}

bool AttributeWriter::addNumber(AttributeName name, uint32_t number) {
    const std::array<uint8_t, 4> bytes{
        static_cast<uint8_t>(number >> 24), static_cast<uint8_t>(number >> 16),
        static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
    return add(name, bytes);
}

bool AttributeWriter::addRaw(Bytes attributes) {
    if (bytes_.size() + attributes.size() > longestPacket - headerSize) {
        return false;
    }
    bytes_.insert(bytes_.end(), attributes.begin(), attributes.end());
    return true;
}

std::optional<Buffer> packetOf(Code code, uint8_t id, Bytes attributes) {
    const size_t length = headerSize + emptyMessageAuthenticatorSize + attributes.size();
    if (length > longestPacket) {
        return std::nullopt;
    }
    Buffer packet(headerSize + emptyMessageAuthenticatorSize);
    packet.reserve(length);
    packet[0] = static_cast<uint8_t>(code);
    packet[1] = id;
    packet[2] = static_cast<uint8_t>(length >> 8);
    packet[3] = static_cast<uint8_t>(length);
    packet[headerSize] = attribute::messageAuthenticator.type;
    packet[headerSize + 1] = emptyMessageAuthenticatorSize;
    packet.insert(packet.end(), attributes.begin(), attributes.end());
    return packet;
}

}  // namespace node::radius
