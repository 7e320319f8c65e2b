#pragma once

#include <string>

#include "base/Files.h"

/// Directories whose files are run, or written as root: no other user may be able to modify them.
namespace zelor::base {

/// Why files in the directory at `path` could be another user's doing, with the remedy; "" when they cannot,
/// and when there is no such directory yet but nobody else can make it. Refused: a symbolic link in its
/// place, another user's directory, one that its group or others may write to; on the way to it, a directory
/// that everybody may write to without the sticky bit, and directories and symbolic links of other users. The
/// group's right to write to a directory above is let pass: /Applications comes that way, for administrators.
/// Nothing above the system root is looked at, and its owner counts as trusted.
std::string directoryProblem(const std::string& path);

/// Makes the directory for this user alone (0700; missing directories above it 0755) where there is none;
/// then as `directoryProblem`.
std::string prepareDirectory(const std::string& path);

/// Opens the file at `path` as `openFile` does. A symbolic link in its place is followed only when nobody but
/// root, this user and the owner of the system root can change the link or the regular file that it leads to,
/// or replace one of them; otherwise there is no descriptor, and `problem` says why, with the remedy. For
/// other failures `problem` is "" and errno is set. No file is made through a link.
UniqueFd openOwnFile(const std::string& path, int flags, std::string& problem);

}  // namespace zelor::base
