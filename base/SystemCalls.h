#pragma once

#include <locale.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <time.h>
#ifdef __APPLE__
#include <xlocale.h>  // newlocale, uselocale: elsewhere in <locale.h>
#endif

#include <chrono>
#include <cstdint>
#include <string>

#include "base/Result.h"

/// What differs between Linux and macOS. No other file of the library tests which system it is built for.
namespace zelor::base {

/// pipe(2) with both ends closed on exec; false on failure, errno set. On macOS this takes two steps: a
/// process that another thread starts between them may inherit the ends.
bool makePipe(int (&ends)[2]);
/// The environment of this process: a dynamic library on macOS cannot refer to `environ`.
char** processEnvironment();
/// What keeps the descriptors that `actions` does not name from the child: adds actions, or returns a flag
/// for posix_spawnattr_setflags. `kept`: the one above standard error that `actions` names, else
/// STDERR_FILENO.
short closeOtherDescriptors(posix_spawn_file_actions_t& actions, int kept);

/// Detaches the child from the terminal: in a new session where posix_spawn can make one, else in a new
/// process group in which reading the terminal fails instead of stopping the reader (the signals that would
/// stop it are added to `blocked`, the child's signal mask). The child leads its process group. Returns flags
/// for posix_spawnattr_setflags.
short leaveTerminal(sigset_t& blocked);

/// A steady clock that stops while the machine sleeps, so that sleep does not count towards a time limit.
struct AwakeClock {
    /// The members of a standard clock. `now` may be called by any thread.
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<AwakeClock>;
    static constexpr bool is_steady = true;
    static time_point now() noexcept;
};

/// Makes what was written survive a power loss: fsync(2), and on macOS F_FULLFSYNC, which also empties the
/// drive's cache. False on failure, errno set.
bool flushDescriptor(int fd);
/// The same for everything on the file system of an open file or directory: for many new files far quicker
/// than one after the other. False, with nothing guaranteed, on failure and where the system has no such call
/// (macOS).
bool flushFileSystem(int fd);
/// Copies the content of one open file to another, by the kernel where it can; false on failure, errno set.
bool copyFileData(int source, int target);
/// Copies extended attributes, including resource forks, where the system has them, except the mark of a
/// quarantined download: the caller has checked the file's origin. False on failure, errno set.
bool copyFileAttributes(int source, int target);
/// When the file was last read, and when its content last changed.
struct timespec accessTime(const struct stat& info);
struct timespec modificationTime(const struct stat& info);
/// How many bytes this process may still write to the file system of `path`, or of an open file.
Result<std::uint64_t> availableBytes(const std::string& path);
Result<std::uint64_t> availableBytes(int fd);
/// Frees the disk space of the whole blocks within a file's first `bytes` bytes; they read as zero from then
/// on, and the file keeps its size. False where the system or the file system cannot.
bool releaseBeginning(int fd, off_t bytes);
/// Exchanges the names of two files or directories in one step. False where the system or the file system
/// cannot.
bool exchangePaths(const std::string& one, const std::string& other);

}  // namespace zelor::base
