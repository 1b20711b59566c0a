#include "node/control/text.h"

#include <gtest/gtest.h>

namespace node::control {
namespace {

using namespace std::string_literals;

TEST(ControlText, OnlyPrintableAsciiIsLeftAsItIs) {
    EXPECT_EQ("acme 1.2~", escaped("acme 1.2~"));
    EXPECT_EQ("a\\\\b", escaped("a\\b"));
    EXPECT_EQ("\\x00\\x1b[2J\\x7f\\xc3\\xa9", escaped("\0\x1b[2J\x7f\xc3\xa9"s));
    EXPECT_EQ("", escaped(""));
}

}  // namespace
}  // namespace node::control
