#pragma once

#include <string>

#include "authoring/Finding.h"

namespace zelor::authoring {

/// Whether what is at `path` is of the kind that the patch's name promises: scripts, packages and disk images
/// are files (a package may be a folder; a file must have the header of one), bundles are folders that hold a
/// bundle.
Findings kindFindings(const std::string& place, const std::string& patchId, bool script,
                      const std::string& path);

/// Whether the file at `path` can be a disk image: agents report success for one that cannot be attached.
/// Throws std::runtime_error when it cannot be read.
Findings imageFindings(const std::string& place, const std::string& patchId, const std::string& path);

}  // namespace zelor::authoring
