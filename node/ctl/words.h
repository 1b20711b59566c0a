// Values of the protocol in the words of the command line. Pure.
#pragma once

#include <string>

#include <tal/v1/tal.pb.h>

namespace node::ctl {

namespace v1 = ::tal::v1;

// The enumerator without its prefix, in small letters: PORT_STATE_OPEN is "open"; a value that
// has none, and UNSPECIFIED, is "unknown".
std::string word(v1::PortState state);
std::string word(v1::Gate gate);
std::string word(v1::ForwardingState state);
std::string word(v1::StageState state);
std::string word(v1::EventKind kind);
std::string word(v1::ProfileKind kind);
std::string word(v1::ProfileState state);

// "vlan" and "100"; a rule that says nothing is "unknown" and "".
struct RuleWords {
    std::string kind;
    std::string value;
};
RuleWords words(const v1::Rule& rule);

std::string timeText(const google::protobuf::Timestamp& time);  // UTC, milliseconds
std::string durationText(int64_t seconds);                      // "1 d 02:03:04"

}  // namespace node::ctl
