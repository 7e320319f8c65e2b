#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "base/Files.h"

namespace zelor::agent {

/// A download that is not complete yet: the bytes so far and, in a file beside them, which version of which
/// URL they belong to. It is locked against other processes and threads for its life, and stays on disk
/// unless it is discarded or moved to its destination. Every failure is a std::runtime_error that names the
/// file.
class PartialFile {
  public:
    /// Which bytes the file holds; a version without a validator is never resumed.
    struct Version {
        std::string url;
        std::string validator;    ///< strong ETag or Last-Modified
        std::uint64_t total = 0;  ///< 0: not known
    };

    /// Opens or begins `<directory>/<name>.part`; the directory is made with mode 0700. Symbolic links,
    /// special files and a file that someone else works on are refused.
    PartialFile(const std::string& directory, const std::string& name);

    /// Where the bytes are, how many there are, and which version they belong to.
    const std::string& path() const { return path_; }
    std::uint64_t size() const { return size_; }
    const Version& version() const { return version_; }

    /// How many bytes of `url` need not be fetched again. The last byte of a file that looks complete is
    /// given up, so that the server has to confirm the version.
    std::uint64_t resumeAt(const std::string& url);

    /// Hands the bytes that are there to `consume`, in pieces, as long as it says so.
    void read(const std::function<bool(std::string_view)>& consume) const;
    /// Drops the bytes and begins again with that version.
    void restart(const Version& version);
    /// Writes the bytes behind those that are there.
    void append(std::string_view bytes);
    /// Removes the file and what is beside it.
    void discard();

    /// Moves the file to `destination`, over a file that is there; copies where a rename cannot reach.
    /// `durable`: it is whole there even after a power loss. False when `goOn`, asked between pieces of a
    /// copy, says no; the partial file stays then.
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

/// The free bytes of the file system that holds `path`, or its nearest directory that exists; for this
/// process.
std::uint64_t freeBytes(const std::string& path);

/// True when both paths, or their nearest directories that exist, are on one file system.
bool onOneFileSystem(const std::string& one, const std::string& other);

}  // namespace zelor::agent
