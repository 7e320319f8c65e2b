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
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) reset(std::exchange(other.fd_, -1));
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    explicit operator bool() const { return valid(); }
    void reset(int fd = -1);
    /// Gives the descriptor up without closing it.
    int release() { return std::exchange(fd_, -1); }
    /// Closes now, so that a late write error is seen; false (with errno) when closing failed.
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

bool operator==(const FileStamp& one, const FileStamp& other);
inline bool operator!=(const FileStamp& one, const FileStamp& other) {
    return !(one == other);
}
FileStamp stampOf(const struct stat& info);
/// The stamp of what `path` names, through symbolic links; one that does not exist when nothing can be seen
/// there.
FileStamp stampOf(const std::string& path);
/// True when the file changed so recently that another change could leave the same stamp: file systems keep
/// the time in steps of up to a second.
bool changedRecently(const FileStamp& stamp);

/// open(2) with O_CLOEXEC, again when a signal interrupts it.
UniqueFd openFile(const std::string& path, int flags, unsigned mode = 0644);
/// Whether the last component of a path may be a symbolic link.
enum class Links { refuse, follow };

/// Opens a regular file for reading, close-on-exec, never waiting on a FIFO. `bytes`, when given, becomes its
/// size. Throws std::runtime_error that names the path and the cause.
UniqueFd openRegularFile(const std::string& path, Links links = Links::refuse,
                         std::uint64_t* bytes = nullptr);

/// Hands the rest of the file to `consume` in pieces of at most 1 MiB; returns how many bytes there were.
/// Throws std::runtime_error that names `path` on a read error.
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
/// Shortens a file of lines to its whole ones: what follows the last line end (an older crash) is cut
/// off. False on failure, errno set.
bool cutTornEnd(int fd);
/// Appends `line` and a line end in one write, making the file when there is none. When the file's last line
/// has no end, the new one begins on a line of its own. No symbolic link is followed. What a failed write
/// left is removed, unless another process has appended to it. False on failure, errno set.
bool appendLine(const std::string& path, const std::string& line);
/// The same to a file that was opened with O_RDWR and O_APPEND.
bool appendLine(int fd, const std::string& line);

}  // namespace zelor::base
