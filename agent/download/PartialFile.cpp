#include "agent/download/PartialFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <limits>
#include <stdexcept>
#include <vector>

#include "base/Directories.h"
#include "base/Files.h"
#include "base/StagedFile.h"
#include "base/SystemCalls.h"

namespace zelor::agent {

namespace {

constexpr mode_t kFileMode = 0600;
constexpr std::size_t kVersionBytesLimit = 16U << 10U;
constexpr std::size_t kCopyPiece = 1U << 20U;
// What a power loss or a kill may cost of a download.
constexpr std::uint64_t kKeepBytes = 128U << 20U;
constexpr std::chrono::minutes kKeepTime{1};

void write(const base::UniqueFd& file, const std::string& path, std::string_view bytes) {
    if (!base::writeAll(file.get(), bytes))
        throw std::runtime_error("cannot write " + path + ": " + base::errorText(errno));
}

void flush(const base::UniqueFd& file, const std::string& path) {
    if (!base::flushToDisk(file.get()))
        throw std::runtime_error("cannot flush " + path + ": " + base::errorText(errno));
}

std::string nearestExisting(std::string path) {
    struct stat status {};
    while (::stat(path.c_str(), &status) != 0 && path != "/" && path != ".")
        path = base::directoryOf(path);
    return path;
}

/// True when the whole text is one number.
bool parseNumber(const std::string& text, std::uint64_t& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

/// The lines of the version file, `kept` from its last; for anything else an empty version, and `kept` stays.
PartialFile::Version parseVersion(const std::string& text, std::uint64_t& kept) {
    std::array<std::string, 4> lines;
    std::size_t begin = 0;
    for (std::string& line : lines) {
        const auto end = text.find('\n', begin);
        if (end == std::string::npos) return {};
        line = text.substr(begin, end - begin);
        begin = end + 1;
    }
    PartialFile::Version version{lines[0], lines[1], 0};
    std::uint64_t bytes = 0;
    if (!parseNumber(lines[2], version.total) || !parseNumber(lines[3], bytes) || begin != text.size())
        return {};
    kept = bytes;
    return version;
}

}  // namespace

PartialFile::PartialFile(const std::string& directory, const std::string& name)
    : directory_(base::openPrivateDirectory(directory)),
      name_(name + ".part"),
      versionName_(name_ + ".version"),
      path_(directory + "/" + name_) {
    openLocked();
    readVersion();
    if (size_ > kept_) truncate(kept_);
    kept_ = size_;
}

PartialFile::~PartialFile() {
    try {
        keep();
    } catch (const std::exception&) {
        // The next attempt then continues where the last flush was.
    }
}

void PartialFile::keep() {
    keptAt_ = std::chrono::steady_clock::now();
    if (kept_ == size_ || version_.validator.empty()) return;
    flush(file_, path_);
    kept_ = size_;
    writeVersion();
}

void PartialFile::fail(const std::string& what) const {
    throw std::runtime_error("cannot " + what + " " + path_ + ": " + base::errorText(errno));
}

void PartialFile::openLocked() {
    for (;;) {
        file_ = base::UniqueFd(::openat(
            directory_.get(), name_.c_str(),
            O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kFileMode));
        struct stat mine {};
        if (!file_.valid() || ::fstat(file_.get(), &mine) != 0) fail("open");
        if (!S_ISREG(mine.st_mode) || mine.st_nlink > 1) {
            throw std::runtime_error(path_ + " is not a plain file of its own; remove it");
        }
        if (::flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
            if (errno != EWOULDBLOCK) fail("lock");
            throw std::runtime_error(path_ +
                                     " is being downloaded by another process or thread; wait for it");
        }
        // The previous holder of the lock may have moved the file away meanwhile.
        struct stat named {};
        const bool there = ::fstatat(directory_.get(), name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0;
        if (there && named.st_ino == mine.st_ino && named.st_dev == mine.st_dev) {
            size_ = static_cast<std::uint64_t>(mine.st_size);
            return;
        }
    }
}

void PartialFile::readVersion() {
    try {
        version_ = parseVersion(base::readBounded(path_ + ".version", kVersionBytesLimit), kept_);
    } catch (const std::exception&) {
        version_ = {};  // without it nothing is resumed, which is safe
    }
}

void PartialFile::writeVersion() const {
    base::replaceFileIn(directory_, versionName_, path_ + ".version",
                        version_.url + '\n' + version_.validator + '\n' + std::to_string(version_.total) +
                            '\n' + std::to_string(kept_) + '\n');
}

std::uint64_t PartialFile::resumeAt(const std::string& url, std::optional<std::uint64_t> length) {
    const bool mayBe = version_.url == url || (length && version_.total == *length);
    if (!mayBe || version_.validator.empty()) return 0;
    if (version_.total != 0 && size_ >= version_.total) truncate(version_.total - 1);
    return size_;
}

void PartialFile::truncate(std::uint64_t size) {
    if (::ftruncate(file_.get(), static_cast<off_t>(size)) != 0) fail("shorten");
    size_ = size;
    kept_ = std::min(kept_, size);
}

void PartialFile::restart(const Version& version) {
    if (size_ != 0) {
        // Old bytes must not meet the new version after a power loss, nor new bytes the old one.
        (void)::unlinkat(directory_.get(), versionName_.c_str(), 0);
        (void)base::flushToDisk(directory_.get());
        truncate(0);
        flush(file_, path_);
    }
    version_ = version;
    const bool plain = (version.url + version.validator).find('\n') == std::string::npos;
    if (!plain) version_.validator.clear();
    if (version_.validator.empty()) {
        (void)::unlinkat(directory_.get(), versionName_.c_str(), 0);
    } else {
        writeVersion();
    }
}

void PartialFile::append(std::string_view bytes) {
    write(file_, path_, bytes);
    size_ += bytes.size();
    if (size_ - kept_ >= kKeepBytes || std::chrono::steady_clock::now() - keptAt_ >= kKeepTime) keep();
}

void PartialFile::discard() {
    (void)::unlinkat(directory_.get(), versionName_.c_str(), 0);
    (void)::unlinkat(directory_.get(), name_.c_str(), 0);
    version_ = {};
}

bool PartialFile::moveTo(const std::string& destination, bool durable, const std::function<bool()>& goOn) {
    const std::string directory = base::directoryOf(destination);
    if (!base::makeDirectories(directory)) {
        throw std::runtime_error("cannot make the directory " + directory + ": " + base::errorText(errno));
    }
    if (durable) flush(file_, path_);
    if (::renameat(directory_.get(), name_.c_str(), AT_FDCWD, destination.c_str()) != 0) {
        if (errno != EXDEV) fail("move to " + destination + " the file");
        if (!copyTo(destination, durable, goOn)) return false;
        (void)::unlinkat(directory_.get(), name_.c_str(), 0);
    }
    // After a rename another process may have begun a new partial file, so its name must not be removed.
    (void)::unlinkat(directory_.get(), versionName_.c_str(), 0);
    if (durable) base::flushDirectory(directory);
    version_ = {};
    return true;
}

void PartialFile::read(const std::function<bool(std::string_view)>& consume) const {
    std::vector<char> buffer(kCopyPiece);
    for (std::uint64_t done = 0; done < size_;) {
        const ssize_t got = ::pread(file_.get(), buffer.data(), buffer.size(), static_cast<off_t>(done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) fail("read");
        if (!consume({buffer.data(), static_cast<std::size_t>(got)})) return;
        done += static_cast<std::uint64_t>(got);
    }
}

bool PartialFile::copyTo(const std::string& destination, bool durable,
                         const std::function<bool()>& goOn) const {
    base::StagedFile copy(destination, ".incoming", kFileMode);
    bool whole = true;
    read([&](std::string_view piece) {
        whole = goOn();
        if (whole) copy.write(piece);
        return whole;
    });
    if (!whole) return false;
    if (durable) copy.finish();
    copy.commitUnflushed();
    return true;
}

std::uint64_t freeBytes(const std::string& path) {
    return base::availableBytes(nearestExisting(path)).value_or(std::numeric_limits<std::uint64_t>::max());
}

bool onOneFileSystem(const std::string& one, const std::string& other) {
    struct stat first {};
    struct stat second {};
    return ::stat(nearestExisting(one).c_str(), &first) == 0 &&
           ::stat(nearestExisting(other).c_str(), &second) == 0 && first.st_dev == second.st_dev;
}

}  // namespace zelor::agent
