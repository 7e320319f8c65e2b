#pragma once

#include <atomic>
#include <boost/thread/thread.hpp>
#include <string>

#include "remediation/RunFlags.h"
#include "remediation/apply/AppliedRemediations.h"
#include "remediation/apply/ConfigurationPhase.h"
#include "remediation/apply/OsUpdatePhase.h"
#include "remediation/apply/ProductPhase.h"
#include "remediation/buffer/BufferedPatches.h"
#include "remediation/intake/RequestIntake.h"
#include "remediation/intake/RequestStore.h"
#include "remediation/progress/Cancellation.h"
#include "remediation/progress/Needs.h"
#include "remediation/progress/Progress.h"
#include "remediation/progress/RunEvents.h"

namespace zelor::remediation {

/// Drives one run at a time through its phases.
class RunDriver {
  public:
    /// The settings and results of a run. All of them outlive the object.
    struct State {
        std::atomic<bool>& done;
        bool& option;                       ///< the last argument of `start`; has no effect
        std::atomic<bool>& firstAfterScan;  ///< reset when a run ends normally
        const std::string& installPath;
        const std::string& contentDirectory;
        const std::string& installedRecord;  ///< the record's path
        boost::thread& thread;               ///< the run's thread; replaced by each `start`
        RequestRows rows;
        RunFlags flags;
    };
    /// What a run works with. All of them outlive the object.
    struct Parts {
        RequestStore& requests;
        RequestIntake& intake;
        AppliedRemediations& applied;
        BufferedPatches& buffered;
        ConfigurationPhase& configurations;
        OsUpdatePhase& osUpdates;
        ProductPhase& products;
        MacPatchManager& installer;
        Progress& progress;
        Cancellation& cancellation;
        RunEvents& events;
        Needs& needs;
    };

    /// Starts nothing yet.
    RunDriver(const State& state, const Parts& parts) : state_(state), parts_(parts) {}
    RunDriver(const RunDriver&) = delete;
    RunDriver& operator=(const RunDriver&) = delete;

    /// Starts a run on a new thread and returns at once. Refused with an error line while another run is in
    /// progress. Throws nothing: when no thread can be made, the requests fail and `done` is set. Any thread.
    void start(bool option);
    /// Performs a whole run on the calling thread; refused like `start`. Throws nothing. It sets `done` last:
    /// from then on the object may be destroyed.
    void run();
    /// Installs all patches, OS updates first. A step of the run, on its thread.
    void installPatches();
    /// Empties the content directory; one that other users can modify is left as it is, with an error line.
    void emptyContentDirectory();

  private:
    enum class Stage { none, starting, running };

    bool runPhases();
    void announceArchives();
    bool stoppedBeforePhases();
    bool stoppedAfterPhase();
    void endAsAborted();
    void endAfterException(const std::string& what);

    State state_;
    Parts parts_;
    std::atomic<Stage> stage_{Stage::none};
};

}  // namespace zelor::remediation
