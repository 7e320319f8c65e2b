#pragma once

#include <atomic>
#include <boost/thread/mutex.hpp>
#include <string>

#include "base/Mutex.h"
#include "remediation/fetch/PatchName.h"
#include "remediation/progress/Cancellation.h"
#include "remediation/progress/RunEvents.h"

namespace zelor::remediation {

/// Downloads archives, one at a time: for a request on a new thread, which a cancel interrupts; for the
/// buffer on the calling thread. The operations block, and belong to the run's or the buffering job's thread.
class Download {
  public:
    /// All of them outlive the object. `done`: true between the end of a transfer and the join of its thread.
    Download(const std::string& installPath, std::atomic<bool>& done, const std::atomic<bool>& internalError,
             Cancellation& cancellation, RunEvents& events);
    Download(const Download&) = delete;
    Download& operator=(const Download&) = delete;

    /// Downloads a request's archive to `archivePath` (in and out). A download that was interrupted by a
    /// cancel that has since been withdrawn is repeated. Only the file shows success. False when a cancel
    /// came before the transfer.
    bool forRequest(const std::string& key, const PatchName& name, std::string& archivePath);
    /// Downloads an archive for the buffer at `bytesPerSecond`, on the calling thread. Returns the
    /// downloader's result: 0 when the archive is complete. A cancel of everything ends it early when the
    /// downloader asks `CallReport::stopAsked`; an interruption of the calling thread does when the
    /// downloader checks for it.
    int forBuffer(const PatchName& name, std::string& archivePath, unsigned long bytesPerSecond);
    /// True when a cancel or an interruption came during the last download for the buffer.
    bool bufferingWasStopped() const { return stopped_; }

    /// Transfers on the calling thread, and reports the end to the events and to the waiting thread. Returns
    /// the downloader's result, 0 when the archive is complete, or -1 for an exception, which is logged.
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
    std::atomic<bool> stopped_{false};  ///< of the last download for the buffer; unused for a run's
    // For waiting for the end of the transfer, so that the thread's handle is used only under the cancels'
    // lock.
    base::Mutex endMutex_;
    base::Condition end_;
};

}  // namespace zelor::remediation
