// Builds event lines for tests and benchmarks, field by field. Pure; any thread.
#pragma once

#include <stdio.h>

#include <string>
#include <string_view>

namespace oracle {

struct EventLineText {
    std::string interface = "dsl1";  // four characters
    std::string between = " ";
    std::string digits = "00";
    std::string vlan = "0100";
    std::string mac = "001a2b3c4d5e";
    std::string address = "192.168.001.010";
    std::string pattern = ascendingPattern();
    std::string options;

    std::string line() const {
        return "tal" + interface + between + digits + vlan + mac + address + pattern + options;
    }

    // The bytes 00 01 .. 7f as 256 hex digits.
    static std::string ascendingPattern() {
        std::string text;
        char pair[3];
        for (unsigned byte = 0; byte < 128; byte++) {
            snprintf(pair, sizeof(pair), "%02x", byte);
            text += pair;
        }
        return text;
    }
};

inline std::string threeDigitText(size_t number) {
    char digits[8];
    snprintf(digits, sizeof(digits), "%03u", static_cast<unsigned>(number % 1000));
    return digits;
}

inline std::string vendorOption(std::string_view data) {
    return "060" + threeDigitText(data.size()) + std::string(data);
}

inline std::string remoteOption(std::string_view data) {
    return "002" + threeDigitText(data.size()) + std::string(data);
}

inline std::string clientOption(std::string_view data, const char* type = "000") {
    return "061" + threeDigitText(data.size()) + type + std::string(data);
}

}  // namespace oracle
