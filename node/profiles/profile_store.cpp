// What survives a restart, or a process that is killed at any instant:
//   a static profile     from the moment it became static (the call that made it returned)
//   everything else      as of the last successful save: dynamic profiles, deletions of dynamic
//                        profiles, which interfaces use a profile
// The file is never between two of these states.
//
// Static profiles are written at once because the module looks at the result of making one
// static and not at that of the save behind it: a full disk must fail the conversion instead of
// being lost in the save.
#include "node/profiles/profile_store.h"

#include <utility>

namespace node {

namespace {

constexpr char kindOfLine[] = "profile";

ProfileStore* attached = nullptr;

std::string nameOf(const ProfileTable::Key& key) {
    return std::string(profileKindName(key.first)) + " \"" + key.second + '"';
}

std::string namesOf(const std::vector<ProfileTable::Key>& keys) {
    std::string text;
    for (const ProfileTable::Key& key : keys) {
        text += (text.empty() ? "" : ", ") + nameOf(key);
    }
    return text;
}

std::string countsOf(const std::vector<ProfileInfo>& profiles) {
    size_t dynamic = 0;
    for (const ProfileInfo& profile : profiles) {
        dynamic += profile.state == ProfileState::dynamic ? 1 : 0;
    }
    return std::to_string(profiles.size() - dynamic) + " static and " + std::to_string(dynamic) +
           " dynamic";
}

}  // namespace

ProfileStore::ProfileStore(const Settings& settings, EventLog& log)
    : file_(settings.file), log_(log), table_(settings.dslLines), database_(settings.file) {
    const std::vector<ProfileInfo> loaded = database_.load();
    for (const ProfileInfo& info : loaded) {
        if (!table_.put(info.kind, info.name,
                        {false,
                         info.state == ProfileState::dynamic,
                         info.isProtected,
                         {info.interfaces.begin(), info.interfaces.end()}})) {
            throw ProfileError(file_ + ": is damaged: it holds the built-in " +
                               nameOf({info.kind, info.name}));
        }
    }
    if (!file_.empty()) {
        log_.line(kindOfLine, "read " + countsOf(loaded) + " from " + file_);
    }
}

void ProfileStore::login(unsigned ifId, const LoginProfiles& profiles) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const ProfileTable::LoginResult result = table_.login(ifId, profiles);
    changed_ = changed_ || result.changed;
    if (!result.removed.empty()) {
        log_.line(ifId, kindOfLine, "deleted " + namesOf(result.removed) + ": no line's any more");
    }
    if (!result.created.empty()) {
        log_.line(ifId, kindOfLine, "created " + namesOf(result.created));
    }
    if (!result.used.empty()) {
        log_.line(ifId, kindOfLine, "uses " + namesOf(result.used));
    }
    for (const auto& [key, reason] : result.refused) {
        log_.line(ifId, kindOfLine, "not created: " + nameOf(key) + ' ' + reason);
    }
}

std::vector<ProfileInfo> ProfileStore::list() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return table_.all();
}

std::vector<std::string> ProfileStore::names(ProfileKind kind) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return table_.names(kind);
}

std::optional<std::string> ProfileStore::next(ProfileKind kind, const std::string& after) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return table_.next(kind, after);
}

std::optional<ProfileInfo> ProfileStore::find(ProfileKind kind, const std::string& name) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const ProfileTable::Profile* const profile = table_.find(kind, name);
    return profile ? std::optional(profileInfo({kind, name}, *profile)) : std::nullopt;
}

bool ProfileStore::mark(ProfileKind kind, const std::string& name, const Marks& marks) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const ProfileTable::Profile* const found = table_.find(kind, name);
    if (!found || found->builtIn) {
        return false;
    }
    ProfileTable::Profile profile = *found;
    profile.dynamic = marks.dynamic.value_or(found->dynamic);
    profile.isProtected = marks.isProtected.value_or(found->isProtected);
    const bool turned = profile.dynamic != found->dynamic;
    if (!turned && profile.isProtected == found->isProtected) {
        return true;
    }
    const ProfileTable::Key key(kind, name);
    if (!profile.dynamic) {
        try {
            database_.write(profileInfo(key, profile));
        } catch (const ProfileError& error) {
            log_.line(kindOfLine, nameOf(key) + " stays as it is: " + error.what());
            return false;
        }
    } else {
        changed_ = true;
    }
    if (turned) {
        log_.line(kindOfLine, nameOf(key) + (profile.dynamic ? " made dynamic" : " made static"));
    }
    table_.put(kind, name, std::move(profile));
    return true;
}

void ProfileStore::removeDynamic(ProfileKind kind, unsigned ifId) {
    const std::lock_guard<std::mutex> lock(mutex_);
    bool released = false;
    const std::vector<ProfileTable::Key> removed = table_.removeDynamic(kind, ifId, &released);
    changed_ = changed_ || released || !removed.empty();
    if (removed.empty()) {
        return;
    }
    if (ifId == 0) {
        log_.line(kindOfLine, "deleted " + namesOf(removed));
    } else {
        log_.line(ifId, kindOfLine, "deleted " + namesOf(removed));
    }
}

bool ProfileStore::save() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!changed_) {
        return true;
    }
    std::vector<ProfileInfo> profiles = table_.all();
    std::erase_if(profiles,
                  [](const ProfileInfo& info) { return info.state == ProfileState::builtIn; });
    try {
        database_.replaceAll(profiles);
    } catch (const ProfileError& error) {
        log_.line(kindOfLine, std::string("not saved: ") + error.what());
        return false;
    }
    changed_ = false;
    log_.line(kindOfLine,
              "saved " + countsOf(profiles) + (file_.empty() ? " in memory" : " in " + file_));
    return true;
}

void attachProfiles(ProfileStore* store) {
    attached = store;
}

ProfileStore* attachedProfiles() {
    return attached;
}

}  // namespace node
