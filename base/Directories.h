#pragma once

#include <string>

#include "base/Files.h"

namespace zelor::base {

/// The directory part of `path` without a separator at its end: "." for a bare name, "/" below the root.
std::string directoryOf(const std::string& path);

/// Makes the directory and its missing parents with mode 0755 (less the umask). False, errno set, when it
/// does not exist afterwards.
bool makeDirectories(const std::string& path);

/// Opens a directory that only this user may enter: one that is missing is made, and one of another mode set
/// to 0700. A symbolic link and another user's directory are refused. Throws std::runtime_error that names
/// it.
UniqueFd openPrivateDirectory(const std::string& path);

/// Removes a file, or a directory with its contents, including directories without write permission; symbolic
/// links are not followed. False when something could not be removed.
bool removeTree(const std::string& path);

/// A new directory that only this user may enter, removed with its contents by the destructor.
class TemporaryDirectory {
  public:
    /// Makes "PREFIX-XXXXXX" in `parent`, with random letters. Throws std::runtime_error that names it.
    TemporaryDirectory(const std::string& parent, const std::string& prefix);
    /// The same in the system's directory for temporary files (TMPDIR).
    explicit TemporaryDirectory(const std::string& prefix);
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    /// `parent`, a slash and the name that was made.
    const std::string& path() const { return path_; }
    /// Leaves the directory in place.
    void keep() { kept_ = true; }

  private:
    std::string path_;
    bool kept_ = false;
};

}  // namespace zelor::base
