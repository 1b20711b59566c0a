#include "node/ctl/words.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "node/control/message.h"
#include "node/ctl/rule_option.h"

namespace node::ctl {

namespace {

constexpr int64_t secondsPerDay = 86400;

std::string wordOf(std::string_view prefix, const std::string& enumerator) {
    const std::string unspecified = std::string(prefix) + "UNSPECIFIED";
    if (!enumerator.starts_with(prefix) || enumerator == unspecified) {
        return "unknown";
    }
    std::string text = enumerator.substr(prefix.size());
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) {
        return c == '_' ? '-' : static_cast<char>(std::tolower(c));
    });
    return text;
}

}  // namespace

std::string word(v1::PortState state) {
    return wordOf("PORT_STATE_", v1::PortState_Name(state));
}

std::string word(v1::Gate gate) {
    return wordOf("GATE_", v1::Gate_Name(gate));
}

std::string word(v1::ForwardingState state) {
    return wordOf("FORWARDING_STATE_", v1::ForwardingState_Name(state));
}

std::string word(v1::StageState state) {
    return wordOf("STAGE_STATE_", v1::StageState_Name(state));
}

std::string word(v1::EventKind kind) {
    return wordOf("EVENT_KIND_", v1::EventKind_Name(kind));
}

std::string word(v1::ProfileKind kind) {
    return wordOf("PROFILE_KIND_", v1::ProfileKind_Name(kind));
}

std::string word(v1::ProfileState state) {
    return wordOf("PROFILE_STATE_", v1::ProfileState_Name(state));
}

RuleWords words(const v1::Rule& message) {
    const auto rule = control::ruleOf(message);
    // Without a mask the number or the pattern can be told, whatever is wrong with it.
    return rule && (rule->mask.empty() || control::problemOf(*rule).empty())
               ? RuleWords{std::string(nameOf(rule->kind)), valueText(*rule)}
               : RuleWords{"unknown", ""};
}

std::string timeText(const google::protobuf::Timestamp& time) {
    const time_t seconds = time.seconds();
    tm parts{};
    gmtime_r(&seconds, &parts);
    char day[32];
    std::strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &parts);
    char text[48];
    std::snprintf(text, sizeof text, "%s.%03dZ", day, time.nanos() / 1000000);
    return text;
}

std::string durationText(int64_t seconds) {
    char clock[16];
    const auto ofDay = static_cast<int>(seconds % secondsPerDay);
    std::snprintf(clock, sizeof clock, "%02d:%02d:%02d", ofDay / 3600, ofDay / 60 % 60, ofDay % 60);
    const int64_t days = seconds / secondsPerDay;
    return days > 0 ? std::to_string(days) + " d " + clock : clock;
}

}  // namespace node::ctl
