#include "node/report/report.h"

#include <gtest/gtest.h>

namespace {

node::RunReport twoLines() {
    node::RunReport report;
    node::LineReport first;
    first.id = 1;
    first.name = "1/1";
    first.kernelName = "dsl1";
    first.frames = 1000;
    first.traps = 1;
    first.verdict = "accepted";
    first.rule = "ip 192.0.2.0/24";
    first.rules = {"dhcp any", "ip 192.0.2.0/24"};
    first.gate = "open";
    first.stored = true;
    first.counters = {{"frames-seen", 1000}, {"forwarded", 999}};
    first.request = {{"circuit", "a\"b\\c"}};
    node::LineReport second;
    second.id = 2;
    second.name = "1/2";
    second.kernelName = "dsl2";
    second.replayed = 1;
    second.verdict = "-";
    second.gate = "blocked";
    report.lines = {first, second};
    report.end = "of SIGTERM";
    report.seconds = 1.5;
    return report;
}

TEST(Report, TableHasARowPerLineAndTotals) {
    EXPECT_EQ(node::reportTable(twoLines()),
              "line      frames  traps  replayed  verdict   gate     stored  forwarded  rule\n"
              "dsl1 1/1    1000      1         0  accepted  open     yes           999  ip "
              "192.0.2.0/24\n"
              "dsl2 1/2       0      0         1  -         blocked  no              0\n"
              "2 lines     1000      1         1            1 open   1             999\n"
              "run: 1.500000 s, ended because of SIGTERM\n");
}

TEST(Report, JsonHoldsEverything) {
    EXPECT_EQ(node::reportJson(twoLines()),
              R"({
  "end": "of SIGTERM",
  "seconds": 1.500000,
  "lines": [
    {"id": 1, "name": "1/1", "kernel-name": "dsl1", "frames": 1000, "traps": 1, "replayed": 0, "verdict": "accepted", "gate": "open", "stored": true, "damage": "",
     "rule": "ip 192.0.2.0/24", "rules": ["dhcp any", "ip 192.0.2.0/24"],
     "counters": {"frames-seen": 1000, "forwarded": 999},
     "request": {"circuit": "a\"b\\c"},
     "profiles": []},
    {"id": 2, "name": "1/2", "kernel-name": "dsl2", "frames": 0, "traps": 0, "replayed": 1, "verdict": "-", "gate": "blocked", "stored": false, "damage": "",
     "rule": "", "rules": [],
     "counters": {},
     "request": {},
     "profiles": []}
  ],
  "profiles": []
}
)");
}

std::vector<node::ProfileInfo> someProfiles() {
    using node::ProfileKind;
    using node::ProfileState;
    return {{ProfileKind::service, "gold", ProfileState::dynamic, true, {1, 2}},
            {ProfileKind::vlan, "v\"1", ProfileState::fixed, false, {2}},
            {ProfileKind::vlan, "v2", ProfileState::dynamic, true, {77}},
            {ProfileKind::flow, "DEFAULT", ProfileState::builtIn, true, {}},
            {ProfileKind::flow, "f1", ProfileState::fixed, false, {}}};
}

TEST(Report, ProfilesAppearWithTheirLinesOrApart) {
    node::RunReport report = twoLines();
    node::addProfiles(report, someProfiles());
    const std::string table = node::reportTable(report);
    EXPECT_EQ(table.substr(table.find("profiles")),
              "profiles of dsl1 1/1: service \"gold\" dynamic\n"
              "profiles of dsl2 1/2: service \"gold\" dynamic, vlan \"v\\\"1\" static\n"
              "profiles of no line: vlan \"v2\" dynamic, flow \"f1\" static\n"
              "run: 1.500000 s, ended because of SIGTERM\n");
    const std::string json = node::reportJson(report);
    EXPECT_NE(json.find(R"("request": {},
     "profiles": [{"kind": "service", "name": "gold", "state": "dynamic"}, )"
                        R"({"kind": "vlan", "name": "v\"1", "state": "static"}]}
  ],
  "profiles": [{"kind": "vlan", "name": "v2", "state": "dynamic"}, )"
                        R"({"kind": "flow", "name": "f1", "state": "static"}]
})"),
              std::string::npos)
        << json;
}

TEST(Report, JsonTextIsEscaped) {
    EXPECT_EQ(node::jsonText(std::string("\"\\\n\x7f\xe9\0z", 7)),
              "\"\\\"\\\\\\u000a\\u007f\\u00e9\\u0000z\"");
}

}  // namespace
