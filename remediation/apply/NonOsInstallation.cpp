#include <boost/filesystem/operations.hpp>
#include <utility>

#include "collaborators/ConfigurationManager.h"
#include "platform/Log.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/RecordAccess.h"
#include "remediation/RemediationManager.h"
#include "remediation/RunParts.h"
#include "remediation/apply/InstallResult.h"
#include "remediation/fetch/PatchName.h"
#include "remediation/intake/ContentRules.h"

namespace zlog = zelor::log;

void RemediationManager::installNonOsPatches(std::string /*installPathCopy*/) {
    ConfigurationManager::GetInstance("")->getThirdPartyProductInstallationType();
    for (remediateMetadata& row : remMetadataForCVE) {
        setAbortedRemStatusToAborted();
        if (parts->cancellation.stopsRun()) {
            zlog::debug(
                "[Remediation Manager] (installNonOsPatches) Since all Remediations are canceled, returning "
                "... ");
            return;
        }
        if (installNonOsRequest(row) == Next::phaseEnd) return;
    }
}

RemediationManager::Next RemediationManager::installNonOsRequest(remediateMetadata& row) {
    const std::string& key = RecordAccess::combinedCpes(row);
    if (parts->cancellation.isCancelled(key)) {
        insertRemProgressInMap(key, REM_ABORTED);
        return Next::aborted;
    }
    if (!RecordAccess::creEriDataPresent(row)) {
        zlog::debug(
            "[Remediation Manager] (installNonOsPatches) skipping entry for which parsing has failed");
        return Next::proceed;
    }
    if (RecordAccess::osRemediation(row)) {
        zlog::debug("[Remediation Manager] (installNonOsPatches) skipping OS entry ");
        return Next::proceed;
    }
    creEriParsedData& entry = RecordAccess::creEriData(row);
    std::vector<parsedEriData>& blocks = RecordAccess::blocks(entry);
    zlog::debug(" [Remediation Manager] (installNonOsPatches) eriDataV.size = ", blocks.size());
    // The one thing that the blocks change; a cancelled request keeps what it had.
    bool installed = entry.getInstalledSuccessfully();
    Next next = Next::proceed;
    for (parsedEriData& block : blocks) {
        next = installNonOsBlock(row, block, installed);
        if (next == Next::phaseEnd) return next;
        if (next == Next::aborted) break;
    }
    setAbortedRemStatusToAborted();
    if (next == Next::aborted) {
        insertRemProgressInMap(key, REM_ABORTED);
        return next;
    }
    entry.setInstalledSuccessfully(installed);
    return next;
}

RemediationManager::Next RemediationManager::installNonOsBlock(remediateMetadata& row, parsedEriData& block,
                                                               bool& installed) {
    if (!zelor::remediation::isForThisPlatform(block)) return Next::proceed;
    creEriParsedData& entry = RecordAccess::creEriData(row);
    const std::string& key = RecordAccess::combinedCpes(row);
    const std::string& patchId = RecordAccess::patchId(block);
    zlog::debug(" [Remediation Manager] (installNonOsPatches) Installing non-MS patch for CVE: ",
                RecordAccess::cve(entry));
    const zelor::remediation::PatchStep step =
        zelor::remediation::patchStep(block, [&] { return verifyIfAlreadyAppliedRem(entry); });
    if (step == zelor::remediation::PatchStep::nameless) {
        zlog::error(
            " [Remediation Manager] (installNonOsPatches) No patchId (or empty patchId) present in CRE-ERI "
            "xml for cpe = "
            "'",
            key, "' and CVE = '", row.getCveOrCceId(), "'");
        parts->events.failed(key, "the content names no patch");
        insertRemProgressInMap(key, REM_FAILED);
        allRemFailed = true;
        entry.setInstalledSuccessfully(installed);
        return Next::proceed;
    }
    int result = zelor::remediation::kInstallFailed;
    zelor::remediation::FetchedFile file;
    if (step == zelor::remediation::PatchStep::applied) {
        zlog::debug(
            "[Remediation Manager] (installNonOsPatches) verifyIfAlreadyAppliedRem returned true for non-MS "
            "patch CVE "
            "is: ",
            RecordAccess::cve(entry));
        parts->events.applied(key, zelor::Applied::before, false);
        insertRemProgressInMap(key, REM_SUCCESS);
        anyRemSucceeded = true;
        result = zelor::remediation::kInstalled;
    } else if (step == zelor::remediation::PatchStep::misnamed) {
        zlog::debug(
            "[Remediation Manager] (installNonOsPatches) Patch name is not a valid patch .. Marking FAILED.");
        parts->events.failed(key, "the content's patch name '" + patchId + "' has no extension");
        insertRemProgressInMap(key, REM_INVALID_REQUEST);
        allRemFailed = true;
        return Next::proceed;
    } else {
        const Next next = parts->source.fetchBlock(key, block, file);
        if (next != Next::proceed) return next;
        if (internalError) {
            insertRemProgressInMap(key, REM_INTERNAL_FAILED);
            return Next::phaseEnd;
        }
        result = installNonOsFile(row, block, file.path);
    }
    recordNonOsResult(row, result, installed);
    if (result == zelor::remediation::kInstalled) {
        if (file.usedBufferedCopy) cleanupBufferedPatch(patchId, file.path);
        dropContent(row);
    }
    zlog::info(" [Remediation Manager] (installNonOsPatches) The remediation result for cpe = ", key,
               " is \"", installed ? "Succeeded" : "Failed", "\"");
    return Next::proceed;
}

