#pragma once

#include <string>

#include "base/Export.h"

/// Small helpers of the agent.
class ZELOR_API Common {
  public:
    /// `path` without its trailing path separators; "/" alone becomes "".
    static std::string StripTrailingSeparators(const std::string& path);
};
