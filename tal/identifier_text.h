// Texts made from subscriber data. Pure; any thread.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>

namespace tal_text {

// Six upper-case hex pairs joined by ":", always 17 characters.
std::string macText(const unsigned char mac[6]);

// Kept: every byte is widened with its sign and printed without padding, so the text cannot
// be decoded again in general; readers of the text know it so.
std::string signedHexText(std::string_view bytes);

// "KORVALIN:<shelf> eth <board>/<interface>".
std::string circuitIdText(std::string_view shelfId, unsigned char boardPosition,
                          std::string_view interfaceName);

}  // namespace tal_text
