// Profiles as the parts of the node speak of them: their kinds, what a login asks for, what
// is shown. Plain data without behaviour of its own; any thread.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace node {

enum class ProfileKind { service, vlan, flow, multicast, security, l2cp, accessList, dsl, alarm };

// The kinds' names, by kind.
inline constexpr std::array<std::string_view, 9> profileKindNames = {
    "service", "vlan", "flow", "multicast", "security", "l2cp", "access-list", "dsl", "alarm"};
inline constexpr size_t profileKindCount = profileKindNames.size();

inline constexpr size_t longestProfileName = 64;

// The profiles that ISA's answer names for a line, by kind; an empty name: none of the kind.
struct LoginProfiles {
    std::array<std::string, profileKindCount> names;

    std::string& of(ProfileKind kind) { return names[static_cast<size_t>(kind)]; }
    const std::string& of(ProfileKind kind) const { return names[static_cast<size_t>(kind)]; }
    bool empty() const {
        return std::all_of(names.begin(), names.end(),
                           [](const std::string& name) { return name.empty(); });
    }
};

enum class ProfileState { builtIn, fixed, dynamic };

struct ProfileInfo {
    ProfileKind kind = ProfileKind::service;
    std::string name;
    ProfileState state = ProfileState::fixed;
    bool isProtected = false;
    std::vector<unsigned> interfaces;  // ascending; always empty for kinds that know none
};

constexpr std::string_view profileKindName(ProfileKind kind) {
    return profileKindNames[static_cast<size_t>(kind)];
}

constexpr std::optional<ProfileKind> profileKindOf(std::string_view name) {
    for (size_t i = 0; i < profileKindCount; ++i) {
        if (profileKindNames[i] == name) {
            return static_cast<ProfileKind>(i);
        }
    }
    return std::nullopt;
}

constexpr std::string_view profileStateName(ProfileState state) {
    return state == ProfileState::builtIn ? "built-in"
           : state == ProfileState::fixed ? "static"
                                          : "dynamic";
}

// Profiles of these kinds belong to the interfaces whose logins asked for them.
constexpr bool profileKnowsInterfaces(ProfileKind kind) {
    return kind == ProfileKind::service || kind == ProfileKind::vlan || kind == ProfileKind::dsl ||
           kind == ProfileKind::alarm;
}

constexpr bool profileNeedsDslLines(ProfileKind kind) {
    return kind == ProfileKind::dsl || kind == ProfileKind::alarm;
}

}  // namespace node
