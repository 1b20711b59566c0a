#include "node/profiles/profile_table.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using node::LoginProfiles;
using node::ProfileInfo;
using node::ProfileKind;
using node::ProfileState;
using node::ProfileTable;
using Keys = std::vector<ProfileTable::Key>;
using Names = std::vector<std::string>;
using Lines = std::set<unsigned>;

LoginProfiles asking(ProfileKind kind, const std::string& name) {
    LoginProfiles profiles;
    profiles.of(kind) = name;
    return profiles;
}

LoginProfiles askingForEverything(const std::string& name) {
    LoginProfiles profiles;
    profiles.names.fill(name);
    return profiles;
}

Keys all(const std::string& name, std::initializer_list<ProfileKind> but = {}) {
    Keys keys;
    for (size_t i = 0; i < node::profileKindCount; ++i) {
        const auto kind = static_cast<ProfileKind>(i);
        if (std::find(but.begin(), but.end(), kind) == but.end()) {
            keys.emplace_back(kind, name);
        }
    }
    return keys;
}

TEST(ProfileTable, LoginCreatesOneDynamicProtectedProfileOfEveryKindItNames) {
    ProfileTable table(true);
    const ProfileTable::LoginResult result = table.login(3, askingForEverything("gold"));
    EXPECT_EQ(result.created, all("gold"));
    EXPECT_TRUE(result.changed);
    EXPECT_TRUE(result.used.empty());
    EXPECT_TRUE(result.refused.empty());
    for (const auto& [kind, name] : result.created) {
        const ProfileTable::Profile* const profile = table.find(kind, name);
        ASSERT_TRUE(profile);
        EXPECT_TRUE(profile->dynamic);
        EXPECT_TRUE(profile->isProtected);
        EXPECT_EQ(profile->interfaces, node::profileKnowsInterfaces(kind) ? Lines{3} : Lines{});
    }
}

TEST(ProfileTable, LoginThatNamesNothingChangesNothing) {
    ProfileTable table(true);
    const ProfileTable::LoginResult result = table.login(3, {});
    EXPECT_FALSE(result.changed);
    EXPECT_TRUE(result.created.empty());
}

TEST(ProfileTable, SecondLineSharesTheProfileOfTheFirst) {
    ProfileTable table(true);
    table.login(3, askingForEverything("gold"));
    const ProfileTable::LoginResult result = table.login(4, askingForEverything("gold"));
    EXPECT_TRUE(result.created.empty());
    EXPECT_EQ(result.used, all("gold"));
    EXPECT_TRUE(result.changed);
    EXPECT_EQ(table.find(ProfileKind::service, "gold")->interfaces, (Lines{3, 4}));
    EXPECT_FALSE(table.login(4, askingForEverything("gold")).changed) << "nothing new";
}

TEST(ProfileTable, LaterLoginOfALineReplacesItsProfileOfTheKind) {
    ProfileTable table(true);
    table.login(3, asking(ProfileKind::service, "gold"));
    table.login(4, asking(ProfileKind::service, "gold"));
    ProfileTable::LoginResult result = table.login(3, asking(ProfileKind::service, "silver"));
    EXPECT_TRUE(result.removed.empty()) << "line 4 still has it";
    EXPECT_EQ(table.find(ProfileKind::service, "gold")->interfaces, Lines{4});
    result = table.login(4, {});
    EXPECT_EQ(result.removed, (Keys{{ProfileKind::service, "gold"}}));
    EXPECT_TRUE(result.changed);
    EXPECT_EQ(table.names(ProfileKind::service), Names{"silver"});
}

TEST(ProfileTable, ProfilesOfKindsWithoutInterfacesStayBehindALaterLogin) {
    ProfileTable table(true);
    table.login(3, asking(ProfileKind::multicast, "tv"));
    EXPECT_TRUE(table.login(3, {}).removed.empty());
    EXPECT_EQ(table.names(ProfileKind::multicast), Names{"tv"});
}

