// The checks are made on the open descriptor, so that nothing can be exchanged between check and
// reading; a symbolic link as the last part of the path is not followed, since its owner would
// say nothing about the file. Tested by tests/radius/secret_file_test.cpp.
#include "node/isa/radius/secret_file.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace node::radius {

namespace {

constexpr off_t longestFile = 64 * 1024;
constexpr size_t shortestSecret = 8;
constexpr size_t longestSecret = 128;
constexpr std::string_view blanks = " \t\r";

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }

private:
    int fd_;
};

std::string_view trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool printable(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 32 && c < 127; });
}

void checkFile(int fd, const std::string& path) {
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        throw SecretFileError(path + ": " + strerror(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        throw SecretFileError(path + ": is not a regular file");
    }
    if (status.st_uid != geteuid() && status.st_uid != 0) {
        throw SecretFileError(path + ": belongs to neither this user nor root");
    }
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        throw SecretFileError(path +
                              ": gives rights to group or others; only its owner may have "
                              "any (chmod 600)");
    }
    if (status.st_size > longestFile) {
        throw SecretFileError(path + ": is longer than 64 KiB");
    }
}

}  // namespace

Secrets parseSecrets(std::string_view text, const std::string& path) {
    Secrets secrets;
    for (size_t number = 1; !text.empty(); ++number) {
        const size_t end = text.find('\n');
        const std::string_view line = trimmed(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.empty() || line.front() == '#') {
            continue;
        }
        const std::string where = path + ":" + std::to_string(number) + ": ";
        const size_t nameEnd = line.find_first_of(blanks);
        if (nameEnd == std::string_view::npos) {
            throw SecretFileError(where + "needs a name and a secret");
        }
        const std::string_view name = line.substr(0, nameEnd);
        const std::string_view secret = trimmed(line.substr(nameEnd));
        if (!printable(name) || !printable(secret)) {
            throw SecretFileError(where + "holds a character that is not printable ASCII");
        }
        if (secret.size() < shortestSecret || secret.size() > longestSecret) {
            throw SecretFileError(where + "the secret must have 8 to 128 characters");
        }
        if (!secrets.emplace(name, Secret(secret)).second) {
            throw SecretFileError(where + "a name of an earlier line again");
        }
    }
    return secrets;
}

Secret readGuardedFile(const std::string& path) {
    // Not blocking, so that a pipe in the file's place cannot stop the node.
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (file.get() < 0) {
        throw SecretFileError(path + ": " +
                              (errno == ELOOP ? "is a symbolic link" : strerror(errno)));
    }
    checkFile(file.get(), path);
    std::vector<char> text(static_cast<size_t>(longestFile) + 1);
    size_t size = 0;
    ssize_t got = 0;
    while (size < text.size() &&
           (got = read(file.get(), text.data() + size, text.size() - size)) != 0) {
        if (got < 0 && errno != EINTR) {
            throw SecretFileError(path + ": " + strerror(errno));
        }
        size += got > 0 ? static_cast<size_t>(got) : 0;
    }
    struct Wipe {
        std::vector<char>& text;
        ~Wipe() { OPENSSL_cleanse(text.data(), text.size()); }
    } const wipe{text};
    if (size > static_cast<size_t>(longestFile)) {
        throw SecretFileError(path + ": is longer than 64 KiB");
    }
    return Secret({text.data(), size});
}

Secrets readSecretFile(const std::string& path) {
    const Secret text = readGuardedFile(path);
    return parseSecrets(text.reveal(), path);
}

}  // namespace node::radius
