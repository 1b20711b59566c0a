// Random and mutated texts from a fixed seed, for comparing the fast code with its twins.
// One generator per test; not shared between threads.
#pragma once

#include "tests/oracle/event_line_text.h"

#include <random>
#include <string>
#include <string_view>

namespace oracle {

class RandomText {
public:
    explicit RandomText(unsigned seed) : engine_(seed) {}

    size_t below(size_t bound) { return engine_() % bound; }
    bool chance(size_t percent) { return below(100) < percent; }

    // Characters that matter to a number scanner, now and then any byte but NUL.
    char numberCharacter() {
        static constexpr std::string_view likely =
            "0123456789012345678901234567890abcdefABCDEFxX+-  \t\n\v\f\r.:gz";
        return chance(4) ? anyByte() : likely[below(likely.size())];
    }

    char anyByte() { return static_cast<char>(1 + below(255)); }

    std::string numberText(size_t length) {
        std::string text(length, ' ');
        for (char& character : text)
            character = numberCharacter();
        return text;
    }

    std::string bytes(size_t length) {
        std::string text(length, ' ');
        for (char& character : text)
            character = anyByte();
        return text;
    }

    std::string digits(size_t length, std::string_view set = "0123456789") {
        std::string text(length, ' ');
        for (char& character : text)
            character = set[below(set.size())];
        return text;
    }

    // A field of this width: mostly as an engine writes it, sometimes of number characters.
    std::string field(size_t width, std::string_view set) {
        return chance(70) ? digits(width, set) : numberText(width);
    }

    // Overwrites, inserts, removes or doubles a few characters.
    void mutate(std::string& text) {
        for (size_t i = 1 + below(4); i > 0 && !text.empty(); i--) {
            const size_t at = below(text.size());
            switch (below(5)) {
                case 0:
                case 1:
                    text[at] = chance(50) ? numberCharacter() : anyByte();
                    break;
                case 2:
                    text.insert(at, numberText(1 + below(3)));
                    break;
                case 3:
                    text.erase(at, 1 + below(3));
                    break;
                default:
                    text.insert(at, text, at, 1 + below(12));
                    break;
            }
        }
    }

    std::string option() {
        static constexpr const char* codes[] = {"060", "002", "061", "060", "002", "061",
                                                " 60", "+02", " 2 ", "-60", "000", "053",
                                                "2  ", "61 ", "0x2", "zzz"};
        const std::string code = chance(85) ? codes[below(6)] : codes[below(16)];
        const size_t length = chance(70) ? below(40) : chance(50) ? 250 + below(10) : below(999);
        std::string text = code;
        switch (below(12)) {
            case 0:
                text += numberText(3);
                break;
            case 1:
                text += digits(3);
                break;
            default:
                text += threeDigitText(length);
                break;
        }
        if (code == "061" || code == "61 ")
            text += field(3, "0");
        return text + (chance(50) ? digits(length, "0123456789abcdef") : bytes(length));
    }

    // An event line of any shape that still starts with "tal" in most cases.
    std::string eventLine() {
        static constexpr std::string_view hex = "0123456789abcdefABCDEF";
        EventLineText text;
        text.interface = chance(80) ? "dsl" + digits(1) : bytes(4);
        text.between = chance(80) ? " " : bytes(1);
        text.digits = chance(80) ? digits(2) : bytes(2);
        text.vlan = field(4, "0123456789");
        text.mac = field(12, hex);
        text.address = chance(60) ? digits(3) + "." + digits(3) + "." + digits(3) + "." + digits(3)
                                  : numberText(15);
        text.pattern = chance(70) ? digits(256, hex) : numberText(256);
        for (size_t i = below(6); i > 0; i--)
            text.options += option();
        std::string line = text.line();
        if (chance(40))
            mutate(line);
        if (chance(30))
            line.resize(below(line.size() + 1));
        if (chance(3))
            line += bytes(below(3000));
        return line;
    }

private:
    std::mt19937 engine_;
};

}  // namespace oracle
