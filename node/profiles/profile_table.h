// The working state of the profiles: what exists, how it is marked, which interfaces it
// belongs to, and the rules by which logins and deletions change it. Pure; no lock, no file.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "node/profile.h"

namespace node {

class ProfileTable {
public:
    struct Profile {
        bool builtIn = false;
        bool dynamic = false;
        bool isProtected = false;
        std::set<unsigned> interfaces;
    };
    using Key = std::pair<ProfileKind, std::string>;

    // What a login came to. Names with the reason why they were not taken.
    struct LoginResult {
        std::vector<Key> created;
        std::vector<Key> used;     // existed before
        std::vector<Key> removed;  // dynamic ones that the line used last and nobody else does
        std::vector<std::pair<Key, std::string>> refused;
        bool changed = false;  // anything at all
    };

    // With the profiles that every node has. Without DSL lines no login gets DSL profiles.
    explicit ProfileTable(bool dslLines);

    const Profile* find(ProfileKind kind, const std::string& name) const;
    // Adds or replaces; a built-in profile is not touched: false.
    bool put(ProfileKind kind, const std::string& name, Profile profile);

    std::vector<std::string> names(ProfileKind kind) const;  // ascending
    std::optional<std::string> next(ProfileKind kind, const std::string& after) const;
    std::vector<ProfileInfo> all() const;  // by kind, then name

    LoginResult login(unsigned ifId, const LoginProfiles& profiles);

    // Deletes the dynamic profiles of the kind: of interface 0 all, else those that belong to
    // no other interface. `released`: whether any other lost the interface.
    std::vector<Key> removeDynamic(ProfileKind kind, unsigned ifId, bool* released = nullptr);

private:
    std::string refusal(ProfileKind kind, const std::string& name) const;
    void release(ProfileKind kind, unsigned ifId, const std::string& but, LoginResult& result);

    bool dslLines_;
    std::map<Key, Profile> profiles_;
};

ProfileInfo profileInfo(const ProfileTable::Key& key, const ProfileTable::Profile& profile);

// The profile that stands for every flow without one of its own, and one the node uses itself.
extern const char defaultFlowProfile[];
extern const char internalFlowProfile[];

}  // namespace node
