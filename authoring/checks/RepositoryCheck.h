#pragma once

#include <string>

#include "authoring/Finding.h"

namespace zelor {

struct CheckReport {
    std::size_t entries = 0;
    std::size_t patches = 0;
    Findings findings;
};

/// Verifies a repository as agents that trust the public key in `keyFile` would see it. Archives are unpacked
/// one after the other below the system's temporary folder. Throws UsageError when there is no repository or
/// no usable key.
CheckReport checkRepository(const std::string& repository, const std::string& keyFile);

}  // namespace zelor
