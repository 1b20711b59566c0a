// The rule calls of management: its record, the conversion both ways, and every refusal.
#include "rpc/rpctal.h"
#include "tests/unit/guarded_record.h"
#include "tests/unit/rule_table_fixture.h"

#include <limits.h>
#include <stddef.h>

namespace {

using fake::sameLines;
using fake::Service;

static_assert(sizeof(rpcTalRule) == 1876 && alignof(rpcTalRule) == 4);
static_assert(offsetof(rpcTalRule, macAddr) == 0);
static_assert(offsetof(rpcTalRule, macMask) == 6);
static_assert(offsetof(rpcTalRule, ipValue) == 12);
static_assert(offsetof(rpcTalRule, ipMask) == 16);
static_assert(offsetof(rpcTalRule, ethType) == 20);
static_assert(offsetof(rpcTalRule, type8Value) == 24);
static_assert(offsetof(rpcTalRule, type2Value) == 28);
static_assert(offsetof(rpcTalRule, pattern[0].format) == 32);
static_assert(offsetof(rpcTalRule, pattern[0].text) == 36);
static_assert(offsetof(rpcTalRule, pattern[0].mac) == 292);
static_assert(offsetof(rpcTalRule, pattern[0].raw) == 298);
static_assert(offsetof(rpcTalRule, pattern[0].rawLength) == 556);
static_assert(offsetof(rpcTalRule, pattern[1].format) == 560);
static_assert(offsetof(rpcTalRule, pattern[1].text) == 564);
static_assert(offsetof(rpcTalRule, pattern[1].mac) == 820);
static_assert(offsetof(rpcTalRule, pattern[1].raw) == 826);
static_assert(offsetof(rpcTalRule, pattern[1].rawLength) == 1084);
static_assert(offsetof(rpcTalRule, pattern[2].format) == 1088);
static_assert(offsetof(rpcTalRule, pattern[2].text) == 1092);
static_assert(offsetof(rpcTalRule, pattern[2].mac) == 1348);
static_assert(offsetof(rpcTalRule, pattern[2].raw) == 1354);
static_assert(offsetof(rpcTalRule, pattern[2].rawLength) == 1612);
static_assert(offsetof(rpcTalRule, userPatternSequence) == 1616);
static_assert(offsetof(rpcTalRule, userPatternMask) == 1744);
static_assert(offsetof(rpcTalRule, type) == 1872);

using Place = GuardedRecord<rpcTalRule>::At;

enum ManagementFormat : uint32_t { text = 0, mac = 1, raw = 2 };

rpcTalRule record(int type) {
    rpcTalRule rule;
    memset(static_cast<void*>(&rule), 0, sizeof(rule));
    rule.ethType = rules::unset;
    rule.type8Value = rules::unset;
    rule.type2Value = rules::unset;
    for (rpcTalRulePattern& pattern : rule.pattern) {
        pattern.format = rules::unset;
    }
    rule.type = static_cast<rpc_tal_rule_type>(type);
    return rule;
}

rpcTalRule textRecord(int type, const std::string& text) {
    rpcTalRule rule = record(type);
    rpcTalRulePattern& pattern = rule.pattern[type - 3];
    pattern.format = ManagementFormat::text;
    memcpy(pattern.text, text.data(), text.size());
    return rule;
}

// Every slot set, each byte telling where it came from.
rpcTalRule fullRecord(int type) {
    rpcTalRule rule = record(type);
    memcpy(rule.macAddr, "\x11\x12\x13\x14\x15\x16", 6);
    memcpy(rule.macMask, "\x21\x22\x23\x24\x25\x26", 6);
    rule.ipValue = 0x31323334;
    rule.ipMask = 0x41424344;
    rule.ethType = rules::ipv4;
    rule.type8Value = 0x51525354;
    rule.type2Value = 1;
    rule.pattern[0].format = text;
    memcpy(rule.pattern[0].text, "some text", 9);
    rule.pattern[1].format = mac;
    memcpy(rule.pattern[1].mac, "\x61\x62\x63\x64\x65\x66", 6);
    rule.pattern[2].format = raw;
    for (unsigned i = 0; i < sizeof(rule.pattern[2].raw); ++i) {
        rule.pattern[2].raw[i] = static_cast<unsigned char>(i + 1);
    }
    rule.pattern[2].rawLength = 255;
    for (uint32_t i = 0; i < 32; ++i) {
        rule.userPatternSequence[i] = 0x71000000 + i;
        rule.userPatternMask[i] = 0x81000000 + i;
    }
    return rule;
}

// The same slots on the module's side.
talRule fullRule() {
    talRule rule = rules::blank(-1);
    memcpy(rule.macAddr, "\x11\x12\x13\x14\x15\x16", 6);
    memcpy(rule.macMask, "\x21\x22\x23\x24\x25\x26", 6);
    rule.ipValue = 0x31323334;
    rule.ipMask = 0x41424344;
    rule.ethType = rules::ipv4;
    rule.type8Value = 0x51525354;
    rule.type2Flag = 1;
    rules::copySlot(rules::pattern(3, rules::text, "some text"), rule, 3);
    rules::copySlot(rules::pattern(4, rules::mac, "\x61\x62\x63\x64\x65\x66"), rule, 4);
    std::string bytes;
    for (unsigned i = 1; i <= 255; ++i) {
        bytes += static_cast<char>(i);
    }
    rules::copySlot(rules::pattern(5, rules::raw, bytes, 255), rule, 5);
    for (uint32_t i = 0; i < 32; ++i) {
        rule.userPatternSequence[i] = 0x71000000 + i;
        rule.userPatternMask[i] = 0x81000000 + i;
    }
    return rule;
}

class RuleServiceTest : public RuleTableFixture {
protected:
    void SetUp() override {
        startWith({1, 5});
        platform.forget();
    }
    // Each call is made with the record at both ends of its page and must not change it.
    uint32_t rpcSet(unsigned intf, const rpcTalRule& rule, uint32_t op = 0) {
        return once(rule, [intf, op](rpcTalRule* given) {
            return rpcTalRuleSet(intf, given, static_cast<talOperation>(op));
        });
    }
    uint32_t rpcBundle(unsigned intf, const rpcTalRule& rule) {
        return once(rule, [intf](rpcTalRule* given) { return rpcTalRuleBundleSet(intf, given); });
    }
    static uint32_t rpcGet(unsigned intf, rpcTalRule& rule, Place place = Place::endOfPage) {
        GuardedRecord<rpcTalRule> guarded(rule, place);
        const uint32_t result = rpcTalRuleGet(intf, guarded.get());
        rule = *guarded;
        return result;
    }
    // A refusal by the conversion: 1, and the module was not even asked.
    void expectRefused(uint32_t result) {
        EXPECT_EQ(1u, result);
        EXPECT_TRUE(platform.calls().empty());
        EXPECT_TRUE(platform.calls({Service::lock, Service::log, Service::syslog}).empty());
        platform.forget();
    }

private:
    template <class Call>
    uint32_t once(const rpcTalRule& rule, Call call) {
        static unsigned calls = 0;
        GuardedRecord<rpcTalRule> guarded(rule,
                                          ++calls % 2 == 0 ? Place::endOfPage : Place::startOfPage);
        const uint32_t result = call(guarded.get());
        EXPECT_EQ(0, memcmp(&rule, guarded.get(), sizeof(rule))) << "the caller's record changed";
        return result;
    }
};

// ---- setting one rule

TEST_F(RuleServiceTest, SetStoresTheSlotOfTheRecordsType) {
    for (const int type : {1, 2, 3, 4, 5, 6, 7, 8, 9}) {
        platform.forget();
        EXPECT_EQ(0u, rpcSet(5, fullRecord(type)));
        EXPECT_TRUE(sameLines(engine(), {added(5, type)}));
        EXPECT_EQ(rules::slot(fullRule(), type), rules::slot(get(5), type)) << type;
        for (const int other : rules::differing(rules::blank(-1), get(5))) {
            EXPECT_LE(other, type);
        }
    }
}

TEST_F(RuleServiceTest, TypeZeroHasNoValueInTheRecordAndStaysUnset) {
    EXPECT_EQ(0u, rpcSet(5, fullRecord(0)));
    EXPECT_TRUE(sameLines(engine(), {added(5, 0)}));
    EXPECT_EQ(rules::unset, get(5).type0Value);
}

TEST_F(RuleServiceTest, EveryOperationButZeroDeletes) {
    for (const uint32_t op : {1u, 2u, 0x80000000u, 0xFFFFFFFFu}) {
        ASSERT_EQ(0u, rpcSet(5, fullRecord(6)));
        platform.forget();
        EXPECT_EQ(0u, rpcSet(5, record(6), op));
        EXPECT_TRUE(sameLines(engine(), {deleted(5, 6)}));
        EXPECT_FALSE(exists(5, 6));
    }
}

TEST_F(RuleServiceTest, TypeTwoValueIsCopiedWhenZeroOneOrUnset) {
    for (const uint32_t value : {0u, 1u, rules::unset}) {
        rpcTalRule rule = record(2);
        rule.type2Value = value;
        EXPECT_EQ(0u, rpcSet(5, rule));
        EXPECT_EQ(value, get(5).type2Flag);
    }
}

TEST_F(RuleServiceTest, KeepsTheFlagUnwrittenForOtherTypeTwoValues) {
    for (const uint32_t value : {2u, 3u, 0x100u, 0xFFFFFFFEu}) {
        ASSERT_EQ(talResOk, remove(5, 2));
        platform.forget();
        rpcTalRule rule = record(2);
        rule.type2Value = value;
        EXPECT_EQ(0u, rpcSet(5, rule));
        EXPECT_TRUE(sameLines(engine(), {added(5, 2)}));
        EXPECT_EQ(rules::unset, get(5).type2Flag) << value;
    }
}

TEST_F(RuleServiceTest, TextUpTo255CharactersIsStoredWithItsTerminator) {
    for (const size_t length : {0u, 1u, 100u, 255u}) {
        for (const int type : {3, 4, 5}) {
            const std::string text(length, 'x');
            EXPECT_EQ(0u, rpcSet(5, textRecord(type, text)));
            EXPECT_EQ(rules::slot(rules::pattern(type, rules::text, text), type),
                      rules::slot(get(5), type));
        }
    }
}

TEST_F(RuleServiceTest, TextOfExactly256CharactersIsCopiedWhole) {
    for (const int type : {3, 4, 5}) {
        const std::string text(256, 'x');
        platform.forget();
        EXPECT_EQ(0u, rpcSet(5, textRecord(type, text))) << "the MAC field's first byte ends it";
        EXPECT_EQ(rules::slot(rules::pattern(type, rules::text, text), type),
                  rules::slot(get(5), type));
        const std::vector<ittalCondition> conditions = platform.engine.conditions();
        ASSERT_EQ(1u, conditions.size());
        EXPECT_EQ(std::string(255, 'x'), std::string(conditions[0].u.match.pattern, 255));
        EXPECT_EQ(0, conditions[0].u.match.length) << "the low byte of 256";
    }
}

TEST_F(RuleServiceTest, BytesBehindTheTextsTerminatorAreNotStored) {
    rpcTalRule rule = textRecord(3, std::string("ab\0cd", 5));
    EXPECT_EQ(0u, rpcSet(5, rule));
    EXPECT_EQ(rules::slot(rules::pattern(3, rules::text, "ab"), 3), rules::slot(get(5), 3));
}

TEST_F(RuleServiceTest, LongerTextIsRefusedInEveryPatternWhateverTheType) {
    for (int slot = 0; slot < 3; ++slot) {
        for (const int type : {3, 4, 5, 6, 0}) {
            rpcTalRule rule = record(type);
            rule.type2Value = 0;
            rule.pattern[slot].format = text;
            memset(rule.pattern[slot].text, 'x', 256);
            rule.pattern[slot].mac[0] = 'x';
            expectRefused(rpcSet(5, rule));
            expectRefused(rpcSet(5, rule, 1));
            expectRefused(rpcBundle(5, rule));
            expectRefused(rpcSet(99, rule));
        }
    }
}

TEST_F(RuleServiceTest, TextThatNeverEndsIsReadInsideTheRecordOnly) {
    for (int slot = 0; slot < 3; ++slot) {
        rpcTalRule rule;
        memset(static_cast<void*>(&rule), 'x', sizeof(rule));
        rule.type2Value = 0;
        for (rpcTalRulePattern& pattern : rule.pattern) {
            pattern.format = rules::unset;
        }
        rule.pattern[slot].format = text;
        for (int place = 0; place < 2; ++place) {  // both ends of the page
            expectRefused(rpcSet(5, rule));
            expectRefused(rpcBundle(5, rule));
        }
    }
}

TEST_F(RuleServiceTest, MacPatternIsPlacedAtTheStartOfTheData) {
    for (const int type : {3, 4, 5}) {
        rpcTalRule rule = record(type);
        rpcTalRulePattern& pattern = rule.pattern[type - 3];
        memset(static_cast<void*>(&pattern), 0xEE, sizeof(pattern));
        pattern.format = mac;
        memcpy(pattern.mac, "\x00\x01\x02\x03\x04\x05", 6);
        EXPECT_EQ(0u, rpcSet(5, rule)) << "an endless text does not matter here";
        EXPECT_EQ(
            rules::slot(rules::pattern(type, rules::mac, std::string("\0\1\2\3\4\5", 6)), type),
            rules::slot(get(5), type));
    }
}

TEST_F(RuleServiceTest, RawPatternCarries255BytesAndAnyLength) {
    for (const uint32_t length : {0u, 1u, 255u, 256u, 300u, 0xFFFFFFFFu}) {
        for (const int type : {3, 4, 5}) {
            rpcTalRule rule = record(type);
            rpcTalRulePattern& pattern = rule.pattern[type - 3];
            memset(static_cast<void*>(&pattern), 0xEE, sizeof(pattern));
            pattern.format = raw;
            pattern.rawLength = length;
            EXPECT_EQ(0u, rpcSet(5, rule));
            EXPECT_EQ(rules::slot(
                          rules::pattern(type, rules::raw, std::string(255, '\xEE'), length), type),
                      rules::slot(get(5), type))
                << length;
        }
    }
}

TEST_F(RuleServiceTest, UnknownPatternFormatLeavesTheSlotUnset) {
    for (const uint32_t format : {3u, 4u, 0x80000000u, 0xFFFFFFFEu, rules::unset}) {
        platform.forget();
        rpcTalRule rule = record(4);
        memset(static_cast<void*>(&rule.pattern[1]), 0xEE, sizeof(rule.pattern[1]));
        rule.pattern[1].format = format;
        EXPECT_EQ(0u, rpcSet(5, rule)) << format;
        EXPECT_TRUE(sameLines(engine(), {added(5, 4)}));
        EXPECT_FALSE(exists(5, 4));
    }
}

TEST_F(RuleServiceTest, UnknownRuleTypeIsRefusedByAllThreeCalls) {
    for (const int type : {10, 12, 255, 256, -1, INT_MAX, INT_MIN}) {
        rpcTalRule rule = fullRecord(type);
        expectRefused(rpcSet(5, rule));
        expectRefused(rpcSet(5, rule, 1));
        expectRefused(rpcSet(0, rule));
        expectRefused(rpcSet(99, rule));
        expectRefused(rpcBundle(5, rule));
        expectRefused(rpcBundle(99, rule));
        EXPECT_EQ(1u, rpcGet(5, rule)) << type;
        EXPECT_EQ(0, memcmp(&rule, &static_cast<const rpcTalRule&>(fullRecord(type)), 1876));
        platform.forget();
    }
}

TEST_F(RuleServiceTest, NullRecordIsRefused) {
    expectRefused(rpcTalRuleSet(5, nullptr, rules::add));
    expectRefused(rpcTalRuleSet(0, nullptr, rules::remove));
    expectRefused(rpcTalRuleBundleSet(5, nullptr));
    EXPECT_EQ(1u, rpcTalRuleGet(5, nullptr));
}

TEST_F(RuleServiceTest, TheTablesOwnCodesReachManagement) {
    EXPECT_EQ(3u, rpcSet(99, fullRecord(6)));
    EXPECT_EQ(3u, rpcSet(99, fullRecord(6), 1));
    EXPECT_EQ(3u, rpcBundle(99, fullRecord(6)));
    rpcTalRule rule = record(1);
    rule.ethType = rules::arp;
    ASSERT_EQ(0u, rpcSet(5, rule));
    EXPECT_EQ(2u, rpcSet(5, fullRecord(7)));
    platform.answers.always("ittalConditionAdd");
    EXPECT_EQ(1u, rpcSet(5, fullRecord(6)));
    platform.answers.clear();
    platform.answers.always("exclusiveLock");
    EXPECT_EQ(1u, rpcSet(5, fullRecord(6)));
    EXPECT_EQ(1u, rpcBundle(5, fullRecord(6)));
}

TEST_F(RuleServiceTest, InterfaceZeroReachesEveryInterface) {
    EXPECT_EQ(0u, rpcSet(0, fullRecord(6)));
    EXPECT_TRUE(sameLines(engine(), {added(1, 6), added(5, 6)}));
    platform.forget();
    EXPECT_EQ(0u, rpcSet(0, record(6), 1));
    EXPECT_TRUE(sameLines(engine(), {deleted(1, 6), deleted(5, 6)}));
}

// ---- setting a bundle

TEST_F(RuleServiceTest, BundleInstallsEverySlotButTypeZero) {
    EXPECT_EQ(0u, rpcBundle(5, fullRecord(9)));
    std::vector<std::string> expected;
    for (const int type : {6, 7, 1, 8, 2, 3, 4, 5, 9}) {
        expected.push_back(added(5, type));
    }
    EXPECT_TRUE(sameLines(engine(), expected));
    talRule rule = fullRule();
    for (talRulePattern& pattern : rule.pattern) {  // a bundle's patterns travel without data
        memset(pattern.data, 0, sizeof(pattern.data));
        pattern.length = 0;
    }
    EXPECT_EQ(std::vector<int>(), rules::differing(rule, get(5)));
}

TEST_F(RuleServiceTest, BundleRemovesAStandingTypeZeroRule) {
    ASSERT_EQ(talResOk, set(5, rules::some(0)));
    platform.forget();
    rpcTalRule rule = record(0);
    rule.type2Value = 0;
    EXPECT_EQ(0u, rpcBundle(5, rule));
    EXPECT_TRUE(sameLines(engine(), {deleted(5, 0), added(5, 2)}));
}

TEST_F(RuleServiceTest, KeepsTheBundleWithoutATypeTwoValueRefused) {
    for (const uint32_t value : {rules::unset, 2u, 3u, 0x101u, 0xFFFFFFFEu}) {
        rpcTalRule rule = fullRecord(6);
        rule.type2Value = value;
        expectRefused(rpcBundle(5, rule));
        expectRefused(rpcBundle(99, rule));
    }
}

TEST_F(RuleServiceTest, KeepsEveryBundleWithAnotherEtherTypeIncompatible) {
    for (const uint32_t value : {0u, 1u}) {
        rpcTalRule rule = record(1);
        rule.type2Value = value;
        rule.ethType = rules::arp;
        EXPECT_EQ(2u, rpcBundle(5, rule));
        rule.ethType = rules::ipv4;
        EXPECT_EQ(0u, rpcBundle(5, rule));
        rule.ethType = rules::unset;
        EXPECT_EQ(0u, rpcBundle(5, rule));
    }
}

TEST_F(RuleServiceTest, BundleForInterfaceZeroReachesEveryInterface) {
    rpcTalRule rule = record(0);
    rule.type2Value = 1;
    EXPECT_EQ(0u, rpcBundle(0, rule));
    EXPECT_TRUE(sameLines(engine(), {added(1, 2), added(5, 2)}));
}

// ---- reading

TEST_F(RuleServiceTest, GetGivesBackWhatWasSet) {
    for (const int type : {1, 2, 3, 4, 5, 6, 7, 8, 9}) {
        ASSERT_EQ(0u, rpcSet(5, fullRecord(type)));
    }
    for (const Place place : {Place::endOfPage, Place::startOfPage}) {
        for (const int type : rules::types) {
            rpcTalRule expected;
            memset(static_cast<void*>(&expected), 0x5A, sizeof(expected));
            rpcTalRule out = expected;
            const rpcTalRule full = fullRecord(type);
            memcpy(static_cast<void*>(&expected), &full, 32);
            expected.pattern[0].format = text;
            memcpy(expected.pattern[0].text, "some text", 10);  // the terminator, nothing more
            expected.pattern[1].format = mac;
            memcpy(expected.pattern[1].mac, full.pattern[1].mac, 6);
            expected.pattern[2].format = raw;
            memcpy(expected.pattern[2].raw, full.pattern[2].raw, 255);
            expected.pattern[2].rawLength = 255;
            memcpy(expected.userPatternSequence, full.userPatternSequence, 256);
            out.type = expected.type = full.type;
            EXPECT_EQ(0u, rpcGet(5, out, place));
            const auto* want = reinterpret_cast<const unsigned char*>(&expected);
            const auto* have = reinterpret_cast<const unsigned char*>(&out);
            for (size_t i = 0; i < sizeof(out); ++i) {
                ASSERT_EQ(want[i], have[i]) << "byte " << i;
            }
        }
    }
}

TEST_F(RuleServiceTest, GetOfAFreshInterfaceGivesTheUnsetMarkers) {
    rpcTalRule out;
    memset(static_cast<void*>(&out), 0x5A, sizeof(out));
    out.type = static_cast<rpc_tal_rule_type>(0);
    EXPECT_EQ(0u, rpcGet(5, out));
    const rpcTalRule expected = record(0);
    EXPECT_EQ(0, memcmp(&expected, &out, 32));
    for (const rpcTalRulePattern& pattern : out.pattern) {
        EXPECT_EQ(rules::unset, pattern.format);
        EXPECT_EQ(0x5A, pattern.text[0]) << "an unset pattern has no data";
        EXPECT_EQ(0x5A5A5A5Au, pattern.rawLength);
    }
    EXPECT_EQ(0, memcmp(expected.userPatternSequence, out.userPatternSequence, 256));
}

TEST_F(RuleServiceTest, GetWritesAStoredFlagOnlyWhenZeroOneOrUnset) {
    for (const uint32_t flag : {0u, 1u, 2u, 7u, 0xFFFFFFFEu, rules::unset}) {
        ASSERT_EQ(talResOk, set(5, rules::value(2, flag)));
        rpcTalRule out = record(2);
        out.type2Value = 4711;
        EXPECT_EQ(0u, rpcGet(5, out));
        const bool known = flag <= 1 || flag == rules::unset;
        EXPECT_EQ(known ? flag : 4711u, out.type2Value) << flag;
    }
}

TEST_F(RuleServiceTest, GetRefusesARawPatternOfMoreThan255Bytes) {
    for (const int type : {3, 4, 5}) {
        for (const uint32_t length : {256u, 257u, 0x80000000u, 0xFFFFFFFFu}) {
            ASSERT_EQ(talResOk, set(5, rules::pattern(type, rules::raw, "x", length)));
            rpcTalRule out = record(6);
            EXPECT_EQ(1u, rpcGet(5, out)) << length;
        }
        ASSERT_EQ(talResOk, set(5, rules::pattern(type, rules::raw, "x", 255)));
        rpcTalRule out = record(6);
        EXPECT_EQ(0u, rpcGet(5, out));
    }
}

TEST_F(RuleServiceTest, GetWritesAsManyRawBytesAsTheLengthSays) {
    for (const uint32_t length : {0u, 1u, 6u, 254u, 255u}) {
        const std::string data(255, '\x77');
        ASSERT_EQ(talResOk, set(5, rules::pattern(4, rules::raw, data, length)));
        rpcTalRule out;
        memset(static_cast<void*>(&out), 0x5A, sizeof(out));
        out.type = static_cast<rpc_tal_rule_type>(4);
        EXPECT_EQ(0u, rpcGet(5, out));
        const rpcTalRulePattern& pattern = out.pattern[1];
        EXPECT_EQ(uint32_t{raw}, pattern.format);
        EXPECT_EQ(length, pattern.rawLength);
        const std::string expected =
            std::string(length, '\x77') + std::string(sizeof(pattern.raw) - length, '\x5A');
        EXPECT_EQ(expected, std::string(reinterpret_cast<const char*>(pattern.raw), 258));
        EXPECT_EQ(0x5A, pattern.text[0]);
        EXPECT_EQ(0x5A, pattern.mac[0]);
    }
}

TEST_F(RuleServiceTest, GetWritesTheTextWithItsTerminatorAndNothingBehind) {
    for (const size_t length : {0u, 1u, 254u, 255u}) {
        ASSERT_EQ(talResOk, set(5, rules::pattern(3, rules::text, std::string(length, 't'))));
        rpcTalRule out;
        memset(static_cast<void*>(&out), 0x5A, sizeof(out));
        out.type = static_cast<rpc_tal_rule_type>(3);
        EXPECT_EQ(0u, rpcGet(5, out));
        const rpcTalRulePattern& pattern = out.pattern[0];
        EXPECT_EQ(uint32_t{text}, pattern.format);
        const std::string expected =
            std::string(length, 't') + '\0' + std::string(255 - length, '\x5A');
        EXPECT_EQ(expected, std::string(pattern.text, 256)) << length;
        EXPECT_EQ(0x5A, pattern.mac[0]);
        EXPECT_EQ(0x5A5A5A5Au, pattern.rawLength);
    }
}

TEST_F(RuleServiceTest, TextOf256CharactersEndsOnTheFirstByteOfTheMacField) {
    for (const int type : {3, 4, 5}) {
        ASSERT_EQ(0u, rpcSet(5, textRecord(type, std::string(256, 'x'))));
        rpcTalRule out;
        memset(static_cast<void*>(&out), 0x5A, sizeof(out));
        out.type = static_cast<rpc_tal_rule_type>(type);
        EXPECT_EQ(0u, rpcGet(5, out));
        const rpcTalRulePattern& pattern = out.pattern[type - 3];
        EXPECT_EQ(std::string(256, 'x'), std::string(pattern.text, 256));
        EXPECT_EQ(0, pattern.mac[0]);
        EXPECT_EQ(0x5A, pattern.mac[1]);
        EXPECT_EQ(0u, rpcSet(5, textRecord(type, std::string(256, 'x')))) << "and goes in again";
        ASSERT_EQ(talResOk, remove(5, type));
    }
}

TEST_F(RuleServiceTest, GetRefusesAStoredTextOfMoreThan256Characters) {
    for (const int type : {3, 4, 5}) {
        for (const uint32_t length : {1u, 0x41u, 0x01010101u, 0xFFFFFFFFu}) {
            ASSERT_EQ(talResOk,
                      set(5, rules::pattern(type, rules::text, std::string(256, 'x'), length)));
            rpcTalRule out = record(type);
            EXPECT_EQ(1u, rpcGet(5, out)) << length;
            ASSERT_EQ(talResOk, remove(5, type));
        }
    }
}

TEST_F(RuleServiceTest, GetRefusesAStoredPatternOfUnknownFormat) {
    for (const uint32_t format : {3u, 17u, 0x80000000u, 0xFFFFFFFEu}) {
        ASSERT_EQ(talResOk, set(5, rules::pattern(5, format, "abc", 3)));
        rpcTalRule out = record(0);
        EXPECT_EQ(1u, rpcGet(5, out)) << format;
    }
}

TEST_F(RuleServiceTest, GetAsksTheTableBeforeItLooksAtTheType) {
    rpcTalRule out = record(12);
    EXPECT_EQ(3u, rpcGet(99, out));
    out = record(3);
    EXPECT_EQ(3u, rpcGet(99, out));
    const rpcTalRule expected = record(3);
    EXPECT_EQ(0, memcmp(&expected, &out, sizeof(out)));
    platform.answers.always("sharedLock");
    EXPECT_EQ(1u, rpcGet(5, out));
    EXPECT_EQ(0, memcmp(&expected, &out, sizeof(out)));
}

TEST_F(RuleServiceTest, GetOfInterfaceZeroShowsItsAllZeroEntry) {
    rpcTalRule out = record(0);
    EXPECT_EQ(0u, rpcGet(0, out));
    EXPECT_EQ(0u, out.ethType);
    EXPECT_EQ(0u, out.type8Value);
    EXPECT_EQ(0u, out.type2Value);
    for (const rpcTalRulePattern& pattern : out.pattern) {
        EXPECT_EQ(uint32_t{raw}, pattern.format);
        EXPECT_EQ(0u, pattern.rawLength);
    }
}

}  // namespace
