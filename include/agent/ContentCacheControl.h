#pragma once

#include <cstdint>

#include "base/Export.h"

namespace zelor::agent {

/// Starts a new run for the content cache: from now on the first use of each identifier asks the repository
/// whether its content changed. A process that never calls this asks again about content that it last
/// confirmed more than ten minutes ago. Any thread.
ZELOR_API void startNewRun();

/// The number of the current run, which grows by one with each `startNewRun`. Any thread.
ZELOR_API std::uint64_t currentRun();

}  // namespace zelor::agent
