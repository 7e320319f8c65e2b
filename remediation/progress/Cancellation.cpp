#include <exception>
#include <utility>

#include "platform/Log.h"
#include "remediation/RemediationManager.h"
#include "remediation/intake/RequestParsing.h"
#include "remediation/progress/NearbyKey.h"
#include "remediation/progress/ProgressTable.h"

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
    hasSingleCancels = !cancelRemMap.empty();
    checkAllForCancel = !cancelRemMap.empty();
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
        downloadInterrupted = true;
        download_thread.interrupt();
    } catch (...) {
        zlog::error(
            "[Remediation Manager] (terminateKillableThreads) Unable to interrupt the download_thread.");
    }
}

void RemediationManager::setAbortedRemStatusToAborted() {
    const boost::unique_lock<boost::mutex> lock(thread_mutex);
    // Only what was written since the last look can have lost its 13, unless the cancels themselves changed.
    std::vector<std::string> written;
    bool all = false;
    {
        const boost::unique_lock<boost::mutex> progressLock(mutex);
        written.swap(keysToCheckForCancel);
        all = checkAllForCancel.exchange(false);
    }
    if (all) {
        for (const auto& cancelled : cancelRemMap) {
            if (progressTable->find(zelor::remediation::progressKey(cancelled.first)))
                insertRemProgressInMap(cancelled.first, REM_ABORTED);
        }
        return;
    }
    for (const std::string& key : written) {
        if (cancelledKey->find(cancelRemMap, key) != cancelRemMap.end()) recordProgress(key, REM_ABORTED);
    }
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
