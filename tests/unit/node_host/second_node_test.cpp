#include "node/live/device_lock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>

namespace {

using node::DeviceLock;
using testing::HasSubstr;

// Tests run beside each other in one network namespace.
std::string ownName(const std::string& what) {
    return what + " of test " + std::to_string(getpid());
}

TEST(DeviceLock, SecondIsRefusedUntilTheFirstIsGone) {
    const std::string name = ownName("eth0");
    std::string error;
    {
        const auto first = DeviceLock::take(name, error);
        ASSERT_TRUE(first) << error;
        EXPECT_FALSE(DeviceLock::take(name, error));
        EXPECT_EQ(error, name + ": another talnode is running on it (process " +
                             std::to_string(getpid()) + ")");
        EXPECT_TRUE(DeviceLock::take(ownName("eth1"), error));
    }
    EXPECT_TRUE(DeviceLock::take(name, error));
}

TEST(DeviceLock, IsFreeAfterItsProcessWasKilled) {
    const std::string name = ownName("killed");
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        std::string error;
        const auto lock = DeviceLock::take(name, error);
        const char taken = lock ? 1 : 0;
        (void)!write(ready[1], &taken, 1);  // nobody left to tell
        pause();
        _exit(0);
    }
    char taken = 0;
    ASSERT_EQ(read(ready[0], &taken, 1), 1);
    ASSERT_EQ(taken, 1);
    std::string error;
    EXPECT_FALSE(DeviceLock::take(name, error));
    EXPECT_THAT(error, HasSubstr("process " + std::to_string(child)));
    ASSERT_EQ(kill(child, SIGKILL), 0);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_TRUE(DeviceLock::take(name, error)) << error;
}

TEST(DeviceLock, LongPathsDifferByTheirEnds) {
    const std::string path = ownName(std::string(300, 'x'));
    std::string error;
    const auto first = DeviceLock::take(path + "/one", error);
    ASSERT_TRUE(first) << error;
    EXPECT_TRUE(DeviceLock::take(path + "/two", error)) << error;
    EXPECT_FALSE(DeviceLock::take(path + "/one", error));
}

}  // namespace
