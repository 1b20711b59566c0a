// The file of the profiles: what it gives back, what it refuses to be, and what is in it after
// a write that failed or a process that was killed.
#include "node/profiles/profile_database.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/unit/node_host/temp_dir.h"

namespace {

using node::ProfileDatabase;
using node::ProfileError;
using node::ProfileInfo;
using node::ProfileKind;
using node::ProfileState;
using testing::HasSubstr;
using testing::StartsWith;

std::string shown(const std::vector<ProfileInfo>& profiles) {
    std::string text;
    for (const ProfileInfo& info : profiles) {
        text += std::string(node::profileKindName(info.kind)) + ' ' + info.name + ' ' +
                std::string(node::profileStateName(info.state)) +
                (info.isProtected ? " protected" : "");
        for (const unsigned interface : info.interfaces) {
            text += ' ' + std::to_string(interface);
        }
        text += '\n';
    }
    return text;
}

const std::vector<ProfileInfo> some = {
    {ProfileKind::accessList, "block all", ProfileState::dynamic, true, {}},
    {ProfileKind::dsl, std::string(64, 'd'), ProfileState::fixed, true, {1}},
    {ProfileKind::service, "gold", ProfileState::dynamic, true, {3, 7, 99}},
    {ProfileKind::service, "it's; --", ProfileState::fixed, false, {}},
};

class ProfileDatabaseTest : public testing::Test {
protected:
    std::string readBack() const { return shown(ProfileDatabase(file).load()); }
    std::string errorOf() const {
        try {
            ProfileDatabase(file).load();
        } catch (const ProfileError& error) {
            return error.what();
        }
        return "no error";
    }
    // Changes the file as another program would.
    void change(const std::string& sql) const {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open(file.c_str(), &database), SQLITE_OK);
        char* error = nullptr;
        EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, &error), SQLITE_OK)
            << (error ? error : "");
        sqlite3_free(error);
        sqlite3_close(database);
    }
    std::string bytes() const {
        std::ifstream in(file, std::ios::binary);
        std::ostringstream out;
        out << in.rdbuf();
        return out.str();
    }

    node_test::TempDir dir;
    std::string file = dir.path() + "/node.profiles";
};

TEST_F(ProfileDatabaseTest, NewFileIsEmpty) {
    EXPECT_EQ(readBack(), "");
    EXPECT_TRUE(std::filesystem::exists(file));
    EXPECT_EQ(readBack(), "");
}

TEST_F(ProfileDatabaseTest, EmptyFileIsANewOne) {
    dir.write("node.profiles", "");
    EXPECT_EQ(readBack(), "");
}

TEST_F(ProfileDatabaseTest, WhatIsWrittenIsReadBack) {
    ProfileDatabase(file).replaceAll(some);
    EXPECT_EQ(readBack(), shown(some));
    ProfileDatabase(file).replaceAll({some[2]});
    EXPECT_EQ(readBack(), shown({some[2]})) << "and nothing of before";
}

TEST_F(ProfileDatabaseTest, OneProfileIsWrittenWithoutTheOthers) {
    ProfileDatabase(file).replaceAll(some);
    std::vector<ProfileInfo> expected = some;
    expected[2].state = ProfileState::fixed;
    expected[2].isProtected = false;
    expected[2].interfaces = {7};
    ProfileDatabase(file).write(expected[2]);
    EXPECT_EQ(readBack(), shown(expected));
    expected.push_back({ProfileKind::vlan, "v", ProfileState::fixed, false, {}});
    ProfileDatabase(file).write(expected.back());
    EXPECT_EQ(readBack(), shown(expected));
}

TEST_F(ProfileDatabaseTest, MemoryIsItsOwnEachTime) {
    ProfileDatabase one("");
    ProfileDatabase other("");
    one.replaceAll(some);
    EXPECT_EQ(shown(one.load()), shown(some));
    EXPECT_EQ(shown(other.load()), "");
}

TEST_F(ProfileDatabaseTest, RefusedWriteLeavesEverythingAsItWas) {
    ProfileDatabase database(file);
    database.replaceAll(some);
    const ProfileInfo twice = {ProfileKind::vlan, "v", ProfileState::fixed, false, {5, 5}};
    EXPECT_THROW(database.write(twice), ProfileError);
    EXPECT_THROW(database.replaceAll({twice}), ProfileError);
    const ProfileInfo nameless = {ProfileKind::vlan, "", ProfileState::fixed, false, {}};
    EXPECT_THROW(database.write(nameless), ProfileError);
    EXPECT_EQ(shown(database.load()), shown(some));
    database.replaceAll({some[0]});
    EXPECT_EQ(shown(database.load()), shown({some[0]}));
}

// A disk that takes nothing more, as far as a process can arrange one for itself.
TEST_F(ProfileDatabaseTest, FullDiskIsAnErrorThatPasses) {
    signal(SIGXFSZ, SIG_IGN);
    ProfileDatabase database(file);
    database.replaceAll(some);
    std::vector<ProfileInfo> many;
    for (unsigned i = 0; i < 1000; ++i) {
        many.push_back(
            {ProfileKind::flow, "f" + std::to_string(i), ProfileState::dynamic, true, {}});
    }
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    rlimit tight = before;
    tight.rlim_cur = std::filesystem::file_size(file) + 4096;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
    EXPECT_THROW(database.replaceAll(many), ProfileError);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(shown(database.load()), shown(some));
    database.replaceAll(many);
    EXPECT_EQ(database.load().size(), many.size());
}

