// The kernel's program and the pure classifier give the same verdict for the same frame.
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

#include "node/engine/match_rules.h"
#include "tests/kernel/kernel_matcher.h"
#include "tests/unit/node/condition_builder.h"
#include "tests/unit/node/frame_builder.h"

using namespace node_test;

namespace {

class KernelMatchTest : public KernelTest {};

const Buffer discover = option(53, {1});
const Buffer end = {255};

// Options in every place and in every kind of disorder.
std::vector<Buffer> optionFields() {
    const Buffer text = bytesOf("vendor"), longest(255, 'v');
    const Buffer relay = option(82, join({option(1, bytesOf("circuit")), option(2, text)}));
    return {
        {},
        end,
        {0, 0, 0},
        discover,
        join({discover, end}),
        join({option(53, {3}), end}),
        join({option(53, {0}), discover, end}),
        join({option(53, {1, 1}), option(53, {5}), end}),
        join({discover, option(60, text), option(61, text), relay, end}),
        join({relay, option(61, join({{1}, text})), {0, 0}, option(60, text), discover}),
        join({discover, option(60, {}), option(60, text), option(60, {9}), end}),
        join({discover, end, option(60, text)}),
        join({discover, option(60, longest), option(61, longest), end}),
        join({option(60, longest), option(60, text), option(61, longest), discover}),
        join({discover, {60, 200, 1, 2, 3}}),
        join({discover, {60}}),
        join({discover, option(61, {7}), {60, 0}}),
        join({discover, option(61, {}), option(61, {0}), end}),
        join({discover, option(82, {2, 9, 1}), option(60, text), end}),
        join({discover, option(82, {2}), option(60, text), end}),
        join({discover, option(82, join({{2, 7}, text})), end}),  // one byte more than there is
        join({discover, option(82, join({{2, 6}, text})), end}),
        join({discover, option(82, {}), option(82, option(2, text)), end}),
        join({discover, option(82, join({option(0, {2, 2}), option(255, {3}), option(2, text)}))}),
        join({discover, option(82, join({option(2, {}), option(2, text), option(2, {1})})), end}),
        join({option(52, {3}), discover, end}),
        join({option(52, {1}), option(52, {2}), discover, end}),
        join({option(52, {0}), option(52, {2}), end}),
        join({option(52, {1, 1}), option(52, {0xff}), end}),
    };
}

std::vector<Buffer> packetTable() {
    std::vector<Buffer> table = {
        ether(0x88b5, {}),
        ether(0x88b5, Buffer(200, 0x5a)),
        ether(0, Buffer(50, 1)),
        ether(0x0806, arp(0x0a010203)),
        ether(0x0806, Buffer(27, 0)),
        ether(0x86dd, Buffer(60, 0x60)),
        ether(0x0800, ipv4({})),
        ether(0x0800, ipv4(udp({}))),
        ether(0x0800, ipv4(udp(Buffer(300, 1), 53))),
        ether(0x0800, ipv4(Buffer(40, 0), {.source = 0xc0a80117, .protocol = 6})),
        ether(0x0800, ipv4(udp(dhcp({.options = discover}), 68, 67))),
        ether(0x0800, ipv4(udp(dhcp({.operation = 2, .options = discover}), 68, 67))),
        ether(0x0800, ipv4(udp(dhcp({.operation = 2, .options = discover})))),
        ether(0x0800, ipv4(udp(dhcp({.cookie = 0x63825362, .options = discover})))),
        dhcpFrame(discover, {.fragment = 0x2000}),
        dhcpFrame(discover, {.fragment = 0x4000}),
        dhcpFrame(discover, {.fragment = 0x0001}),
        dhcpFrame(discover, {.options = Buffer(40, 1)}),
        dhcpFrame(join({discover, Buffer(1100, 0), option(60, bytesOf("vendor"))})),
    };
    const Buffer file = join({{0}, option(60, bytesOf("vendor")), option(53, {8}), end});
    const Buffer serverName = join({option(61, bytesOf("vendor")), option(52, {1})});
    const Buffer crossing = join({option(12, Buffer(124, 'x')), {60, 1}});
    for (const Buffer& options : optionFields()) {
        table.push_back(dhcpFrame(options));
        for (const Buffer& firstField : {file, crossing}) {
            table.push_back(ether(
                0x0800, ipv4(udp(dhcp(
                            {.serverName = serverName, .file = firstField, .options = options})))));
        }
    }
    const std::vector<std::vector<Tag>> stacks = {{{0x8100, 0x0005}},
                                                  {{0x8100, 0xffff}},
                                                  {{0x88a8, 0x2005}, {0x8100, 0x0006}},
                                                  {{0x9100, 0x0005}},
                                                  {{0x8100, 0}, {0x9100, 1}, {0x88a8, 2}}};
    const size_t untagged = table.size();
    for (size_t i = 0; i < untagged; ++i) {
        for (const auto& stack : stacks) {
            Buffer tags;
            for (const Tag& tag : stack) {
                append16(tags, tag.type);
                append16(tags, tag.control);
            }
            Buffer frame = table[i];
            frame.insert(frame.begin() + 12, tags.begin(), tags.end());
            table.push_back(frame);
        }
    }
    const Buffer whole = dhcpFrame(join({discover, option(60, bytesOf("vendor")), end}));
    for (size_t size = 14; size < whole.size(); ++size) {
        table.emplace_back(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    }
    return table;
}

std::vector<ittalCondition> conditionTable() {
    const MacBytes source = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    const MacBytes all = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
    std::vector<ittalCondition> table = {
        anyFrame(),
        etherTypeIs(0),
        etherTypeIs(0x0800),
        etherTypeIs(0x0806),
        etherTypeIs(0x8100),
        dhcpMessage(0),
        dhcpMessage(1),
        dhcpMessage(2),
        dhcpMessage(3),
        sourceMacIs(source, all),
        sourceMacIs({}, {0xff}),
        sourceMacIs({}, {}),
        sourceIpIs(0x0a010203, 0xffffffff),
        sourceIpIs(0, 0),
        sourceIpIs(0xc0a80000, 0xffff0000),
        outerVlanIs(0),
        outerVlanIs(5),
        outerVlanIs(0xfff),
        userPattern(),
        condition(4, 5),
        condition(10, 0),
    };
    for (const uint32_t type : {3U, 4U, 5U}) {
        for (const std::string& pattern :
             {std::string(), std::string("v"), std::string("vendor"), std::string("vendors"),
              std::string("endor"), std::string(255, 'v'), std::string("\0", 1)}) {
            table.push_back(optionBegins(type, pattern));
        }
    }
    for (const size_t word : {0U, 3U, 4U, 11U, 31U}) {
        ittalCondition pattern = userPattern();
        pattern.u.user.mask[word] = 0xff;
        table.push_back(pattern);
        pattern.u.user.sequence[word] = 0x05;
        table.push_back(pattern);
    }
    return table;
}

TEST_F(KernelMatchTest, EveryFrameOfTheTableIsJudgedAlike) {
    KernelMatcher kernel;
    const std::vector<Buffer> frames = packetTable();
    size_t matched = 0, judged = 0;
    for (const ittalCondition& condition : conditionTable()) {
        const std::span<const ittalCondition> rules(&condition, 1);
        ASSERT_TRUE(kernel.setRules(rules));
        for (size_t i = 0; i < frames.size(); ++i) {
            const bool expected = pureVerdict(frames[i], rules);
            ASSERT_EQ(kernel.inTestRun(frames[i]).value_or(expected), expected)
                << "frame " << i << " type " << condition.type;
            ASSERT_EQ(kernel.onTheWire(frames[i]).value_or(expected), expected)
                << "frame " << i << " type " << condition.type;
            matched += expected;
            ++judged;
        }
    }
    EXPECT_GT(matched, judged / 10);
    EXPECT_LT(matched, judged / 2);
}

class Mutator {
public:
    size_t upTo(size_t last) { return random_() % (last + 1); }

    Buffer mutate(Buffer frame) {
        for (size_t changes = upTo(4); changes > 0; --changes) {
            const size_t at = upTo(frame.size() - 1);
            switch (upTo(4)) {
                case 0:
                    frame[at] = static_cast<uint8_t>(random_());
                    break;
                case 1:
                    frame[at] = static_cast<uint8_t>(frame[at] ^ 1U << upTo(7));
                    break;
                case 2:
                    frame.insert(frame.begin() + static_cast<std::ptrdiff_t>(at), upTo(3),
                                 static_cast<uint8_t>(upTo(255)));
                    break;
                case 3:
                    frame.resize(std::max<size_t>(at, 15));
                    break;
                default:
                    frame[at] = std::array<uint8_t, 6>{0, 255, 52, 53, 60, 82}[upTo(5)];
            }
        }
        return frame;
    }

private:
    std::mt19937 random_{20240607};
};

TEST_F(KernelMatchTest, DamagedFramesAreJudgedAlikeUnderSeveralRules) {
    KernelMatcher kernel;
    Mutator mutator;
    const std::vector<Buffer> frames = packetTable();
    const std::vector<ittalCondition> table = conditionTable();
    size_t matched = 0;
    constexpr size_t rounds = 400, framesPerRound = 50;
    for (size_t round = 0; round < rounds; ++round) {
        std::vector<ittalCondition> rules(1 + mutator.upTo(9));
        for (ittalCondition& rule : rules) {
            rule = table[1 + mutator.upTo(table.size() - 2)];  // without "any frame"
        }
        ASSERT_TRUE(kernel.setRules(rules));
        for (size_t i = 0; i < framesPerRound; ++i) {
            const Buffer frame = mutator.mutate(frames[mutator.upTo(frames.size() - 1)]);
            const bool expected = pureVerdict(frame, rules);
            ASSERT_EQ(kernel.inTestRun(frame).value_or(expected), expected) << round << ' ' << i;
            ASSERT_EQ(kernel.onTheWire(frame).value_or(expected), expected) << round << ' ' << i;
            matched += expected;
        }
    }
    EXPECT_GT(matched, rounds * framesPerRound / 4);
    EXPECT_LT(matched, rounds * framesPerRound * 3 / 4);
}

TEST_F(KernelMatchTest, LongFramesAreWalkedToTheirEnd) {
    KernelMatcher kernel;
    const Buffer vendor = option(60, bytesOf("vendor"));
    const ittalCondition rules[] = {optionBegins(3, "vendor")};
    ASSERT_TRUE(kernel.setRules(rules));
    for (const size_t pads : {1000U, 5000U, 8600U}) {
        const Buffer found = dhcpFrame(join({discover, Buffer(pads, 0), vendor}));
        const Buffer ended = dhcpFrame(join({discover, Buffer(pads, 0), end, vendor}));
        EXPECT_EQ(kernel.onTheWire(found), true) << pads;
        EXPECT_EQ(kernel.onTheWire(ended), false) << pads;
    }
    Buffer tags;
    for (unsigned i = 0; i < 2000; ++i) {
        append16(tags, 0x8100);
        append16(tags, i);
    }
    Buffer frame = dhcpFrame(join({discover, vendor}));
    frame.insert(frame.begin() + 12, tags.begin(), tags.end());
    EXPECT_EQ(kernel.onTheWire(frame), true);
    frame.resize(12 + tags.size());
    EXPECT_EQ(kernel.onTheWire(frame), false);
}

TEST_F(KernelMatchTest, RulesAreReplacedAsAWhole) {
    KernelMatcher kernel;
    const Buffer frame = ether(0x88b5, Buffer(60, 1));
    const ittalCondition hit[] = {etherTypeIs(0x0800), etherTypeIs(0x88b5)};
    const ittalCondition miss[] = {etherTypeIs(0x0800)};
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(kernel.setRules(hit));
        EXPECT_EQ(kernel.inTestRun(frame), true);
        ASSERT_TRUE(kernel.setRules(miss));
        EXPECT_EQ(kernel.inTestRun(frame), false);
        ASSERT_TRUE(kernel.setRules({}));
        EXPECT_EQ(kernel.inTestRun(frame), false);
    }
}

TEST_F(KernelMatchTest, AFrameNeverSeesAMixtureOfRules) {
    KernelMatcher kernel;
    // Each of these misses the frame in one word; a mixture of their words could hit it. The
    // walk over the options lies between choosing the rules and reading them.
    const Buffer frame = dhcpFrame(join({discover, Buffer(2000, 0)}));
    ittalCondition pattern = userPattern();
    pattern.u.user.mask[4] = pattern.u.user.mask[31] = 0xffffffff;
    std::vector<ittalCondition> first(KERNEL_RULES, pattern), second(KERNEL_RULES, pattern);
    for (size_t i = 0; i < KERNEL_RULES; ++i) {
        for (const size_t word : {4U, 31U}) {
            const uint32_t value = matchBe32(&frame[4 * word]);
            first[i].u.user.sequence[word] = word == 4 ? value : ~value;
            second[i].u.user.sequence[word] = word == 4 ? ~value : value;
        }
    }
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        while (!stop) {
            EXPECT_TRUE(kernel.setRules(first));
            EXPECT_TRUE(kernel.setRules(second));
            EXPECT_TRUE(kernel.setRules({}));  // three, so that each place holds each in turn
        }
    });
    for (int i = 0; i < 50000 && !HasFailure(); ++i) {
        EXPECT_EQ(kernel.inTestRun(frame), false);
    }
    stop = true;
    writer.join();
}

TEST_F(KernelMatchTest, SixteenRulesFitAndMoreAreRefused) {
    KernelMatcher kernel;
    const Buffer frame = ether(0x88b5, Buffer(60, 1));
    std::vector<ittalCondition> rules(KERNEL_RULES - 1, etherTypeIs(0x0800));
    rules.push_back(etherTypeIs(0x88b5));
    ASSERT_TRUE(kernel.setRules(rules));
    EXPECT_EQ(kernel.inTestRun(frame), true);
    rules.insert(rules.begin(), etherTypeIs(0x0801));
    EXPECT_FALSE(kernel.setRules(rules));
    EXPECT_EQ(kernel.inTestRun(frame), true);  // the earlier ones are in force
    rules[0] = condition(12, 0);               // describes no frame and takes no room
    ASSERT_TRUE(kernel.setRules(rules));
    EXPECT_EQ(kernel.inTestRun(frame), true);
}

}  // namespace
