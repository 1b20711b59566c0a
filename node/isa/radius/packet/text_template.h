// A text with places that a line's values fill in: "{circuit-id}@{nas}".
// Why: servers want user names of their own making. Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "node/isa/radius/packet/line.h"

namespace node::radius {

class TextTemplate {
public:
    // Places: {circuit-id} {remote-id} {interface} {interface-number} {mac} {vlan} {address}
    // {nas}. Empty when a place is unknown or a brace is left open; a lone "}" is text.
    static std::optional<TextTemplate> parse(std::string_view text);

    std::string fill(const Line& line, std::string_view nas) const;

private:
    enum class Place { text, circuitId, remoteId, interface, number, mac, vlan, address, nas };
    struct Piece {
        Place place;
        std::string text;
    };

    static std::optional<Place> placeOf(std::string_view name);

    std::vector<Piece> pieces_;
};

}  // namespace node::radius
