#include "base/Strings.h"
#include "platform/Log.h"
#include "platform/macos/InstallCommands.h"
#include "platform/macos/MacPatchManager.h"
#include "platform/macos/UpdateSelection.h"
#include "remediation/CallReport.h"

namespace zlog = zelor::log;

namespace {

bool isRefused(const std::string& label) {
    if (!zelor::platform::looksLikeAnOption(label)) return false;
    zlog::error("[MacPatchManager] The label '", label, "' begins with a dash, so it is refused");
    zelor::CallReport::addReason("the label '" + label + "' begins with a dash, so it is refused");
    return true;
}

void reportUpdate(const std::string& output, bool succeeded) {
    zelor::CallReport::setOutput(output);
    if (succeeded) {
        if (zelor::base::contains(zelor::base::lowerCased(output), "restart"))
            zelor::CallReport::askForRestart();
        return;
    }
    const std::string said = zelor::base::lastLine(output);
    zelor::CallReport::addReason(said.empty() ? "softwareupdate said nothing" : said);
}

}  // namespace

int MacPatchManager::installOSPatch(std::string packageName) {
    zlog::info(" [MacPatchManager] Install OS Patch, PackageName = ", zelor::base::trimmed(packageName));
    const std::vector<std::string> listing = getOsCmdline(zelor::platform::listUpdatesCommand);
    const zelor::platform::UpdateSelection selection = zelor::platform::selectUpdates(
        listing, packageName, [this] { return getCmdlineOutput(zelor::platform::productVersionCommand); });
    if (selection.named) return installNamedUpdate(selection.label);
    if (selection.candidates.empty()) {
        zlog::error("[MacPatchManager] Cant get os application name!!!");
        zelor::CallReport::addReason("softwareupdate lists no update that belongs to it");
        return -1;
    }
    return installOsUpdates(selection.candidates);
}

int MacPatchManager::installNamedUpdate(const std::string& label) {
    zlog::debug(" Package Name = ", label);
    if (isRefused(zelor::base::trimmed(label))) return -1;
    const std::string command = zelor::platform::installUpdateCommand(zelor::base::trimmed(label));
    zlog::debug("[MacPatchManager] Installing ", command);
    const std::string output = getCmdlineOutput(command);
    const bool done = zelor::base::contains(output, "Done");
    reportUpdate(output, done || zelor::base::contains(output, "No updates are available"));
    if (done) {
        zlog::info("[MacPatchManager] The os remediation succeeded!!");
        return 0;
    }
    if (zelor::base::contains(output, "No updates are available")) {
        zlog::info("[MacPatchManager] No updates are available.");
        zelor::CallReport::setNothingToDo();
        return 0;
    }
    zlog::error("[MacPatchManager] The pkg remediation failed = ", output);
    return -1;
}

int MacPatchManager::installOsUpdates(const std::vector<std::string>& candidates) {
    bool succeeded = false;  // the last candidate decides
    for (const std::string& candidate : candidates) {
        if (candidate.empty()) {
            zlog::error("[MacPatchManager] ApplicationName is empty");
            zelor::CallReport::addReason("softwareupdate lists an update without a label");
            return -1;
        }
        const std::string label = zelor::platform::candidateLabel(candidate);
        succeeded = false;
        if (isRefused(label)) continue;
        const std::string command = zelor::platform::installUpdateCommand(label);
        zlog::debug("[MacPatchManager] Installing ", command);
        const std::string output = getCmdlineOutput(command);
        succeeded = zelor::base::contains(output, "Done");
        reportUpdate(output, succeeded);
        if (succeeded) {
            zlog::info("[MacPatchManager] The os remediation succeeded!!");
        } else if (zelor::base::contains(output, "No updates are available")) {
            zlog::info("[MacPatchManager] No updates are available.");
        } else {
            zlog::error("[MacPatchManager] The pkg remediation failed = ", output);
        }
    }
    return succeeded ? 0 : -1;
}
