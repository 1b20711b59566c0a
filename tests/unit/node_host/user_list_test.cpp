#include "node/isa/user_list.h"

#include <gtest/gtest.h>

namespace {

using node::IsaAnswer;
using node::UserList;

TEST(UserList, ListedUsersGetTheirAnswer) {
    UserList users(IsaAnswer{false, {}, {}});
    users.add("a", IsaAnswer{true, std::chrono::milliseconds(7), {}});
    users.add("b", std::nullopt);
    const auto answer = users.find("a");
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->accepted);
    EXPECT_EQ(answer->delay.count(), 7);
    EXPECT_FALSE(users.find("b"));
}

TEST(UserList, UnknownUsersGetTheAnswerForUnknownOnes) {
    UserList users(IsaAnswer{false, {}, {}});
    users.add("KORVALIN:2 eth 5/1/1", IsaAnswer{true, {}, {}});
    for (const char* circuitId :
         {"", "KORVALIN:2 eth 5/1/", "KORVALIN:2 eth 5/1/11", "korvalin:2 eth 5/1/1"}) {
        ASSERT_TRUE(users.find(circuitId));
        EXPECT_FALSE(users.find(circuitId)->accepted) << circuitId;
    }
    EXPECT_FALSE(UserList(std::nullopt).find("anybody"));
}

TEST(UserList, ClearedListKnowsNobody) {
    UserList users(std::nullopt);
    users.add("a", IsaAnswer{true, {}, {}});
    users.clear();
    EXPECT_FALSE(users.find("a"));
}

}  // namespace
