#include <algorithm>

#include "base/Strings.h"
#include "platform/Log.h"
#include "platform/macos/InstallCommands.h"
#include "platform/macos/MacPatchManager.h"
#include "platform/macos/UpdateSelection.h"
#include "remediation/CallReport.h"

namespace zlog = zelor::log;

namespace {

using zelor::platform::UpdateOutcome;
using zelor::platform::UpdateSelection;
using zelor::platform::UpdateStep;

void reportRefusal(const std::string& label) {
    zlog::error("[MacPatchManager] The label '", label, "' begins with a dash, so it is refused");
    zelor::CallReport::addReason("the label '" + label + "' begins with a dash, so it is refused");
}

void reportOutcome(const std::string& output, UpdateOutcome outcome, bool succeeded) {
    zelor::CallReport::setOutput(output);
    if (succeeded) {
        if (zelor::base::contains(zelor::base::lowerCased(output), "restart"))
            zelor::CallReport::askForRestart();
    } else {
        const std::string said = zelor::base::lastLine(output);
        zelor::CallReport::addReason(said.empty() ? "softwareupdate said nothing" : said);
    }
    switch (outcome) {
        case UpdateOutcome::installed:
            zlog::info("[MacPatchManager] The os remediation succeeded!!");
            break;
        case UpdateOutcome::nothingToDo:
            zlog::info("[MacPatchManager] No updates are available.");
            if (succeeded) zelor::CallReport::setNothingToDo();
            break;
        case UpdateOutcome::failed:
            zlog::error("[MacPatchManager] The pkg remediation failed = ", output);
            break;
    }
}

UpdateOutcome execute(MacPatchManager& manager, const UpdateStep& step) {
    if (step.command.empty()) {
        reportRefusal(step.label);
        return UpdateOutcome::failed;
    }
    zlog::debug("[MacPatchManager] Installing ", step.command);
    const std::string output = manager.getCmdlineOutput(step.command);
    const UpdateOutcome outcome = zelor::platform::updateOutcome(output);
    reportOutcome(output, outcome, step.succeeds(outcome));
    return outcome;
}

bool hasEmptyCandidate(const UpdateSelection& selection) {
    return std::find(selection.candidates.begin(), selection.candidates.end(), "") !=
           selection.candidates.end();
}

}  // namespace

int MacPatchManager::installOSPatch(std::string packageName) {
    zlog::info(" [MacPatchManager] Install OS Patch, PackageName = ", zelor::base::trimmed(packageName));
    const std::vector<std::string> listing = getOsCmdline(zelor::platform::kListUpdatesCommand);
    const UpdateSelection selection = zelor::platform::selectUpdates(
        listing, packageName, [this] { return getCmdlineOutput(zelor::platform::kProductVersionCommand); });
    const std::vector<UpdateStep> steps = zelor::platform::updateSteps(selection);
    if (steps.empty()) {
        zlog::error("[MacPatchManager] Cant get os application name!!!");
        zelor::CallReport::addReason("softwareupdate lists no update that belongs to it");
        return -1;
    }
    if (selection.cut) {
        zlog::error(
            "[MacPatchManager] softwareupdate lists more matching updates than are installed at once; ",
            "the first ", zelor::platform::kMostLabels, " are taken");
    }
    if (hasEmptyCandidate(selection)) {
        zlog::error("[MacPatchManager] ApplicationName is empty");
        zelor::CallReport::addReason("softwareupdate lists an update without a label");
        return -1;
    }
    if (selection.named) zlog::debug(" Package Name = ", selection.label);
    std::size_t attempts = 0;
    const auto attempt = [&](const UpdateStep& step) -> std::optional<UpdateOutcome> {
        if (attempts > 0 && zelor::CallReport::stopAsked()) {
            zelor::CallReport::addReason("cancelled after " + std::to_string(attempts) + " of " +
                                         std::to_string(steps.size()) + " updates");
            return std::nullopt;
        }
        ++attempts;
        return execute(*this, step);
    };
    const bool succeeded = zelor::platform::attemptUpdates(steps, attempt);
    return succeeded ? 0 : -1;
}
