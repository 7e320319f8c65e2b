#pragma once

#include <vector>

#include "remediation/apply/PhaseParts.h"

namespace zelor::remediation {

/// Installs the OS updates of a run through the system's own updater. Blocks the run's thread.
class OsUpdatePhase {
  public:
    explicit OsUpdatePhase(const PhaseParts& parts) : parts_(parts) {}

    /// Installs the rows that are OS updates, in their order; each gets a final state. Does nothing when the
    /// agent's setting leaves vendor updates to the user, and ends early when the whole run is cancelled.
    /// Failures are reported to the events.
    void install(std::vector<remediateMetadata>& rows);

  private:
    bool installRequest(remediateMetadata& row);

    PhaseParts parts_;
};

}  // namespace zelor::remediation
