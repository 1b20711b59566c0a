#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/scenario/private_log.h"

int main(int argc, char** argv) {
    if (geteuid() == 0) {  // in a namespace of an ordinary user root has no power over the kernel
        enterPrivateLog(argc, argv);
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
