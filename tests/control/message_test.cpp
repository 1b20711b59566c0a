// Rules and records as messages, both ways.
#include "node/control/message.h"

#include <gtest/gtest.h>

namespace node::control {
namespace {

using namespace std::string_literals;

TEST(Messages, RulesComeBackAsTheyWent) {
    std::string frame = "\x01\x02"s;
    frame.resize(userPatternLength);
    const Rule rules[] = {
        {.kind = RuleKind::any},
        {.kind = RuleKind::etherType, .number = 0x86DD},
        {.kind = RuleKind::dhcp, .number = dhcpAny},
        {.kind = RuleKind::dhcp, .number = dhcpDiscover},
        {.kind = RuleKind::vendorId, .format = PatternFormat::text, .value = "acme"},
        {.kind = RuleKind::vendorId, .format = PatternFormat::text, .value = ""},
        {.kind = RuleKind::remoteId, .format = PatternFormat::mac, .value = "\0\1\2\3\4\5"s},
        {.kind = RuleKind::clientId, .format = PatternFormat::raw, .value = "\xff\0"s},
        {.kind = RuleKind::mac, .value = "\0\1\2\3\4\5"s, .mask = std::string(6, '\xff')},
        {.kind = RuleKind::ip, .value = "\xc0\0\2\1"s, .mask = std::string(4, '\xff')},
        {.kind = RuleKind::vlan, .number = 0},
        {.kind = RuleKind::userPattern, .value = frame, .mask = frame},
    };
    for (const Rule& rule : rules) {
        v1::Rule parsed;
        ASSERT_TRUE(parsed.ParseFromString(messageOf(rule).SerializeAsString()));
        EXPECT_EQ(rule, ruleOf(parsed)) << static_cast<int>(rule.kind);
        EXPECT_EQ(rule.kind, kindOf(static_cast<v1::RuleKind>(parsed.match_case())));
    }
}

TEST(Messages, RuleThatSaysNothingIsNone) {
    v1::Rule message;
    EXPECT_EQ(std::nullopt, ruleOf(message));
    message.set_dhcp(v1::DHCP_UNSPECIFIED);
    EXPECT_EQ(std::nullopt, ruleOf(message));
    message.mutable_client_id();
    EXPECT_EQ(std::nullopt, ruleOf(message));
}

TEST(Messages, ShortUserPatternIsFilledUpAndALongOneStaysForTheCheck) {
    v1::Rule message;
    message.mutable_user_pattern()->set_sequence("\x01");
    message.mutable_user_pattern()->set_mask(std::string(129, 'x'));
    EXPECT_EQ(userPatternLength, ruleOf(message)->value.size());
    EXPECT_EQ(129u, ruleOf(message)->mask.size());
}

TEST(Messages, WrongLengthOfAMacStaysForTheCheck) {
    v1::Rule message;
    message.mutable_mac()->set_address("abc");
    EXPECT_NE("", problemOf(*ruleOf(message)));
}

TEST(Messages, NamesThatAreNotTextAreEscapedSoThatEveryClientCanReadThem) {
    const InterfaceView view{.id = 1, .name = "\xff\n", .kernelName = "a\\b"};
    const v1::Interface message = messageOf(view);
    EXPECT_EQ("\\xff\\x0a", message.name());
    EXPECT_EQ("a\\\\b", message.kernel_name());
}

TEST(Messages, EventKindsAreTheProtocols) {
    const std::pair<EventKind, v1::EventKind> kinds[] = {
        {EventKind::trap, v1::EVENT_KIND_TRAP},       {EventKind::request, v1::EVENT_KIND_REQUEST},
        {EventKind::verdict, v1::EVENT_KIND_VERDICT}, {EventKind::gate, v1::EVENT_KIND_GATE},
        {EventKind::store, v1::EVENT_KIND_STORE},
    };
    for (const auto& [kind, expected] : kinds) {
        EventHub::Record record{.number = 7, .time = {}, .event = {.kind = kind}};
        EXPECT_EQ(expected, messageOf(record).kind());
        EXPECT_EQ(kind, eventKindOf(expected));
    }
    EXPECT_EQ(std::nullopt, eventKindOf(v1::EVENT_KIND_UNSPECIFIED));
}

}  // namespace
}  // namespace node::control
