// Tested by tests/radius/login_test.cpp with a table of good and one of bad templates.
#include "node/isa/radius/packet/text_template.h"

#include <cstdio>

namespace node::radius {

std::string macText(const MacAddress& mac) {
    char text[18];
    snprintf(text, sizeof text, "%02X-%02X-%02X-%02X-%02X-%02X", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    return text;
}

std::string addressText(uint32_t address) {
    return std::to_string(address >> 24) + '.' + std::to_string(address >> 16 & 255) + '.' +
           std::to_string(address >> 8 & 255) + '.' + std::to_string(address & 255);
}

std::optional<TextTemplate::Place> TextTemplate::placeOf(std::string_view name) {
    constexpr std::pair<std::string_view, Place> places[] = {
        {"circuit-id", Place::circuitId},
        {"remote-id", Place::remoteId},
        {"interface", Place::interface},
        {"interface-number", Place::number},
        {"mac", Place::mac},
        {"vlan", Place::vlan},
        {"address", Place::address},
        {"nas", Place::nas},
    };
    for (const auto& [known, place] : places) {
        if (known == name) {
            return place;
        }
    }
    return std::nullopt;
}

std::optional<TextTemplate> TextTemplate::parse(std::string_view text) {
    TextTemplate result;
    while (!text.empty()) {
        const size_t open = text.find('{');
        if (open != 0) {
            result.pieces_.push_back({Place::text, std::string(text.substr(0, open))});
            text.remove_prefix(open == std::string_view::npos ? text.size() : open);
            continue;
        }
        const size_t close = text.find('}');
        if (close == std::string_view::npos) {
            return std::nullopt;
        }
        const std::optional<Place> place = placeOf(text.substr(1, close - 1));
        if (!place) {
            return std::nullopt;
        }
        result.pieces_.push_back({*place, {}});
        text.remove_prefix(close + 1);
    }
    return result;
}

std::string TextTemplate::fill(const Line& line, std::string_view nas) const {
    std::string text;
    for (const Piece& piece : pieces_) {
        switch (piece.place) {
            case Place::text:
                text += piece.text;
                break;
            case Place::circuitId:
                text += line.circuitId;
                break;
            case Place::remoteId:
                text += line.remoteId;
                break;
            case Place::interface:
                text += line.interfaceName;
                break;
            case Place::number:
                text += std::to_string(line.interfaceNumber);
                break;
            case Place::mac:
                text += line.mac ? macText(*line.mac) : "";
                break;
            case Place::vlan:
                text += std::to_string(line.vlan);
                break;
            case Place::address:
                text += line.address ? addressText(*line.address) : "";
                break;
            case Place::nas:
                text += nas;
                break;
        }
    }
    return text;
}

}  // namespace node::radius
