#include <boost/bind/bind.hpp>
#include <exception>

#include "platform/Log.h"
#include "remediation/RemediationManager.h"
#include "remediation/RunParts.h"

namespace zlog = zelor::log;

namespace {

constexpr char kRefused[] =
    " [Remediation Manager] (remediate) Refused: a run of this manager is still going on. Wait for its end, "
    "or use a manager of its own for each run.";
constexpr char kErrorInParsing[] =
    " [Remediation Manager] Internal error occured in parsing the CREs, setting all remediatons to false. ";
constexpr char kErrorInApplying[] =
    " [Remediation Manager] Internal error occured in applying the remediation, setting all remaining "
    "remediatons to false. ";

}  // namespace

void RemediationManager::remediate(bool option) {
    RunState none = RunState::none;
    if (!runState.compare_exchange_strong(none, RunState::starting)) {
        zlog::error(kRefused);
        return;
    }
    remediateOption = option;
    try {
        remediationThread = boost::thread(boost::bind(&RemediationManager::concertedRemediationStart, this));
    } catch (const std::exception& problem) {
        takeUpRequests();
        endAfterException(std::string("no thread for the run: ") + problem.what());
        runState = RunState::none;
        remDone = true;
    }
}

void RemediationManager::concertedRemediationStart() {
    if (runState.exchange(RunState::running) == RunState::running) {
        zlog::error(kRefused);
        return;
    }
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
    parts->events.ended({rebootNeeded, scanNeeded, getAllRemFailed()});
    parts->cancellation.endRun();
    runState = RunState::none;
    remDone = true;  // the controller may free the manager from here on
}

// True at the normal end, false on every other way out.
bool RemediationManager::runPhases() {
    parts->cancellation.beginRun();
    if (takeUpRequests()->empty() || contentDownloadDir.empty() || installPath.empty()) {
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
    if (firstRemediationAfterScan) parts->applied.reset();

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

// What the controller sets from here on is for a later run.
RemediationManager::Requests RemediationManager::takeUpRequests() {
    const boost::unique_lock<boost::mutex> lock(inputMapmutex);
    takenUpRequests = ovalIdMap;
    parts->cancellation.setCancellable(takenUpRequests);
    return takenUpRequests;
}

RemediationManager::Requests RemediationManager::requestsOfRun() const {
    const boost::unique_lock<boost::mutex> lock(inputMapmutex);
    return takenUpRequests ? takenUpRequests : ovalIdMap;
}

bool RemediationManager::stoppedBeforePhases() {
    if (internalError) {
        endAsInternalError(kErrorInParsing, &RemediationManager::setAllRemsStatusToFailed);
        return true;
    }
    bool cancelled = parts->cancellation.stopsRun();
    for (int look = 0; look < 2 && !cancelled; ++look) {
        setAbortedRemStatusToAborted();
        cancelled = parts->cancellation.stopsRun();
    }
    if (cancelled) endAsAborted();
    return cancelled;
}

bool RemediationManager::stoppedAfterPhase() {
    if (internalError) {
        endAsInternalError(kErrorInApplying, &RemediationManager::setRemainingRemsStatusToFailed);
        return true;
    }
    if (parts->cancellation.stopsRun()) {
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
    const Requests requests = requestsOfRun();
    for (const auto& request : *requests)
        parts->progress.recordUnlessFinal(request.first, REM_ABORTED);
    emptyTheContentDirectory();
}

void RemediationManager::endAfterException(const std::string& what) {
    try {
        zlog::error(" [Remediation Manager] The run ended with an unexpected error: ", what);
        const Requests requests = requestsOfRun();
        for (const auto& request : *requests)
            parts->progress.failUnfinished(request.first, "the run ended with an unexpected error: " + what);
        allRemFailed = true;
        emptyTheContentDirectory();
    } catch (...) {
        // Nothing more can be done for the requests; the run still has to end.
        internalError = true;
    }
}
