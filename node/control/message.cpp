// Tests: tests/control/message_test.cpp.
#include "node/control/message.h"

#include <google/protobuf/util/time_util.h>

#include <chrono>

#include "node/control/text.h"
#include "node/text/bytes.h"

namespace node::control {

namespace {

using google::protobuf::util::TimeUtil;

google::protobuf::Timestamp messageOf(std::chrono::system_clock::time_point time) {
    return TimeUtil::NanosecondsToTimestamp(
        std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count());
}

v1::Pattern patternOf(const Rule& rule) {
    v1::Pattern pattern;
    switch (rule.format) {
        case PatternFormat::text:
            pattern.set_text(rule.value);
            break;
        case PatternFormat::mac:
            pattern.set_mac(rule.value);
            break;
        case PatternFormat::raw:
            pattern.set_raw(rule.value);
            break;
    }
    return pattern;
}

std::optional<Rule> ruleOf(RuleKind kind, const v1::Pattern& pattern) {
    switch (pattern.value_case()) {
        case v1::Pattern::kText:
            return Rule{.kind = kind, .format = PatternFormat::text, .value = pattern.text()};
        case v1::Pattern::kMac:
            return Rule{.kind = kind, .format = PatternFormat::mac, .value = pattern.mac()};
        case v1::Pattern::kRaw:
            return Rule{.kind = kind, .format = PatternFormat::raw, .value = pattern.raw()};
        case v1::Pattern::VALUE_NOT_SET:
            break;
    }
    return std::nullopt;
}

std::string bytesOfWord(uint32_t word) {
    std::string bytes;
    for (const int shift : {24, 16, 8, 0}) {
        bytes += static_cast<char>(word >> shift & 0xFF);
    }
    return bytes;
}

uint32_t wordOfBytes(const std::string& bytes) {
    uint32_t word = 0;
    for (const char byte : bytes) {
        word = word << 8 | static_cast<unsigned char>(byte);
    }
    return word;
}

// Filled up with zeros to the length of the view of a frame.
std::string padded(std::string bytes) {
    if (bytes.size() < userPatternLength) {
        bytes.resize(userPatternLength);
    }
    return bytes;
}

// The numbers of a state begin at 0, those of its message at 1.
template <class State>
State stateOf(std::optional<uint32_t> number) {
    return number ? static_cast<State>(*number + 1) : static_cast<State>(0);
}

}  // namespace

std::optional<RuleKind> kindOf(v1::RuleKind kind) {
    if (kind < v1::RULE_KIND_ANY || kind > v1::RULE_KIND_USER_PATTERN) {
        return std::nullopt;
    }
    return static_cast<RuleKind>(kind - v1::RULE_KIND_ANY);
}

std::optional<EventKind> eventKindOf(v1::EventKind kind) {
    if (kind < v1::EVENT_KIND_TRAP || kind > v1::EVENT_KIND_STORE) {
        return std::nullopt;
    }
    return static_cast<EventKind>(kind - v1::EVENT_KIND_TRAP);
}

std::optional<Rule> ruleOf(const v1::Rule& message) {
    switch (message.match_case()) {
        case v1::Rule::kAny:
            return Rule{.kind = RuleKind::any};
        case v1::Rule::kEtherType:
            return Rule{.kind = RuleKind::etherType, .number = message.ether_type()};
        case v1::Rule::kDhcp:
            if (message.dhcp() != v1::DHCP_ANY && message.dhcp() != v1::DHCP_DISCOVER) {
                return std::nullopt;
            }
            return Rule{.kind = RuleKind::dhcp,
                        .number = message.dhcp() == v1::DHCP_DISCOVER ? dhcpDiscover : dhcpAny};
        case v1::Rule::kVendorId:
            return ruleOf(RuleKind::vendorId, message.vendor_id());
        case v1::Rule::kRemoteId:
            return ruleOf(RuleKind::remoteId, message.remote_id());
        case v1::Rule::kClientId:
            return ruleOf(RuleKind::clientId, message.client_id());
        case v1::Rule::kMac:
            return Rule{.kind = RuleKind::mac,
                        .value = message.mac().address(),
                        .mask = message.mac().mask()};
        case v1::Rule::kIp:
            return Rule{.kind = RuleKind::ip,
                        .value = bytesOfWord(message.ip().address()),
                        .mask = bytesOfWord(message.ip().mask())};
        case v1::Rule::kVlan:
            return Rule{.kind = RuleKind::vlan, .number = message.vlan()};
        case v1::Rule::kUserPattern:
            return Rule{.kind = RuleKind::userPattern,
                        .value = padded(message.user_pattern().sequence()),
                        .mask = padded(message.user_pattern().mask())};
        case v1::Rule::MATCH_NOT_SET:
            break;
    }
    return std::nullopt;
}

v1::Rule messageOf(const Rule& rule) {
    v1::Rule message;
    switch (rule.kind) {
        case RuleKind::any:
            message.mutable_any();
            break;
        case RuleKind::etherType:
            message.set_ether_type(rule.number);
            break;
        case RuleKind::dhcp:
            message.set_dhcp(rule.number == dhcpDiscover ? v1::DHCP_DISCOVER : v1::DHCP_ANY);
            break;
        case RuleKind::vendorId:
            *message.mutable_vendor_id() = patternOf(rule);
            break;
        case RuleKind::remoteId:
            *message.mutable_remote_id() = patternOf(rule);
            break;
        case RuleKind::clientId:
            *message.mutable_client_id() = patternOf(rule);
            break;
        case RuleKind::mac:
            message.mutable_mac()->set_address(rule.value);
            message.mutable_mac()->set_mask(rule.mask);
            break;
        case RuleKind::ip:
            message.mutable_ip()->set_address(wordOfBytes(rule.value));
            message.mutable_ip()->set_mask(wordOfBytes(rule.mask));
            break;
        case RuleKind::vlan:
            message.set_vlan(rule.number);
            break;
        case RuleKind::userPattern:
            message.mutable_user_pattern()->set_sequence(rule.value);
            message.mutable_user_pattern()->set_mask(rule.mask);
            break;
    }
    return message;
}

v1::RuleList messageOf(const std::vector<Rule>& rules) {
    v1::RuleList list;
    for (const Rule& rule : rules) {
        *list.add_rules() = messageOf(rule);
    }
    return list;
}

v1::IntfStates messageOf(const States& states) {
    v1::IntfStates message;
    message.set_forwarding(stateOf<v1::ForwardingState>(states.forwarding));
    message.set_authentication(stateOf<v1::StageState>(states.authentication));
    message.set_authorization(stateOf<v1::StageState>(states.authorization));
    return message;
}

v1::IntfStatistics messageOf(const Statistics& c) {
    v1::IntfStatistics message;
    message.set_frames_seen(c[0]);
    message.set_frames_matched(c[1]);
    message.set_requests_raised(c[2]);
    message.set_stored_requests(c[3]);
    message.set_accepts(c[4]);
    message.set_rejects(c[5]);
    message.set_timeouts(c[6]);
    message.set_frames_queued(c[7]);
    message.set_queue_overflows(c[8]);
    message.set_dropped_blocked(c[9]);
    message.set_dropped_pending(c[10]);
    message.set_dropped_rejected(c[11]);
    message.set_forwarded(c[12]);
    return message;
}

v1::NodeInfoResponse messageOf(const Identity& identity) {
    v1::NodeInfoResponse message;
    message.set_shelf(escaped(identity.shelf));
    message.set_board_position(identity.boardPosition);
    message.set_board_type(identity.boardType);
    message.set_version(identity.version);
    *message.mutable_started() = messageOf(identity.started);
    *message.mutable_uptime() = TimeUtil::NanosecondsToDuration(
        std::chrono::duration_cast<std::chrono::nanoseconds>(identity.uptime).count());
    return message;
}

v1::Interface messageOf(const InterfaceView& view) {
    v1::Interface message;
    message.set_id(view.id);
    message.set_name(escaped(view.name));
    message.set_kernel_name(escaped(view.kernelName));
    message.set_port_state(stateOf<v1::PortState>(static_cast<uint32_t>(view.portState)));
    message.set_gate(view.gateOpen ? v1::GATE_OPEN : v1::GATE_CLOSED);
    message.set_timeout(view.timeout);
    message.set_max_queue_size(view.maxQueueSize);
    return message;
}

v1::StoredLogin messageOf(const StoredLogin& login) {
    v1::StoredLogin message;
    message.set_interface(login.ifId);
    message.set_line(static_cast<uint32_t>(login.line));
    message.set_aaa_type(login.aaaType);
    message.set_circuit_id(escaped(login.circuitId));
    message.set_remote_id(escaped(login.remoteId));
    message.set_vendor_id(escaped(login.vendorId));
    message.set_client_id(escaped(login.clientId));
    message.set_source_mac(escaped(login.sourceMac));
    message.set_source_ip(ipText(login.sourceIp));
    message.set_user_pattern_sequence(escaped(login.userPatternSequence));
    message.set_user_pattern_mask(escaped(login.userPatternMask));
    message.set_extra_int(login.extraInt);
    message.set_extra_string(escaped(login.extraString));
    message.set_login_id_type(login.loginIdType);
    message.set_vlan(login.vlan);
    return message;
}

namespace {

v1::ServerCounters messageOf(const ServerCounters& counters) {
    v1::ServerCounters message;
    message.set_requests(counters.requests);
    message.set_retransmissions(counters.retransmissions);
    message.set_accepts(counters.accepts);
    message.set_rejects(counters.rejects);
    message.set_challenges(counters.challenges);
    message.set_accounting_answers(counters.accountingAnswers);
    message.set_timeouts(counters.timeouts);
    message.set_handed_back(counters.handedBack);
    message.set_withdrawn(counters.withdrawn);
    message.set_probes(counters.probes);
    message.set_probe_answers(counters.probeAnswers);
    message.set_deaths(counters.deaths);
    message.set_returns(counters.returns);
    message.set_line_errors(counters.lineErrors);
    return message;
}

v1::ServerDrops messageOf(const ServerDrops& dropped) {
    v1::ServerDrops message;
    message.set_malformed(dropped.malformed);
    message.set_unknown_id(dropped.unknownId);
    message.set_bad_authenticator(dropped.badAuthenticator);
    message.set_no_message_authenticator(dropped.noMessageAuthenticator);
    message.set_bad_message_authenticator(dropped.badMessageAuthenticator);
    message.set_wrong_code(dropped.wrongCode);
    message.set_late(dropped.late);
    message.set_duplicate(dropped.duplicate);
    return message;
}

v1::RoundTrip messageOf(const RoundTrip& roundTrip) {
    v1::RoundTrip message;
    message.set_count(roundTrip.count);
    message.set_p50_us(roundTrip.p50);
    message.set_p90_us(roundTrip.p90);
    message.set_p99_us(roundTrip.p99);
    return message;
}

}  // namespace

v1::Server messageOf(const ServerView& server) {
    v1::Server message;
    message.set_name(escaped(server.name));
    message.set_address(escaped(server.address));
    message.set_role(escaped(server.role));
    message.set_alive(server.alive);
    message.set_requests(server.requests);
    message.set_timeouts(server.timeouts);
    message.set_note(escaped(server.note));
    message.set_state(escaped(server.state));
    message.set_transport(escaped(server.transport));
    message.set_in_flight(server.inFlight);
    message.set_channels(server.channels);
    *message.mutable_counters() = messageOf(server.counters);
    *message.mutable_dropped() = messageOf(server.dropped);
    *message.mutable_round_trip() = messageOf(server.roundTrip);
    return message;
}

v1::Profile messageOf(const ProfileInfo& profile) {
    v1::Profile message;
    message.set_kind(stateOf<v1::ProfileKind>(static_cast<uint32_t>(profile.kind)));
    message.set_name(escaped(profile.name));
    message.set_state(stateOf<v1::ProfileState>(static_cast<uint32_t>(profile.state)));
    message.set_protected_(profile.isProtected);
    message.mutable_interfaces()->Add(profile.interfaces.begin(), profile.interfaces.end());
    return message;
}

v1::Event messageOf(const EventHub::Record& record) {
    v1::Event message;
    message.set_number(record.number);
    *message.mutable_time() = messageOf(record.time);
    message.set_kind(stateOf<v1::EventKind>(static_cast<uint32_t>(record.event.kind)));
    message.set_interface(record.event.ifId);
    message.set_interface_name(escaped(record.event.interfaceName));
    message.set_text(escaped(record.event.text));
    return message;
}

}  // namespace node::control
