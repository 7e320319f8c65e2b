#include "base/LockFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <stdexcept>

namespace zelor::base {

namespace {

constexpr mode_t kMode = 0600;

bool lockFile(int fd, int operation) {
    int result = 0;
    do {
        result = ::flock(fd, operation);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

bool lockNow(int fd, int kind) {
    return lockFile(fd, kind | LOCK_NB);
}

std::optional<long> numberIn(int fd) {
    std::array<char, 32> text{};
    const ssize_t size = ::pread(fd, text.data(), text.size(), 0);
    if (size <= 1) return std::nullopt;
    long number = 0;
    const char* const end = text.data() + size - 1;
    const auto [after, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && after == end && *end == '\n' ? std::optional<long>(number) : std::nullopt;
}

}  // namespace

LockFile::LockFile(std::string path) : path_(std::move(path)) {
    open();
}

void LockFile::open() {
    const auto fail = [this](const std::string& problem) {
        throw std::runtime_error("the lock file " + path_ + ' ' + problem);
    };
    file_ = openFile(path_, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, kMode);
    if (!file_ && errno == ELOOP) fail("is a symbolic link; remove it");
    struct stat info {};
    if (!file_ || ::fstat(file_.get(), &info) != 0)
        fail("cannot be opened: " + errorText(errno) + "; correct the rights of it and its directory");
    if (!S_ISREG(info.st_mode)) fail("is no regular file; remove it");
    if (info.st_uid != ::geteuid())
        fail("belongs to another user; run as that user, or remove it when nobody uses it");
    if ((info.st_mode & 07777U) != kMode && ::fchmod(file_.get(), kMode) != 0)
        fail("cannot be closed to others: " + errorText(errno));
}

/// A file that was removed or replaced meanwhile is not the one that others lock.
bool LockFile::isInPlace() const {
    struct stat ours {};
    struct stat there {};
    return ::fstat(file_.get(), &ours) == 0 && ::lstat(path_.c_str(), &there) == 0 &&
           ours.st_dev == there.st_dev && ours.st_ino == there.st_ino;
}

bool LockFile::take() {
    for (;;) {
        if (!lockNow(file_.get(), LOCK_EX)) {
            if (errno == EWOULDBLOCK) return false;
            throw std::runtime_error("cannot lock the file " + path_ + ": " + errorText(errno) +
                                     "; put it on a disk that knows locks");
        }
        if (isInPlace()) return true;
        open();
    }
}

void LockFile::share() {
    (void)lockFile(file_.get(), LOCK_SH);
}

bool LockFile::isHeld() const {
    if (!lockNow(file_.get(), LOCK_EX)) return errno == EWOULDBLOCK;
    ::flock(file_.get(), LOCK_UN);
    return false;
}

void LockFile::release() {
    ::flock(file_.get(), LOCK_UN);
}

void LockFile::renew() {
    if (::unlink(path_.c_str()) != 0 && errno != ENOENT)
        throw std::runtime_error("cannot replace the lock file " + path_ + ": " + errorText(errno));
    open();
}

void LockFile::note(std::optional<long> process) {
    const std::string text = process ? std::to_string(*process) + '\n' : "";
    if (::ftruncate(file_.get(), 0) != 0 || text.empty()) return;
    if (::pwrite(file_.get(), text.data(), text.size(), 0) < 0) return;
}

std::optional<long> LockFile::noted() const {
    return numberIn(file_.get());
}

LockState lookAtLock(const std::string& path) {
    LockState state;
    const UniqueFd file = openFile(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    if (!file) {
        if (errno == ENOENT) return state;
        return {LockState::Kind::unknown, std::nullopt, errorText(errno)};
    }
    if (lockNow(file.get(), LOCK_SH)) return state;
    if (errno != EWOULDBLOCK) return {LockState::Kind::unknown, std::nullopt, errorText(errno)};
    return {LockState::Kind::held, numberIn(file.get()), ""};
}

}  // namespace zelor::base
