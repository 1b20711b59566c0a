// Tests: tests/control/text_test.cpp.
#include "node/control/text.h"

#include "node/text/bytes.h"

namespace node::control {

std::string escaped(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<uint8_t>(c);
        if (c == '\\') {
            text += "\\\\";
        } else if (c >= ' ' && c <= '~') {
            text += c;
        } else {
            text += "\\x" + hexText({&byte, 1});
        }
    }
    return text;
}

}  // namespace node::control
