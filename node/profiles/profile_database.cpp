// SQLite, because a half-written file must never be read as a whole one, and its journal has
// that solved. The file is locked for the life of the object: two nodes that keep their profiles
// in one file would overwrite each other's.
//
// A file is ours when it carries our application id and schema version; anything else is left
// as it is and named. Before it is used the whole of it is checked, which for some thousand rows
// takes no time.
//
// Schema 1, described in docs/node.md. A later schema raises the version and changes an older
// file in verify(), inside the transaction that checks it.
//
// Tested by tests/unit/node_host/profile_database_test.cpp.
#include "node/profiles/profile_database.h"

#include <sqlite3.h>

#include <algorithm>
#include <utility>

namespace node {

namespace {

constexpr int applicationId = 0x54414c50;  // "TALP"
constexpr int schemaVersion = 1;

constexpr char schema[] = R"(
CREATE TABLE profile (
    kind TEXT NOT NULL CHECK (kind IN ('service', 'vlan', 'flow', 'multicast', 'security',
                                       'l2cp', 'access-list', 'dsl', 'alarm')),
    name TEXT NOT NULL CHECK (length(name) BETWEEN 1 AND 64),
    dynamic INTEGER NOT NULL CHECK (dynamic IN (0, 1)),
    protected INTEGER NOT NULL CHECK (protected IN (0, 1)),
    PRIMARY KEY (kind, name)
) STRICT, WITHOUT ROWID;
CREATE TABLE profile_interface (
    kind TEXT NOT NULL,
    name TEXT NOT NULL,
    interface INTEGER NOT NULL CHECK (interface > 0),
    PRIMARY KEY (kind, name, interface),
    FOREIGN KEY (kind, name) REFERENCES profile (kind, name) ON DELETE CASCADE
) STRICT, WITHOUT ROWID;
)";

std::string columnText(sqlite3_stmt* row, int column) {
    const unsigned char* const text = sqlite3_column_text(row, column);
    const int size = sqlite3_column_bytes(row, column);
    return text ? std::string(text, text + size) : std::string();
}

}  // namespace

void ProfileDatabase::Close::operator()(sqlite3* database) const {
    sqlite3_close(database);
}

void ProfileDatabase::Finalize::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

