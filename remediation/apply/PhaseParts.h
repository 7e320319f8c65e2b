#pragma once

#include "platform/macos/MacPatchManager.h"
#include "remediation/RunFlags.h"
#include "remediation/apply/AppliedRemediations.h"
#include "remediation/buffer/BufferedPatches.h"
#include "remediation/fetch/PatchSource.h"
#include "remediation/intake/RequestContent.h"
#include "remediation/progress/Cancellation.h"
#include "remediation/progress/Progress.h"
#include "remediation/progress/RunEvents.h"

namespace zelor::remediation {

/// What the phases of a run work with. All of it outlives the phases, and belongs to the run's thread except
/// where its class says otherwise.
struct PhaseParts {
    Progress& progress;
    Cancellation& cancellation;
    PatchSource& source;
    AppliedRemediations& applied;
    BufferedPatches& buffered;
    RequestContent& content;
    MacPatchManager& installer;
    RunFlags flags;
    RunEvents& events;

    /// Records a state for a request key.
    void record(const std::string& key, Progress::State state) const { progress.record(key, state); }
    /// Records a failure, which also counts for the whole run.
    void fail(const std::string& key, Progress::State state) const {
        progress.record(key, state);
        flags.allFailed = true;
    }
    /// Records a success, which also counts for the whole run.
    void succeed(const std::string& key) const {
        progress.record(key, RemediationManager::REM_SUCCESS);
        flags.anySucceeded = true;
    }
};

/// Results of one installation or configuration step; any other value is an installer's own failure code.
constexpr int kInstalled = 0;
constexpr int kInstallFailed = -1;
constexpr int kFileUnavailable = -3;

}  // namespace zelor::remediation
