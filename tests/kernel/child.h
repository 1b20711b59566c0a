// A child process that works in the test's namespace until it is killed. Test code.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>

namespace node_test {

class Child {
public:
    // Runs `work` in a child and returns when it has returned there; the child then waits.
    explicit Child(const std::function<void()>& work) {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        pid_ = fork();
        if (pid_ == 0) {
            close(ready[0]);
            work();
            const char sound = testing::Test::HasFailure() ? 0 : 1;
            (void)!write(ready[1], &sound, 1);  // nobody left to tell
            while (true) {
                pause();
            }
        }
        close(ready[1]);
        char sound = 0;
        EXPECT_EQ(read(ready[0], &sound, 1), 1) << "the child ended";
        EXPECT_EQ(sound, 1) << "the child's checks failed";
        close(ready[0]);
    }
    ~Child() { kill(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    void kill() {
        if (pid_ > 0) {
            EXPECT_EQ(::kill(pid_, SIGKILL), 0);
            EXPECT_EQ(waitpid(pid_, nullptr, 0), pid_);
            pid_ = 0;
        }
    }

private:
    pid_t pid_ = 0;
};

// Runs `work` in a child to its end; whether all its checks held.
inline bool inChild(const std::function<void()>& work) {
    const pid_t pid = fork();
    if (pid == 0) {
        work();
        fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 1;
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace node_test
