#include "node/store/stored_logins.h"

#include <gtest/gtest.h>

#include "tests/unit/node_host/temp_dir.h"

namespace {

using Logins = std::map<unsigned, std::string>;

TEST(StoredLogins, BlocksAreFoundByInterface) {
    EXPECT_EQ(node::storedLogins("interface: 3\nvlanId: 0\ninterface: 12\nvlanId: 64\n"),
              (Logins{{3, "interface: 3\nvlanId: 0\n"}, {12, "interface: 12\nvlanId: 64\n"}}));
}

TEST(StoredLogins, WhatIsNoBlockIsLeftOut) {
    EXPECT_EQ(node::storedLogins(""), Logins{});
    EXPECT_EQ(node::storedLogins("\n\n"), Logins{});
    EXPECT_EQ(node::storedLogins("vlanId: 3\n"), Logins{});
    EXPECT_EQ(node::storedLogins("interface: \nvlanId: 1\n"), Logins{});
    EXPECT_EQ(node::storedLogins("interface: 4x\nvlanId: 1\n"), Logins{});
    EXPECT_EQ(node::storedLogins("interface: 99999999999\n"), Logins{});
    EXPECT_EQ(node::storedLogins(std::string_view("\0\xff\n", 3)), Logins{});
}

TEST(StoredLogins, MissingFileHoldsNone) {
    const node_test::TempDir dir;
    EXPECT_EQ(node::readStoredLogins(dir.path() + "/none"), Logins{});
    EXPECT_EQ(node::readStoredLogins(dir.write("f", "interface: 5")),
              (Logins{{5, "interface: 5\n"}}));
}

}  // namespace
