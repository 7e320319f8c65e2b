#pragma once

#include <cstdint>
#include <string>

#include "authoring/Finding.h"

namespace zelor::authoring {

/// Whether the announced size is near that of the archive (what is downloaded and buffered) or of the patch
/// in it.
Findings sizeFindings(const std::string& place, const std::string& size, std::uint64_t archiveBytes,
                      std::uint64_t patchBytes);

}  // namespace zelor::authoring
