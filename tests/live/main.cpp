#include <gtest/gtest.h>

#include "tests/scenario/private_log.h"

int main(int argc, char** argv) {
    enterPrivateLog(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
