#pragma once

#include <atomic>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "remediation/progress/NearbyKey.h"
#include "remediation/progress/Progress.h"

namespace zelor::remediation {

/// How work on a request proceeds after a check for cancels.
enum class Next {
    proceed,
    aborted,  ///< the request is cancelled
    phaseEnd  ///< the whole run is cancelled, or has failed
};

/// Cancels of a whole run or of single requests, and the download thread that a cancel interrupts. Any thread
/// may cancel; the other operations belong to the run's or the buffering job's thread. Its lock is taken
/// before that of `Progress`.
class Cancellation {
  public:
    /// Texts by request key; requests (key to identifier), unchanged once shared.
    using Texts = std::map<std::string, std::string>;
    using Requests = std::shared_ptr<const Texts>;

    /// What is cancelled and what would be interrupted. All but `all` is guarded by the lock.
    struct State {
        std::atomic<bool>& all;       ///< the whole run
        Texts& requests;              ///< by the keys of single requests
        std::string& currentRequest;  ///< whose file is fetched or installed; "" for a buffering job
        boost::thread& download;      ///< the thread of the download in progress, else no thread
    };

    /// All of them outlive the object. `duplicates`: as in `Progress`.
    Cancellation(State state, const Progress::Duplicates& duplicates, boost::mutex& mutex,
                 Progress& progress);
    Cancellation(const Cancellation&) = delete;
    Cancellation& operator=(const Cancellation&) = delete;

    /// Cancels the whole run and interrupts its download, or withdraws that cancel.
    void setAll(bool cancel);
    /// True while the whole run is cancelled.
    bool all() const { return state_.all; }
    /// Replaces the requests that are cancelled one by one, by whole request key; interrupts the download of
    /// one of them.
    void setRequests(Texts requests);
    /// A copy of the requests that are cancelled one by one.
    Texts requests();
    /// Interrupts the download if the run or its request is cancelled. The caller holds the lock. Failures
    /// are logged.
    void interruptDownload();

    /// Sets the requests among which single cancels are looked up; shared until others are set.
    void setCancellable(const Requests& requests);
    /// Records 13 for every request that is cancelled one by one and whose progress does not show it yet.
    void markCancelled();
    /// True, with a log line, when the request is cancelled one by one.
    bool isCancelled(const std::string& key);
    /// True when the run or the request with this whole key is cancelled; logs nothing. Any thread.
    bool stopsRequest(const std::string& key);

    /// Begin and end of a run. In between, once `stopsRun` has returned true, a cancel can no longer be
    /// withdrawn.
    void beginRun();
    void endRun() { inRun_ = false; }
    /// True when the whole run is cancelled: the caller must leave the rest undone.
    bool stopsRun();

    /// Sets the request that is worked on from now on.
    void setCurrentRequest(const std::string& key);

    /// How a download began.
    enum class Start { started, cancelled, noThread };
    /// Runs `work` on a new download thread for a request key, or "" for a buffering job, unless that is
    /// cancelled. No other download may be in progress. A failure to make the thread is logged. What `work`
    /// refers to must outlive the thread.
    Start startDownload(const std::string& key, const std::function<void()>& work);
    /// Hands over the download thread, for the caller to join once the work has ended.
    boost::thread takeDownload();
    /// True when the last download started has been interrupted.
    bool downloadWasInterrupted() const { return downloadInterrupted_; }

  private:
    bool downloadIsCancelled() const;

    State state_;
    const Progress::Duplicates& duplicates_;
    boost::mutex& mutex_;
    Progress& progress_;
    NearbyKey<Texts> nearby_;  ///< in `state_.requests`; this one and the next are guarded by `mutex_`
    Requests cancellable_;     ///< what single cancels are looked up in
    std::atomic<bool> cancelsChanged_{false};  ///< since `markCancelled`; written under `mutex_`
    std::atomic<bool> inRun_{false};
    bool stopped_ = false;  ///< the run left something undone for a cancel
    std::atomic<bool> downloadInterrupted_{false};
};

}  // namespace zelor::remediation
