#pragma once

#include <ostream>
#include <vector>

#include "authoring/fleet/FleetFiles.h"
#include "authoring/fleet/FleetSummary.h"

namespace zelor::authoring {

/// How many files that could not be read and machines that need a restart a page lists.
inline constexpr std::size_t kShownFiles = 500;
inline constexpr std::size_t kShownNames = 300;

/// Writes one page of HTML about a fleet of at least one machine, in the look of a run's report: also
/// well-formed XML, without scripts and external resources, and of a size that does not grow with the fleet.
/// Everything from the results is escaped. Errors are left in the stream's state.
void writeFleetPage(std::ostream& out, const Fleet& fleet, const std::vector<UnreadFile>& unread);

}  // namespace zelor::authoring
