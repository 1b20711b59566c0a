// Tests: tests/control/talctl_test.cpp; the shape of the JSON by tests/control/talctl_json.py
// against docs/operations.md.
#include "node/ctl/show.h"

#include <algorithm>
#include <map>

#include "node/ctl/table.h"
#include "node/ctl/words.h"

namespace node::ctl {

namespace {

constexpr size_t statisticsPerBlock = 6;

std::string onOff(bool present, bool value) {
    return !present ? "?" : value ? "on" : "off";
}

std::string upDown(bool present, bool value) {
    return !present ? "?" : value ? "up" : "down";
}

std::string orDash(const std::string& text) {
    return text.empty() ? "-" : text;
}

Json optionalOf(bool present, bool value) {
    return present ? Json::of(value) : Json::null();
}

std::string ruleText(const v1::Rule& rule) {
    const RuleWords text = words(rule);
    return text.kind + (text.value.empty() ? "" : " ") + text.value;
}

std::string rulesText(const v1::Interface& interface) {
    std::string text;
    for (const v1::Rule& rule : interface.rules().rules()) {
        text += (text.empty() ? "" : "; ") + ruleText(rule);
    }
    return interface.has_rules() ? orDash(text) : "?";
}

std::map<std::string, uint32_t> interfacesByState(const v1::ListInterfacesResponse& list) {
    std::map<std::string, uint32_t> counts{
        {"blocked", 0}, {"pending", 0}, {"open", 0}, {"rejected", 0}};
    for (const v1::Interface& interface : list.interfaces()) {
        ++counts[word(interface.port_state())];
    }
    return counts;
}

// In few words, beside the rest of the node.
Json summaryOf(const v1::ListServersResponse& list) {
    Json servers = Json::array();
    for (const v1::Server& server : list.servers()) {
        servers.add(Json::object()
                        .add("name", server.name())
                        .add("address", server.address())
                        .add("role", server.role())
                        .add("alive", server.alive())
                        .add("requests", server.requests())
                        .add("timeouts", server.timeouts())
                        .add("note", server.note()));
    }
    return servers;
}

std::string summaryTableOf(const v1::ListServersResponse& list) {
    Table table({"SERVER", "ADDRESS", "ROLE", "STATE", "REQUESTS", "TIMEOUTS", "NOTE"});
    for (const v1::Server& server : list.servers()) {
        table.add({server.name(), server.address(), server.role(),
                   server.alive() ? "alive" : "dead", std::to_string(server.requests()),
                   std::to_string(server.timeouts()), server.note()});
    }
    return table.empty() ? "" : "\n" + table.text();
}

template <class Visit>
void forEachCounter(const v1::IntfStatistics& counters, Visit visit) {
    const auto* const fields = v1::IntfStatistics::descriptor();
    for (int i = 0; i < fields->field_count(); ++i) {
        visit(fields->field(i)->name(),
              counters.GetReflection()->GetUInt32(counters, fields->field(i)));
    }
}

std::vector<uint32_t> valuesOf(const v1::IntfStatistics& counters) {
    std::vector<uint32_t> values;
    forEachCounter(counters, [&](const auto&, uint32_t value) { values.push_back(value); });
    return values;
}

// Rows are counters, columns interfaces.
std::string statisticsBlock(const NamedStatistics* first, size_t count) {
    std::vector<std::string> heading{"COUNTER"};
    std::vector<std::vector<std::string>> rows;
    forEachCounter(first->counters, [&](std::string name, uint32_t) {
        std::replace(name.begin(), name.end(), '_', '-');
        rows.push_back({std::move(name)});
    });
    for (size_t i = 0; i < count; ++i) {
        heading.push_back(first[i].interface.name());
        const std::vector<uint32_t> now = valuesOf(first[i].counters);
        const std::vector<uint32_t> before = valuesOf(first[i].before);
        for (size_t counter = 0; counter < now.size(); ++counter) {
            // The counters wrap, and so does their difference.
            const uint32_t change = now[counter] - before[counter];
            rows[counter].push_back(
                std::to_string(now[counter]) +
                (first[i].changes && change != 0 ? " +" + std::to_string(change) : ""));
        }
    }
    Table table(heading);
    for (const auto& row : rows) {
        table.add(row);
    }
    return table.text();
}

Json jsonOf(const v1::StoredLogin& login) {
    return Json::object()
        .add("interface", login.interface())
        .add("line", login.line())
        .add("aaa_type", login.aaa_type())
        .add("circuit_id", login.circuit_id())
        .add("remote_id", login.remote_id())
        .add("vendor_id", login.vendor_id())
        .add("client_id", login.client_id())
        .add("source_mac", login.source_mac())
        .add("source_ip", login.source_ip())
        .add("user_pattern_sequence", login.user_pattern_sequence())
        .add("user_pattern_mask", login.user_pattern_mask())
        .add("extra_int", login.extra_int())
        .add("extra_string", login.extra_string())
        .add("login_id_type", login.login_id_type())
        .add("vlan", login.vlan());
}

}  // namespace

std::string tableOf(const Status& status) {
    const v1::NodeInfoResponse& node = status.node;
    const auto counts = interfacesByState(status.interfaces);
    Table table({""});
    table.add({"node", "shelf " + node.shelf() + ", board " +
                           std::to_string(node.board_position()) + ", board type " +
                           std::to_string(node.board_type())});
    table.add({"version", node.version()});
    table.add({"started", timeText(node.started())});
    table.add({"uptime", durationText(node.uptime().seconds())});
    table.add({"TAL", status.admin ? "on" : "off"});
    table.add({"interfaces", std::to_string(status.interfaces.interfaces_size()) + ": " +
                                 std::to_string(counts.at("open")) + " open, " +
                                 std::to_string(counts.at("pending")) + " pending, " +
                                 std::to_string(counts.at("blocked")) + " blocked, " +
                                 std::to_string(counts.at("rejected")) + " rejected"});
    table.add({"stored logins", std::to_string(status.logins.logins_size()) +
                                    (status.logins.valid() ? "" : ", the file is corrupt")});
    table.add({"event clients", std::to_string(node.event_clients())});
    return table.text() + summaryTableOf(status.servers);
}

Json jsonOf(const Status& status) {
    const v1::NodeInfoResponse& node = status.node;
    const auto counts = interfacesByState(status.interfaces);
    return Json::object()
        .add("node", Json::object()
                         .add("shelf", node.shelf())
                         .add("board_position", node.board_position())
                         .add("board_type", node.board_type())
                         .add("version", node.version())
                         .add("started", timeText(node.started()))
                         .add("uptime_seconds", static_cast<int64_t>(node.uptime().seconds()))
                         .add("event_clients", node.event_clients()))
        .add("admin", status.admin)
        .add("interfaces",
             Json::object()
                 .add("total", static_cast<uint32_t>(status.interfaces.interfaces_size()))
                 .add("open", counts.at("open"))
                 .add("pending", counts.at("pending"))
                 .add("blocked", counts.at("blocked"))
                 .add("rejected", counts.at("rejected")))
        .add("stored_logins", Json::object()
                                  .add("valid", status.logins.valid())
                                  .add("count", static_cast<uint32_t>(status.logins.logins_size())))
        .add("servers", summaryOf(status.servers));
}

std::string tableOf(const v1::ListInterfacesResponse& list) {
    Table table(
        {"ID", "NAME", "KERNEL", "STATE", "GATE", "ADMIN", "AUTHEN", "AUTHOR", "AUTOREQ", "RULES"});
    for (const v1::Interface& each : list.interfaces()) {
        table.add({std::to_string(each.id()), each.name(), each.kernel_name(),
                   word(each.port_state()), word(each.gate()),
                   onOff(each.has_admin(), each.admin()),
                   onOff(each.has_authentication(), each.authentication()),
                   onOff(each.has_authorization(), each.authorization()),
                   onOff(each.has_auto_request(), each.auto_request()), rulesText(each)});
    }
    return table.text();
}

std::string tableOf(const v1::Interface& each) {
    Table table({""});
    table.add({"interface", std::to_string(each.id()) + ", " + each.name() + ", kernel name " +
                                each.kernel_name()});
    table.add({"state", word(each.port_state()) + ", gate " + word(each.gate())});
    table.add({"admin", onOff(each.has_admin(), each.admin())});
    table.add(
        {"authentication", onOff(each.has_authentication(), each.authentication()) + ", " +
                               upDown(each.has_authentication_oper(), each.authentication_oper())});
    table.add(
        {"authorization", onOff(each.has_authorization(), each.authorization()) + ", " +
                              upDown(each.has_authorization_oper(), each.authorization_oper())});
    table.add({"automatic request", onOff(each.has_auto_request(), each.auto_request())});
    table.add({"timeout", std::to_string(each.timeout()) + " s"});
    table.add({"queue", std::to_string(each.max_queue_size()) + " frames"});
    table.add({"forwarding", word(each.states().forwarding()) + ", authentication " +
                                 word(each.states().authentication()) + ", authorization " +
                                 word(each.states().authorization())});
    if (!each.has_rules() || each.rules().rules().empty()) {
        table.add({"rules", each.has_rules() ? "none" : "?"});
    }
    const char* title = "rules";
    for (const v1::Rule& rule : each.rules().rules()) {
        table.add({title, ruleText(rule)});
        title = "";
    }
    return table.text();
}

Json jsonOf(const v1::RuleList& list) {
    Json rules = Json::array();
    for (const v1::Rule& rule : list.rules()) {
        const RuleWords text = words(rule);
        rules.add(Json::object().add("kind", text.kind).add("value", text.value));
    }
    return rules;
}

Json jsonOf(const v1::Interface& each) {
    return Json::object()
        .add("id", each.id())
        .add("name", each.name())
        .add("kernel_name", each.kernel_name())
        .add("port_state", word(each.port_state()))
        .add("gate", word(each.gate()))
        .add("admin", optionalOf(each.has_admin(), each.admin()))
        .add("authentication", optionalOf(each.has_authentication(), each.authentication()))
        .add("authorization", optionalOf(each.has_authorization(), each.authorization()))
        .add("auto_request", optionalOf(each.has_auto_request(), each.auto_request()))
        .add("timeout", each.timeout())
        .add("max_queue_size", each.max_queue_size())
        .add("authentication_up",
             optionalOf(each.has_authentication_oper(), each.authentication_oper()))
        .add("authorization_up",
             optionalOf(each.has_authorization_oper(), each.authorization_oper()))
        .add("states", Json::object()
                           .add("forwarding", word(each.states().forwarding()))
                           .add("authentication", word(each.states().authentication()))
                           .add("authorization", word(each.states().authorization())))
        .add("rules", each.has_rules() ? jsonOf(each.rules()) : Json::null());
}

Json jsonOf(const v1::ListInterfacesResponse& list) {
    Json interfaces = Json::array();
    for (const v1::Interface& each : list.interfaces()) {
        interfaces.add(jsonOf(each));
    }
    return Json::object().add("interfaces", std::move(interfaces));
}

std::string tableOf(const v1::RuleList& list) {
    Table table({"KIND", "VALUE"});
    for (const v1::Rule& rule : list.rules()) {
        const RuleWords text = words(rule);
        table.add({text.kind, text.value});
    }
    return table.empty() ? "no rules\n" : table.text();
}

std::string tableOf(const std::vector<NamedStatistics>& statistics) {
    std::string text;
    for (size_t i = 0; i < statistics.size(); i += statisticsPerBlock) {
        text += text.empty() ? "" : "\n";
        text +=
            statisticsBlock(&statistics[i], std::min(statisticsPerBlock, statistics.size() - i));
    }
    return text;
}

Json jsonOf(const std::vector<NamedStatistics>& statistics) {
    Json interfaces = Json::array();
    for (const NamedStatistics& each : statistics) {
        Json counters = Json::object();
        forEachCounter(each.counters,
                       [&](const std::string& name, uint32_t value) { counters.add(name, value); });
        interfaces.add(Json::object()
                           .add("id", each.interface.id())
                           .add("name", each.interface.name())
                           .add("counters", std::move(counters)));
    }
    return Json::object().add("interfaces", std::move(interfaces));
}

std::string tableOf(const v1::ListStoredLoginsResponse& list) {
    Table table({"INTF", "LINE", "MAC", "IP", "VLAN", "CIRCUIT", "REMOTE", "VENDOR", "CLIENT"});
    for (const v1::StoredLogin& login : list.logins()) {
        table.add({std::to_string(login.interface()), std::to_string(login.line()),
                   login.source_mac(), login.source_ip(), std::to_string(login.vlan()),
                   orDash(login.circuit_id()), orDash(login.remote_id()), orDash(login.vendor_id()),
                   orDash(login.client_id())});
    }
    return (table.empty() ? "no stored logins\n" : table.text()) +
           (list.valid() ? "" : "The file is corrupt: " + list.problem() + "\n");
}

Json jsonOf(const v1::ListStoredLoginsResponse& list) {
    Json logins = Json::array();
    for (const v1::StoredLogin& login : list.logins()) {
        logins.add(jsonOf(login));
    }
    return Json::object()
        .add("valid", list.valid())
        .add("problem", list.problem())
        .add("logins", std::move(logins));
}

std::string tableOf(const v1::ListProfilesResponse& list) {
    Table table({"KIND", "NAME", "STATE", "PROTECTED", "INTERFACES"});
    for (const v1::Profile& profile : list.profiles()) {
        std::string interfaces;
        for (const uint32_t ifId : profile.interfaces()) {
            interfaces += (interfaces.empty() ? "" : ", ") + std::to_string(ifId);
        }
        table.add({word(profile.kind()), profile.name(), word(profile.state()),
                   profile.protected_() ? "yes" : "no", orDash(interfaces)});
    }
    return table.empty() ? "no profiles\n" : table.text();
}

Json jsonOf(const v1::ListProfilesResponse& list) {
    Json profiles = Json::array();
    for (const v1::Profile& profile : list.profiles()) {
        Json interfaces = Json::array();
        for (const uint32_t ifId : profile.interfaces()) {
            interfaces.add(Json::of(ifId));
        }
        profiles.add(Json::object()
                         .add("kind", word(profile.kind()))
                         .add("name", profile.name())
                         .add("state", word(profile.state()))
                         .add("protected", profile.protected_())
                         .add("interfaces", std::move(interfaces)));
    }
    return Json::object().add("profiles", std::move(profiles));
}

std::string lineOf(const v1::Event& event) {
    const std::string kind = word(event.kind());
    return timeText(event.time()) + "  " + event.interface_name() + "  " + kind +
           std::string(kind.size() < 8 ? 8 - kind.size() : 0, ' ') + " " + event.text() + "\n";
}

Json jsonOf(const v1::Event& event) {
    return Json::object()
        .add("number", static_cast<uint64_t>(event.number()))
        .add("time", timeText(event.time()))
        .add("kind", word(event.kind()))
        .add("interface", event.interface())
        .add("interface_name", event.interface_name())
        .add("text", event.text());
}

}  // namespace node::ctl
