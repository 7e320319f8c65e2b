#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

#include "base/Mutex.h"
#include "remediation/CallReport.h"
#include "remediation/RunObserver.h"

namespace zelor::remediation {

/// Calls a run's observer, and keeps what its next results will say. Without an observer it only keeps the
/// problem of the last download. Any thread.
class RunEvents {
  public:
    /// Sets the observer, which stays the caller's; null for none. Call it before the run.
    void setObserver(RunObserver* observer) { observer_ = observer; }

    /// Adds a request of the run; call it before any other event of the request.
    void took(const std::string& key, const std::string& identifier);
    /// The observer's `started`.
    void started(const std::string& key);

    /// Notes why the key's next result is a failure; the first reason since its last result counts.
    void failed(const std::string& key, const std::string& reason, const std::string& output = {});
    /// The same with the reason and output in the report, or `otherwise` when it has no reason.
    void failed(const std::string& key, const CallReport& report, const std::string& otherwise);
    /// Notes that the key's remediation is in force; `asksForRestart` counts only when it was applied now.
    void applied(const std::string& key, Applied when, bool asksForRestart, const std::string& output = {});

    /// The key's next result is a success by which nothing was installed; the first warning since its last
    /// result counts.
    void warned(const std::string& key, const std::string& warning);

    /// A value that is about to be stored; `removedKey` names a duplicate that shares it.
    void recorded(const std::string& key, unsigned long value, const std::string* removedKey = nullptr);

    /// A download of `patch` begins, for a request key or "" for the buffer.
    void beginDownload(const std::string& key, const std::string& patch);
    /// Bytes of the download so far and in all (0: not known); announced ten times a second at most, and when
    /// complete.
    void transferred(std::uint64_t done, std::uint64_t total);
    /// The download has ended; `problem` is "" after a success.
    void endDownload(const std::string& problem);
    /// Why the last download failed, "" when it did not.
    std::string downloadProblem() const;

    /// The observer's events of the same names, called at once.
    void buffered(const std::string& patch, BufferOutcome outcome, const std::string& reason = {});
    void ended(const RunEnd& end);

  private:
    struct Notes {
        std::string identifier;
        unsigned long value = 0;  ///< the last value announced
        std::string reason;
        std::string output;
        std::string warning;
        Applied applied = Applied::no;
        bool restartNeeded = false;
    };

    template <class Call>
    void notify(const Call& call);

    RunObserver* observer_ = nullptr;
    mutable base::Mutex mutex_;  ///< not held during an event
    std::map<std::string, Notes> notes_ ZELOR_GUARDED_BY(mutex_);
    DownloadState download_ ZELOR_GUARDED_BY(mutex_);
    std::chrono::steady_clock::time_point nextTransfer_ ZELOR_GUARDED_BY(mutex_);
    std::string downloadProblem_ ZELOR_GUARDED_BY(mutex_);
};

}  // namespace zelor::remediation
