// Login blocks and storage files for the tests of storing and fetching. Pure; any thread.
#pragma once

#include "tal/tal.h"
#include "tests/oracle/random_text.h"
#include "tests/oracle/storage_oracle.h"

#include <string.h>

#include <string>
#include <string_view>
#include <vector>

namespace samples {

inline void setText(char (&field)[64], std::string_view text) {
    memset(field, 0, sizeof(field));
    text.copy(field, sizeof(field) - 1);
}

// A block with every field set; no two fields hold the same value.
inline rpcTalLoginBlockBll fullBlock(unsigned interface = 42) {
    rpcTalLoginBlockBll block{};
    block.interface = interface;
    block.LoginAAAtype = 2;
    setText(block.circuitId, "KORVALIN:2 eth 5/1/" + std::to_string(interface));
    setText(block.remoteId, "remote 7");
    setText(block.vendorId, "home 5.0");
    setText(block.clientId, "001a2b3c4d5e");
    const unsigned char mac[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    memcpy(block.sourceMac, mac, 6);
    block.sourceIP = 0x0a00010bU;
    for (uint32_t i = 0; i < 32; i++) {
        block.userPatternSequence[i] = 0x10000000U + i;
        block.userPatternMask[i] = 0xffffff00U + i;
    }
    block.extraInt = 0xabcU;
    setText(block.extraString, "spare text");
    block.loginIdType = 0xff;
    block.vlanId = 100;
    return block;
}

// The lines of a file with these contents, by the literal reader.
inline std::vector<std::string> linesOf(const std::string& contents) {
    std::vector<std::string> lines;
    oracle::readLines(contents, lines);
    return lines;
}

inline std::vector<std::string> blockLines(unsigned interface = 42) {
    return linesOf(oracle::compose(fullBlock(interface)));
}

// A file of whole blocks, as the module leaves it.
inline std::string fileOf(const std::vector<unsigned>& interfaces) {
    std::string contents;
    for (unsigned interface : interfaces)
        contents += oracle::compose(fullBlock(interface)) + "\n";
    return contents;
}

inline rpcTalLoginBlockBll randomBlock(oracle::RandomText& random) {
    rpcTalLoginBlockBll block{};
    const auto word = [&random] { return static_cast<uint32_t>(random.below(1ULL << 32)); };
    const auto text = [&random](char(&field)[64]) {
        std::string value = random.bytes(random.below(64));
        for (char& character : value)
            if (character == '\n')
                character = ' ';
        setText(field, value);
    };
    block.interface = static_cast<uint32_t>(1 + random.below(99));
    block.LoginAAAtype = static_cast<unsigned char>(random.below(256));
    text(block.circuitId);
    text(block.remoteId);
    text(block.vendorId);
    text(block.clientId);
    for (unsigned char& byte : block.sourceMac)
        byte = static_cast<unsigned char>(random.below(256));
    block.sourceIP = word();
    for (uint32_t& value : block.userPatternSequence)
        value = word();
    for (uint32_t& value : block.userPatternMask)
        value = word();
    block.extraInt = word();
    text(block.extraString);
    block.loginIdType = static_cast<unsigned char>(random.below(256));
    block.vlanId = static_cast<uint32_t>(random.below(65536));
    return block;
}

// A storage file of any shape: whole blocks, lines in any order, damage of every kind.
inline std::string randomFile(oracle::RandomText& random) {
    static constexpr const char* labels[] = {
        "interface: ",       "LoginAAAtype: ", "circuitId: ",
        "remoteId: ",        "vendorId: ",     "clientId: ",
        "sourceMac: ",       "sourceIP: ",     "userPatternSequence: ",
        "userPatternMask: ", "extraInt: ",     "extraString: ",
        "loginIdType: ",     "vlanId: ",       "interface:",
        "unknown: "};
    static constexpr size_t lengths[] = {0,   1,   2,   3,   4,   5,   7,   8,   9,
                                         16,  17,  18,  62,  63,  64,  255, 256, 257,
                                         277, 278, 279, 288, 299, 300, 301};
    std::string contents;
    for (size_t blocks = random.below(4); blocks > 0; blocks--) {
        std::vector<std::string> lines = linesOf(oracle::compose(randomBlock(random)));
        for (size_t changes = random.chance(50) ? random.below(5) : 0; changes > 0; changes--) {
            const size_t at = random.below(lines.size());
            std::string& line = lines[at];
            const std::string label = line.substr(0, line.find(' ') + 1);
            switch (random.below(6)) {
                case 0:  // another value of the same length
                    line = label + random.numberText(line.size() - label.size());
                    break;
                case 1:  // a value of another length
                    line = label + random.numberText(lengths[random.below(std::size(lengths))]);
                    break;
                case 2:
                    line = labels[random.below(std::size(labels))] +
                           random.numberText(lengths[random.below(std::size(lengths))]);
                    break;
                case 3:
                    std::swap(line, lines[random.below(lines.size())]);
                    break;
                case 4:
                    random.mutate(line);
                    break;
                default:
                    line = labels[random.below(std::size(labels))];
                    break;
            }
        }
        for (const std::string& line : lines)
            contents += line + (random.chance(2) ? "\n\n" : "\n");
    }
    if (random.chance(15))
        random.mutate(contents);
    if (random.chance(10) && !contents.empty())
        contents[random.below(contents.size())] = '\0';
    if (random.chance(15))
        contents.resize(random.below(contents.size() + 1));
    return contents;
}

}  // namespace samples
