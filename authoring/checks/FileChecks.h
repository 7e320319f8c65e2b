#pragma once

#include <cstdint>
#include <string>

#include "authoring/Finding.h"

/// Findings on the file or bundle of one patch.
namespace zelor::authoring {

/// Whether `path` is of the kind that the patch's name says: scripts, packages and disk images are files (a
/// package may be a directory; a file must have the header of one), bundles are directories that hold a
/// bundle.
Findings kindFindings(const std::string& place, const std::string& patchId, bool script,
                      const std::string& path);

/// Whether the file at `path` looks like a disk image: agents report success even for one that cannot be
/// attached. Throws std::runtime_error when it cannot be read.
Findings imageFindings(const std::string& place, const std::string& patchId, const std::string& path);

/// Whether the announced size is close to that of the archive (which is downloaded and buffered) or of the
/// patch in it.
Findings sizeFindings(const std::string& place, const std::string& size, std::uint64_t archiveBytes,
                      std::uint64_t patchBytes);

}  // namespace zelor::authoring