TEST(ProfileTable, StaticProfileIsUsedAndNeverRemoved) {
    ProfileTable table(true);
    table.put(ProfileKind::service, "gold", {});
    const ProfileTable::LoginResult result = table.login(3, asking(ProfileKind::service, "gold"));
    EXPECT_EQ(result.used, (Keys{{ProfileKind::service, "gold"}}));
    EXPECT_FALSE(table.find(ProfileKind::service, "gold")->dynamic);
    EXPECT_TRUE(table.removeDynamic(ProfileKind::service, 3).empty());
    EXPECT_TRUE(table.removeDynamic(ProfileKind::service, 0).empty());
    EXPECT_EQ(table.find(ProfileKind::service, "gold")->interfaces, Lines{3});
    EXPECT_TRUE(table.login(3, {}).removed.empty());
    EXPECT_EQ(table.find(ProfileKind::service, "gold")->interfaces, Lines{});
}

TEST(ProfileTable, DeletionOfAnInterfaceTakesOnlyWhatBelongsToNobodyElse) {
    ProfileTable table(true);
    table.login(3, asking(ProfileKind::vlan, "shared"));
    table.login(4, asking(ProfileKind::vlan, "shared"));
    table.login(5, asking(ProfileKind::vlan, "own"));
    bool released = false;
    EXPECT_TRUE(table.removeDynamic(ProfileKind::vlan, 3, &released).empty());
    EXPECT_TRUE(released);
    EXPECT_EQ(table.removeDynamic(ProfileKind::vlan, 4, &released),
              (Keys{{ProfileKind::vlan, "shared"}}));
    EXPECT_FALSE(released);
    EXPECT_TRUE(table.removeDynamic(ProfileKind::vlan, 99, &released).empty());
    EXPECT_FALSE(released);
    EXPECT_EQ(table.names(ProfileKind::vlan), Names{"own"});
}

TEST(ProfileTable, DeletionOfAllTakesEveryDynamicProfileOfTheKindAndNoOther) {
    ProfileTable table(true);
    table.login(3, askingForEverything("a"));
    table.login(4, askingForEverything("b"));
    table.put(ProfileKind::flow, "fixed", {});
    EXPECT_EQ(table.removeDynamic(ProfileKind::flow, 0),
              (Keys{{ProfileKind::flow, "a"}, {ProfileKind::flow, "b"}}));
    EXPECT_EQ(table.names(ProfileKind::flow),
              (Names{"DEFAULT", "fixed", node::defaultFlowProfile, node::internalFlowProfile}));
    EXPECT_EQ(table.names(ProfileKind::multicast), (Names{"a", "b"}));
}

TEST(ProfileTable, BuiltInProfilesAreUsedAsTheyAre) {
    ProfileTable table(true);
    EXPECT_EQ(table.login(3, asking(ProfileKind::alarm, "Default")).used,
              (Keys{{ProfileKind::alarm, "Default"}}));
    EXPECT_EQ(table.find(ProfileKind::alarm, "Default")->interfaces, Lines{});
    EXPECT_FALSE(table.put(ProfileKind::alarm, "Default", {}));
    EXPECT_TRUE(table.find(ProfileKind::alarm, "Default")->builtIn);
    EXPECT_TRUE(table.removeDynamic(ProfileKind::alarm, 0).empty());
}

TEST(ProfileTable, BoardWithoutDslLinesGetsNoDslProfiles) {
    ProfileTable table(false);
    table.put(ProfileKind::dsl, "kept", {false, true, true, {3}});
    const ProfileTable::LoginResult result = table.login(3, askingForEverything("gold"));
    EXPECT_EQ(result.created, all("gold", {ProfileKind::dsl, ProfileKind::alarm}));
    ASSERT_EQ(result.refused.size(), 2u);
    EXPECT_EQ(result.refused[0].first, ProfileTable::Key(ProfileKind::dsl, "gold"));
    EXPECT_EQ(result.refused[1].first, ProfileTable::Key(ProfileKind::alarm, "gold"));
    EXPECT_EQ(table.find(ProfileKind::dsl, "kept")->interfaces, Lines{3});
}

