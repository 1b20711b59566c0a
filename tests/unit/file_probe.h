// Looks at files from outside, and runs code in a child process. Waits for its children only.
#pragma once

#include <grp.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>

namespace probe {

inline std::string contentsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return "(none)";
    return std::string(std::istreambuf_iterator<char>(file), {});
}

inline void put(const std::string& path, const std::string& contents) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
}

inline struct stat statusOf(const std::string& path) {
    struct stat status;
    memset(&status, 0, sizeof(status));
    lstat(path.c_str(), &status);
    return status;
}

inline mode_t permissionsOf(const std::string& path) {
    return statusOf(path).st_mode & 07777;
}

// Tells whether a file was rewritten or replaced: its inode and the time of its last change.
struct Stamp {
    ino_t inode;
    time_t seconds;
    long nanoseconds;
    bool operator==(const Stamp&) const = default;
};

inline Stamp stampOf(const std::string& path) {
    const struct stat status = statusOf(path);
    return {status.st_ino, status.st_ctim.tv_sec, status.st_ctim.tv_nsec};
}

inline std::set<std::string> namesIn(const std::string& directory) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        names.insert(entry.path().filename().string());
    return names;
}

// Runs `body` in a child and returns what it returned, 0 to 255; -1 when it died of a signal.
inline int inChild(const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(30);
        _exit(body());
    }
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return child > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The same with the rights of an ordinary user, whoever runs the tests. The body finds the
// working directory open to everybody.
inline int asOrdinaryUser(const std::function<int()>& body) {
    if (geteuid() == 0 && chmod(".", 0777) != 0)
        return -1;
    return inChild([&body] {
        constexpr unsigned nobody = 65534;
        if (geteuid() == 0 &&
            (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0))
            return 254;
        return body();
    });
}

}  // namespace probe