int RemediationManager::installNonOsFile(remediateMetadata& row, parsedEriData& block,
                                         const std::string& path) {
    // Third-party products install unattended whatever this setting says.
    ConfigurationManager::GetInstance("")->getThirdPartyProductInstallationType();
    insertRemProgressInMap(row.getCombinedCpes(), REM_INSTALLING);
    boost::system::error_code error;
    if (path.empty() || !boost::filesystem::exists(path, error)) {
        parts->events.failed(RecordAccess::combinedCpes(row),
                             "'" + RecordAccess::patchId(block) + "' is not there");
        zlog::error(" [Remediation Manager] The patch file '", path,
                    "' DOES NOT exist OR it failed signature verification.");
        return zelor::remediation::kFileUnavailable;
    }
    zlog::debug(" [Remediation Manager] (installNonOsPatches) The patch file path: ", path);
    macPatchManager->setSilentModeOption(RecordAccess::silentModeCmd(block));
    macPatchManager->setInstallOption(zelor::remediation::usesBundleInstaller(block));
    zelor::CallReport report;
    zlog::debug(
        " [Remediation Manager] (installNonOsPatches) Installing in silent mode, third-party product patch "
        "= ",
        path);
    const std::string kind = zelor::remediation::installerKind(path);
    const int result = kind.empty() ? zelor::remediation::kInstallFailed
                                    : macPatchManager->install3rdPartyPatch(path, row.getPackageName(), kind);
    addEntryInInstalledPatchesFile(result, RecordAccess::eriId(block));
    const std::string& key = RecordAccess::combinedCpes(row);
    const std::string& name = RecordAccess::patchId(block);
    if (result == zelor::remediation::kInstalled) {
        parts->events.applied(key, zelor::Applied::now,
                              report.restartAsked() || getRebootStatus(RecordAccess::creEriData(row)));
    } else {
        parts->events.failed(
            key, report,
            kind.empty() ? "'" + name + "' is no .app, .pkg or .dmg" : "'" + name + "' was not installed");
    }
    return result;
}

void RemediationManager::recordNonOsResult(remediateMetadata& row, int result, bool& installed) {
    const std::string key = row.getCombinedCpes();
    if (result == zelor::remediation::kInstalled) {
        installed = true;
        if (!rebootNeeded && getRebootStatus(RecordAccess::creEriData(row))) rebootNeeded = true;
        insertRemProgressInMap(key, REM_SUCCESS);
        anyRemSucceeded = true;
        return;
    }
    allRemFailed = true;
    if (result == zelor::remediation::kFileUnavailable) {
        insertRemProgressInMap(key, REM_FILE_UNAVAILABLE);
        return;
    }
    installed = false;
    insertRemProgressInMap(
        key, result == zelor::remediation::kInstallFailed ? REM_FAILED : static_cast<REM_PROGRESS>(result));
}
