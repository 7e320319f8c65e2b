#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "authoring/fleet/Fleet.h"

/// What a page shows of a fleet: rankings and sums. Everything refers to the fleet, which must outlive it.
namespace zelor::authoring {

/// A request of a machine.
struct OpenOnMachine {
    std::size_t rank;  ///< of the machine, in `FleetSummary::machines`
    const OpenRequest* request;
};

/// An identifier over all machines.
struct IdentifierSummary {
    std::uint32_t identifier = 0;
    std::size_t requestedBy = 0;  ///< machines
    std::size_t failedOn = 0;     ///< machines
    std::size_t undecidedOn = 0;  ///< machines on which it did not fail
    /// The reasons with their requests, the most frequent first; only of identifiers that are shown.
    std::vector<std::pair<std::uint32_t, std::size_t>> reasons;
    /// At most `kShownDetails`, those of the machines that fail most first; only of identifiers that are
    /// shown.
    std::vector<OpenOnMachine> open;
    std::size_t openInAll = 0;  ///< requests
};

/// How many machines and identifiers a page shows with their details, and how many rows these have at most.
inline constexpr std::size_t kShownEntries = 50;
inline constexpr std::size_t kShownDetails = 20;

/// The sums and rankings.
struct FleetSummary {
    std::vector<const Machine*> machines;        ///< those that fail most first, then by name
    std::vector<IdentifierSummary> identifiers;  ///< those that are not good somewhere, as the machines
    std::size_t requests = 0;
    std::size_t notGoodMachines = 0;  ///< they are the first of the machines
    std::size_t failedMachines = 0;
    std::size_t uncounted = 0;                                   ///< requests that are in no list
    std::vector<std::pair<std::string, std::size_t>> states;     ///< by state, in the order of the values
    std::array<std::size_t, 4> byProof{};                        ///< requests by `results::Verified`
    std::map<std::string, std::size_t, std::greater<>> byDay{};  ///< machines by the day of their results
    std::size_t olderResults = 0;
    std::size_t machinesWithOlder = 0;
    std::size_t reboots = 0;
    std::size_t incomplete = 0;  ///< machines whose run did not go on to its end
};

/// Pure.
FleetSummary summaryOf(const Fleet& fleet);

}  // namespace zelor::authoring
