// New contents go to a temporary file beside the old one, reach the disk and are renamed over it,
// and then the directory reaches the disk: whoever opens the file sees the old or the new whole.
//
// Renaming would tear a symbolic link or a device out of its place, and some directories take no
// new file; there the file is truncated and rewritten where it is. A full disk is no such reason:
// longer contents would find no room there either, so the old ones stay. Shorter contents must get
// in, because what was taken out of the file must not be back after a restart: they are written
// over the old ones, which takes no room, and only then is the rest cut off. A crash in between
// leaves a mixture, which is why this is the last resort and contents of the same length stay out.
//
// tests/unit/storage_crash_test.cpp cuts the process at every call made here.
#include "tal/replace_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tal_file {

namespace {

constexpr mode_t onlyOwner = 0600;

class Descriptor {
public:
    Descriptor(const std::string& path, int flags)
        : fd_(open(path.c_str(), flags | O_CLOEXEC, onlyOwner)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (fd_ >= 0)
            close(fd_);
    }

    bool isOpen() const { return fd_ >= 0; }

    bool append(std::string& contents) {
        char chunk[65536];
        ssize_t got = 0;
        do {
            got = read(fd_, chunk, sizeof chunk);
        } while (got < 0 && errno == EINTR);
        if (got > 0)
            contents.append(chunk, static_cast<size_t>(got));
        return got > 0;
    }

    bool writeAll(std::string_view contents) {
        while (!contents.empty()) {
            const ssize_t put = write(fd_, contents.data(), contents.size());
            if (put < 0 && errno == EINTR)
                continue;
            if (put <= 0)
                return false;
            contents.remove_prefix(static_cast<size_t>(put));
        }
        return true;
    }

    bool sync() { return fsync(fd_) == 0; }

    bool isLongerThan(size_t size) const {
        struct stat status;
        return fstat(fd_, &status) == 0 && static_cast<size_t>(status.st_size) > size;
    }

    bool cut(size_t size) { return ftruncate(fd_, static_cast<off_t>(size)) == 0; }

private:
    int fd_;
};

std::string directoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return path.substr(0, slash + 1);
}

bool canBeRenamedOver(const std::string& path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0)
        return errno == ENOENT;
    return S_ISREG(status.st_mode);
}

// The disk or the process is short of something; a truncated file might stay empty.
bool isShortage(int error) {
    return error == ENOSPC || error == EDQUOT || error == EIO || error == EMFILE ||
           error == ENFILE || error == ENOMEM;
}

bool rewriteInPlace(const std::string& path, std::string_view contents) {
    Descriptor file(path, O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK);
    return file.isOpen() && file.writeAll(contents) && file.sync();
}

bool shrinkInPlace(const std::string& path, std::string_view contents) {
    Descriptor file(path, O_WRONLY | O_NONBLOCK);
    if (!file.isOpen() || !file.isLongerThan(contents.size()) || !file.writeAll(contents))
        return false;
    const bool written = file.sync();
    return file.cut(contents.size()) && file.sync() && written;
}

}  // namespace

std::optional<std::string> readOrCreate(const std::string& path, size_t tooLong) {
    Descriptor file(path, O_RDWR | O_CREAT | O_APPEND | O_NONBLOCK);
    if (!file.isOpen())
        return std::nullopt;
    std::string contents;
    while (file.append(contents)) {
        // npos + 1 is 0: without a newline the whole is one line.
        const size_t lineStart = contents.rfind('\n') + 1;
        if (contents.size() - lineStart >= tooLong)
            break;
    }
    return contents;
}

bool replace(const std::string& path, std::string_view contents) {
    if (!canBeRenamedOver(path))
        return rewriteInPlace(path, contents);

    const std::string temporary = path + ".tmp";
    unlink(temporary.c_str());  // left by a crash
    {
        Descriptor file(temporary, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW);
        if (!file.isOpen())
            return isShortage(errno) ? shrinkInPlace(path, contents)
                                     : rewriteInPlace(path, contents);
        if (!file.writeAll(contents) || !file.sync()) {
            unlink(temporary.c_str());
            return shrinkInPlace(path, contents);
        }
    }
    if (rename(temporary.c_str(), path.c_str()) != 0) {
        // A mount point, or a file of another owner that the directory holds on to.
        const bool mustStay = errno == EBUSY || errno == EPERM || errno == EACCES;
        unlink(temporary.c_str());
        return mustStay ? rewriteInPlace(path, contents) : shrinkInPlace(path, contents);
    }
    // The new contents are in place; if the directory cannot be synced, only a power cut could
    // bring the old ones back.
    Descriptor directory(directoryOf(path), O_RDONLY | O_DIRECTORY);
    (void)(directory.isOpen() && directory.sync());
    return true;
}

}  // namespace tal_file
