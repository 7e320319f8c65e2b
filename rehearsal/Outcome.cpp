#include "rehearsal/Outcome.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace zelor::rehearsal {

namespace {

struct ToolName {
    Tool tool;
    const char* name;
};
constexpr std::array<ToolName, 9> kToolNames{{{Tool::softwareupdate, "softwareupdate"},
                                              {Tool::swVers, "sw_vers"},
                                              {Tool::installer, "installer"},
                                              {Tool::hdiutil, "hdiutil"},
                                              {Tool::pkgutil, "pkgutil"},
                                              {Tool::defaults, "defaults"},
                                              {Tool::launchctl, "launchctl"},
                                              {Tool::pwpolicy, "pwpolicy"},
                                              {Tool::scutil, "scutil"}}};

constexpr unsigned bit(Tool tool) {
    return 1U << static_cast<unsigned>(tool);
}
constexpr unsigned kSettingsTools =
    bit(Tool::pkgutil) | bit(Tool::defaults) | bit(Tool::launchctl) | bit(Tool::pwpolicy);
constexpr unsigned kEveryTool = bit(Tool::softwareupdate) | bit(Tool::swVers) | bit(Tool::installer) |
                                bit(Tool::hdiutil) | bit(Tool::scutil) | kSettingsTools;

struct Behaviour {
    Outcome outcome;
    const char* name;
    unsigned tools;
};
constexpr std::array<Behaviour, 13> kBehaviours{{
    {Outcome::ok, "ok", kEveryTool},
    {Outcome::fail, "fail", kEveryTool},
    {Outcome::hang, "hang", kEveryTool},
    {Outcome::doneThenError, "done-then-error", bit(Tool::softwareupdate)},
    {Outcome::noEffect, "no-effect", kSettingsTools},
    {Outcome::noNetwork, "no-network", bit(Tool::softwareupdate)},
    {Outcome::notFound, "not-found", bit(Tool::softwareupdate)},
    {Outcome::notRoot, "not-root", bit(Tool::softwareupdate) | bit(Tool::installer) | kSettingsTools},
    {Outcome::busy, "busy", bit(Tool::hdiutil)},
    {Outcome::busyEject, "busy-eject", bit(Tool::hdiutil)},
    {Outcome::flood, "flood", kEveryTool},
    {Outcome::binary, "binary", kEveryTool},
    {Outcome::signal, "signal", kEveryTool},
}};

}  // namespace

std::string nameOf(Tool tool) {
    const auto* it = std::find_if(kToolNames.begin(), kToolNames.end(),
                                  [&](const ToolName& entry) { return entry.tool == tool; });
    return it->name;
}

std::optional<Tool> toolNamed(const std::string& name) {
    for (const ToolName& entry : kToolNames) {
        if (name == entry.name) return entry.tool;
    }
    return std::nullopt;
}

std::vector<Tool> allTools() {
    std::vector<Tool> tools;
    tools.reserve(kToolNames.size());
    for (const ToolName& entry : kToolNames)
        tools.push_back(entry.tool);
    return tools;
}

std::string nameOf(Outcome outcome) {
    const auto* it = std::find_if(kBehaviours.begin(), kBehaviours.end(),
                                  [&](const Behaviour& entry) { return entry.outcome == outcome; });
    return it->name;
}

std::optional<Outcome> outcomeNamed(const std::string& name) {
    for (const Behaviour& entry : kBehaviours) {
        if (name == entry.name) return entry.outcome;
    }
    return std::nullopt;
}

std::vector<Outcome> outcomesOf(Tool tool) {
    std::vector<Outcome> outcomes;
    for (const Behaviour& entry : kBehaviours) {
        if ((entry.tools & bit(tool)) != 0) outcomes.push_back(entry.outcome);
    }
    return outcomes;
}

Outcome requireOutcome(Tool tool, const std::string& name) {
    std::string known;
    for (const Outcome outcome : outcomesOf(tool)) {
        if (nameOf(outcome) == name) return outcome;
        known += (known.empty() ? "" : ", ") + nameOf(outcome);
    }
    throw std::invalid_argument(nameOf(tool) + " has no outcome \"" + name + "\"; use one of: " + known);
}

}  // namespace zelor::rehearsal
