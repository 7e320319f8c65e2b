#pragma once

#include <vector>

#include "remediation/apply/PhaseParts.h"

namespace zelor::remediation {

/// Installs the OS updates of a run with the system's updater. Blocks the run's thread.
class OsUpdatePhase {
  public:
    /// What `parts` refers to outlives the object.
    explicit OsUpdatePhase(const PhaseParts& parts) : parts_(parts) {}

    /// Installs the rows that are OS updates, in order; each gets a final state. Does nothing when the
    /// agent's setting leaves vendor updates to the user, and ends early when the whole run is cancelled.
    /// Failures are reported to the events.
    void install(std::vector<remediateMetadata>& rows);

  private:
    bool installRequest(remediateMetadata& row);

    PhaseParts parts_;
};

}  // namespace zelor::remediation
