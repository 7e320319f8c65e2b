#include "base/Strings.h"
#include "platform/Log.h"
#include "platform/macos/InstallCommands.h"
#include "platform/macos/MacPatchManager.h"
#include "platform/macos/UpdateSelection.h"

namespace zlog = zelor::log;

namespace {

bool isRefused(const std::string& label) {
    if (!zelor::looksLikeAnOption(label)) return false;
    zlog::error("[MacPatchManager] The label '", label, "' begins with a dash, so it is refused");
    return true;
}

}  // namespace

int MacPatchManager::installOSPatch(std::string packageName) {
    zlog::info(" [MacPatchManager] Install OS Patch, PackageName = ", zelor::trimmed(packageName));
    const std::vector<std::string> listing = getOsCmdline(zelor::listUpdatesCommand);
    const zelor::UpdateSelection selection = zelor::selectUpdates(
        listing, packageName, [this] { return getCmdlineOutput(zelor::productVersionCommand); });
    if (selection.named) return installNamedUpdate(selection.label);
    if (selection.candidates.empty()) {
        zlog::error("[MacPatchManager] Cant get os application name!!!");
        return -1;
    }
    return installOsUpdates(selection.candidates);
}

int MacPatchManager::installNamedUpdate(const std::string& label) {
    zlog::debug(" Package Name = ", label);
    if (isRefused(zelor::trimmed(label))) return -1;
    const std::string command = zelor::installUpdateCommand(zelor::trimmed(label));
    zlog::debug("[MacPatchManager] Installing ", command);
    const std::string output = getCmdlineOutput(command);
    if (zelor::contains(output, "Done")) {
        zlog::info("[MacPatchManager] The os remediation succeeded!!");
        return 0;
    }
    if (zelor::contains(output, "No updates are available")) {
        zlog::info("[MacPatchManager] No updates are available.");
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
            return -1;
        }
        const std::string label = zelor::candidateLabel(candidate);
        succeeded = false;
        if (isRefused(label)) continue;
        const std::string command = zelor::installUpdateCommand(label);
        zlog::debug("[MacPatchManager] Installing ", command);
        const std::string output = getCmdlineOutput(command);
        succeeded = zelor::contains(output, "Done");
        if (succeeded) {
            zlog::info("[MacPatchManager] The os remediation succeeded!!");
        } else if (zelor::contains(output, "No updates are available")) {
            zlog::info("[MacPatchManager] No updates are available.");
        } else {
            zlog::error("[MacPatchManager] The pkg remediation failed = ", output);
        }
    }
    return succeeded ? 0 : -1;
}
