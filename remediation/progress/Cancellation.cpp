#include "remediation/progress/Cancellation.h"

#include <exception>
#include <utility>

#include "platform/Log.h"

namespace zelor::remediation {

Cancellation::Cancellation(State state, const Progress::Duplicates& duplicates, boost::mutex& mutex,
                           Progress& progress)
    : state_(state),
      duplicates_(duplicates),
      mutex_(mutex),
      progress_(progress),
      cancellable_(std::make_shared<const Texts>()) {}

void Cancellation::setAll(bool cancel) {
    state_.all = cancel;
    const boost::unique_lock<boost::mutex> lock(mutex_);
    interruptDownload();
}

void Cancellation::setRequests(Texts requests) {
    const boost::unique_lock<boost::mutex> lock(mutex_);
    state_.requests = std::move(requests);
    nearby_.forget();
    cancelsChanged_ = true;
    if (state_.requests.count(state_.currentRequest) != 0) interruptDownload();
}

Cancellation::Texts Cancellation::requests() {
    const boost::unique_lock<boost::mutex> lock(mutex_);
    return state_.requests;
}

void Cancellation::interruptDownload() {
    log::debug(" [Remediation Manager] (terminateKillableThreads) Terminating download_thread.");
    try {
        state_.download.native_handle();
        if (!downloadIsCancelled()) return;
        downloadInterrupted_ = true;
        state_.download.interrupt();
    } catch (...) {
        log::error(
            "[Remediation Manager] (terminateKillableThreads) Unable to interrupt the download_thread.");
    }
}

// The caller holds `mutex_`. A download of the buffering job belongs to no request.
bool Cancellation::downloadIsCancelled() const {
    return state_.all ||
           (!state_.currentRequest.empty() && state_.requests.count(state_.currentRequest) != 0);
}

void Cancellation::setCancellable(const Requests& requests) {
    const boost::unique_lock<boost::mutex> lock(mutex_);
    if (cancellable_ == requests) return;
    cancellable_ = requests;
    cancelsChanged_ = true;
}

void Cancellation::markCancelled() {
    if (!cancelsChanged_ && !progress_.anyCancelUnmarked()) return;
    const boost::unique_lock<boost::mutex> lock(mutex_);
    std::unique_ptr<SingleCancels> cancels;
    if (cancelsChanged_) {
        cancels = std::make_unique<SingleCancels>(*cancellable_, state_.requests, duplicates_);
        cancelsChanged_ = false;
    }
    const auto unmarked = progress_.takeUnmarkedCancels(std::move(cancels));
    for (const std::string* key : unmarked)
        progress_.record(*key, RemediationManager::REM_ABORTED);
}

bool Cancellation::stopsRequest(const std::string& key) {
    if (state_.all) return true;
    const boost::unique_lock<boost::mutex> lock(mutex_);
    return state_.requests.count(key) != 0;
}

bool Cancellation::isCancelled(const std::string& key) {
    {
        const boost::unique_lock<boost::mutex> lock(mutex_);
        if (nearby_.find(state_.requests, key) == state_.requests.end()) return false;
    }
    log::debug(" [Remediation Manager] ", key, " is Going to Get Aborted");
    return true;
}

void Cancellation::beginRun() {
    stopped_ = false;
    inRun_ = true;
}

bool Cancellation::stopsRun() {
    if (!inRun_) return state_.all;
    if (state_.all) stopped_ = true;
    return stopped_;
}

void Cancellation::setCurrentRequest(const std::string& key) {
    const boost::unique_lock<boost::mutex> lock(mutex_);
    state_.currentRequest = key;
}

Cancellation::Start Cancellation::startDownload(const std::string& key, const std::function<void()>& work) {
    const boost::unique_lock<boost::mutex> lock(mutex_);
    state_.currentRequest = key;
    downloadInterrupted_ = false;
    if (downloadIsCancelled()) return Start::cancelled;
    try {
        state_.download = boost::thread(work);
        return Start::started;
    } catch (const std::exception& problem) {
        log::error(" [Remediation Manager] Inside getFileFromRepo: No thread for the download: ",
                   problem.what());
        return Start::noThread;
    }
}

boost::thread Cancellation::takeDownload() {
    const boost::unique_lock<boost::mutex> lock(mutex_);
    return std::move(state_.download);
}

}  // namespace zelor::remediation
