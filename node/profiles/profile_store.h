// The node's profiles: a working state in memory and the file that part of it outlives the
// process in. The platform's profile services are views of it. Callable from any thread;
// calls nothing but the log while it holds its lock.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "node/log/event_log.h"
#include "node/profile.h"
#include "node/profiles/profile_database.h"
#include "node/profiles/profile_table.h"

namespace node {

class ProfileStore {
public:
    struct Settings {
        std::string file;       // empty: nothing outlives the process
        bool dslLines = false;  // of the board
    };
    struct Marks {  // without a value: left as it is
        std::optional<bool> dynamic;
        std::optional<bool> isProtected;
    };

    // Reads the file. Throws ProfileError.
    ProfileStore(const Settings& settings, EventLog& log);

    // An accepted login of the line: creates what does not exist, dynamic and protected.
    void login(unsigned ifId, const LoginProfiles& profiles);

    std::vector<ProfileInfo> list() const;  // by kind, then name; built-in ones included
    std::vector<std::string> names(ProfileKind kind) const;
    std::optional<std::string> next(ProfileKind kind, const std::string& after) const;
    std::optional<ProfileInfo> find(ProfileKind kind, const std::string& name) const;

    // Changes the marks of a profile. One that is static then is in the file when this returns.
    // False when there is no such profile, it is built in, or it cannot be written; it is as
    // before then.
    bool mark(ProfileKind kind, const std::string& name, const Marks& marks);
    bool makeStatic(ProfileKind kind, const std::string& name) {
        return mark(kind, name, {false, false});
    }

    // Of one interface, or with 0 of all. In memory; save() makes it last.
    void removeDynamic(ProfileKind kind, unsigned ifId);

    // Brings the file to the working state. False when it cannot be written; it is as before
    // then, and the next call tries again.
    bool save();

private:
    const std::string file_;
    EventLog& log_;
    mutable std::mutex mutex_;  // guards the three below
    ProfileTable table_;
    ProfileDatabase database_;
    bool changed_ = false;  // since the last save
};

// Puts a store behind the platform's profile services. Before the module is loaded.
void attachProfiles(ProfileStore* store);  // null: there are no profiles of any kind

// The store behind the services; null without one.
ProfileStore* attachedProfiles();

}  // namespace node
