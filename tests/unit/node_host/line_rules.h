// Gives a line of an attached engine rules, with the bridge calls that the module makes.
// Test code; any thread.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "platform/ittal.h"
#include "tests/unit/node/condition_builder.h"

namespace node_test {

inline void giveRule(unsigned ifId, ittalCondition condition) {
    const std::string name = std::to_string(ifId);
    EXPECT_EQ(ittalSelectorAdd(bridgeName, name.c_str()), 0);
    EXPECT_EQ(ittalActionListAdd(bridgeName, name.c_str()), 0);
    EXPECT_EQ(ittalListSet(bridgeName, ifId, name.c_str(), name.c_str(), 1, 0), 0);
    std::fill(std::begin(condition.selector), std::end(condition.selector), '\0');
    std::copy(name.begin(), name.end(), condition.selector);
    EXPECT_EQ(ittalConditionAdd(bridgeName, &condition), 0);
}

inline void takeRule(unsigned ifId, unsigned type) {
    EXPECT_EQ(ittalConditionDel(bridgeName, std::to_string(ifId).c_str(), type), 0);
}

}  // namespace node_test
