#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

#include "base/Mutex.h"
#include "remediation/CallReport.h"
#include "remediation/RunObserver.h"

namespace zelor::remediation {

/// Calls a run's observer, and keeps what its next result is to say. Without an observer nothing is done. Any
/// thread.
class RunEvents {
  public:
    /// Before the run; null for none.
    void setObserver(RunObserver* observer) { observer_ = observer; }

    /// A request of the run, before anything else about it.
    void took(const std::string& key, const std::string& identifier);
    void started(const std::string& key);

    /// Why the key's next result is a failure; the first reason since its last result counts.
    void failed(const std::string& key, const std::string& reason, const std::string& output = {});
    /// The same with what the call reported, or `otherwise` when it gave no reason.
    void failed(const std::string& key, const CallReport& report, const std::string& otherwise);
    /// The key's remediation is in force; `asksForRestart` counts when it was applied now.
    void applied(const std::string& key, Applied when, bool asksForRestart, const std::string& output = {});

    /// The key's next result is a success by which nothing was installed; the first warning since its last
    /// result counts.
    void warned(const std::string& key, const std::string& warning);

    /// A value that is about to be stored; `removedKey` names a duplicate that shares it.
    void recorded(const std::string& key, unsigned long value, const std::string* removedKey = nullptr);

    void beginDownload(const std::string& key, const std::string& patch);
    void transferred(std::uint64_t done, std::uint64_t total);
    void endDownload(const std::string& problem);
    /// Why the last download failed, "" when it did not.
    std::string downloadProblem() const;

    void buffered(const std::string& patch, BufferOutcome outcome, const std::string& reason = {});
    void ended(const RunEnd& end);

  private:
    struct Notes {
        std::string identifier;
        unsigned long value = 0;  ///< the last that was announced
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
