#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/Files.h"

namespace zelor::agent {

/// A download that is not complete yet: the bytes so far and, in a file beside them, which version of which
/// URL they belong to. It is locked against other processes and threads for its life, and stays on disk
/// unless it is discarded or moved to its destination. A later object continues behind what is known to be on
/// the disk: a power loss may leave other bytes than were written. Every failure is a std::runtime_error that
/// names the file.
class PartialFile {
  public:
    /// Which bytes the file holds; a version without a validator is never resumed.
    struct Version {
        std::string url;
        std::string validator;    ///< strong ETag or Last-Modified
        std::uint64_t total = 0;  ///< 0: not known
    };

    /// Opens or begins `<directory>/<name>.part`; the directory is made with mode 0700. Symbolic links,
    /// special files and a file that is locked already are refused.
    PartialFile(const std::string& directory, const std::string& name);
    /// Flushes what stays to the disk.
    ~PartialFile();
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;

    /// Where the bytes are, how many there are, and which version they belong to.
    const std::string& path() const { return path_; }
    std::uint64_t size() const { return size_; }
    const Version& version() const { return version_; }

    /// How many bytes of `url` need not be fetched again. The last byte of a file that looks complete is
    /// fetched again, so that the server confirms the version. With `length`, a digest that the whole file is
    /// checked by has that length, and bytes of another URL count too when they were announced as part of so
    /// many.
    std::uint64_t resumeAt(const std::string& url, std::optional<std::uint64_t> length = std::nullopt);

    /// Hands the bytes that are there to `consume`, in pieces, as long as it says so.
    void read(const std::function<bool(std::string_view)>& consume) const;
    /// Drops the bytes and begins again with that version.
    void restart(const Version& version);
    /// Writes the bytes behind those that are there; now and then flushes them to the disk.
    void append(std::string_view bytes);
    /// Removes both files.
    void discard();

    /// Moves the file to `destination`, replacing a file there; copies it to another file system. `durable`:
    /// it is complete there even after a power loss. False when `goOn`, called between pieces of a copy,
    /// returned false; the partial file then stays.
    bool moveTo(const std::string& destination, bool durable, const std::function<bool()>& goOn);

  private:
    void openLocked();
    void readVersion();
    void writeVersion() const;
    void keep();
    void truncate(std::uint64_t size);
    bool copyTo(const std::string& destination, bool durable, const std::function<bool()>& goOn) const;
    [[noreturn]] void fail(const std::string& what) const;

    base::UniqueFd directory_;
    base::UniqueFd file_;
    std::string name_;
    std::string versionName_;
    std::string path_;
    std::uint64_t size_ = 0;
    std::uint64_t kept_ = 0;  ///< the bytes that are on the disk whatever happens
    std::chrono::steady_clock::time_point keptAt_ = std::chrono::steady_clock::now();
    Version version_;
};

/// The bytes that are free for this process on the file system of `path`, or of its nearest existing parent.
std::uint64_t freeBytes(const std::string& path);

/// True when both paths, or their nearest existing parents, are on the same file system.
bool onOneFileSystem(const std::string& one, const std::string& other);

}  // namespace zelor::agent
