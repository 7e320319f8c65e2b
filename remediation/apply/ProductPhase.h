#pragma once

#include <vector>

#include "remediation/apply/PhaseParts.h"

namespace zelor::remediation {

/// Installs the patches of a run for third-party products. Blocks the run's thread.
class ProductPhase {
  public:
    /// What `parts` refers to outlives the object.
    explicit ProductPhase(const PhaseParts& parts) : parts_(parts) {}

    /// Installs the rows with content that are not OS updates, in order; each gets a final state. Ends early
    /// when the whole run is cancelled or has failed. Failures are logged, and reported to the events.
    void install(std::vector<remediateMetadata>& rows);

  private:
    Next installRequest(remediateMetadata& row);

    PhaseParts parts_;
};

}  // namespace zelor::remediation
