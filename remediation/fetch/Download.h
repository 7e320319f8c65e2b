#pragma once

#include <atomic>
#include <boost/thread/mutex.hpp>
#include <string>

#include "base/Mutex.h"
#include "remediation/fetch/PatchName.h"
#include "remediation/progress/Cancellation.h"
#include "remediation/progress/RunEvents.h"

namespace zelor::remediation {

/// Downloads archives, one at a time: a request's on a thread that a cancel interrupts, the buffer's on the
/// calling thread. The operations block, and belong to the run's or the buffering job's thread.
class Download {
  public:
    /// All of them outlive the object. `done`: true between the end of a transfer and the join of its thread.
    Download(const std::string& installPath, std::atomic<bool>& done, const std::atomic<bool>& internalError,
             Cancellation& cancellation, RunEvents& events);
    Download(const Download&) = delete;
    Download& operator=(const Download&) = delete;

    /// Downloads a request's archive to `archivePath` (in and out). A download that was interrupted for a
    /// cancel which is withdrawn by then is made again. Success shows in the file alone. False when a cancel
    /// came before the transfer.
    bool forRequest(const std::string& key, const PatchName& name, std::string& archivePath);
    /// Downloads an archive for the buffer at `bytesPerSecond`, on the calling thread. The downloader's
    /// result: 0 when the archive is complete. A downloader that asks `CallReport::stopAsked` ends early for
    /// a cancel of everything, one that looks at interruptions for one of the calling thread.
    int forBuffer(const PatchName& name, std::string& archivePath, unsigned long bytesPerSecond);
    /// True when a cancel or an interruption came during the last download for the buffer.
    bool bufferingWasStopped() const { return stopped_; }

    /// Transfers on the calling thread, and reports the end to the events and to who waits for it. The
    /// downloader's result, 0 when the archive is complete, or -1 for an exception, which is logged.
    int transfer(std::string stem, std::string& archivePath, std::string extension, bool rateLimited,
                 unsigned long bytesPerSecond);

  private:
    bool start(const std::string& key, const std::function<void()>& work);
    void join();

    const std::string& installPath_;
    std::atomic<bool>& done_;
    const std::atomic<bool>& internalError_;
    Cancellation& cancellation_;
    RunEvents& events_;
    bool refused_ = false;              ///< a cancel came before the last thread
    std::atomic<bool> stopped_{false};  ///< the buffer's last download; a run's thread may set it in vain
    // The end of the transfer is awaited here, so that the thread's handle is used under the cancels' lock
    // alone.
    base::Mutex endMutex_;
    base::Condition end_;
};

}  // namespace zelor::remediation
