#pragma once

#include "remediation/progress/Cancellation.h"
#include "remediation/progress/Progress.h"
#include "remediation/progress/RunEvents.h"

namespace zelor::remediation {

/// What a manager forwards to. Each part has references to those before it; all are destroyed with the
/// manager.
struct RunParts {
    RunEvents events;
    Progress progress;
    Cancellation cancellation;

    RunParts(Progress::Map& progressMap, const Progress::Duplicates& duplicates,
             Progress::PartialResults& partialResults, boost::mutex& progressMutex,
             Cancellation::State cancels, boost::mutex& cancelMutex)
        : progress(progressMap, duplicates, partialResults, progressMutex, events),
          cancellation(cancels, duplicates, cancelMutex, progress) {}
};

}  // namespace zelor::remediation
