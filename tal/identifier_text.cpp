#include "tal/identifier_text.h"

#include <stdio.h>

namespace tal_text {

std::string macText(const unsigned char mac[6]) {
    char text[18];
    snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    return text;
}

std::string signedHexText(std::string_view bytes) {
    std::string hex;
    for (const char byte : bytes) {
        char digits[9];
        const int widened = static_cast<signed char>(byte);
        snprintf(digits, sizeof digits, "%x", static_cast<unsigned>(widened));
        hex += digits;
    }
    return hex;
}

std::string circuitIdText(std::string_view shelfId, unsigned char boardPosition,
                          std::string_view interfaceName) {
    std::string text = "KORVALIN:";
    text += shelfId;
    text += " eth ";
    text += std::to_string(boardPosition);
    text += '/';
    text += interfaceName;
    return text;
}

}  // namespace tal_text
