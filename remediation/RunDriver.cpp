#include <fcntl.h>

#include <boost/bind/bind.hpp>
#include <boost/filesystem/operations.hpp>
#include <exception>

#include "base/Files.h"
#include "platform/Log.h"
#include "remediation/RemediationManager.h"
#include "remediation/apply/InstalledRecord.h"
#include "remediation/intake/RequestParsing.h"
#include "remediation/progress/ProgressTable.h"

namespace zlog = zelor::log;

namespace {

constexpr char kErrorInParsing[] =
    " [Remediation Manager] Internal error occured in parsing the CREs, setting all remediatons to false. ";
constexpr char kErrorInApplying[] =
    " [Remediation Manager] Internal error occured in applying the remediation, setting all remaining "
    "remediatons to false. ";

}  // namespace

void RemediationManager::remediate(bool option) {
    remediateOption = option;
    try {
        remediationThread = boost::thread(boost::bind(&RemediationManager::concertedRemediationStart, this));
    } catch (const std::exception& problem) {
        endAfterException(std::string("no thread for the run: ") + problem.what());
        remDone = true;
    }
}

void RemediationManager::concertedRemediationStart() {
    try {
        zlog::info(" [Remediation Manager] *********** Zelor Concerted Remediation starts *********");
        if (runPhases()) {
            zlog::info(" [Remediation Manager] ********** Zelor Remediations Manager exiting ***********");
            firstRemediationAfterScan = false;
        }
    } catch (const std::exception& problem) {
        endAfterException(problem.what());
    } catch (...) {
        endAfterException("an exception of unknown type");
    }
    remDone = true;  // the controller may free the manager from here on
}

// True at the normal end, false on every other way out.
bool RemediationManager::runPhases() {
    if (!hasRequests() || contentDownloadDir.empty() || installPath.empty()) {
        zlog::error(
            " [Remediation Manager] 'ovalIdMap' and/or 'contentDownloadDir' and/or 'install path' is not set "
            "in "
            "Remediation Manager");
        return false;
    }
    zlog::debug(" [Remediation Manager] The remediation content dir set by controller is: ",
                contentDownloadDir);
    zlog::debug(
        " [Remediation Manager] BEFORE checking firstRemediationAfterScan. The INSTALLED_PATCHES_FILE is: ",
        installedPatchesFile,
        " AND firstRemediationAfterScan is: ", firstRemediationAfterScan ? "true" : "false");
    if (firstRemediationAfterScan) resetInstalledPatchesFile();

    parseCreEriForSupersedesTrue();
    setAbortedRemStatusToAborted();
    zlog::debug(
        " [Remediation Manager] After parseCreEriForSupersedesTrue, the size of remMetadataForCVE is = ",
        remMetadataForCVE.size());
    if (stoppedBeforePhases()) return false;

    if (!remMetadataForCCE.empty()) {
        applyConfigs();
        if (stoppedAfterPhase()) return false;
        setAbortedRemStatusToAborted();
    }
    if (!remMetadataForCVE.empty()) {
        installPatches();
        if (stoppedAfterPhase()) return false;
    }
    emptyTheContentDirectory();
    return true;
}

bool RemediationManager::hasRequests() const {
    const boost::unique_lock<boost::mutex> lock(inputMapmutex);
    return !ovalIdMap.empty();
}

bool RemediationManager::stoppedBeforePhases() {
    if (internalError) {
        endAsInternalError(kErrorInParsing, &RemediationManager::setAllRemsStatusToFailed);
        return true;
    }
    bool cancelled = cancelAllRem;
    for (int look = 0; look < 2 && !cancelled; ++look) {
        setAbortedRemStatusToAborted();
        cancelled = cancelAllRem;
    }
    if (cancelled) endAsAborted();
    return cancelled;
}

bool RemediationManager::stoppedAfterPhase() {
    if (internalError) {
        endAsInternalError(kErrorInApplying, &RemediationManager::setRemainingRemsStatusToFailed);
        return true;
    }
    if (cancelAllRem) {
        endAsAborted();
        return true;
    }
    return false;
}

void RemediationManager::endAsInternalError(const char* message, void (RemediationManager::*markRequests)()) {
    zlog::error(message);
    (this->*markRequests)();
    emptyTheContentDirectory();
}

void RemediationManager::endAsAborted() {
    zlog::error(
        " [Remediation Manager] User has aborted all remediations, setting all remediatons to Aborted. ");
    setAllRemainingRemStatusToAborted();
    // A cancel during parsing leaves requests that never became rows.
    for (const auto& request : getovalIdMap())
        markUnlessFinal(request.first, REM_ABORTED);
    emptyTheContentDirectory();
}

void RemediationManager::endAfterException(const std::string& what) {
    try {
        zlog::error(" [Remediation Manager] The run ended with an unexpected error: ", what);
        for (const auto& request : getovalIdMap()) {
            const std::string mapKey = zelor::remediation::progressKey(request.first);
            const boost::unique_lock<boost::mutex> lock(mutex);
            if (progressTable->find(mapKey).value_or(REM_QUEUED) <= REM_INSTALLING)
                progressTable->store(mapKey, REM_INTERNAL_FAILED);
        }
        allRemFailed = true;
        emptyTheContentDirectory();
    } catch (...) {
        // Nothing more can be done for the requests; the run still has to end.
        internalError = true;
    }
}

void RemediationManager::resetInstalledPatchesFile() {
    boost::system::error_code error;
    if (!boost::filesystem::exists(installedPatchesFile, error)) return;
    if (!boost::filesystem::remove(installedPatchesFile, error) && error) {
        zlog::debug(" [Remediation Manager] The installed-patches record cannot be removed: ",
                    error.message());
    }
    zelor::base::openFile(installedPatchesFile, O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW);
    installedRecord = std::make_unique<zelor::remediation::InstalledRecord>();
}
