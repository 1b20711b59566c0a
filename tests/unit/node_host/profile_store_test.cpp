// The store: what is in memory, what is in the file and when, and what is said about it.
#include "node/profiles/profile_store.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "tests/unit/node_host/temp_dir.h"

namespace {

using node::LoginProfiles;
using node::ProfileError;
using node::ProfileInfo;
using node::ProfileKind;
using node::ProfileState;
using node::ProfileStore;
using Lines = std::vector<std::string>;

LoginProfiles asking(ProfileKind kind, const std::string& name) {
    LoginProfiles profiles;
    profiles.of(kind) = name;
    return profiles;
}

class ProfileStoreTest : public testing::Test {
protected:
    void SetUp() override { open(); }
    // A process that ends without a word and the next one.
    void restart() {
        store.reset();
        open();
    }
    void open() {
        store.emplace(ProfileStore::Settings{file, true}, log);
        said();
    }
    // The log since the last look, without times.
    Lines said() {
        std::istringstream text(out.str());
        out.str("");
        Lines lines;
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line.substr(14));
        }
        return lines;
    }
    Lines listed() const {
        Lines lines;
        for (const ProfileInfo& info : store->list()) {
            if (info.state != ProfileState::builtIn) {
                lines.push_back(std::string(node::profileKindName(info.kind)) + ' ' + info.name +
                                ' ' + std::string(node::profileStateName(info.state)));
                for (const unsigned interface : info.interfaces) {
                    lines.back() += ' ' + std::to_string(interface);
                }
            }
        }
        return lines;
    }

    node_test::TempDir dir;
    std::string file = dir.path() + "/p";
    std::ostringstream out;
    node::EventLog log{out};
    std::optional<ProfileStore> store;
};

TEST_F(ProfileStoreTest, DynamicProfilesOutliveTheProcessOnlyOnceSaved) {
    store->login(3, asking(ProfileKind::service, "gold"));
    restart();
    EXPECT_EQ(listed(), Lines{});
    store->login(3, asking(ProfileKind::service, "gold"));
    EXPECT_TRUE(store->save());
    store->login(4, asking(ProfileKind::service, "gold"));
    store->login(4, asking(ProfileKind::vlan, "v"));
    restart();
    EXPECT_EQ(listed(), Lines{"service gold dynamic 3"}) << "as of the save";
}

TEST_F(ProfileStoreTest, StaticProfileOutlivesTheProcessWithoutASave) {
    store->login(3, asking(ProfileKind::service, "gold"));
    store->login(4, asking(ProfileKind::flow, "f"));
    EXPECT_TRUE(store->makeStatic(ProfileKind::service, "gold"));
    restart();
    EXPECT_EQ(listed(), Lines{"service gold static 3"});
}

TEST_F(ProfileStoreTest, DeletionOutlivesTheProcessOnlyOnceSaved) {
    store->login(3, asking(ProfileKind::service, "gold"));
    EXPECT_TRUE(store->save());
    store->removeDynamic(ProfileKind::service, 3);
    EXPECT_EQ(listed(), Lines{});
    restart();
    EXPECT_EQ(listed(), Lines{"service gold dynamic 3"});
    store->removeDynamic(ProfileKind::service, 0);
    EXPECT_TRUE(store->save());
    restart();
    EXPECT_EQ(listed(), Lines{});
}

TEST_F(ProfileStoreTest, ReleasedInterfaceIsSaved) {
    store->login(3, asking(ProfileKind::service, "gold"));
    store->login(4, asking(ProfileKind::service, "gold"));
    EXPECT_TRUE(store->save());
    store->removeDynamic(ProfileKind::service, 3);
    EXPECT_TRUE(store->save());
    restart();
    EXPECT_EQ(listed(), Lines{"service gold dynamic 4"});
}

TEST_F(ProfileStoreTest, MarksAreChangedOneByOne) {
    store->login(3, asking(ProfileKind::l2cp, "l"));
    EXPECT_TRUE(store->mark(ProfileKind::l2cp, "l", {false, std::nullopt}));
    EXPECT_EQ(store->find(ProfileKind::l2cp, "l")->state, ProfileState::fixed);
    EXPECT_TRUE(store->find(ProfileKind::l2cp, "l")->isProtected);
    EXPECT_TRUE(store->mark(ProfileKind::l2cp, "l", {std::nullopt, false}));
    EXPECT_FALSE(store->find(ProfileKind::l2cp, "l")->isProtected);
    EXPECT_TRUE(store->mark(ProfileKind::l2cp, "l", {true, true}));
    EXPECT_EQ(store->find(ProfileKind::l2cp, "l")->state, ProfileState::dynamic);
    restart();
    EXPECT_EQ(listed(), Lines{"l2cp l static"}) << "made dynamic again, but not saved";
    EXPECT_FALSE(store->find(ProfileKind::l2cp, "l")->isProtected);
}

