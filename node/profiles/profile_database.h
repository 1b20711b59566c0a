// The file in which profiles outlive the process: one SQLite database, held for as long as
// the object lives. Every write is one transaction: the old or the new contents, never a mix.
// One thread at a time.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "node/profile.h"

struct sqlite3;
struct sqlite3_stmt;

namespace node {

// what(): one line, "FILE: what is wrong".
class ProfileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class ProfileDatabase {
public:
    // Makes the file when there is none; an empty name: in memory. Throws ProfileError when it
    // cannot be used, is in use, or is not a whole database of this node.
    explicit ProfileDatabase(const std::string& file);
    ~ProfileDatabase();
    ProfileDatabase(const ProfileDatabase&) = delete;
    ProfileDatabase& operator=(const ProfileDatabase&) = delete;

    // All of them throw ProfileError; nothing is changed then.
    std::vector<ProfileInfo> load();         // by kind's name, then name
    void write(const ProfileInfo& profile);  // replaces the profile of that name
    void replaceAll(const std::vector<ProfileInfo>& profiles);

private:
    struct Close {
        void operator()(sqlite3* database) const;
    };
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const;
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;
    class Run;
    class Transaction;

    void open(const std::string& path);
    void verify();
    void verifySound();
    void prepareAll();
    void execute(const char* sql);
    Statement prepare(const char* sql);
    int number(const char* sql);
    void insert(const ProfileInfo& profile);
    [[noreturn]] void fail(int code) const;
    [[noreturn]] void failDamaged(const std::string& how) const;

    const std::string file_;  // as in messages
    std::unique_ptr<sqlite3, Close> database_;
    Statement insertProfile_;
    Statement insertInterface_;
    Statement deleteProfile_;
    Statement deleteAll_;
};

}  // namespace node
