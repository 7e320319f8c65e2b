#include "collaborators/ConfigurationManager.h"
#include "platform/Log.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/RecordAccess.h"
#include "remediation/RemediationManager.h"
#include "remediation/RunParts.h"
#include "remediation/intake/ContentRules.h"

namespace zlog = zelor::log;

void RemediationManager::installPatches() {
    zlog::debug("  >>> [Remediation Manager] (installPatches) starting ...");
    installOsPatches();
    if (parts->cancellation.stopsRun()) return;
    setAbortedRemStatusToAborted();
    installNonOsPatches(installPath);
    if (parts->cancellation.stopsRun()) return;
    setAbortedRemStatusToAborted();
    zlog::debug(" <<< [Remediation Manager] (installPatches) DONE!! ...");
}

void RemediationManager::installOsPatches() {
    zlog::debug(" [Remediation Manager]  Inside installOsPatches ");
    setAbortedRemStatusToAborted();
    const std::string type = ConfigurationManager::GetInstance("")->getVendorProductInstallationType();
    if (!zelor::remediation::installsVendorUpdates(type)) {
        zlog::debug(
            " [Remediation Manager] (installOsPatches) Interactive mode installation. We do nothing in "
            "interactive mode "
            "installation for Linux");
        return;
    }
    zlog::debug(" [Remediation Manager] (installOsPatches) Silent mode install ..");
    for (remediateMetadata& row : remMetadataForCVE) {
        if (!installOsRequest(row)) return;
    }
}

// False when the whole run was cancelled meanwhile.
bool RemediationManager::installOsRequest(remediateMetadata& row) {
    if (!RecordAccess::creEriDataPresent(row)) {
        zlog::info(" [Remediation Manager] (installOsPatches) skipping entry for which parsing failed");
        return true;
    }
    if (!RecordAccess::osRemediation(row)) {
        zlog::info(" [Remediation Manager] (installOsPatches) Skipping since its not an OS-Remediation");
        return true;
    }
    const std::string key = row.getCombinedCpes();
    if (thisRemIsAborted(key)) {
        insertRemProgressInMap(key, REM_ABORTED);
        zlog::info(" [Remediation Manager] (installOsPatches) skipping remediation, since it is aborted");
        return true;
    }
    insertRemProgressInMap(key, REM_QUEUED);
    setAbortedRemStatusToAborted();
    if (parts->cancellation.stopsRun()) return false;
    parts->cancellation.setCurrentRequest(key);
    insertRemProgressInMap(key, REM_INSTALLING);
    const std::string packageName = row.getPackageName();
    zlog::debug(" [Remediation Manager] (installOsPatches) Patching OS Package = ", packageName);
    zelor::CallReport report;
    if (macPatchManager->installOSPatch(packageName) != 0) {
        parts->events.failed(key, report, "the update could not be installed");
        insertRemProgressInMap(key, REM_FAILED);
        allRemFailed = true;
        return true;
    }
    parts->events.applied(key, report.nothingToDo() ? zelor::Applied::before : zelor::Applied::now,
                          report.restartAsked());
    insertRemProgressInMap(key, REM_SUCCESS);
    anyRemSucceeded = true;
    zlog::info(" [Remediation Manager] (installOsPatches) Remediation for \"", packageName,
               "\" succeeded !!");
    dropContent(row);
    return true;
}

bool RemediationManager::getRebootStatus(creEriParsedData& creEri) {
    return zelor::remediation::asksForReboot(creEri);
}
