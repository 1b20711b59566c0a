#include "tests/scenario/private_log.h"

#include <linux/magic.h>
#include <sys/mount.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

// The work is left to unshare(1) and a second start of the program: a process that has threads,
// as sanitizers give it, may not enter a user namespace itself.

namespace {

constexpr char marker[] = "--in-private-namespace";

std::string missing = "the test did not ask for one";

const char* namespaces() {
    return geteuid() == 0 ? "-m" : "-Urm";
}

bool permitted() {
    const pid_t child = fork();
    if (child == 0) {
        execlp("unshare", "unshare", namespaces(), "true", static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

void mountEmptyLog() {
    struct statfs before {};
    struct statfs after {};
    if (statfs("/var/log", &before) != 0 ||
        mount("tal-test", "/var/log", "tmpfs", MS_NOSUID | MS_NODEV, "size=4m,mode=0755") != 0 ||
        statfs("/var/log", &after) != 0) {
        missing = std::string("no file system can be mounted on /var/log: ") + strerror(errno);
    } else if (after.f_type != TMPFS_MAGIC) {
        missing = "/var/log is not what was mounted";
    } else {
        missing.clear();
    }
}

}  // namespace

std::string privateLogMissing() {
    return missing;
}

void enterPrivateLog(int& argc, char** argv) {
    if (argc > 1 && strcmp(argv[argc - 1], marker) == 0) {
        argv[--argc] = nullptr;
        mountEmptyLog();
        return;
    }
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--gtest_list_tests") == 0) {
            return;
        }
    }
    if (!permitted()) {
        missing = "private mount namespaces are refused here (unshare)";
        return;
    }
    std::vector<char*> arguments;
    std::string words[] = {"unshare", namespaces(), marker};
    char self[4096] = {};
    if (readlink("/proc/self/exe", self, sizeof(self) - 1) <= 0) {
        missing = "the program cannot find itself";
        return;
    }
    arguments.push_back(words[0].data());
    arguments.push_back(words[1].data());
    arguments.push_back(self);
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    arguments.push_back(words[2].data());
    arguments.push_back(nullptr);
    execvp("unshare", arguments.data());
    missing = std::string("unshare cannot be started: ") + strerror(errno);
}
