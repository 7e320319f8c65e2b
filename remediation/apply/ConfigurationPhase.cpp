#include <boost/filesystem/operations.hpp>

#include "collaborators/CreCacher.h"
#include "platform/Log.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/RecordAccess.h"
#include "remediation/RemediationManager.h"
#include "remediation/RunParts.h"
#include "remediation/apply/InstallResult.h"
#include "remediation/intake/ContentRules.h"

namespace zlog = zelor::log;

void RemediationManager::applyConfigs() {
    zlog::debug(" >>> [Remediation Manager] (applyConfigs) starting ...");
    for (remediateMetadata& row : remMetadataForCCE) {
        setAbortedRemStatusToAborted();
        if (parts->cancellation.stopsRun() || !applyConfigRequest(row)) break;
    }
    zlog::debug(" <<< [Remediation Manager] (applyConfigs) DONE!! ...");
}

// False when the whole run was cancelled meanwhile.
bool RemediationManager::applyConfigRequest(remediateMetadata& row) {
    const std::string key = row.getCombinedCpes();
    if (thisRemIsAborted(key)) {
        insertRemProgressInMap(key, REM_ABORTED);
        return true;
    }
    if (!RecordAccess::creEriDataPresent(row)) return true;
    const std::string cce = row.getCveOrCceId();
    zlog::debug(" [Remediation Manager] (applyConfigs) Applying configs for CCE: ", cce);
    int result = zelor::remediation::kInstalled;
    if (verifyIfAlreadyAppliedRem(RecordAccess::creEriData(row))) {
        zlog::debug(
            "[Remediation Manager] (applyConfigs) verifyIfAlreadyAppliedRem returned true for a config. CCE "
            "is: ",
            cce);
        parts->events.applied(key, zelor::Applied::before, false);
        insertRemProgressInMap(key, REM_SUCCESS);
        anyRemSucceeded = true;
    } else {
        bool stop = false;
        if (!fetchAndRunScripts(row, result, stop)) return !stop;
    }
    recordConfigResult(row, result);
    zlog::info(" [Remediation Manager] The RESULT for Config apply for : CCE - ", cce,
               " is : ", result == zelor::remediation::kInstalled ? "Succeeded" : "Failed");
    return true;
}

// The first block that does not succeed decides. False when there is no result to record; `stop` then tells
// whether that is because the whole run was cancelled.
bool RemediationManager::fetchAndRunScripts(remediateMetadata& row, int& result, bool& stop) {
    const std::string key = row.getCombinedCpes();
    std::vector<parsedEriData>& blocks = RecordAccess::blocks(RecordAccess::creEriData(row));
    std::size_t current = 0;
    do {
        if (blocks.empty() || !zelor::remediation::namesPatchFile(RecordAccess::patchId(blocks[current]))) {
            zlog::error("[Remediation Manager] (applyConfigs) Patch id is empty for cpe = '", key,
                        "' and CCE = '", row.getCveOrCceId(), "'");
            zlog::debug(
                "[Remediation Manager] (applyConfigs) Patch name is not a valid patch .. Marking FAILED.");
            parts->events.failed(key, "the content names no script");
            insertRemProgressInMap(key, REM_INVALID_REQUEST);
            allRemFailed = true;
            return false;
        }
        parsedEriData& block = blocks[current];
        zelor::remediation::FetchedFile file;
        const Next next = parts->source.fetchBlock(key, block, file);
        stop = next == Next::phaseEnd;
        if (stop) return false;
        if (next == Next::aborted) {
            insertRemProgressInMap(key, REM_ABORTED);
            return false;
        }
        if (internalError) {
            insertRemProgressInMap(key, REM_INTERNAL_FAILED);
            return false;
        }
        insertRemProgressInMap(key, REM_INSTALLING);
        zelor::CallReport report;
        result = runScript(block, file);
        if (result == zelor::remediation::kInstalled) {
            parts->events.applied(key, zelor::Applied::now, getRebootStatus(RecordAccess::creEriData(row)));
        } else {
            parts->events.failed(key, report, "the script could not be run");
        }
    } while (result == zelor::remediation::kInstalled && ++current < blocks.size());
    return true;
}

int RemediationManager::runScript(parsedEriData& block, const zelor::remediation::FetchedFile& file) {
    const std::string& path = file.path;
    zlog::debug(" [Remediation Manager] (applyConfigs) The config file path:", path);
    boost::system::error_code error;
    if (path.empty() || !boost::filesystem::exists(path, error)) {
        zlog::error(" [Remediation Manager] (applyConfigs) The config file to harden the system '", path,
                    "' does not exist OR it failed the signature verification.");
        return zelor::remediation::kFileUnavailable;
    }
    const int result = MacPatchManager().applyConfig(path);
    addEntryInInstalledPatchesFile(result, RecordAccess::eriId(block));
    if (result == zelor::remediation::kInstalled && file.usedBufferedCopy)
        cleanupBufferedPatch(RecordAccess::patchId(block), path);
    return result;
}

void RemediationManager::recordConfigResult(remediateMetadata& row, int result) {
    const std::string key = row.getCombinedCpes();
    if (result == zelor::remediation::kInstalled) {
        if (!rebootNeeded) rebootNeeded = getRebootStatus(RecordAccess::creEriData(row));
        insertRemProgressInMap(key, REM_SUCCESS);
        anyRemSucceeded = true;
        dropContent(row);
        return;
    }
    insertRemProgressInMap(
        key, result == zelor::remediation::kFileUnavailable ? REM_FILE_UNAVAILABLE : REM_FAILED);
    allRemFailed = true;
}

// What is applied needs no content any more.
void RemediationManager::dropContent(remediateMetadata& row) {
    CreCacher* cache = CreCacher::GetInstance(installPath, systemPlatformCpe);
    cache->removeCreFromCache(row.getPlatformCpe(), row.getProductCpe(), row.getCveOrCceId());
    cache->removeCreFile(row.getPlatformCpe(), row.getProductCpe(), row.getCveOrCceId());
}
