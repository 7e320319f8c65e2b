#pragma once

#include <cstdint>

#include "base/Export.h"

namespace zelor::agent {

/// Tells the content cache that a run begins: from now on the first use of each identifier asks the
/// repository whether its content changed. A process that never says so asks again for what it last confirmed
/// more than ten minutes ago. Any thread.
ZELOR_API void startNewRun();

/// Grows by one with each run.
ZELOR_API std::uint64_t currentRun();

}  // namespace zelor::agent
