#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

/// Files by descriptor: every one is opened with close-on-exec.
namespace zelor::base {

/// Owns a file descriptor.
class UniqueFd {
  public:
    UniqueFd() = default;
    /// Takes ownership of `fd`; a negative one is none.
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) reset(std::exchange(other.fd_, -1));
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    /// The descriptor, which stays this object's; negative when there is none.
    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    explicit operator bool() const { return valid(); }
    /// Closes the descriptor, leaving errno as it was, and takes ownership of `fd`.
    void reset(int fd = -1);
    /// Returns the descriptor without closing it; from now on it is the caller's.
    int release() { return std::exchange(fd_, -1); }
    /// Closes now, so that a late write error is seen; false, errno set, when closing failed.
    bool close();

  private:
    int fd_ = -1;
};

/// What distinguishes one state of a file from another without reading it.
struct FileStamp {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    struct timespec modified {};
};

/// Equal in every member; the stamps of two missing files are equal.
bool operator==(const FileStamp& one, const FileStamp& other);
inline bool operator!=(const FileStamp& one, const FileStamp& other) {
    return !(one == other);
}
/// The stamp of a file that exists.
FileStamp stampOf(const struct stat& info);
/// The stamp of the file at `path`, through symbolic links; that of a missing file when stat(2) fails.
FileStamp stampOf(const std::string& path);
/// True when the file changed so recently that another change could leave the same stamp: file systems keep
/// the time in steps of a clock tick, or, which a round number of nanoseconds shows, of up to two seconds.
bool changedRecently(const FileStamp& stamp);

/// open(2) with O_CLOEXEC, repeated when a signal interrupts it. On failure the result is not valid, and
/// errno is set.
UniqueFd openFile(const std::string& path, int flags, unsigned mode = 0644);
/// Whether the last component of a path may be a symbolic link.
enum class Links { refuse, follow };

/// Opens a regular file for reading; never waits for the writer of a FIFO. `bytes`, when given, is set to its
/// size. Throws std::runtime_error that names the path and the cause.
UniqueFd openRegularFile(const std::string& path, Links links = Links::refuse,
                         std::uint64_t* bytes = nullptr);

/// Passes the rest of the file to `consume` in pieces of at most 1 MiB; returns the number of bytes. Throws
/// std::runtime_error that names `path` on a read error.
std::uint64_t readInPieces(const UniqueFd& file, const std::string& path,
                           const std::function<void(std::string_view)>& consume);

/// The whole of a regular file of at most `limit` bytes. Throws std::runtime_error as `openRegularFile` does,
/// and for a file that is larger.
std::string readBounded(const std::string& path, std::size_t limit, Links links = Links::refuse);

/// The text of an errno value, for messages. Any thread.
std::string errorText(int error);

/// Writes all of `bytes`; false on failure, errno set.
bool writeAll(int fd, std::string_view bytes);
/// Makes what was written survive a power loss; false on failure, errno set.
bool flushToDisk(int fd);
/// Makes a rename in `directory` survive a power loss, as far as the file system can.
void flushDirectory(const std::string& directory);
/// Makes what any process wrote to the file system of `fd` survive a power loss; false on failure, errno set.
/// macOS has no call that waits for all of it: there all is asked for, and the drive's cache is emptied.
bool flushAll(int fd);
/// Truncates a file after its last line end: an incomplete last line, which a crash leaves, is removed. False
/// on failure, errno set.
bool cutTornEnd(int fd);
/// Appends `line` and a line end in one write, creating the file when it is missing. When the file's last
/// line has no line end, it gets one first. A symbolic link is refused. A partial line that a failed write
/// leaves is removed, unless another process has appended to it. False on failure, errno set.
bool appendLine(const std::string& path, const std::string& line);
/// The same for a file that was opened with O_RDWR and O_APPEND.
bool appendLine(int fd, const std::string& line);

}  // namespace zelor::base
