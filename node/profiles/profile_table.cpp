// A dynamic profile exists because logins asked for it. Where its service knows interfaces it
// belongs to the lines of those logins and goes with the last of them; two subscribers of the
// same service share one profile. Where the service knows none it stays until all dynamic
// profiles go. A login that names an existing profile uses that one, static or not: a name
// means the same thing for everybody.
//
// A line has one profile of a kind. A later login takes it away from the others, so that a
// subscriber who changes the service every day leaves no trail.
//
// Tested by tests/unit/node_host/profile_table_test.cpp.
#include "node/profiles/profile_table.h"

#include <algorithm>

namespace node {

const char defaultFlowProfile[] = "node-default";
const char internalFlowProfile[] = "node-internal";

namespace {

constexpr char flowDefaultName[] = "DEFAULT";
constexpr char alarmDefaultName[] = "Default";  // and all names that begin with it

// The DSL services hand out their profiles in arrays of this size; elsewhere it is a bound
// against an ISA that never names the same profile twice.
size_t mostProfiles(ProfileKind kind) {
    return kind == ProfileKind::dsl ? 128 : kind == ProfileKind::alarm ? 30 : 1024;
}

bool isPrintable(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c <= 0x7e; });
}

}  // namespace

ProfileInfo profileInfo(const ProfileTable::Key& key, const ProfileTable::Profile& profile) {
    ProfileInfo info;
    info.kind = key.first;
    info.name = key.second;
    info.state = profile.builtIn   ? ProfileState::builtIn
                 : profile.dynamic ? ProfileState::dynamic
                                   : ProfileState::fixed;
    info.isProtected = profile.isProtected;
    info.interfaces.assign(profile.interfaces.begin(), profile.interfaces.end());
    return info;
}

ProfileTable::ProfileTable(bool dslLines) : dslLines_(dslLines) {
    const Profile builtIn{true, false, true, {}};
    for (const char* name : {flowDefaultName, defaultFlowProfile, internalFlowProfile}) {
        profiles_.emplace(Key(ProfileKind::flow, name), builtIn);
    }
    profiles_.emplace(Key(ProfileKind::alarm, alarmDefaultName), builtIn);
}

const ProfileTable::Profile* ProfileTable::find(ProfileKind kind, const std::string& name) const {
    const auto found = profiles_.find({kind, name});
    return found == profiles_.end() ? nullptr : &found->second;
}

bool ProfileTable::put(ProfileKind kind, const std::string& name, Profile profile) {
    const auto [place, added] = profiles_.try_emplace({kind, name});
    if (!added && place->second.builtIn) {
        return false;
    }
    place->second = std::move(profile);
    return true;
}

std::vector<std::string> ProfileTable::names(ProfileKind kind) const {
    std::vector<std::string> names;
    for (auto it = profiles_.lower_bound({kind, ""});
         it != profiles_.end() && it->first.first == kind; ++it) {
        names.push_back(it->first.second);
    }
    return names;
}

std::optional<std::string> ProfileTable::next(ProfileKind kind, const std::string& after) const {
    const auto found = profiles_.upper_bound({kind, after});
    if (found == profiles_.end() || found->first.first != kind) {
        return std::nullopt;
    }
    return found->first.second;
}

std::vector<ProfileInfo> ProfileTable::all() const {
    std::vector<ProfileInfo> infos;
    for (const auto& [key, profile] : profiles_) {
        infos.push_back(profileInfo(key, profile));
    }
    return infos;
}

// Why a profile that does not exist may not be created; empty when it may.
std::string ProfileTable::refusal(ProfileKind kind, const std::string& name) const {
    if (name.size() > longestProfileName || !isPrintable(name)) {
        return "is no name of at most " + std::to_string(longestProfileName) +
               " printable characters";
    }
    if (kind == ProfileKind::alarm && name.starts_with(alarmDefaultName)) {
        return "is a name of the board's own profiles";
    }
    if (names(kind).size() >= mostProfiles(kind)) {
        return "would be one more than the " + std::to_string(mostProfiles(kind)) + " there can be";
    }
    return "";
}

// The line uses no other profile of the kind any more.
void ProfileTable::release(ProfileKind kind, unsigned ifId, const std::string& but,
                           LoginResult& result) {
    for (auto it = profiles_.lower_bound({kind, ""});
         it != profiles_.end() && it->first.first == kind;) {
        Profile& profile = it->second;
        if (it->first.second == but || profile.interfaces.erase(ifId) == 0) {
            ++it;
            continue;
        }
        result.changed = true;
        if (profile.dynamic && profile.interfaces.empty()) {
            result.removed.push_back(it->first);
            it = profiles_.erase(it);
        } else {
            ++it;
        }
    }
}

ProfileTable::LoginResult ProfileTable::login(unsigned ifId, const LoginProfiles& profiles) {
    LoginResult result;
    for (size_t i = 0; i < profileKindCount; ++i) {
        const auto kind = static_cast<ProfileKind>(i);
        const Key key(kind, profiles.of(kind));
        if (profileNeedsDslLines(kind) && !dslLines_) {
            if (!key.second.empty()) {
                result.refused.emplace_back(key, "needs a board with DSL lines");
            }
            continue;
        }
        if (profileKnowsInterfaces(kind)) {
            release(kind, ifId, key.second, result);
        }
        if (key.second.empty()) {
            continue;
        }
        auto place = profiles_.find(key);
        if (place == profiles_.end()) {
            if (std::string reason = refusal(kind, key.second); !reason.empty()) {
                result.refused.emplace_back(key, std::move(reason));
                continue;
            }
            place = profiles_.emplace(key, Profile{false, true, true, {}}).first;
            result.created.push_back(key);
            result.changed = true;
        } else {
            result.used.push_back(key);
        }
        if (profileKnowsInterfaces(kind) && !place->second.builtIn &&
            place->second.interfaces.insert(ifId).second) {
            result.changed = true;
        }
    }
    return result;
}

std::vector<ProfileTable::Key> ProfileTable::removeDynamic(ProfileKind kind, unsigned ifId,
                                                           bool* released) {
    std::vector<Key> removed;
    bool lost = false;
    for (auto it = profiles_.lower_bound({kind, ""});
         it != profiles_.end() && it->first.first == kind;) {
        Profile& profile = it->second;
        const bool concerned =
            profile.dynamic && (ifId == 0 || profile.interfaces.erase(ifId) != 0);
        if (concerned && (ifId == 0 || profile.interfaces.empty())) {
            removed.push_back(it->first);
            it = profiles_.erase(it);
        } else {
            lost = lost || concerned;
            ++it;
        }
    }
    if (released) {
        *released = lost;
    }
    return removed;
}

}  // namespace node
