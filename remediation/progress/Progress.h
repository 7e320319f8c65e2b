#pragma once

#include <atomic>
#include <boost/thread/mutex.hpp>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "remediation/RemediationManager.h"
#include "remediation/progress/ProgressTable.h"
#include "remediation/progress/RunEvents.h"
#include "remediation/progress/SingleCancels.h"

namespace zelor::remediation {

/// The requests of a run that could be parsed, in the order of work. They belong to the run's thread.
struct RequestRows {
    std::vector<remediateMetadata>& patches;
    std::vector<remediateMetadata>& configurations;
};

/// The progress of each request of a run: records states by the collective rule, copies them to removed
/// duplicates, and reports them to the run's events. States are recorded by the run's thread and by calls
/// that cancel; any thread may copy or replace. Takes `mutex` for each write; a caller may hold the cancel
/// state's lock, which comes first.
class Progress {
  public:
    /// A progress value; values by progress key; request key to the keys of removed requests; results by
    /// request key.
    using State = RemediationManager::REM_PROGRESS;
    using Map = std::map<std::string, unsigned long>;
    using Duplicates = std::multimap<std::string, std::string>;
    using PartialResults = std::multimap<std::string, State>;

    /// All of them outlive the object. `map`: progress by progress key; used only through this object from
    /// now on. `duplicates`: request key to the keys of removed requests that share its progress; not changed
    /// while a state is recorded. `partialResults`: the results so far of keys that need several.
    Progress(Map& map, const Duplicates& duplicates, PartialResults& partialResults, boost::mutex& mutex,
             RunEvents& events);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// A snapshot of every request's progress, by progress key.
    Map copy() { return table_.copy(); }
    /// Replaces every entry; does not affect the collective rule and the events.
    void replace(Map progress);

    /// Records a state for a request key. A success or a failure from 5 to 11 passes through the collective
    /// rule first, which may hold it back.
    void record(const std::string& key, State state);
    /// Records a state unless the key's last state is a success or a failure from 5 to 11.
    void recordUnlessFinal(const std::string& key, State state);

    /// Counts a row with content that is not an OS update among the remediations that its key needs.
    void addRemediation(const remediateMetadata& row);
    /// Takes back one `addRemediation` of the row's key, if there was one.
    void removeRemediation(const remediateMetadata& row);
    /// Adds a partial result for `key`. Returns what to record: `state` itself when the key needs one
    /// remediation; else nothing until the last one, and then a failure when any failed.
    std::optional<State> collectiveResult(const std::string& key, State state);

    /// Records an internal failure for every row.
    void failAll(const RequestRows& rows);
    /// Sets an internal failure for the rows without an entry, bypassing the collective rule.
    void failRemaining(const RequestRows& rows);
    /// Records 13 for the rows whose state is not final.
    void abortRemaining(const RequestRows& rows);
    /// Sets an internal failure for `key` unless it is past installing; `reason` goes to the events.
    void failUnfinished(const std::string& key, const std::string& reason);

    /// Whether `takeUnmarkedCancels` may have something to give.
    bool anyCancelUnmarked() const { return cancelsUnmarked_; }
    /// The request keys that are cancelled one by one and whose entries do not show it yet; the caller must
    /// record 13 for them, since they count as marked from now on. `cancels`, when given, replaces what is
    /// cancelled. The keys are valid as long as what `cancels` was made from.
    std::vector<const std::string*> takeUnmarkedCancels(std::unique_ptr<SingleCancels> cancels);

  private:
    void announce(const std::string& key, unsigned long value);
    void store(const std::string& key, unsigned long value);
    void failInternally(const std::string& key);

    ProgressTable table_;
    const Duplicates& duplicates_;
    PartialResults& partialResults_;
    boost::mutex& mutex_;
    RunEvents& events_;
    std::unordered_map<std::string, std::size_t> remediations_;  ///< how many each key needs
    std::unique_ptr<SingleCancels> cancels_;                     ///< guarded by `mutex_`
    std::atomic<bool> cancelsUnmarked_{false};                   ///< written under `mutex_`
};

}  // namespace zelor::remediation
