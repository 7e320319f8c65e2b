#include "remediation/apply/OsUpdatePhase.h"

#include "collaborators/ConfigurationManager.h"
#include "platform/Log.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/RecordAccess.h"
#include "remediation/apply/ContentWalk.h"
#include "remediation/intake/ContentRules.h"

namespace zelor::remediation {

void OsUpdatePhase::install(std::vector<remediateMetadata>& rows) {
    log::debug(" [Remediation Manager]  Inside installOsPatches ");
    parts_.cancellation.markCancelled();
    const std::string type = ConfigurationManager::GetInstance("")->getVendorProductInstallationType();
    if (!installsVendorUpdates(type)) {
        log::debug(
            " [Remediation Manager] (installOsPatches) Interactive mode installation. We do nothing in "
            "interactive mode "
            "installation for Linux");
        return;
    }
    log::debug(" [Remediation Manager] (installOsPatches) Silent mode install ..");
    for (remediateMetadata& row : rows) {
        if (!installRequest(row)) return;
    }
}

// False when the whole run was cancelled meanwhile.
bool OsUpdatePhase::installRequest(remediateMetadata& row) {
    if (!RecordAccess::creEriDataPresent(row)) {
        log::info(" [Remediation Manager] (installOsPatches) skipping entry for which parsing failed");
        return true;
    }
    if (!RecordAccess::osRemediation(row)) {
        log::info(" [Remediation Manager] (installOsPatches) Skipping since its not an OS-Remediation");
        return true;
    }
    const std::string key = row.getCombinedCpes();
    if (parts_.cancellation.isCancelled(key)) {
        parts_.record(key, RemediationManager::REM_ABORTED);
        log::info(" [Remediation Manager] (installOsPatches) skipping remediation, since it is aborted");
        return true;
    }
    parts_.record(key, RemediationManager::REM_QUEUED);
    parts_.cancellation.markCancelled();
    if (parts_.cancellation.stopsRun()) return false;
    parts_.cancellation.setCurrentRequest(key);
    parts_.record(key, RemediationManager::REM_INSTALLING);
    const std::string packageName = row.getPackageName();
    log::debug(" [Remediation Manager] (installOsPatches) Patching OS Package = ", packageName);
    CallReport report({},
                      [&] { return parts_.cancellation.stopsRun() || parts_.cancellation.isCancelled(key); });
    const bool installed = parts_.installer.installOSPatch(packageName) == 0;
    if (!installed) {
        parts_.events.failed(key, report, "the update could not be installed");
        parts_.fail(key, stateOfUpdate(installed));
        return true;
    }
    parts_.events.applied(key, report.nothingToDo() ? Applied::before : Applied::now, report.restartAsked());
    parts_.succeed(key);
    log::info(" [Remediation Manager] (installOsPatches) Remediation for \"", packageName, "\" succeeded !!");
    parts_.content.drop(row);
    return true;
}

}  // namespace zelor::remediation