TEST_F(ProfileStoreTest, UnknownAndBuiltInProfilesCannotBeMarked) {
    EXPECT_FALSE(store->makeStatic(ProfileKind::service, "nobody"));
    EXPECT_FALSE(store->makeStatic(ProfileKind::flow, "DEFAULT"));
    EXPECT_FALSE(store->mark(ProfileKind::alarm, "Default", {true, std::nullopt}));
    EXPECT_EQ(store->find(ProfileKind::flow, "DEFAULT")->state, ProfileState::builtIn);
}

TEST_F(ProfileStoreTest, EveryChangeIsSaidOnce) {
    LoginProfiles profiles = asking(ProfileKind::service, "gold");
    profiles.of(ProfileKind::flow) = "f";
    profiles.of(ProfileKind::alarm) = "Defaulting";
    store->login(3, profiles);
    store->login(4, asking(ProfileKind::service, "gold"));
    EXPECT_EQ(said(),
              (Lines{"interface 3  profile   created service \"gold\", flow \"f\"",
                     "interface 3  profile   not created: alarm \"Defaulting\" is a name of the "
                     "board's own profiles",
                     "interface 4  profile   uses service \"gold\""}));
    store->login(3, asking(ProfileKind::service, "silver"));
    store->login(3, {});
    EXPECT_EQ(said(),
              (Lines{"interface 3  profile   created service \"silver\"",
                     "interface 3  profile   deleted service \"silver\": no line's any more"}));
    store->makeStatic(ProfileKind::flow, "f");
    store->makeStatic(ProfileKind::flow, "f");
    EXPECT_EQ(said(), Lines{"-           profile   flow \"f\" made static"});
    store->save();
    store->save();
    EXPECT_EQ(said(), Lines{"-           profile   saved 1 static and 1 dynamic in " + file});
    store->removeDynamic(ProfileKind::service, 3);
    store->removeDynamic(ProfileKind::service, 4);
    store->removeDynamic(ProfileKind::service, 0);
    store->login(4, asking(ProfileKind::security, "s"));
    store->removeDynamic(ProfileKind::security, 0);
    EXPECT_EQ(said(), (Lines{"interface 4  profile   deleted service \"gold\"",
                             "interface 4  profile   created security \"s\"",
                             "-           profile   deleted security \"s\""}));
    store.reset();
    store.emplace(ProfileStore::Settings{file, true}, log);
    EXPECT_EQ(said(), Lines{"-           profile   read 1 static and 1 dynamic from " + file});
}

TEST_F(ProfileStoreTest, FullDiskFailsTheCallAndIsSaid) {
    signal(SIGXFSZ, SIG_IGN);
    store->login(3, asking(ProfileKind::service, "gold"));
    said();
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    rlimit tight = before;
    tight.rlim_cur = 1024;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
    EXPECT_FALSE(store->makeStatic(ProfileKind::service, "gold"));
    EXPECT_EQ(listed(), Lines{"service gold dynamic 3"});
    EXPECT_FALSE(store->save());
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    const Lines lines = said();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].find("-           profile   service \"gold\" stays as it is: " + file), 0u);
    EXPECT_EQ(lines[1].find("-           profile   not saved: " + file), 0u);
    EXPECT_TRUE(store->save()) << "tried again, though nothing changed meanwhile";
    restart();
    EXPECT_EQ(listed(), Lines{"service gold dynamic 3"});
}

TEST_F(ProfileStoreTest, FileWithABuiltInProfileIsDamaged) {
    store.reset();
    node::ProfileDatabase(file).write(
        {ProfileKind::flow, "DEFAULT", ProfileState::dynamic, true, {}});
    try {
        ProfileStore({file, true}, log);
        FAIL();
    } catch (const ProfileError& error) {
        EXPECT_EQ(error.what(), file + ": is damaged: it holds the built-in flow \"DEFAULT\"");
    }
}

TEST_F(ProfileStoreTest, ProfilesOfLinesThatAreNoMoreStayUntilAllGo) {
    store->login(98, asking(ProfileKind::service, "old"));
    EXPECT_TRUE(store->save());
    restart();
    store->removeDynamic(ProfileKind::service, 1);
    EXPECT_EQ(listed(), Lines{"service old dynamic 98"});
    store->removeDynamic(ProfileKind::service, 0);
    EXPECT_EQ(listed(), Lines{});
}

}  // namespace
