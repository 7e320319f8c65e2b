#pragma once

#include <string>

#include "base/Export.h"

/// Runs hardening scripts.
class ZELOR_API LinuxHardeningFacilitator {
  public:
    /// Runs the script with /bin/bash and waits for it. Returns 0 when its wait status is 0, else -1 (also
    /// when it cannot be started). Blocks the calling thread, at most for the configured command limit.
    int complianceRemediation(std::string path);
};
