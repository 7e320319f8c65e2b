#pragma once

#include <string>

#include "base/Files.h"

/// Folders whose files are run, or written as root: nobody else may have a hand in them.
namespace zelor::base {

/// Why files in the folder at `path` could be another user's doing, with the remedy; "" when they cannot, and
/// when there is no such folder yet but nobody else can make it. Refused: a symbolic link in its place,
/// another user's folder, one that its group or others may write to; on the way to it, a folder that
/// everybody may write to without the sticky bit, and folders and symbolic links of other users. The group's
/// right to write to a folder above is let pass: /Applications comes that way, for administrators. Nothing
/// above the system root is looked at, and its owner counts as trusted.
std::string folderProblem(const std::string& path);

/// Makes the folder for this user alone (0700; missing folders above it 0755) where there is none; then as
/// `folderProblem`.
std::string prepareFolder(const std::string& path);

/// Opens the file at `path` as `openFile` does. A symbolic link in its place is followed only when nobody but
/// root, this user and the owner of the system root can change the link or the regular file that it leads to,
/// or replace one of them; otherwise there is no descriptor, and `problem` says why, with the remedy. For
/// other failures `problem` is "" and errno is set. No file is made through a link.
UniqueFd openOwnFile(const std::string& path, int flags, std::string& problem);

}  // namespace zelor::base
