#pragma once

#include <functional>
#include <string>

#include "remediation/parseOnlyMetadata.h"

namespace zelor::bench {

/// The collaborators of the run-control rows: content in memory, no network, no log lines.
struct MemoryAgent {
    /// Content for an identifier; called on the run's thread.
    std::function<parseOnlyMetadata(const std::string& identifier)> content;
    static MemoryAgent& get();
};

}  // namespace zelor::bench
