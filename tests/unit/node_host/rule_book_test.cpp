#include "node/engine/rule_book.h"

#include <gtest/gtest.h>

namespace {

using node::RuleBook;

ittalCondition condition(uint32_t type, uint32_t code) {
    ittalCondition result{};
    result.type = type;
    result.code = code;
    return result;
}

TEST(RuleBook, KeepsConditionsExactlyAsGiven) {
    RuleBook book;
    ASSERT_TRUE(book.addSelector("0"));
    ittalCondition mac = condition(6, 3);
    mac.u.mac.addr[0] = 0x12;
    ASSERT_TRUE(book.addCondition("0", mac));
    ASSERT_TRUE(book.conditions("0"));
    ASSERT_EQ(book.conditions("0")->size(), 1u);
    EXPECT_EQ(book.conditions("0")->front().u.mac.addr[0], 0x12);
    EXPECT_EQ(book.conditions("0")->front().code, 3u);
}

TEST(RuleBook, UnknownNamesAreRefused) {
    RuleBook book;
    EXPECT_FALSE(book.deleteSelector("0"));
    EXPECT_FALSE(book.renameSelector("0", "1"));
    EXPECT_FALSE(book.addCondition("0", condition(0, 0)));
    EXPECT_FALSE(book.deleteCondition("0", 0));
    EXPECT_FALSE(book.deleteActionList("0"));
    EXPECT_FALSE(book.renameActionList("0", "1"));
    EXPECT_FALSE(book.addAction("0", 2, 2));
    EXPECT_FALSE(book.deleteAction("0", 2));
    EXPECT_FALSE(book.bind(1, {"0", "0", 1, 0}));
    EXPECT_FALSE(book.addSelector(""));
    EXPECT_FALSE(book.addActionList(""));
    EXPECT_EQ(book.conditions("0"), nullptr);
    EXPECT_EQ(book.actions("0"), nullptr);
    EXPECT_EQ(book.binding(1), nullptr);
}

TEST(RuleBook, AddingAgainKeepsWhatIsThere) {
    RuleBook book;
    book.addSelector("0");
    book.addActionList("0");
    book.addCondition("0", condition(1, 5));
    book.addAction("0", 2, 2);
    EXPECT_TRUE(book.addSelector("0"));
    EXPECT_TRUE(book.addActionList("0"));
    EXPECT_EQ(book.conditions("0")->size(), 1u);
    EXPECT_EQ(book.actions("0")->size(), 1u);
}

TEST(RuleBook, SecondConditionOfATypeIsRefused) {
    RuleBook book;
    book.addSelector("0");
    EXPECT_TRUE(book.addCondition("0", condition(1, 5)));
    EXPECT_FALSE(book.addCondition("0", condition(1, 7)));
    EXPECT_EQ(book.conditions("0")->front().code, 5u);
    EXPECT_TRUE(book.deleteCondition("0", 1));
    EXPECT_FALSE(book.deleteCondition("0", 1));
    EXPECT_TRUE(book.addCondition("0", condition(1, 7)));
}

TEST(RuleBook, ConditionsStandInTheOrderOfTheirTypes) {
    RuleBook book;
    book.addSelector("0");
    for (const uint32_t type : {6u, 0u, 9u, 2u}) {
        ASSERT_TRUE(book.addCondition("0", condition(type, type)));
    }
    ASSERT_TRUE(book.deleteCondition("0", 2));
    EXPECT_FALSE(book.deleteCondition("0", 3));
    ASSERT_TRUE(book.addCondition("0", condition(1, 1)));
    std::string types;
    for (const ittalCondition& entry : *book.conditions("0")) {
        types += std::to_string(entry.type);
    }
    EXPECT_EQ(types, "0169");
}

TEST(RuleBook, ConditionsOfAnInterfaceAreThoseOfItsSelector) {
    RuleBook book;
    book.addSelector("a");
    book.addSelector("b");
    book.addActionList("0");
    book.addCondition("a", condition(0, 0));
    EXPECT_EQ(book.conditionsOf(7), nullptr);
    ASSERT_TRUE(book.bind(7, {"b", "0", 1, 0}));
    ASSERT_TRUE(book.conditionsOf(7));
    EXPECT_TRUE(book.conditionsOf(7)->empty());
    ASSERT_TRUE(book.bind(7, {"a", "0", 1, 0}));
    EXPECT_EQ(book.conditionsOf(7)->size(), 1u);
}

TEST(RuleBook, BindingFollowsRenamesAndProtectsItsNames) {
    RuleBook book;
    book.addSelector("a");
    book.addActionList("b");
    book.addSelector("taken");
    ASSERT_TRUE(book.bind(7, {"a", "b", 1, 0}));
    EXPECT_FALSE(book.deleteSelector("a"));
    EXPECT_FALSE(book.deleteActionList("b"));
    EXPECT_FALSE(book.renameSelector("a", "taken"));
    EXPECT_TRUE(book.renameSelector("a", "c"));
    EXPECT_TRUE(book.renameActionList("b", "d"));
    ASSERT_TRUE(book.binding(7));
    EXPECT_EQ(book.binding(7)->selector, "c");
    EXPECT_EQ(book.binding(7)->actionList, "d");
    EXPECT_EQ(book.binding(7)->mode, 1);
    EXPECT_TRUE(book.deleteSelector("taken"));
}

TEST(RuleBook, ActionsAreKeptPerType) {
    RuleBook book;
    book.addActionList("0");
    EXPECT_TRUE(book.addAction("0", 2, 2));
    EXPECT_TRUE(book.addAction("0", 3, 3));
    EXPECT_TRUE(book.deleteAction("0", 2));
    EXPECT_FALSE(book.deleteAction("0", 2));
    EXPECT_EQ(book.actions("0")->size(), 1u);
}

}  // namespace
