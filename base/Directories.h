#pragma once

#include <string>

#include "base/Files.h"

namespace zelor::base {

/// The directory part of `path` without a separator at its end: "." for a bare name, "/" below the root.
std::string directoryOf(const std::string& path);

/// Makes the directory and the missing ones above it with mode 0755 (less the umask). False, errno set, when
/// it is not there afterwards.
bool makeDirectories(const std::string& path);

/// Opens a directory that only this user may look into, making it with mode 0700 where it is missing. A
/// symbolic link and another user's directory are refused. Throws std::runtime_error that names it.
UniqueFd openPrivateDirectory(const std::string& path);

/// Removes a file, or a directory with all it holds, directories without write permission included; symbolic
/// links are not followed. False when something is left.
bool removeTree(const std::string& path);

/// A new directory that only this user may enter, removed with all it holds by the destructor.
class TemporaryDirectory {
  public:
    /// Makes "PREFIX-XXXXXX" in `parent`, with random letters. Throws std::runtime_error that names it.
    TemporaryDirectory(const std::string& parent, const std::string& prefix);
    /// The same in the system's directory for temporary files (TMPDIR).
    explicit TemporaryDirectory(const std::string& prefix);
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return path_; }
    /// Leaves the directory in place.
    void keep() { kept_ = true; }

  private:
    std::string path_;
    bool kept_ = false;
};

}  // namespace zelor::base
