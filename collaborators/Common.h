#pragma once

#include <string>

/// Small helpers of the agent.
class Common {
  public:
    /// `path` without its trailing path separators; "/" alone becomes "".
    static std::string StripTrailingSeparators(const std::string& path);
};
