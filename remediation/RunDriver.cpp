#include "remediation/RunDriver.h"

#include <exception>

#include "base/TrustedDirectory.h"
#include "platform/Log.h"
#include "remediation/apply/NeededArchives.h"

namespace zelor::remediation {

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

void RunDriver::start(bool option) {
    Stage none = Stage::none;
    if (!stage_.compare_exchange_strong(none, Stage::starting)) {
        log::error(kRefused);
        return;
    }
    state_.option = option;
    try {
        state_.thread = boost::thread([this] { run(); });
    } catch (const std::exception& problem) {
        parts_.requests.takeUp();
        endAfterException(std::string("no thread for the run: ") + problem.what());
        stage_ = Stage::none;
        state_.done = true;
    }
}

void RunDriver::run() {
    if (stage_.exchange(Stage::running) == Stage::running) {
        log::error(kRefused);
        return;
    }
    try {
        log::info(" [Remediation Manager] *********** Zelor Concerted Remediation starts *********");
        if (runPhases()) {
            log::info(" [Remediation Manager] ********** Zelor Remediations Manager exiting ***********");
            state_.firstAfterScan = false;
        }
    } catch (const std::exception& problem) {
        endAfterException(problem.what());
    } catch (...) {
        endAfterException("an exception of unknown type");
    }
    const RunFlags& flags = state_.flags;
    parts_.needs.ended();
    parts_.events.ended({flags.rebootNeeded, flags.scanNeeded, flags.everyOneFailed()});
    parts_.cancellation.endRun();
    stage_ = Stage::none;
    state_.done = true;  // the controller may free the manager from here on
}

// True when the run ended normally, false otherwise.
bool RunDriver::runPhases() {
    parts_.cancellation.beginRun();
    if (parts_.requests.takeUp()->empty() || state_.contentDirectory.empty() || state_.installPath.empty()) {
        log::error(
            " [Remediation Manager] 'ovalIdMap' and/or 'contentDownloadDir' and/or 'install path' is not set "
            "in Remediation Manager");
        return false;
    }
    log::debug(" [Remediation Manager] The remediation content dir set by controller is: ",
               state_.contentDirectory);
    log::debug(
        " [Remediation Manager] BEFORE checking firstRemediationAfterScan. The INSTALLED_PATCHES_FILE is: ",
        state_.installedRecord,
        " AND firstRemediationAfterScan is: ", state_.firstAfterScan ? "true" : "false");
    if (state_.firstAfterScan) parts_.applied.reset();

    parts_.intake.parseAll(&parts_.needs);
    parts_.cancellation.markCancelled();
    log::debug(
        " [Remediation Manager] After parseCreEriForSupersedesTrue, the size of remMetadataForCVE is = ",
        state_.rows.patches.size());
    if (stoppedBeforePhases()) return false;
    if (parts_.needs.heard()) announceArchives();

    if (!state_.rows.configurations.empty()) {
        parts_.configurations.apply(state_.rows.configurations);
        if (stoppedAfterPhase()) return false;
        parts_.cancellation.markCancelled();
    }
    if (!state_.rows.patches.empty()) {
        installPatches();
        if (stoppedAfterPhase()) return false;
    }
    emptyContentDirectory();
    return true;
}

void RunDriver::installPatches() {
    log::debug("  >>> [Remediation Manager] (installPatches) starting ...");
    parts_.osUpdates.install(state_.rows.patches);
    if (parts_.cancellation.stopsRun()) return;
    parts_.cancellation.markCancelled();
    parts_.products.install(state_.rows.patches);
    if (parts_.cancellation.stopsRun()) return;
    parts_.cancellation.markCancelled();
    log::debug(" <<< [Remediation Manager] (installPatches) DONE!! ...");
}

// Looks at record and buffer by itself and logs nothing: the log is that of a run that announces nothing.
void RunDriver::announceArchives() {
    InstalledRecord record(InstalledRecord::Report::nothing);
    record.refresh(state_.installedRecord);
    const std::vector<NeededArchive> archives = neededArchives(
        state_.rows, {[&](const std::string& eriId) { return record.hasLine(eriId); },
                      BufferedPatches::lookAt(parts_.buffered.listPath()),
                      [this](const std::string& key) { return parts_.cancellation.stopsRequest(key); }});
    if (archives.empty()) return;
    parts_.needs.archives(archives);
    // A cancel may have come just before.
    parts_.needs.notNeeded(parts_.cancellation.requests());
    if (parts_.cancellation.all()) parts_.needs.cancelled();
}

bool RunDriver::stoppedBeforePhases() {
    if (state_.flags.internalError) {
        log::error(kErrorInParsing);
        parts_.progress.failAll(state_.rows);
        emptyContentDirectory();
        return true;
    }
    bool cancelled = parts_.cancellation.stopsRun();
    for (int look = 0; look < 2 && !cancelled; ++look) {
        parts_.cancellation.markCancelled();
        cancelled = parts_.cancellation.stopsRun();
    }
    if (cancelled) endAsAborted();
    return cancelled;
}

bool RunDriver::stoppedAfterPhase() {
    if (state_.flags.internalError) {
        log::error(kErrorInApplying);
        parts_.progress.failRemaining(state_.rows);
        emptyContentDirectory();
        return true;
    }
    if (parts_.cancellation.stopsRun()) {
        endAsAborted();
        return true;
    }
    return false;
}

void RunDriver::endAsAborted() {
    log::error(
        " [Remediation Manager] User has aborted all remediations, setting all remediatons to Aborted. ");
    parts_.progress.abortRemaining(state_.rows);
    // A cancel during parsing leaves requests that never became rows.
    const RequestStore::Requests requests = parts_.requests.takenUp();
    for (const auto& request : *requests)
        parts_.progress.recordUnlessFinal(request.first, RemediationManager::REM_ABORTED);
    emptyContentDirectory();
}

void RunDriver::endAfterException(const std::string& what) {
    try {
        log::error(" [Remediation Manager] The run ended with an unexpected error: ", what);
        const RequestStore::Requests requests = parts_.requests.takenUp();
        for (const auto& request : *requests)
            parts_.progress.failUnfinished(request.first, "the run ended with an unexpected error: " + what);
        state_.flags.allFailed = true;
        emptyContentDirectory();
    } catch (...) {
        // Nothing more can be done for the requests; the run still has to end.
        state_.flags.internalError = true;
    }
}

void RunDriver::emptyContentDirectory() {
    if (const base::Check own = base::checkDirectory(state_.contentDirectory); !own) {
        log::error(" [Remediation Manager] The content directory '", state_.contentDirectory,
                   "' is not emptied: ", own.error().text);
        return;
    }
    parts_.installer.emptyTheContentDirectory(state_.contentDirectory);
}

}  // namespace zelor::remediation