// Killed somewhere in its writes: what is there afterwards is one of them, whole.
TEST_F(ProfileDatabaseTest, KilledWriterLeavesOneStateOrTheOther) {
    std::vector<ProfileInfo> other;
    for (unsigned i = 0; i < 50; ++i) {
        other.push_back({ProfileKind::vlan,
                         "v" + std::to_string(100 + i),
                         ProfileState::fixed,
                         false,
                         {i + 1}});
    }
    for (unsigned round = 0; round < 12; ++round) {
        int progress[2];
        ASSERT_EQ(pipe(progress), 0);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ProfileDatabase database(file);
            for (;;) {
                database.replaceAll(some);
                database.replaceAll(other);
                if (write(progress[1], "x", 1) != 1) {
                    _exit(1);
                }
            }
        }
        close(progress[1]);
        char byte = 0;
        for (unsigned i = 0; i <= round % 3; ++i) {
            ASSERT_EQ(read(progress[0], &byte, 1), 1);
        }
        usleep(round * 300);  // into some later write; any instant must do
        kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        close(progress[0]);
        const std::string found = readBack();
        EXPECT_TRUE(found == shown(some) || found == shown(other)) << found;
    }
}

// ---- files that are none of ours

TEST_F(ProfileDatabaseTest, FileInUseIsSaidToBe) {
    const ProfileDatabase holder(file);
    EXPECT_EQ(errorOf(), file + ": is in use by another process");
}

TEST_F(ProfileDatabaseTest, FileThatIsNoDatabaseIsLeftAlone) {
    const std::string text = "interface: 7\n" + std::string(2000, 'x');
    dir.write("node.profiles", text);
    EXPECT_EQ(errorOf(), file + ": is no database");
    EXPECT_EQ(bytes(), text);
}

TEST_F(ProfileDatabaseTest, DatabaseOfAnotherProgramIsLeftAlone) {
    change("CREATE TABLE profile (a); INSERT INTO profile VALUES (1);");
    std::string before = bytes();
    EXPECT_EQ(errorOf(), file + ": is a database of another program");
    EXPECT_EQ(bytes(), before);
    change("PRAGMA application_id = 77");
    before = bytes();
    EXPECT_EQ(errorOf(), file + ": is a database of another program");
    EXPECT_EQ(bytes(), before);
}

TEST_F(ProfileDatabaseTest, OtherSchemaVersionIsNamed) {
    ProfileDatabase(file).replaceAll(some);
    change("PRAGMA user_version = 2");
    EXPECT_EQ(errorOf(), file + ": has schema version 2, this program knows 1");
    change("PRAGMA user_version = 1");
    EXPECT_EQ(readBack(), shown(some));
}

TEST_F(ProfileDatabaseTest, PlacesThatCannotHoldAFileAreNamed) {
    file = dir.path() + "/none/node.profiles";
    EXPECT_THAT(errorOf(), StartsWith(file + ": unable to open"));
    file = dir.path();
    EXPECT_THAT(errorOf(), StartsWith(file + ": "));
}

TEST_F(ProfileDatabaseTest, ChangedTablesAreDamage) {
    for (const char* sql : {"DROP TABLE profile_interface",
                            "ALTER TABLE profile DROP COLUMN protected", "DROP TABLE profile"}) {
        std::filesystem::remove(file);
        ProfileDatabase(file).replaceAll({some[0]});
        change(sql);
        EXPECT_THAT(errorOf(), StartsWith(file + ": is damaged: ")) << sql;
    }
}

TEST_F(ProfileDatabaseTest, RowsThatCannotBeAreDamage) {
    for (const char* row : {"INSERT INTO profile VALUES ('colour', 'a', 1, 1)",
                            "INSERT INTO profile VALUES ('vlan', '', 1, 1)",
                            "INSERT INTO profile VALUES ('vlan', 'a', 7, 1)",
                            "INSERT INTO profile_interface VALUES ('vlan', 'nobody', 3)",
                            "INSERT INTO profile_interface VALUES ('service', 'gold', 0)",
                            "INSERT INTO profile_interface VALUES ('service', 'gold', -3)"}) {
        std::filesystem::remove(file);
        ProfileDatabase(file).replaceAll({some[2]});
        change(std::string("PRAGMA ignore_check_constraints = 1; ") + row);
        EXPECT_THAT(errorOf(), StartsWith(file + ": is damaged: ")) << row;
    }
}

// Every page in turn overwritten, and the file cut at every page: an error that names the file
// or, where the bytes did not matter, the contents; never anything in between.
TEST_F(ProfileDatabaseTest, OverwrittenAndCutFilesAreNoticed) {
    ProfileDatabase(file).replaceAll(some);
    const std::string whole = bytes();
    constexpr size_t piece = 512;
    unsigned noticed = 0;
    for (size_t at = 0; at < whole.size(); at += piece) {
        for (const bool cut : {false, true}) {
            std::string damaged = whole;
            if (cut) {
                damaged.resize(at);
            } else {
                damaged.replace(at, piece, std::string(piece, '\x5a'));
            }
            dir.write("node.profiles", damaged);
            const std::string error = errorOf();
            if (error == "no error") {
                const std::string found = readBack();
                EXPECT_TRUE(found == shown(some) || (cut && at == 0 && found.empty()))
                    << at << found;
            } else {
                ++noticed;
                EXPECT_THAT(error, StartsWith(file + ": is "));
                EXPECT_EQ(error.find('\n'), std::string::npos);
            }
        }
    }
    EXPECT_GT(noticed, whole.size() / piece / 2);
}

}  // namespace
