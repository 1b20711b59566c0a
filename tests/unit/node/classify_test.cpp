// What each of the ten rule types matches, one type at a time.
#include "node/engine/classify.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/unit/node/condition_builder.h"
#include "tests/unit/node/frame_builder.h"

using namespace node_test;

namespace {

bool hits(const Buffer& bytes, const ittalCondition& wanted) {
    const auto frame = node::parseFrame(bytes);
    return frame && node::matches(*frame, wanted);
}

Buffer client(const Buffer& options, unsigned messageType = 1) {
    return dhcpFrame(join({option(53, {static_cast<uint8_t>(messageType)}), options, {255}}));
}

Buffer server(const Buffer& options) {
    return ether(
        0x0800, ipv4(udp(dhcp({.operation = 2, .options = join({option(53, {2}), options, {255}})}),
                         68, 67)));
}

const std::vector<Buffer> frames = {
    ether(0x88b5, {}), ether(0x0806, arp(1), {{0x8100, 5}}), ether(0x0800, ipv4({})), client({}),
    server({}),
};

TEST(ClassifyAnyFrame, EveryFrameMatches) {
    for (const Buffer& frame : frames) {
        EXPECT_TRUE(hits(frame, anyFrame()));
    }
}

TEST(ClassifyEtherType, TheTypeBehindAllTagsIsCompared) {
    EXPECT_TRUE(hits(ether(0x0806, {}), etherTypeIs(0x0806)));
    EXPECT_TRUE(hits(ether(0x0806, {}, {{0x8100, 1}}), etherTypeIs(0x0806)));
    EXPECT_TRUE(hits(ether(0x0806, {}, {{0x88a8, 1}, {0x8100, 2}}), etherTypeIs(0x0806)));
    EXPECT_FALSE(hits(ether(0x0806, {}, {{0x8100, 1}}), etherTypeIs(0x8100)));
    for (unsigned bit = 0; bit < 16; ++bit) {
        EXPECT_FALSE(hits(ether(0x0806 ^ 1U << bit, {}), etherTypeIs(0x0806))) << bit;
    }
}

TEST(ClassifyEtherType, AFrameThatEndsInsideItsTagsHasNoType) {
    Buffer frame = ether(0, {}, {{0x8100, 1}});
    frame.resize(16);
    EXPECT_FALSE(hits(frame, etherTypeIs(0)));
    EXPECT_FALSE(hits(ether(0, {}), etherTypeIs(0)));
}

TEST(ClassifyDhcp, SelectionOneTakesEveryMessageOfAClient) {
    for (const unsigned type : {1U, 3U, 4U, 7U, 8U}) {
        EXPECT_TRUE(hits(client({}, type), dhcpMessage(1))) << type;
    }
}

TEST(ClassifyDhcp, SelectionThreeTakesOnlyDiscover) {
    for (unsigned type = 0; type < 256; ++type) {
        EXPECT_EQ(hits(client({}, type), dhcpMessage(3)), type == 1) << type;
    }
}

TEST(ClassifyDhcp, AnyOtherSelectionTakesNothing) {
    for (unsigned selection = 0; selection < 256; ++selection) {
        const bool known = selection == 1 || selection == 3;
        EXPECT_EQ(hits(client({}), dhcpMessage(static_cast<uint8_t>(selection))), known)
            << selection;
    }
}

TEST(ClassifyDhcp, WhatNoClientSendsTakesNoPart) {
    const Buffer options = join({option(60, bytesOf("abc")), option(61, bytesOf("abc")),
                                 option(82, option(2, bytesOf("abc")))});
    const Buffer sound = client(options);
    const struct {
        const char* what;
        Buffer frame;
    } rows[] = {
        {"an answer", server(options)},
        {"plain BOOTP", dhcpFrame(join({options, {255}}))},
        {"a request to the client's port",
         ether(0x0800, ipv4(udp(dhcp({.options = join({option(53, {1}), options})}), 68, 67)))},
        {"a fragment", dhcpFrame(join({option(53, {1}), options}), {.fragment = 0x2000})},
        {"another protocol", dhcpFrame(join({option(53, {1}), options}), {.protocol = 6})},
    };
    const ittalCondition conditions[] = {dhcpMessage(1), dhcpMessage(3), optionBegins(3, "abc"),
                                         optionBegins(4, "abc"), optionBegins(5, "abc")};
    for (const ittalCondition& wanted : conditions) {
        EXPECT_TRUE(hits(sound, wanted)) << wanted.type;
        for (const auto& row : rows) {
            EXPECT_FALSE(hits(row.frame, wanted)) << wanted.type << ' ' << row.what;
        }
    }
}

// Types 3, 4 and 5 differ only in where their bytes stand.
struct OptionType {
    uint32_t type;
    std::function<Buffer(const Buffer&)> options;
};

const OptionType optionTypes[] = {
    {3, [](const Buffer& data) { return option(60, data); }},
    {4, [](const Buffer& data) { return option(82, option(2, data)); }},
    {5, [](const Buffer& data) { return option(61, data); }},
};

TEST(ClassifyOption, ThePatternBeginsTheOption) {
    const struct {
        std::string data, pattern;
        bool hit;
    } rows[] = {
        {"abc", "abc", true},
        {"abcd", "abc", true},
        {"abc", "a", true},
        {"abc", "abcd", false},
        {"abc", "abd", false},
        {"abc", "bbc", false},
        {"xxabc", "abc", false},
        {"ABC", "abc", false},
        {{"\0\x80\xff", 3}, {"\0\x80\xff", 3}, true},
        {{"a\0b", 3}, {"a\0c", 3}, false},
    };
    for (const OptionType& kind : optionTypes) {
        for (const auto& row : rows) {
            EXPECT_EQ(
                hits(client(kind.options(bytesOf(row.data))), optionBegins(kind.type, row.pattern)),
                row.hit)
                << kind.type << ' ' << row.data << ' ' << row.pattern;
        }
    }
}

TEST(ClassifyOption, APatternOfLengthZeroAsksForTheOptionOnly) {
    for (const OptionType& kind : optionTypes) {
        EXPECT_TRUE(hits(client(kind.options({9})), optionBegins(kind.type, ""))) << kind.type;
        EXPECT_FALSE(hits(client({}), optionBegins(kind.type, ""))) << kind.type;
        EXPECT_FALSE(hits(client(kind.options({})), optionBegins(kind.type, ""))) << kind.type;
    }
}

TEST(ClassifyOption, ThePatternIsCutByItsLength) {
    for (const OptionType& kind : optionTypes) {
        ittalCondition wanted = optionBegins(kind.type, "abcdef");
        wanted.u.match.length = 3;
        EXPECT_TRUE(hits(client(kind.options(bytesOf("abcxyz"))), wanted)) << kind.type;
    }
}

TEST(ClassifyOption, TheLongestPatternIsComparedToItsLastByte) {
    for (const OptionType& kind : optionTypes) {
        // Option 82 spends two of its 255 bytes on the sub-option's own head.
        const size_t longest = kind.type == 4 ? 253 : 255;
        Buffer data(longest, 0xab);
        const ittalCondition wanted = optionBegins(kind.type, std::string(longest, '\xab'));
        EXPECT_TRUE(hits(client(kind.options(data)), wanted)) << kind.type;
        data.back() ^= 1;
        EXPECT_FALSE(hits(client(kind.options(data)), wanted)) << kind.type;
    }
}

TEST(ClassifyOption, AnotherOptionWithTheSameDataDoesNotCount) {
    const Buffer data = bytesOf("abc");
    const struct {
        const char* what;
        Buffer options;
        uint32_t only;
    } rows[] = {
        {"60", option(60, data), 3},
        {"82.2", option(82, option(2, data)), 4},
        {"61", option(61, data), 5},
        {"82.1", option(82, option(1, data)), 0},
        {"82.6", option(82, option(6, data)), 0},
        {"2", option(2, data), 0},
        {"12", option(12, data), 0},
    };
    for (const auto& row : rows) {
        for (const uint32_t type : {3U, 4U, 5U}) {
            EXPECT_EQ(hits(client(row.options), optionBegins(type, "abc")), type == row.only)
                << row.what << ' ' << type;
        }
    }
}

TEST(ClassifyClientId, TheTypeByteMayBeSpelledOrLeftOut) {
    const Buffer mac = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    const std::string macPattern("\x00\x1a\x2b\x3c\x4d\x5e", 6);
    const Buffer asHardware = client(option(61, join({{1}, mac})));
    const Buffer asText = client(option(61, join({{0}, bytesOf("house-7")})));
    EXPECT_TRUE(hits(asHardware, optionBegins(5, "\x01" + macPattern)));
    EXPECT_TRUE(hits(asHardware, optionBegins(5, macPattern)));
    EXPECT_FALSE(hits(asHardware, optionBegins(5, macPattern.substr(1))));
    EXPECT_FALSE(hits(asHardware, optionBegins(5, "\x02" + macPattern)));
    EXPECT_TRUE(hits(asText, optionBegins(5, "house")));
    EXPECT_FALSE(hits(asText, optionBegins(5, "house-77")));
    EXPECT_FALSE(hits(client(option(61, {0})), optionBegins(5, "x")));
    EXPECT_TRUE(hits(client(option(61, {0})), optionBegins(5, "")));
}

TEST(ClassifyVendorId, TheFirstByteIsNeverLeftOut) {
    EXPECT_FALSE(hits(client(option(60, bytesOf("xabc"))), optionBegins(3, "abc")));
    EXPECT_FALSE(hits(client(option(82, option(2, bytesOf("xabc")))), optionBegins(4, "abc")));
}

TEST(ClassifySourceMac, MaskedBitsDecideAndOthersDoNot) {
    const Buffer frame = ether(0x88b5, {});
    const MacBytes source = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    for (size_t bit = 0; bit < 48; ++bit) {
        MacBytes other = source, mask{};
        other[bit / 8] ^= static_cast<uint8_t>(0x80 >> bit % 8);
        mask[bit / 8] = static_cast<uint8_t>(0x80 >> bit % 8);
        EXPECT_TRUE(hits(frame, sourceMacIs(source, mask))) << bit;
        EXPECT_FALSE(hits(frame, sourceMacIs(other, mask))) << bit;
        for (uint8_t& byte : mask) {
            byte = static_cast<uint8_t>(~byte);
        }
        EXPECT_TRUE(hits(frame, sourceMacIs(other, mask))) << bit;
    }
}

TEST(ClassifySourceMac, TheDestinationIsNotCompared) {
    const MacBytes all = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
    EXPECT_FALSE(hits(ether(0x88b5, {}), sourceMacIs(all, all)));
}

TEST(ClassifySourceIp, TheFirstOctetIsInTheTopEightBits) {
    const Buffer frame = ether(0x0800, ipv4({}, {.source = 0xc0a80117}));  // 192.168.1.23
    EXPECT_TRUE(hits(frame, sourceIpIs(0xc0a80117, 0xffffffff)));
    EXPECT_TRUE(hits(frame, sourceIpIs(0xc0000000, 0xff000000)));
    EXPECT_TRUE(hits(frame, sourceIpIs(0xc0a801ff, 0xffffff00)));
    EXPECT_FALSE(hits(frame, sourceIpIs(0x1701a8c0, 0xffffffff)));
    for (unsigned bit = 0; bit < 32; ++bit) {
        EXPECT_FALSE(hits(frame, sourceIpIs(0xc0a80117 ^ 1U << bit, 0xffffffff))) << bit;
        EXPECT_FALSE(hits(frame, sourceIpIs(0xc0a80117 ^ 1U << bit, 1U << bit))) << bit;
        EXPECT_TRUE(hits(frame, sourceIpIs(0xc0a80117 ^ 1U << bit, ~(1U << bit)))) << bit;
    }
}

TEST(ClassifySourceIp, TheSenderOfAnArpMessageCounts) {
    EXPECT_TRUE(hits(ether(0x0806, arp(0x0a010203)), sourceIpIs(0x0a010200, 0xffffff00)));
    EXPECT_FALSE(hits(ether(0x0806, arp(0x0a010303)), sourceIpIs(0x0a010200, 0xffffff00)));
}

TEST(ClassifySourceIp, AFrameWithoutAnAddressMatchesUnderNoMask) {
    EXPECT_FALSE(hits(ether(0x86dd, Buffer(40, 0)), sourceIpIs(0, 0)));
    EXPECT_FALSE(hits(ether(0x0800, Buffer(19, 0x45)), sourceIpIs(0, 0)));
    EXPECT_TRUE(hits(ether(0x0800, ipv4({})), sourceIpIs(0, 0)));
}

TEST(ClassifyOuterVlan, TheIdOfTheFirstTagIsCompared) {
    EXPECT_TRUE(hits(ether(0x88b5, {}, {{0x8100, 100}}), outerVlanIs(100)));
    EXPECT_TRUE(hits(ether(0x88b5, {}, {{0x8100, 0xe064}}), outerVlanIs(100)));
    EXPECT_TRUE(hits(ether(0x88b5, {}, {{0x88a8, 100}, {0x8100, 7}}), outerVlanIs(100)));
    EXPECT_FALSE(hits(ether(0x88b5, {}, {{0x88a8, 100}, {0x8100, 7}}), outerVlanIs(7)));
    for (unsigned bit = 0; bit < 12; ++bit) {
        EXPECT_FALSE(hits(ether(0x88b5, {}, {{0x8100, 100 ^ 1U << bit}}), outerVlanIs(100))) << bit;
    }
}

TEST(ClassifyOuterVlan, IdZeroIsATagAndNoTagIsNoId) {
    EXPECT_TRUE(hits(ether(0x88b5, {}, {{0x8100, 0xe000}}), outerVlanIs(0)));
    EXPECT_FALSE(hits(ether(0x88b5, {}), outerVlanIs(0)));
}

TEST(ClassifyOuterVlan, ValuesAboveTwelveBitsMatchNothing) {
    EXPECT_FALSE(hits(ether(0x88b5, {}, {{0x8100, 100}}), outerVlanIs(0x1064)));
    EXPECT_FALSE(hits(ether(0x88b5, {}, {{0x8100, 0xf064}}), outerVlanIs(0xf064)));
}

Buffer countingFrame(size_t size) {
    Buffer out = ether(0x88b5, {});
    for (size_t i = out.size(); i < size; ++i) {
        out.push_back(static_cast<uint8_t>(i));
    }
    return out;
}

TEST(ClassifyUserPattern, WordsReadTheFrameAsTheEventLinePrintsIt) {
    ittalCondition wanted = userPattern();
    wanted.u.user.sequence[0] = 0xffffffff;  // destination
    wanted.u.user.sequence[1] = 0xffff001a;  // its end, and the source's beginning
    wanted.u.user.sequence[3] = 0x88b50e0f;
    wanted.u.user.sequence[31] = 0x7c7d7e7f;
    for (const size_t i : {0, 1, 3, 31}) {
        wanted.u.user.mask[i] = 0xffffffff;
    }
    EXPECT_TRUE(hits(countingFrame(128), wanted));
    EXPECT_TRUE(hits(countingFrame(1500), wanted));
    wanted.u.user.sequence[31] = 0x7f7e7d7c;
    EXPECT_FALSE(hits(countingFrame(128), wanted));
}

TEST(ClassifyUserPattern, EveryMaskedBitDecides) {
    const Buffer frame = countingFrame(128);
    for (size_t bit = 0; bit < 1024; ++bit) {
        const size_t word = bit / 32;
        const uint32_t flag = 0x80000000U >> bit % 32;
        ittalCondition wanted = userPattern();
        for (size_t i = 0; i < 32; ++i) {
            wanted.u.user.mask[i] = 0xffffffff;
            for (size_t k = 0; k < 4; ++k) {
                wanted.u.user.sequence[i] = wanted.u.user.sequence[i] << 8 | frame[4 * i + k];
            }
        }
        ASSERT_TRUE(hits(frame, wanted));
        wanted.u.user.sequence[word] ^= flag;
        EXPECT_FALSE(hits(frame, wanted)) << bit;
        wanted.u.user.mask[word] ^= flag;
        EXPECT_TRUE(hits(frame, wanted)) << bit;
    }
}

TEST(ClassifyUserPattern, AFrameThatLacksAMaskedByteDoesNotMatch) {
    for (size_t byte = 0; byte < 128; ++byte) {
        ittalCondition wanted = userPattern();
        wanted.u.user.mask[byte / 4] = 1U << 8 * (3 - byte % 4);  // one bit, wanted to be 0
        Buffer frame(std::max<size_t>(byte, 14), 0);
        if (byte >= 14) {
            EXPECT_FALSE(hits(frame, wanted)) << byte;
            frame.push_back(0);
        }
        EXPECT_TRUE(hits(frame, wanted)) << byte;
    }
}

TEST(ClassifyUserPattern, TagsStandInLine) {
    ittalCondition wanted = userPattern();
    wanted.u.user.sequence[3] = 0x81000064;
    wanted.u.user.mask[3] = 0xffff0fff;
    EXPECT_TRUE(hits(ether(0x0800, ipv4({}), {{0x8100, 0xe064}}), wanted));
    EXPECT_FALSE(hits(ether(0x0800, ipv4({})), wanted));
}

TEST(Classify, NumbersThatDoNotBelongTogetherMatchNothing) {
    const Buffer frame =
        client(join({option(60, {9}), option(61, {9}), option(82, option(2, {9}))}));
    const uint32_t codes[] = {0, 5, 29, 29, 29, 29, 3, 11, 6, 34};
    const uint32_t subCodes[] = {0, 0, 0, 1, 2, 4, 0, 0, 0, 0};
    for (uint32_t type = 0; type < 12; ++type) {
        for (uint32_t code = 0; code < 64; ++code) {
            for (uint32_t subCode = 0; subCode < 8; ++subCode) {
                ittalCondition wanted = condition(type, code);
                wanted.u.match.subCode = subCode;
                wanted.u.match.selection = 1;
                const bool sound =
                    type < 10 && code == codes[type] && (code != 29 || subCode == subCodes[type]);
                // For types 1, 6 to 9 the sub-code's bytes hold a value, which here is not the
                // frame's; a mask of 0 takes it all the same.
                const bool wants = sound && type != 1 && type != 8;
                EXPECT_EQ(hits(frame, wanted), wants) << type << ' ' << code << ' ' << subCode;
            }
        }
    }
    for (const uint32_t type : {0x100U, 0x80000000U, 0xffffffffU}) {
        EXPECT_FALSE(hits(frame, condition(type, 0))) << type;
    }
}

TEST(Classify, ConditionsAreAlternatives) {
    const Buffer bytes = ether(0x0806, arp(0x0a010203), {{0x8100, 5}});
    const auto frame = node::parseFrame(bytes);
    ASSERT_TRUE(frame);
    const std::vector<ittalCondition> conditions = {etherTypeIs(0x0800), dhcpMessage(1),
                                                    outerVlanIs(5), sourceIpIs(0x0a010203, ~0U)};
    EXPECT_EQ(node::firstMatch(*frame, conditions), &conditions[2]);
    EXPECT_EQ(node::firstMatch(*frame, std::span(conditions).subspan(3)), &conditions[3]);
    EXPECT_EQ(node::firstMatch(*frame, std::span(conditions).first(2)), nullptr);
}

TEST(Classify, AnEmptyListMatchesNothing) {
    for (const Buffer& bytes : frames) {
        EXPECT_EQ(node::firstMatch(*node::parseFrame(bytes), {}), nullptr);
    }
}

}  // namespace
