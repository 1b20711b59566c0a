// The servers that ISA asks, with all that is counted of them.
#include <array>
#include <cstdio>
#include <utility>

#include "node/ctl/show.h"
#include "node/ctl/table.h"

namespace node::ctl {

namespace {

Json jsonOf(const v1::ServerCounters& counters) {
    return Json::object()
        .add("requests", counters.requests())
        .add("retransmissions", counters.retransmissions())
        .add("accepts", counters.accepts())
        .add("rejects", counters.rejects())
        .add("challenges", counters.challenges())
        .add("accounting_answers", counters.accounting_answers())
        .add("timeouts", counters.timeouts())
        .add("handed_back", counters.handed_back())
        .add("withdrawn", counters.withdrawn())
        .add("probes", counters.probes())
        .add("probe_answers", counters.probe_answers())
        .add("deaths", counters.deaths())
        .add("returns", counters.returns())
        .add("line_errors", counters.line_errors());
}

Json jsonOf(const v1::ServerDrops& dropped) {
    return Json::object()
        .add("malformed", dropped.malformed())
        .add("unknown_id", dropped.unknown_id())
        .add("bad_authenticator", dropped.bad_authenticator())
        .add("no_message_authenticator", dropped.no_message_authenticator())
        .add("bad_message_authenticator", dropped.bad_message_authenticator())
        .add("wrong_code", dropped.wrong_code())
        .add("late", dropped.late())
        .add("duplicate", dropped.duplicate());
}

Json jsonOf(const v1::RoundTrip& roundTrip) {
    return Json::object()
        .add("count", roundTrip.count())
        .add("p50_us", roundTrip.p50_us())
        .add("p90_us", roundTrip.p90_us())
        .add("p99_us", roundTrip.p99_us());
}

// Microseconds as milliseconds with one decimal.
std::string milliseconds(uint64_t microseconds) {
    std::array<char, 32> text{};
    snprintf(text.data(), text.size(), "%.1f", static_cast<double>(microseconds) / 1000);
    return text.data();
}

uint64_t sum(const v1::ServerDrops& dropped) {
    return dropped.malformed() + dropped.unknown_id() + dropped.bad_authenticator() +
           dropped.no_message_authenticator() + dropped.bad_message_authenticator() +
           dropped.wrong_code() + dropped.late() + dropped.duplicate();
}

}  // namespace

Json jsonOf(const v1::ListServersResponse& list) {
    Json servers = Json::array();
    for (const v1::Server& server : list.servers()) {
        servers.add(Json::object()
                        .add("name", server.name())
                        .add("address", server.address())
                        .add("role", server.role())
                        .add("transport", server.transport())
                        .add("state", server.state())
                        .add("in_flight", server.in_flight())
                        .add("channels", server.channels())
                        .add("counters", jsonOf(server.counters()))
                        .add("dropped", jsonOf(server.dropped()))
                        .add("round_trip", jsonOf(server.round_trip())));
    }
    return Json::object().add("servers", std::move(servers));
}

std::string tableOf(const v1::ListServersResponse& list) {
    if (list.servers().empty()) {
        return "no servers: ISA answers from a list of users\n";
    }
    Table table({"SERVER", "ADDRESS", "ROLE", "STATE", "REQUESTS", "ACCEPTS", "REJECTS",
                 "ACCOUNTED", "TIMEOUTS", "AGAIN", "DROPPED", "P50 MS", "P90 MS", "P99 MS"});
    for (const v1::Server& server : list.servers()) {
        const v1::ServerCounters& counters = server.counters();
        const v1::RoundTrip& roundTrip = server.round_trip();
        table.add({server.name(), server.address(), server.role(), server.state(),
                   std::to_string(counters.requests()), std::to_string(counters.accepts()),
                   std::to_string(counters.rejects()),
                   std::to_string(counters.accounting_answers()),
                   std::to_string(counters.timeouts()), std::to_string(counters.retransmissions()),
                   std::to_string(sum(server.dropped())), milliseconds(roundTrip.p50_us()),
                   milliseconds(roundTrip.p90_us()), milliseconds(roundTrip.p99_us())});
    }
    return table.text();
}

}  // namespace node::ctl
