// What the profile services have in common: the operations of the store as the platform's
// declarations want them, and what they answer when no store is attached. Any thread.
#pragma once

#include <exception>
#include <string>

#include "node/profiles/profile_store.h"

namespace node::view {

constexpr unsigned good = 0;
constexpr unsigned failed = 1;

// Runs `call` on the store. Without a store, and when memory runs out: `otherwise`.
template <class Result, class Call>
Result onStore(Result otherwise, const Call& call) {
    try {
        ProfileStore* const store = attachedProfiles();
        return store ? call(*store) : otherwise;
    } catch (const std::exception&) {
        return otherwise;
    }
}

inline unsigned resultOf(bool done) {
    return done ? good : failed;
}

inline std::optional<ProfileInfo> find(ProfileKind kind, const std::string& name) {
    return onStore<std::optional<ProfileInfo>>(
        std::nullopt, [&](ProfileStore& store) { return store.find(kind, name); });
}

inline bool exists(ProfileKind kind, const std::string& name) {
    return find(kind, name).has_value();
}

inline std::vector<std::string> names(ProfileKind kind) {
    return onStore(std::vector<std::string>(),
                   [&](ProfileStore& store) { return store.names(kind); });
}

inline unsigned next(ProfileKind kind, const std::string& after, std::string& name) {
    return onStore(failed, [&](ProfileStore& store) {
        std::optional<std::string> following = store.next(kind, after);
        if (!following) {
            return failed;
        }
        name = std::move(*following);
        return good;
    });
}

inline unsigned makeStatic(ProfileKind kind, const std::string& name) {
    return onStore(failed,
                   [&](ProfileStore& store) { return resultOf(store.makeStatic(kind, name)); });
}

inline unsigned removeDynamic(ProfileKind kind, unsigned ifId) {
    return onStore(good, [&](ProfileStore& store) {
        store.removeDynamic(kind, ifId);
        return good;
    });
}

inline unsigned mark(ProfileKind kind, const std::string& name, const ProfileStore::Marks& marks) {
    return onStore(failed,
                   [&](ProfileStore& store) { return resultOf(store.mark(kind, name, marks)); });
}

}  // namespace node::view
