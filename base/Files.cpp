#include "base/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "base/SystemCalls.h"

namespace zelor::base {

namespace {

constexpr std::size_t kPieceBytes = 1U << 20U;

/// Reads at most `room` bytes into `buffer`; 0 at the end of the file.
std::size_t readSome(const UniqueFd& file, const std::string& path, char* buffer, std::size_t room) {
    for (;;) {
        const ssize_t got = ::read(file.get(), buffer, room);
        if (got >= 0) return static_cast<std::size_t>(got);
        if (errno != EINTR) throw std::runtime_error("cannot read " + path + ": " + errorText(errno));
    }
}

/// The offset after the last line end; -1, errno set, when the file cannot be read.
off_t wholeLinesEnd(int fd) {
    struct stat info {};
    if (fstat(fd, &info) != 0) return -1;
    char chunk[4096];
    for (off_t end = info.st_size; end > 0;) {
        const off_t start = std::max<off_t>(end - static_cast<off_t>(sizeof chunk), 0);
        const ssize_t count = pread(fd, chunk, static_cast<std::size_t>(end - start), start);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return -1;
        const auto newline = std::string_view(chunk, static_cast<std::size_t>(count)).rfind('\n');
        if (newline != std::string_view::npos) return start + static_cast<off_t>(newline) + 1;
        end = start;
    }
    return 0;
}

/// Writes all of `bytes` at the end of a file, or none of them; false on failure, errno set.
bool appendWhole(int fd, std::string_view bytes) {
    off_t start = -1;  // where the first of them was written; not known before
    off_t end = -1;
    bool together = true;
    while (!bytes.empty()) {
        const ssize_t count = write(fd, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        const off_t before = lseek(fd, 0, SEEK_CUR) - count;
        if (start < 0) start = before;
        together = together && (end < 0 || end == before);
        end = before + count;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    if (bytes.empty()) return true;
    const int error = errno;
    // A full disk takes the beginning of a line, which could look like a whole one. Lines of others must not
    // be cut.
    struct stat info {};
    if (start >= 0 && together && fstat(fd, &info) == 0 && info.st_size == end) (void)!ftruncate(fd, start);
    errno = error;
    return false;
}

}  // namespace

void UniqueFd::reset(int fd) {
    const int error = errno;  // of a failure that the caller is about to report
    close();
    errno = error;
    fd_ = fd;
}

bool UniqueFd::close() {
    const int fd = release();
    return fd < 0 || ::close(fd) == 0;
}

UniqueFd openFile(const std::string& path, int flags, unsigned mode) {
    int fd = -1;
    do {
        fd = open(path.c_str(), flags | O_CLOEXEC, static_cast<mode_t>(mode));
    } while (fd < 0 && errno == EINTR);
    return UniqueFd(fd);
}

UniqueFd openRegularFile(const std::string& path, Links links, std::uint64_t* bytes) {
    const int noFollow = links == Links::refuse ? O_NOFOLLOW : 0;
    UniqueFd file = openFile(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | noFollow);
    if (!file) throw std::runtime_error("cannot open " + path + ": " + errorText(errno));
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) {
        throw std::runtime_error("cannot examine " + path + ": " + errorText(errno));
    }
    if (!S_ISREG(status.st_mode)) throw std::runtime_error(path + " is not a regular file");
    if (bytes != nullptr) *bytes = static_cast<std::uint64_t>(status.st_size);
    return file;
}

std::uint64_t readInPieces(const UniqueFd& file, const std::string& path,
                           const std::function<void(std::string_view)>& consume) {
    // Not set to zero, which takes longer than reading a small file.
    const std::unique_ptr<char[]> buffer(new char[kPieceBytes]);
    std::uint64_t total = 0;
    while (const std::size_t got = readSome(file, path, buffer.get(), kPieceBytes)) {
        consume({buffer.get(), got});
        total += got;
    }
    return total;
}

std::string readBounded(const std::string& path, std::size_t limit, Links links) {
    std::uint64_t announced = 0;
    const UniqueFd file = openRegularFile(path, links, &announced);
    // Asks for one byte more than announced: the file may have grown since.
    const auto wanted = [limit](std::uint64_t bytes) {
        return static_cast<std::size_t>(std::min<std::uint64_t>(bytes, limit)) + 1;
    };
    std::string text(wanted(announced), '\0');
    std::size_t filled = 0;
    while (const std::size_t got = readSome(file, path, text.data() + filled, text.size() - filled)) {
        filled += got;
        if (filled > limit) break;
        if (filled == text.size()) text.resize(wanted(std::uint64_t{2} * filled));
    }
    if (filled > limit) {
        throw std::runtime_error(path + " is larger than the " + std::to_string(limit) + " bytes allowed");
    }
    text.resize(filled);
    return text;
}

std::string errorText(int error) {
    return std::generic_category().message(error);
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(fd, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

bool flushToDisk(int fd) {
    return flushDescriptor(fd);
}

void flushDirectory(const std::string& directory) {
    const UniqueFd fd = openFile(directory, O_RDONLY | O_DIRECTORY);
    if (fd) flushDescriptor(fd.get());
}

bool flushAll(int fd) {
    if (flushFileSystem(fd)) return true;
    ::sync();
    return flushDescriptor(fd);
}

bool cutTornEnd(int fd) {
    struct stat info {};
    const off_t end = wholeLinesEnd(fd);
    if (end < 0 || fstat(fd, &info) != 0) return false;
    return end == info.st_size || ftruncate(fd, end) == 0;
}

bool operator==(const FileStamp& one, const FileStamp& other) {
    return one.exists == other.exists && one.device == other.device && one.inode == other.inode &&
           one.size == other.size && one.modified.tv_sec == other.modified.tv_sec &&
           one.modified.tv_nsec == other.modified.tv_nsec;
}

FileStamp stampOf(const struct stat& info) {
    return {true, info.st_dev, info.st_ino, info.st_size, modificationTime(info)};
}

FileStamp stampOf(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? stampOf(info) : FileStamp();
}

bool changedRecently(const FileStamp& stamp) {
    constexpr long kCoarseStep = 10'000'000;
    constexpr std::int64_t kCoarse = 3'000'000'000;
    constexpr std::int64_t kFine = 100'000'000;  // several ticks of a kernel's clock
    struct timespec now {};
    if (!stamp.exists || ::clock_gettime(CLOCK_REALTIME, &now) != 0) return stamp.exists;
    const std::int64_t age = std::int64_t{now.tv_sec - stamp.modified.tv_sec} * 1'000'000'000 +
                             (now.tv_nsec - stamp.modified.tv_nsec);
    return age < (stamp.modified.tv_nsec % kCoarseStep == 0 ? kCoarse : kFine);
}

bool appendLine(int fd, const std::string& line) {
    struct stat info {};
    if (fstat(fd, &info) != 0) return false;
    const off_t end = wholeLinesEnd(fd);
    if (end < 0) return false;
    const bool insideLine = end != info.st_size;
    return appendWhole(fd, (insideLine ? "\n" : "") + line + "\n");
}

bool appendLine(const std::string& path, const std::string& line) {
    UniqueFd fd = openFile(path, O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW);
    return fd && appendLine(fd.get(), line) && fd.close();
}

}  // namespace zelor::base
