#include <exception>
#include <utility>

#include "platform/Log.h"
#include "remediation/RemediationManager.h"
#include "remediation/progress/NearbyKey.h"
#include "remediation/progress/SingleCancels.h"

namespace zlog = zelor::log;

void RemediationManager::setCancelAllRem(bool cancel) {
    cancelAllRem = cancel;
    const boost::unique_lock<boost::mutex> lock(thread_mutex);
    terminateKillableThreads();
}

void RemediationManager::setCancelRemMap(std::map<std::string, std::string> requests) {
    const boost::unique_lock<boost::mutex> lock(thread_mutex);
    cancelRemMap = std::move(requests);
    cancelledKey->forget();
    singleCancelsChanged = true;
    if (cancelRemMap.count(currentRemId) != 0) terminateKillableThreads();
}

std::map<std::string, std::string> RemediationManager::getCancelRemMap() {
    const boost::unique_lock<boost::mutex> lock(thread_mutex);
    return cancelRemMap;
}

void RemediationManager::terminateKillableThreads() {
    zlog::debug(" [Remediation Manager] (terminateKillableThreads) Terminating download_thread.");
    try {
        download_thread.native_handle();
        if (!downloadIsCancelled()) return;
        downloadInterrupted = true;
        download_thread.interrupt();
    } catch (...) {
        zlog::error(
            "[Remediation Manager] (terminateKillableThreads) Unable to interrupt the download_thread.");
    }
}

// The caller holds `thread_mutex`. A download of the buffering job has no request of its own.
bool RemediationManager::downloadIsCancelled() const {
    return cancelAllRem || (!currentRemId.empty() && cancelRemMap.count(currentRemId) != 0);
}

void RemediationManager::setCancellableRequests(const Requests& requests) {
    const boost::unique_lock<boost::mutex> lock(thread_mutex);
    if (cancellableRequests == requests) return;
    cancellableRequests = requests;
    singleCancelsChanged = true;
}

void RemediationManager::setAbortedRemStatusToAborted() {
    const boost::unique_lock<boost::mutex> lock(thread_mutex);
    std::unique_ptr<zelor::remediation::SingleCancels> cancels;
    if (singleCancelsChanged) {
        cancels = std::make_unique<zelor::remediation::SingleCancels>(*cancellableRequests, cancelRemMap,
                                                                      removedDuplicateEriMap);
        singleCancelsChanged = false;
    }
    std::vector<const std::string*> unmarked;
    {
        const boost::unique_lock<boost::mutex> progressLock(mutex);
        if (cancels) singleCancels.swap(cancels);
        unmarked = singleCancels->takeUnmarked();
    }
    for (const std::string* key : unmarked)
        recordProgress(*key, REM_ABORTED);
}

bool RemediationManager::isCancelled(const std::string& key) {
    const boost::unique_lock<boost::mutex> lock(thread_mutex);
    return cancelledKey->find(cancelRemMap, key) != cancelRemMap.end();
}

bool RemediationManager::isAborted(const std::string& key) {
    if (!isCancelled(key)) return false;
    zlog::debug(" [Remediation Manager] ", key, " is Going to Get Aborted");
    return true;
}

bool RemediationManager::thisRemIsAborted(std::string id) {
    return isAborted(id);
}
