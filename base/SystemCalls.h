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

/// What differs between Linux and macOS. No other file of the library asks which system it is built for.
namespace zelor::base {

/// pipe(2) with both ends closed on exec; false on failure, errno set. On macOS that takes two steps, so that
/// a process that another thread starts between them may inherit the ends.
bool makePipe(int (&ends)[2]);
/// The environment of this process, which a dynamic library of macOS cannot name.
char** processEnvironment();
/// What keeps the descriptors that `actions` does not name from the child: adds actions, or returns a flag
/// for posix_spawnattr_setflags. `kept`: the one above standard error that `actions` names, else
/// STDERR_FILENO.
short closeOtherDescriptors(posix_spawn_file_actions_t& actions, int kept);

/// Keeps the host's terminal from the child: a session of its own where the system can start one so, else a
/// process group of its own in which reading the terminal fails instead of stopping the reader (the signals
/// that stop are added to `blocked`, the child's signal mask). The child's id is its group's. Returns flags
/// for posix_spawnattr_setflags.
short leaveTerminal(sigset_t& blocked);

/// A steady clock that stops while the machine sleeps, so that a limit is not used up by a closed lid.
struct AwakeClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<AwakeClock>;
    static constexpr bool is_steady = true;
    static time_point now() noexcept;
};

/// Makes what was written survive a power loss: fsync, and on macOS what also empties the drive's own cache.
/// False on failure, errno set.
bool flushDescriptor(int fd);
/// The same at once for everything on the file system of an open file or directory: of many new files far
/// quicker than one after the other. False, with nothing promised, on failure and where the system has no
/// such call (macOS).
bool flushFileSystem(int fd);
/// Copies the content of one open file to another, by the kernel where it can; false on failure, errno set.
bool copyFileData(int source, int target);
/// Copies extended attributes (resource forks among them) where the system has them, but for the mark of a
/// quarantined download: whoever copies has checked the file's origin. False on failure, errno set.
bool copyFileAttributes(int source, int target);
struct timespec accessTime(const struct stat& info);
struct timespec modificationTime(const struct stat& info);
/// How many bytes this process may still write to the file system of `path`, or of an open file.
Result<std::uint64_t> availableBytes(const std::string& path);
Result<std::uint64_t> availableBytes(int fd);
/// Gives the disk space of a file's first `bytes` bytes back, as far as whole blocks go; they read as zero
/// from then on, and the file keeps its size. False where the system or the file system cannot.
bool releaseBeginning(int fd, off_t bytes);
/// Exchanges two files or directories in one step. False where the system or the file system cannot.
bool exchangePaths(const std::string& one, const std::string& other);

}  // namespace zelor::base