TEST(ProfileTable, NamesThatCannotBeAreRefusedWithAReason) {
    ProfileTable table(true);
    const std::string longest(64, 'n');
    EXPECT_EQ(table.login(1, asking(ProfileKind::dsl, longest)).created.size(), 1u);
    EXPECT_EQ(table.login(1, asking(ProfileKind::alarm, "default")).created.size(), 1u);
    EXPECT_EQ(table.login(1, asking(ProfileKind::service, "Defaults")).created.size(), 1u);
    const std::pair<ProfileKind, std::string> bad[] = {
        {ProfileKind::service, longest + "n"},
        {ProfileKind::service, "a\nb"},
        {ProfileKind::service, std::string("a\0b", 3)},
        {ProfileKind::service, "\xc3\xa9"},
        {ProfileKind::alarm, "Defaults"},
    };
    for (const auto& [kind, name] : bad) {
        const ProfileTable::LoginResult result = table.login(2, asking(kind, name));
        ASSERT_EQ(result.refused.size(), 1u) << name;
        EXPECT_FALSE(result.refused[0].second.empty());
        EXPECT_FALSE(result.changed);
        EXPECT_FALSE(table.find(kind, name));
    }
}

TEST(ProfileTable, KindsAreBounded) {
    const std::pair<ProfileKind, unsigned> bounds[] = {{ProfileKind::dsl, 128},
                                                       {ProfileKind::alarm, 29},  // and "Default"
                                                       {ProfileKind::multicast, 1024}};
    for (const auto& [kind, most] : bounds) {
        ProfileTable table(true);
        for (unsigned i = 1; i <= most; ++i) {
            ASSERT_EQ(table.login(i, asking(kind, "p" + std::to_string(i))).created.size(), 1u);
        }
        const ProfileTable::LoginResult result = table.login(most + 1, asking(kind, "more"));
        EXPECT_EQ(result.refused.size(), 1u);
        EXPECT_EQ(table.login(most + 1, asking(kind, "p1")).used.size(), 1u);
    }
}

TEST(ProfileTable, NextGoesThroughTheNamesOfAKindOnly) {
    ProfileTable table(true);
    for (const char* name : {"b", "a", "c"}) {
        table.put(ProfileKind::multicast, name, {});
    }
    table.put(ProfileKind::flow, "z", {});
    table.put(ProfileKind::security, "d", {});
    Names seen;
    for (std::optional<std::string> name = table.next(ProfileKind::multicast, ""); name;
         name = table.next(ProfileKind::multicast, *name)) {
        seen.push_back(*name);
    }
    EXPECT_EQ(seen, (Names{"a", "b", "c"}));
    EXPECT_EQ(table.next(ProfileKind::multicast, "aa"), "b") << "the one asked from may be gone";
    EXPECT_FALSE(table.next(ProfileKind::l2cp, ""));
}

TEST(ProfileTable, ListingTellsKindNameStateAndInterfaces) {
    ProfileTable table(true);
    table.login(4, asking(ProfileKind::service, "gold"));
    table.login(3, asking(ProfileKind::service, "gold"));
    table.put(ProfileKind::vlan, "v", {});
    const std::vector<ProfileInfo> infos = table.all();
    ASSERT_EQ(infos.size(), 6u);
    EXPECT_EQ(infos[0].name, "gold");
    EXPECT_EQ(infos[0].state, ProfileState::dynamic);
    EXPECT_TRUE(infos[0].isProtected);
    EXPECT_EQ(infos[0].interfaces, (std::vector<unsigned>{3, 4}));
    EXPECT_EQ(infos[1].kind, ProfileKind::vlan);
    EXPECT_EQ(infos[1].state, ProfileState::fixed);
    EXPECT_EQ(infos[2].name, "DEFAULT");
    EXPECT_EQ(infos[2].state, ProfileState::builtIn);
}

TEST(ProfileKinds, NamesAreReadBack) {
    for (size_t i = 0; i < node::profileKindCount; ++i) {
        const auto kind = static_cast<ProfileKind>(i);
        EXPECT_EQ(node::profileKindOf(node::profileKindName(kind)), kind);
    }
    for (const char* bad : {"", "Service", "services", "acl"}) {
        EXPECT_FALSE(node::profileKindOf(bad)) << bad;
    }
}

}  // namespace
