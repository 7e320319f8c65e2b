#pragma once

#include <set>
#include <string>

#include "base/Export.h"

/// The agent's probe cache, as far as remediation reads it.
class ZELOR_API CacheStore {
  public:
    /// Operating-system CPEs that count as products in a request. Empty when there are none.
    static std::set<std::string> GetSplCaseCPEs();
};
