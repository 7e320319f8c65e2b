#pragma once

#include "remediation/apply/AppliedRemediations.h"
#include "remediation/buffer/BufferedPatches.h"
#include "remediation/buffer/BufferingJob.h"
#include "remediation/fetch/Download.h"
#include "remediation/fetch/PatchSource.h"
#include "remediation/progress/Cancellation.h"
#include "remediation/progress/Progress.h"
#include "remediation/progress/RunEvents.h"

namespace zelor::remediation {

/// What a manager forwards to. Each part has references to those before it; all are destroyed with the
/// manager.
struct RunParts {
    /// The manager's data members and locks that the parts work on.
    struct Inputs {
        Progress::Map& progressMap;
        const Progress::Duplicates& duplicates;
        Progress::PartialResults& partialResults;
        boost::mutex& progressMutex;
        Cancellation::State cancels;
        boost::mutex& cancelMutex;
        const std::string& installPath;
        const std::string& contentDirectory;
        const std::string& installedRecord;
        const std::string& bufferedListName;
        std::atomic<bool>& downloadDone;
        std::atomic<bool>& internalError;
    };

    RunEvents events;
    Progress progress;
    Cancellation cancellation;
    AppliedRemediations applied;
    BufferedPatches buffered;
    Download download;
    PatchSource source;
    BufferingJob buffering;

    explicit RunParts(const Inputs& in)
        : progress(in.progressMap, in.duplicates, in.partialResults, in.progressMutex, events),
          cancellation(in.cancels, in.duplicates, in.cancelMutex, progress),
          applied(in.installedRecord),
          buffered(in.bufferedListName),
          download(in.installPath, in.downloadDone, in.internalError, cancellation, events),
          source(in.contentDirectory, in.internalError, download, buffered, progress, cancellation, events),
          buffering(in.installPath, buffered, download, cancellation, events) {}
};

}  // namespace zelor::remediation
