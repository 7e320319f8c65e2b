#pragma once

#include <string>

#include "base/Files.h"
#include "base/Result.h"

/// Directories whose files are run, or written as root: other users must not be able to modify them.
namespace zelor::base {

/// Fails, with the remedy, when another user could have put files into the directory at `path`. A directory
/// that does not exist yet passes when nobody else can make it. Refused: a symbolic link in its place,
/// another user's directory, one that its group or others may write to; on the way to it, a directory that
/// everybody may write to without the sticky bit, and directories and symbolic links of other users. A
/// directory on the way that its group may write to is accepted: /Applications is like that, for
/// administrators. Nothing above the system root is checked, and its owner is trusted.
Check checkDirectory(const std::string& path);

/// Makes the directory, for this user only (0700; its missing parents 0755), when it does not exist; then as
/// `checkDirectory`.
Check prepareDirectory(const std::string& path);

/// Fails, with the remedy, when another user than root, this one and the owner of the system root could
/// change the file at `path` or put another in its place; not for a missing file or directory on the way to
/// it. A link is judged, and what it leads to. The group's right to write counts, but for this user's own
/// group, the one of his name that has no other member: with such groups the mask 002 is common. Access lists
/// count.
Check checkFile(const std::string& path);

/// Opens the file at `path` as `openFile` does. A symbolic link in its place is followed only when nobody but
/// root, this user and the owner of the system root can change or replace the link or the regular file that
/// it leads to; otherwise it is refused, with the remedy and without an errno. Other failures have errno and
/// its text. No file is created through a link.
Result<UniqueFd> openOwnFile(const std::string& path, int flags);

}  // namespace zelor::base
