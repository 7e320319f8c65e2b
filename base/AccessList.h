#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

/// Access lists of macOS, which give rights beside the mode. On Linux the mode's group bits bound what a list
/// gives, so that looking at the mode is enough.
namespace zelor::base {

/// One entry of an access list.
struct AccessEntry {
    bool allows = false;   ///< else it denies
    bool changes = false;  ///< write, append, delete, delete a child, or change rights, owner or attributes
    std::optional<uid_t> user;  ///< whom it is for; nothing: a group, or nobody that is known
};

/// True when an entry lets anybody but root and `self` change the file. A denial elsewhere in the list is not
/// taken to outweigh it. Pure.
bool othersMayChange(const std::vector<AccessEntry>& list, uid_t self);

/// True when there is an access list at the path, followed through links.
bool hasAccessList(const std::string& path);

/// The access list at the path, followed through links. One that cannot be read lets everybody change the
/// file. On Linux always empty.
std::vector<AccessEntry> readAccessList(const std::string& path);

}  // namespace zelor::base
