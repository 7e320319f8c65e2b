#include "base/SystemCalls.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

#ifdef __APPLE__
#include <copyfile.h>
#include <crt_externs.h>
#include <sys/mount.h>
#include <sys/utsname.h>
#include <sys/xattr.h>
#else
#include <sys/statvfs.h>
#endif

namespace zelor::base {

namespace {

AwakeClock::time_point timeOf(clockid_t clock) noexcept {
    struct timespec time {};
    (void)clock_gettime(clock, &time);
    return AwakeClock::time_point(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

/// Whether posix_spawn can start a session: a macOS before 10.15, whose kernel is Darwin 19, ignores the
/// flag.
[[maybe_unused]] bool canStartSessions() {
#ifdef __APPLE__
    constexpr int kFirst = 19;
    struct utsname system {};
    return uname(&system) == 0 && std::atoi(system.release) >= kFirst;
#else
    return true;
#endif
}

}  // namespace

short leaveTerminal(sigset_t& blocked) {
#ifdef POSIX_SPAWN_SETSID
    if (canStartSessions()) return POSIX_SPAWN_SETSID;
#endif
    sigaddset(&blocked, SIGTTIN);
    sigaddset(&blocked, SIGTTOU);
    return POSIX_SPAWN_SETPGROUP;
}

#ifdef __APPLE__

AwakeClock::time_point AwakeClock::now() noexcept {
    return timeOf(CLOCK_UPTIME_RAW);
}

bool makePipe(int (&ends)[2]) {
    if (pipe(ends) != 0) return false;
    for (const int end : ends)
        (void)fcntl(end, F_SETFD, FD_CLOEXEC);
    return true;
}

char** processEnvironment() {
    return *_NSGetEnviron();
}

short closeOtherDescriptors(posix_spawn_file_actions_t& /*actions*/, int /*kept*/) {
    return POSIX_SPAWN_CLOEXEC_DEFAULT;
}

bool flushDescriptor(int fd) {
    return fcntl(fd, F_FULLFSYNC) == 0 || fsync(fd) == 0;  // network volumes support only the second
}

bool flushFileSystem(int) {
    return false;
}

bool copyFileData(int source, int target) {
    return fcopyfile(source, target, nullptr, COPYFILE_DATA) == 0;
}

bool copyFileAttributes(int source, int target) {
    if (fcopyfile(source, target, nullptr, COPYFILE_XATTR) != 0) return false;
    return fremovexattr(target, "com.apple.quarantine", 0) == 0 || errno == ENOATTR || errno == ENOTSUP;
}

struct timespec accessTime(const struct stat& info) {
    return info.st_atimespec;
}
struct timespec modificationTime(const struct stat& info) {
    return info.st_mtimespec;
}

Result<std::uint64_t> availableBytes(const std::string& path) {
    struct statfs info {};
    if (statfs(path.c_str(), &info) != 0) return systemFailure("cannot read the free space");
    return info.f_bavail * info.f_bsize;
}

Result<std::uint64_t> availableBytes(int fd) {
    struct statfs info {};
    if (fstatfs(fd, &info) != 0) return systemFailure("cannot read the free space");
    return info.f_bavail * info.f_bsize;
}

bool releaseBeginning(int fd, off_t bytes) {
    constexpr off_t kBlocks = off_t{1} << 16;  // the call takes whole blocks, whose size differs by volume
    struct fpunchhole hole {};
    hole.fp_length = bytes / kBlocks * kBlocks;
    return hole.fp_length == 0 || fcntl(fd, F_PUNCHHOLE, &hole) == 0;
}

bool exchangePaths(const std::string& one, const std::string& other) {
    return renamex_np(one.c_str(), other.c_str(), RENAME_SWAP) == 0;
}

#else

namespace {

bool copyByHand(int source, int target) {
    constexpr std::size_t kChunk = std::size_t{1} << 18;
    const auto buffer = std::make_unique<char[]>(kChunk);
    for (;;) {
        const ssize_t count = read(source, buffer.get(), kChunk);
        if (count == 0) return true;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        for (ssize_t done = 0; done < count;) {
            const ssize_t put = write(target, buffer.get() + done, static_cast<std::size_t>(count - done));
            if (put < 0 && errno != EINTR) return false;
            if (put > 0) done += put;
        }
    }
}

}  // namespace

AwakeClock::time_point AwakeClock::now() noexcept {
    return timeOf(CLOCK_MONOTONIC);
}

bool makePipe(int (&ends)[2]) {
    return pipe2(ends, O_CLOEXEC) == 0;
}

char** processEnvironment() {
    return environ;
}

short closeOtherDescriptors(posix_spawn_file_actions_t& actions, int kept) {
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 34)
    for (int fd = STDERR_FILENO + 1; fd < kept; ++fd)
        posix_spawn_file_actions_addclose(&actions, fd);
    posix_spawn_file_actions_addclosefrom_np(&actions, kept + 1);
#else
    (void)actions;
    (void)kept;
#endif
    return 0;
}

bool flushDescriptor(int fd) {
    return fsync(fd) == 0;
}

bool flushFileSystem(int fd) {
    return syncfs(fd) == 0;
}

bool copyFileData(int source, int target) {
    constexpr std::size_t kRange = std::size_t{1} << 30;
    bool any = false;
    for (;;) {
        const ssize_t count = copy_file_range(source, nullptr, target, nullptr, kRange, 0);
        if (count > 0) {
            any = true;
        } else if (count == 0 && any) {
            return true;
        } else if (count < 0 && errno == EINTR) {
            continue;
        } else {
            break;  // not supported between these file systems, or the file's size shows only on reading
        }
    }
    return copyByHand(source, target);
}

bool copyFileAttributes(int /*source*/, int /*target*/) {
    return true;
}

struct timespec accessTime(const struct stat& info) {
    return info.st_atim;
}
struct timespec modificationTime(const struct stat& info) {
    return info.st_mtim;
}

Result<std::uint64_t> availableBytes(const std::string& path) {
    struct statvfs info {};
    if (statvfs(path.c_str(), &info) != 0) return systemFailure("cannot read the free space");
    return info.f_bavail * info.f_frsize;
}

Result<std::uint64_t> availableBytes(int fd) {
    struct statvfs info {};
    if (fstatvfs(fd, &info) != 0) return systemFailure("cannot read the free space");
    return info.f_bavail * info.f_frsize;
}

bool releaseBeginning(int fd, off_t bytes) {
#ifdef FALLOC_FL_PUNCH_HOLE
    return bytes == 0 || fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, bytes) == 0;
#else
    (void)fd;
    (void)bytes;
    return false;
#endif
}

bool exchangePaths(const std::string& one, const std::string& other) {
#ifdef RENAME_EXCHANGE
    return renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0;
#else
    (void)one;
    (void)other;
    return false;
#endif
}

#endif

}  // namespace zelor::base
