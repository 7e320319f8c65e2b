#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "base/Files.h"

namespace zelor::agent {

/// An incomplete download: the bytes so far and, in a second file, the URL and version that they belong to.
/// It is locked against other processes and threads for the object's life, and stays on disk unless it is
/// discarded or moved to its destination. Every failure throws std::runtime_error that names the file.
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

    /// Where the bytes are, how many there are, and which version they belong to.
    const std::string& path() const { return path_; }
    std::uint64_t size() const { return size_; }
    const Version& version() const { return version_; }

    /// How many bytes of `url` need not be fetched again. The last byte of a file that looks complete is
    /// fetched again, so that the server confirms the version.
    std::uint64_t resumeAt(const std::string& url);

    /// Hands the bytes that are there to `consume`, in pieces, as long as it says so.
    void read(const std::function<bool(std::string_view)>& consume) const;
    /// Drops the bytes and begins again with that version.
    void restart(const Version& version);
    /// Appends the bytes.
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
    void truncate(std::uint64_t size);
    bool copyTo(const std::string& destination, bool durable, const std::function<bool()>& goOn) const;
    [[noreturn]] void fail(const std::string& what) const;

    base::UniqueFd directory_;
    base::UniqueFd file_;
    std::string name_;
    std::string versionName_;
    std::string path_;
    std::uint64_t size_ = 0;
    Version version_;
};

/// The bytes that are free for this process on the file system of `path`, or of its nearest existing parent.
std::uint64_t freeBytes(const std::string& path);

/// True when both paths, or their nearest existing parents, are on the same file system.
bool onOneFileSystem(const std::string& one, const std::string& other);

}  // namespace zelor::agent
