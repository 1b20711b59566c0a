// What a run came to: one row per line, as a table for people and as JSON for programs. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "node/profile.h"

namespace node {

struct LineReport {
    unsigned id = 0;
    std::string name;
    std::string kernelName;
    uint64_t frames = 0;    // the line delivered
    uint64_t traps = 0;     // logins asked for by traffic or by the line itself
    uint64_t replayed = 0;  // stored logins asked for again
    std::string verdict;    // the last one, "-" when nothing was asked
    std::string rule;       // of the last trap, empty when there was none
    std::string gate;
    bool stored = false;  // a login is in the storage file
    std::vector<std::pair<std::string, uint64_t>> counters;
    std::vector<std::pair<std::string, std::string>> request;  // identifiers of the last one
    std::vector<std::string> rules;                            // that the engine has
    std::string damage;                                        // of the line's capture
    std::vector<ProfileInfo> profiles;                         // that belong to the line
};

struct RunReport {
    std::vector<LineReport> lines;
    std::vector<ProfileInfo> profiles;  // that belong to no line of the report
    std::string end;                    // why the run ended
    double seconds = 0;                 // of the run's time
};

// Puts every profile where it belongs; built-in ones are left out.
void addProfiles(RunReport& report, const std::vector<ProfileInfo>& profiles);

std::string reportTable(const RunReport& report);  // with a totals row
std::string reportJson(const RunReport& report);

// As a JSON string, quotes included; bytes beyond ASCII are taken as Latin-1.
std::string jsonText(const std::string& text);

}  // namespace node
