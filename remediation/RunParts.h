#pragma once

#include "remediation/RunDriver.h"
#include "remediation/RunFlags.h"
#include "remediation/apply/AppliedRemediations.h"
#include "remediation/apply/ConfigurationPhase.h"
#include "remediation/apply/OsUpdatePhase.h"
#include "remediation/apply/PhaseParts.h"
#include "remediation/apply/ProductPhase.h"
#include "remediation/buffer/BufferedPatches.h"
#include "remediation/buffer/BufferingJob.h"
#include "remediation/fetch/Download.h"
#include "remediation/fetch/PatchSource.h"
#include "remediation/intake/RequestContent.h"
#include "remediation/intake/RequestIntake.h"
#include "remediation/intake/RequestStore.h"
#include "remediation/progress/Cancellation.h"
#include "remediation/progress/Needs.h"
#include "remediation/progress/Progress.h"
#include "remediation/progress/RunEvents.h"

namespace zelor::remediation {

/// The parts that a manager's operations forward to. Each has references to parts before it; all are
/// destroyed with the manager.
struct RunParts {
    /// The manager's data members and locks that the parts work on.
    struct Inputs {
        RunFlags flags;
        RequestRows rows;
        Cancellation::State cancels;
        Progress::Map& progressMap;
        const Progress::Duplicates& duplicates;
        Progress::PartialResults& partialResults;
        boost::mutex& progressMutex;
        boost::mutex& cancelMutex;
        RequestStore::Requests& requests;
        boost::mutex& requestsMutex;
        const std::string& platformCpe;
        const std::string& installPath;
        const std::string& contentDirectory;
        const std::string& installedRecord;
        const std::string& bufferedListName;
        std::atomic<bool>& done;
        bool& option;
        std::atomic<bool>& firstAfterScan;
        boost::thread& thread;
        std::atomic<bool>& downloadDone;
        MacPatchManager& installer;
    };

    RunFlags flags;
    RunEvents events;
    Needs needs;
    Progress progress;
    Cancellation cancellation;
    RequestStore requests;
    RequestContent content;
    RequestIntake intake;
    AppliedRemediations applied;
    BufferedPatches buffered;
    Download download;
    PatchSource source;
    BufferingJob buffering;
    ConfigurationPhase configurations;
    OsUpdatePhase osUpdates;
    ProductPhase products;
    RunDriver driver;

    /// What `in` refers to outlives the object. Starts nothing yet.
    explicit RunParts(const Inputs& in)
        : flags(in.flags),
          progress(in.progressMap, in.duplicates, in.partialResults, in.progressMutex, events),
          cancellation(in.cancels, in.duplicates, in.cancelMutex, progress),
          requests(in.requests, in.requestsMutex, cancellation),
          content(in.installPath, in.platformCpe),
          intake(in.rows, in.platformCpe, requests, content, flags, progress, cancellation, events),
          applied(in.installedRecord),
          buffered(in.bufferedListName),
          download(in.installPath, in.downloadDone, flags.internalError, cancellation, events),
          source(in.contentDirectory, flags.internalError, download, buffered, progress, cancellation,
                 events),
          buffering(in.installPath, buffered, download, cancellation, events),
          configurations(phaseParts(in)),
          osUpdates(phaseParts(in)),
          products(phaseParts(in)),
          driver({in.done, in.option, in.firstAfterScan, in.installPath, in.contentDirectory,
                  in.installedRecord, in.thread, in.rows, flags},
                 {requests, intake, applied, buffered, configurations, osUpdates, products, in.installer,
                  progress, cancellation, events, needs}) {}

  private:
    PhaseParts phaseParts(const Inputs& in) {
        return {progress, cancellation, source, applied, buffered, content, in.installer, flags, events};
    }
};

}  // namespace zelor::remediation
