#include "node/engine/counters.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using node::Counter;
using node::Counters;

TEST(Counters, StartAtZero) {
    const Counters counters;
    for (const uint32_t value : counters.values()) {
        EXPECT_EQ(value, 0u);
    }
}

TEST(Counters, WrapAtThirtyTwoBits) {
    Counters counters;
    counters.count(Counter::forwarded, 0xffffffffu);
    counters.count(Counter::forwarded, 3);
    EXPECT_EQ(counters[Counter::forwarded], 2u);
    EXPECT_EQ(counters.values()[12], 2u);
}

TEST(Counters, EachOfThirteenHasANameOfItsOwn) {
    std::set<std::string_view> names;
    for (size_t i = 0; i < node::counterCount; ++i) {
        names.insert(node::counterName(static_cast<Counter>(i)));
    }
    EXPECT_EQ(names.size(), 13u);
    EXPECT_EQ(names.count(""), 0u);
    EXPECT_EQ(node::counterName(static_cast<Counter>(13)), "");
}

}  // namespace
