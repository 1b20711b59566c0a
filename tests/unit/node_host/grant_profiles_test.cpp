#include "node/isa/grant_profiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using node::grantedProfiles;
using node::ProfileKind;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(GrantProfiles, TextsNameKindsAndServiceWithoutOne) {
    const auto granted = grantedProfiles({"gold", "vlan=v=100", "access-list=web", "alarm=loud"});
    EXPECT_EQ("gold", granted.profiles.of(ProfileKind::service));
    EXPECT_EQ("v=100", granted.profiles.of(ProfileKind::vlan));
    EXPECT_EQ("web", granted.profiles.of(ProfileKind::accessList));
    EXPECT_EQ("loud", granted.profiles.of(ProfileKind::alarm));
    EXPECT_TRUE(granted.problems.empty());
    EXPECT_TRUE(grantedProfiles({}).profiles.empty());
}

TEST(GrantProfiles, WhatNamesNoneIsTold) {
    const auto granted =
        grantedProfiles({"colour=red", "vlan=", "vlan=" + std::string(65, 'x'), "a", "service=b"});
    EXPECT_EQ("a", granted.profiles.of(ProfileKind::service));
    EXPECT_TRUE(granted.profiles.of(ProfileKind::vlan).empty());
    EXPECT_THAT(granted.problems,
                ElementsAre(HasSubstr("no known kind"), HasSubstr("0 or more than 64"),
                            HasSubstr("0 or more than 64"), HasSubstr("second one")));
}

}  // namespace
