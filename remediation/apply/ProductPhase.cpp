#include "remediation/apply/ProductPhase.h"

#include <boost/filesystem/operations.hpp>
#include <utility>

#include "collaborators/ConfigurationManager.h"
#include "platform/Log.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/RecordAccess.h"
#include "remediation/apply/InstallResult.h"
#include "remediation/fetch/PatchName.h"
#include "remediation/intake/ContentRules.h"

namespace zelor::remediation {

void ProductPhase::install(std::vector<remediateMetadata>& rows) {
    ConfigurationManager::GetInstance("")->getThirdPartyProductInstallationType();
    for (remediateMetadata& row : rows) {
        parts_.cancellation.markCancelled();
        if (parts_.cancellation.stopsRun()) {
            log::debug(
                "[Remediation Manager] (installNonOsPatches) Since all Remediations are canceled, returning "
                "... ");
            return;
        }
        if (installRequest(row) == Next::phaseEnd) return;
    }
}

Next ProductPhase::installRequest(remediateMetadata& row) {
    const std::string& key = RecordAccess::combinedCpes(row);
    if (parts_.cancellation.isCancelled(key)) {
        parts_.record(key, RemediationManager::REM_ABORTED);
        return Next::aborted;
    }
    if (!RecordAccess::creEriDataPresent(row)) {
        log::debug("[Remediation Manager] (installNonOsPatches) skipping entry for which parsing has failed");
        return Next::proceed;
    }
    if (RecordAccess::osRemediation(row)) {
        log::debug("[Remediation Manager] (installNonOsPatches) skipping OS entry ");
        return Next::proceed;
    }
    creEriParsedData& entry = RecordAccess::creEriData(row);
    std::vector<parsedEriData>& blocks = RecordAccess::blocks(entry);
    log::debug(" [Remediation Manager] (installNonOsPatches) eriDataV.size = ", blocks.size());
    // The one thing that the blocks change; a cancelled request keeps what it had.
    bool installed = entry.getInstalledSuccessfully();
    Next next = Next::proceed;
    for (parsedEriData& block : blocks) {
        next = installBlock(row, block, installed);
        if (next == Next::phaseEnd) return next;
        if (next == Next::aborted) break;
    }
    parts_.cancellation.markCancelled();
    if (next == Next::aborted) {
        parts_.record(key, RemediationManager::REM_ABORTED);
        return next;
    }
    entry.setInstalledSuccessfully(installed);
    return next;
}

Next ProductPhase::installBlock(remediateMetadata& row, parsedEriData& block, bool& installed) {
    if (!isForThisPlatform(block)) return Next::proceed;
    creEriParsedData& entry = RecordAccess::creEriData(row);
    const std::string& key = RecordAccess::combinedCpes(row);
    const std::string& patchId = RecordAccess::patchId(block);
    log::debug(" [Remediation Manager] (installNonOsPatches) Installing non-MS patch for CVE: ",
               RecordAccess::cve(entry));
    const PatchStep step = patchStep(block, [&] { return parts_.applied.covers(entry); });
    if (step == PatchStep::nameless || step == PatchStep::misnamed) {
        failUnusable(row, step, patchId, installed);
        return Next::proceed;
    }
    int result = kInstallFailed;
    FetchedFile file;
    if (step == PatchStep::applied) {
        log::debug(
            "[Remediation Manager] (installNonOsPatches) verifyIfAlreadyAppliedRem returned true for non-MS "
            "patch CVE "
            "is: ",
            RecordAccess::cve(entry));
        parts_.events.applied(key, Applied::before, false);
        parts_.succeed(key);
        result = kInstalled;
    } else {
        const Next next = parts_.source.fetchBlock(key, block, file);
        if (next != Next::proceed) return next;
        if (parts_.flags.internalError) {
            parts_.record(key, RemediationManager::REM_INTERNAL_FAILED);
            return Next::phaseEnd;
        }
        result = installFile(row, block, file.path);
    }
    recordResult(row, result, installed);
    if (result == kInstalled) {
        if (file.usedBufferedCopy) parts_.buffered.discard(patchId, file.path);
        parts_.content.drop(row);
    }
    log::info(" [Remediation Manager] (installNonOsPatches) The remediation result for cpe = ", key, " is \"",
              installed ? "Succeeded" : "Failed", "\"");
    return Next::proceed;
}

// A block without a usable patch name fails.
void ProductPhase::failUnusable(remediateMetadata& row, PatchStep step, const std::string& patchId,
                                bool installed) {
    const std::string& key = RecordAccess::combinedCpes(row);
    if (step == PatchStep::nameless) {
        log::error(
            " [Remediation Manager] (installNonOsPatches) No patchId (or empty patchId) present in CRE-ERI "
            "xml for cpe = "
            "'",
            key, "' and CVE = '", row.getCveOrCceId(), "'");
        parts_.events.failed(key, "the content names no patch");
        parts_.fail(key, RemediationManager::REM_FAILED);
        RecordAccess::creEriData(row).setInstalledSuccessfully(installed);
        return;
    }
    log::debug(
        "[Remediation Manager] (installNonOsPatches) Patch name is not a valid patch .. Marking FAILED.");
    parts_.events.failed(key, "the content's patch name '" + patchId + "' has no extension");
    parts_.fail(key, RemediationManager::REM_INVALID_REQUEST);
}

int ProductPhase::installFile(remediateMetadata& row, parsedEriData& block, const std::string& path) {
    // Third-party products install unattended whatever this setting says.
    ConfigurationManager::GetInstance("")->getThirdPartyProductInstallationType();
    parts_.record(row.getCombinedCpes(), RemediationManager::REM_INSTALLING);
    boost::system::error_code error;
    if (path.empty() || !boost::filesystem::exists(path, error)) {
        parts_.events.failed(RecordAccess::combinedCpes(row),
                             "'" + RecordAccess::patchId(block) + "' is not there");
        log::error(" [Remediation Manager] The patch file '", path,
                   "' DOES NOT exist OR it failed signature verification.");
        return kFileUnavailable;
    }
    log::debug(" [Remediation Manager] (installNonOsPatches) The patch file path: ", path);
    parts_.installer.setSilentModeOption(RecordAccess::silentModeCmd(block));
    parts_.installer.setInstallOption(usesBundleInstaller(block));
    CallReport report;
    log::debug(
        " [Remediation Manager] (installNonOsPatches) Installing in silent mode, third-party product patch "
        "= ",
        path);
    const std::string kind = installerKind(path);
    const int result = kind.empty() ? kInstallFailed
                                    : parts_.installer.install3rdPartyPatch(path, row.getPackageName(), kind);
    parts_.applied.add(result, RecordAccess::eriId(block));
    const std::string& key = RecordAccess::combinedCpes(row);
    const std::string& name = RecordAccess::patchId(block);
    if (result == kInstalled) {
        parts_.events.applied(key, Applied::now,
                              report.restartAsked() || asksForReboot(RecordAccess::creEriData(row)));
    } else {
        parts_.events.failed(
            key, report,
            kind.empty() ? "'" + name + "' is no .app, .pkg or .dmg" : "'" + name + "' was not installed");
    }
    return result;
}

void ProductPhase::recordResult(remediateMetadata& row, int result, bool& installed) {
    const std::string key = row.getCombinedCpes();
    if (result == kInstalled) {
        installed = true;
        if (!parts_.flags.rebootNeeded && asksForReboot(RecordAccess::creEriData(row)))
            parts_.flags.rebootNeeded = true;
        parts_.succeed(key);
        return;
    }
    parts_.flags.allFailed = true;
    if (result == kFileUnavailable) {
        parts_.record(key, RemediationManager::REM_FILE_UNAVAILABLE);
        return;
    }
    installed = false;
    parts_.record(key, result == kInstallFailed ? RemediationManager::REM_FAILED
                                                : static_cast<RemediationManager::REM_PROGRESS>(result));
}

}  // namespace zelor::remediation
