// The raw system calls: two calls and a record are not worth a library. Why these three: loading
// programs and maps takes CAP_BPF, offsets into a frame that vary take CAP_PERFMON, attaching to
// an interface and sending a frame through it take CAP_NET_ADMIN. The bounding set is emptied as
// far as the process may, and no_new_privs does the rest: an exec as root would give everything
// back otherwise.
#include "node/engine/kernel/capabilities.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace node {
namespace {

struct Wanted {
    unsigned number;
    const char* name;
};

constexpr std::array<Wanted, 3> wanted{
    {{CAP_BPF, "CAP_BPF"}, {CAP_NET_ADMIN, "CAP_NET_ADMIN"}, {CAP_PERFMON, "CAP_PERFMON"}}};
constexpr unsigned bitsPerWord = 32;

using Words = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;

__user_cap_header_struct ownThread() {
    return {_LINUX_CAPABILITY_VERSION_3, 0};
}

Words current() {
    Words words{};
    __user_cap_header_struct header = ownThread();
    if (syscall(SYS_capget, &header, words.data()) != 0) {
        words = {};
    }
    return words;
}

bool inForce(const Words& words, unsigned number) {
    return (words[number / bitsPerWord].effective >> number % bitsPerWord & 1U) != 0;
}

bool isWanted(unsigned number) {
    for (const Wanted& one : wanted) {
        if (one.number == number) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::vector<std::string> missingCapabilities() {
    const Words words = current();
    std::vector<std::string> missing;
    for (const Wanted& one : wanted) {
        if (!inForce(words, one.number)) {
            missing.emplace_back(one.name);
        }
    }
    return missing;
}

std::string missingCapabilitiesText() {
    std::string names;
    for (const std::string& name : missingCapabilities()) {
        names += (names.empty() ? "" : ", ") + name;
    }
    if (names.empty()) {
        return {};
    }
    return "real interfaces need " + names +
           ", which this process does not have; "
           "captures work without";
}

bool canFindEarlierMaps() {
    return inForce(current(), CAP_SYS_ADMIN);
}

bool dropOtherCapabilities(std::string& error) {
    const Words before = current();
    Words words{};
    for (const Wanted& one : wanted) {
        const uint32_t bit = 1U << one.number % bitsPerWord;
        auto& word = words[one.number / bitsPerWord];
        word.permitted |= bit & before[one.number / bitsPerWord].permitted;
        word.effective |= bit & before[one.number / bitsPerWord].effective;
    }
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0) != 0) {
        error = std::string("giving up privileges: ") + std::strerror(errno);
        return false;
    }
    for (unsigned number = 0; prctl(PR_CAPBSET_READ, number, 0, 0, 0) >= 0; ++number) {
        if (!isWanted(number) && prctl(PR_CAPBSET_DROP, number, 0, 0, 0) != 0 && errno != EPERM) {
            error = std::string("bounding set: ") + std::strerror(errno);
            return false;
        }
    }
    __user_cap_header_struct header = ownThread();
    if (syscall(SYS_capset, &header, words.data()) != 0) {
        error = std::string("giving up privileges: ") + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace node
