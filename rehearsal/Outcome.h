#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zelor::rehearsal {

/// The tools that the rehearsal Mac replaces.
enum class Tool {
    softwareupdate,
    swVers,
    installer,
    hdiutil,
    pkgutil,
    defaults,
    launchctl,
    pwpolicy,
    scutil
};

/// What a tool does when it is called; everything but `ok` is a fault.
enum class Outcome {
    ok,
    fail,
    hang,
    doneThenError,
    noEffect,
    noNetwork,
    notFound,
    notRoot,
    busy,
    busyEject,
    flood,
    binary,
    signal
};

/// Tools by the name of their command; nothing for an unknown name.
std::string nameOf(Tool tool);
std::optional<Tool> toolNamed(const std::string& name);
std::vector<Tool> allTools();

/// Outcomes by their name in commands and in the state, such as "done-then-error"; nothing for an unknown
/// name.
std::string nameOf(Outcome outcome);
std::optional<Outcome> outcomeNamed(const std::string& name);

/// The outcomes that the tool supports, `ok` first.
std::vector<Outcome> outcomesOf(Tool tool);

/// The outcome of that name. Throws std::invalid_argument that lists the supported ones when the tool does
/// not support it.
Outcome requireOutcome(Tool tool, const std::string& name);

}  // namespace zelor::rehearsal
