#include "base/Strings.h"
#include "platform/Log.h"
#include "platform/macos/InstallCommands.h"
#include "platform/macos/MacPatchManager.h"
#include "platform/macos/UpdateSelection.h"

namespace zlog = zelor::log;

namespace {

bool isRefused(const std::string& label) {
    if (!zelor::platform::looksLikeAnOption(label)) return false;
    zlog::error("[MacPatchManager] The label '", label, "' begins with a dash, so it is refused");
    return true;
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
    if (zelor::base::contains(output, "Done")) {
        zlog::info("[MacPatchManager] The os remediation succeeded!!");
        return 0;
    }
    if (zelor::base::contains(output, "No updates are available")) {
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
        const std::string label = zelor::platform::candidateLabel(candidate);
        succeeded = false;
        if (isRefused(label)) continue;
        const std::string command = zelor::platform::installUpdateCommand(label);
        zlog::debug("[MacPatchManager] Installing ", command);
        const std::string output = getCmdlineOutput(command);
        succeeded = zelor::base::contains(output, "Done");
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
