#include "remediation/apply/ConfigurationPhase.h"

#include <boost/filesystem/operations.hpp>

#include "platform/Log.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/RecordAccess.h"
#include "remediation/apply/InstallResult.h"
#include "remediation/intake/ContentRules.h"

namespace zelor::remediation {

void ConfigurationPhase::apply(std::vector<remediateMetadata>& rows) {
    log::debug(" >>> [Remediation Manager] (applyConfigs) starting ...");
    for (remediateMetadata& row : rows) {
        parts_.cancellation.markCancelled();
        if (parts_.cancellation.stopsRun() || !applyRequest(row)) break;
    }
    log::debug(" <<< [Remediation Manager] (applyConfigs) DONE!! ...");
}

// False when the whole run was cancelled meanwhile.
bool ConfigurationPhase::applyRequest(remediateMetadata& row) {
    const std::string key = row.getCombinedCpes();
    if (parts_.cancellation.isCancelled(key)) {
        parts_.record(key, RemediationManager::REM_ABORTED);
        return true;
    }
    if (!RecordAccess::creEriDataPresent(row)) return true;
    const std::string cce = row.getCveOrCceId();
    log::debug(" [Remediation Manager] (applyConfigs) Applying configs for CCE: ", cce);
    int result = kInstalled;
    if (parts_.applied.covers(RecordAccess::creEriData(row))) {
        log::debug(
            "[Remediation Manager] (applyConfigs) verifyIfAlreadyAppliedRem returned true for a config. CCE "
            "is: ",
            cce);
        parts_.events.applied(key, Applied::before, false);
        parts_.succeed(key);
    } else {
        bool stop = false;
        if (!fetchAndRunScripts(row, result, stop)) return !stop;
    }
    recordResult(row, result);
    log::info(" [Remediation Manager] The RESULT for Config apply for : CCE - ", cce,
              " is : ", result == kInstalled ? "Succeeded" : "Failed");
    return true;
}

// The first block that does not succeed decides. False when there is no result to record; `stop` then says
// whether that is because the whole run was cancelled.
bool ConfigurationPhase::fetchAndRunScripts(remediateMetadata& row, int& result, bool& stop) {
    const std::string key = row.getCombinedCpes();
    std::vector<parsedEriData>& blocks = RecordAccess::blocks(RecordAccess::creEriData(row));
    std::size_t current = 0;
    do {
        if (blocks.empty() || !namesPatchFile(RecordAccess::patchId(blocks[current]))) {
            log::error("[Remediation Manager] (applyConfigs) Patch id is empty for cpe = '", key,
                       "' and CCE = '", row.getCveOrCceId(), "'");
            log::debug(
                "[Remediation Manager] (applyConfigs) Patch name is not a valid patch .. Marking FAILED.");
            parts_.events.failed(key, "the content names no script");
            parts_.fail(key, RemediationManager::REM_INVALID_REQUEST);
            return false;
        }
        parsedEriData& block = blocks[current];
        FetchedFile file;
        const Next next = parts_.source.fetchBlock(key, block, file);
        stop = next == Next::phaseEnd;
        if (stop) return false;
        if (next == Next::aborted) {
            parts_.record(key, RemediationManager::REM_ABORTED);
            return false;
        }
        if (parts_.flags.internalError) {
            parts_.record(key, RemediationManager::REM_INTERNAL_FAILED);
            return false;
        }
        parts_.record(key, RemediationManager::REM_INSTALLING);
        CallReport report;
        result = runScript(block, file);
        if (result == kInstalled) {
            parts_.events.applied(key, Applied::now, asksForReboot(RecordAccess::creEriData(row)));
        } else {
            parts_.events.failed(key, report, "the script could not be run");
        }
    } while (result == kInstalled && ++current < blocks.size());
    return true;
}

int ConfigurationPhase::runScript(parsedEriData& block, const FetchedFile& file) {
    const std::string& path = file.path;
    log::debug(" [Remediation Manager] (applyConfigs) The config file path:", path);
    boost::system::error_code error;
    if (path.empty() || !boost::filesystem::exists(path, error)) {
        log::error(" [Remediation Manager] (applyConfigs) The config file to harden the system '", path,
                   "' does not exist OR it failed the signature verification.");
        return kFileUnavailable;
    }
    const int result = MacPatchManager().applyConfig(path);
    parts_.applied.add(result, RecordAccess::eriId(block));
    if (result == kInstalled && file.usedBufferedCopy)
        parts_.buffered.discard(RecordAccess::patchId(block), path);
    return result;
}

void ConfigurationPhase::recordResult(remediateMetadata& row, int result) {
    const std::string key = row.getCombinedCpes();
    if (result == kInstalled) {
        if (!parts_.flags.rebootNeeded)
            parts_.flags.rebootNeeded = asksForReboot(RecordAccess::creEriData(row));
        parts_.succeed(key);
        parts_.content.drop(row);
        return;
    }
    parts_.record(key, result == kFileUnavailable ? RemediationManager::REM_FILE_UNAVAILABLE
                                                  : RemediationManager::REM_FAILED);
    parts_.flags.allFailed = true;
}

}  // namespace zelor::remediation
