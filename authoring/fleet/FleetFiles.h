#pragma once

#include <string>
#include <vector>

#include "base/Files.h"

namespace zelor::authoring {

/// A file that may have the results of a machine.
struct FleetFile {
    std::string path;
    base::Links links;  ///< links are followed for files that were named, not for those of a directory
};

/// What could not be read, and why.
struct UnreadFile {
    std::string path;
    std::string reason;  ///< any text
};

/// The files that the arguments name: files as they are, of directories and what is below them every
/// entry whose name ends with ".json" and does not begin with a dot, in the order of the names. Symbolic
/// links with such a name and directories that cannot be read are added to `unread`.
std::vector<FleetFile> fleetFiles(const std::vector<std::string>& arguments, std::vector<UnreadFile>& unread);

}  // namespace zelor::authoring
