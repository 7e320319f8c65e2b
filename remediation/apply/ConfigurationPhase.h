#pragma once

#include <vector>

#include "remediation/apply/PhaseParts.h"

namespace zelor::remediation {

/// Applies the configurations of a run: runs their hardening scripts, as root. Blocks the run's thread.
class ConfigurationPhase {
  public:
    /// What `parts` refers to outlives the object.
    explicit ConfigurationPhase(const PhaseParts& parts) : parts_(parts) {}

    /// Applies the rows in order; each that has content gets a final state. Ends early when the whole run is
    /// cancelled. Failures are logged, and reported to the events.
    void apply(std::vector<remediateMetadata>& rows);

  private:
    bool applyRequest(remediateMetadata& row);

    PhaseParts parts_;
};

}  // namespace zelor::remediation