// One execution of a prepared statement, which is ready for the next one afterwards.
class ProfileDatabase::Run {
public:
    Run(const ProfileDatabase& owner, const Statement& statement)
        : owner_(owner), statement_(statement.get()) {}
    ~Run() {
        sqlite3_reset(statement_);
        sqlite3_clear_bindings(statement_);
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    Run& bind(std::string_view text) {
        return check(sqlite3_bind_text(statement_, ++bound_, text.data(),
                                       static_cast<int>(text.size()), SQLITE_TRANSIENT));
    }
    Run& bind(unsigned value) { return check(sqlite3_bind_int64(statement_, ++bound_, value)); }
    bool step() {
        const int code = sqlite3_step(statement_);
        if (code != SQLITE_ROW && code != SQLITE_DONE) {
            owner_.fail(code);
        }
        return code == SQLITE_ROW;
    }
    sqlite3_stmt* row() const { return statement_; }

private:
    Run& check(int code) {
        if (code != SQLITE_OK) {
            owner_.fail(code);
        }
        return *this;
    }

    const ProfileDatabase& owner_;
    sqlite3_stmt* statement_;
    int bound_ = 0;
};

// Rolled back unless committed.
class ProfileDatabase::Transaction {
public:
    Transaction(ProfileDatabase& owner, const char* begin) : owner_(owner) {
        owner_.execute(begin);
    }
    ~Transaction() {
        if (!done_ && !sqlite3_get_autocommit(owner_.database_.get())) {
            // A failure here leaves the journal, which the next opening rolls back.
            (void)sqlite3_exec(owner_.database_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
        }
    }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit() {
        owner_.execute("COMMIT");
        done_ = true;
    }

private:
    ProfileDatabase& owner_;
    bool done_ = false;
};

void ProfileDatabase::fail(int code) const {
    switch (code & 0xff) {
        case SQLITE_NOTADB:
            throw ProfileError(file_ + ": is no database");
        case SQLITE_CORRUPT:
            failDamaged(database_ ? sqlite3_errmsg(database_.get()) : sqlite3_errstr(code));
        case SQLITE_BUSY:
            throw ProfileError(file_ + ": is in use by another process");
        default:
            throw ProfileError(
                file_ + ": " +
                (database_ ? sqlite3_errmsg(database_.get()) : sqlite3_errstr(code)));
    }
}

void ProfileDatabase::failDamaged(const std::string& how) const {
    std::string line = how;  // SQLite tells what it found in several
    std::replace(line.begin(), line.end(), '\n', ' ');
    throw ProfileError(file_ + ": is damaged: " + line);
}

ProfileDatabase::ProfileDatabase(const std::string& file)
    : file_(file.empty() ? "profiles in memory" : file) {
    open(file.empty() ? ":memory:" : file);
    execute("PRAGMA locking_mode = EXCLUSIVE");
    execute("PRAGMA foreign_keys = ON");
    execute("PRAGMA trusted_schema = OFF");
    execute("PRAGMA synchronous = EXTRA");
    {
        Transaction transaction(*this, "BEGIN EXCLUSIVE");
        verify();
        transaction.commit();
    }
    prepareAll();
}

ProfileDatabase::~ProfileDatabase() = default;

void ProfileDatabase::open(const std::string& path) {
    sqlite3* opened = nullptr;
    const int code =
        sqlite3_open_v2(path.c_str(), &opened,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    database_.reset(opened);
    if (code != SQLITE_OK) {
        fail(code);
    }
    if (sqlite3_db_readonly(database_.get(), "main") == 1) {
        throw ProfileError(file_ + ": cannot be written");
    }
}

void ProfileDatabase::verify() {
    const int id = number("PRAGMA application_id");
    const int version = number("PRAGMA user_version");
    if (id == 0 && version == 0 && number("SELECT count(*) FROM sqlite_schema") == 0) {
        execute(schema);
        execute(("PRAGMA application_id = " + std::to_string(applicationId)).c_str());
        execute(("PRAGMA user_version = " + std::to_string(schemaVersion)).c_str());
        return;
    }
    if (id != applicationId) {
        throw ProfileError(file_ + ": is a database of another program");
    }
    if (version != schemaVersion) {
        throw ProfileError(file_ + ": has schema version " + std::to_string(version) +
                           ", this program knows " + std::to_string(schemaVersion));
    }
    verifySound();
}

void ProfileDatabase::verifySound() {
    const Statement check = prepare("PRAGMA integrity_check(1)");
    Run found(*this, check);
    const std::string answer = found.step() ? columnText(found.row(), 0) : "no answer";
    if (answer != "ok") {
        failDamaged(answer);
    }
    const Statement references = prepare("PRAGMA foreign_key_check");
    if (Run(*this, references).step()) {
        failDamaged("an interface of a profile that is not there");
    }
}

void ProfileDatabase::prepareAll() {
    try {
        insertProfile_ = prepare("INSERT INTO profile VALUES (?, ?, ?, ?)");
        insertInterface_ = prepare("INSERT INTO profile_interface VALUES (?, ?, ?)");
        deleteProfile_ = prepare("DELETE FROM profile WHERE kind = ? AND name = ?");
        deleteAll_ = prepare("DELETE FROM profile");
    } catch (const ProfileError&) {  // the tables are not those of the schema's version
        failDamaged(sqlite3_errmsg(database_.get()));
    }
}

void ProfileDatabase::execute(const char* sql) {
    const int code = sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) {
        fail(code);
    }
}

ProfileDatabase::Statement ProfileDatabase::prepare(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v3(database_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT,
                                        &statement, nullptr);
    if (code != SQLITE_OK) {
        fail(code);
    }
    return Statement(statement);
}

int ProfileDatabase::number(const char* sql) {
    const Statement statement = prepare(sql);
    Run run(*this, statement);
    return run.step() ? sqlite3_column_int(run.row(), 0) : 0;
}

std::vector<ProfileInfo> ProfileDatabase::load() {
    std::vector<ProfileInfo> profiles;
    const Statement rows = prepare(
        "SELECT kind, name, dynamic, protected, interface FROM profile"
        " LEFT JOIN profile_interface USING (kind, name) ORDER BY kind, name, interface");
    Run run(*this, rows);
    while (run.step()) {
        const std::string kindName = columnText(run.row(), 0);
        const std::string name = columnText(run.row(), 1);
        const std::optional<ProfileKind> kind = profileKindOf(kindName);
        if (!kind || name.empty()) {
            failDamaged("a profile of kind \"" + kindName + '"');
        }
        if (profiles.empty() || profiles.back().kind != *kind || profiles.back().name != name) {
            const bool dynamic = sqlite3_column_int(run.row(), 2) != 0;
            profiles.push_back({*kind,
                                name,
                                dynamic ? ProfileState::dynamic : ProfileState::fixed,
                                sqlite3_column_int(run.row(), 3) != 0,
                                {}});
        }
        if (sqlite3_column_type(run.row(), 4) != SQLITE_NULL) {
            profiles.back().interfaces.push_back(
                static_cast<unsigned>(sqlite3_column_int64(run.row(), 4)));
        }
    }
    return profiles;
}

void ProfileDatabase::insert(const ProfileInfo& profile) {
    const std::string_view kind = profileKindName(profile.kind);
    Run(*this, insertProfile_)
        .bind(kind)
        .bind(profile.name)
        .bind(profile.state == ProfileState::dynamic ? 1u : 0u)
        .bind(profile.isProtected ? 1u : 0u)
        .step();
    for (const unsigned interface : profile.interfaces) {
        Run(*this, insertInterface_).bind(kind).bind(profile.name).bind(interface).step();
    }
}

void ProfileDatabase::write(const ProfileInfo& profile) {
    Transaction transaction(*this, "BEGIN IMMEDIATE");
    Run(*this, deleteProfile_).bind(profileKindName(profile.kind)).bind(profile.name).step();
    insert(profile);
    transaction.commit();
}

void ProfileDatabase::replaceAll(const std::vector<ProfileInfo>& profiles) {
    Transaction transaction(*this, "BEGIN IMMEDIATE");
    Run(*this, deleteAll_).step();
    for (const ProfileInfo& profile : profiles) {
        insert(profile);
    }
    transaction.commit();
}

}  // namespace node
