#pragma once

#include <string>
#include <vector>

#include "authoring/Finding.h"

namespace zelor::authoring {

/// What a check looked at, and what it found.
struct CheckReport {
    std::size_t entries = 0;
    std::size_t patches = 0;
    Findings findings;
};

/// Verifies a repository as agents that trust the public key in `keyFile` would see it. Archives are unpacked
/// one at a time below the system's temporary directory. `manifests`: files that name everything that should
/// be published, if the caller knows. Throws UsageError when there is no repository, no usable key or no such
/// manifest.
CheckReport checkRepository(const std::string& repository, const std::string& keyFile,
                            const std::vector<std::string>& manifests = {});

}  // namespace zelor::authoring
