#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zelor::rehearsal {

/// The tools that the rehearsal Mac replaces.
enum class Tool { softwareupdate, swVers, installer, hdiutil };

/// What a tool does when its turn comes; everything but `ok` is a fault.
enum class Outcome {
    ok,
    fail,
    hang,
    doneThenError,
    noNetwork,
    notFound,
    notRoot,
    busy,
    busyEject,
    flood,
    binary,
    signal
};

std::string nameOf(Tool tool);
std::optional<Tool> toolNamed(const std::string& name);
std::vector<Tool> allTools();

std::string nameOf(Outcome outcome);
std::optional<Outcome> outcomeNamed(const std::string& name);

/// The outcomes that mean something for the tool, `ok` first.
std::vector<Outcome> outcomesOf(Tool tool);

/// The outcome of that name if the tool knows it. Throws std::invalid_argument that lists the known ones.
Outcome requireOutcome(Tool tool, const std::string& name);

}  // namespace zelor::rehearsal
