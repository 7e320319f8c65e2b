#include "remediation/progress/RunEvents.h"

#include <exception>
#include <utility>

#include "base/Mutex.h"
#include "platform/Log.h"
#include "remediation/RemediationManager.h"

namespace zelor::remediation {

namespace {

constexpr std::chrono::milliseconds kTransferInterval{100};

}  // namespace

template <class Call>
void RunEvents::notify(const Call& call) {
    if (observer_ == nullptr) return;
    try {
        call(*observer_);
    } catch (const std::exception& problem) {
        log::error("[Remediation Manager] The run's observer threw an exception: ", problem.what());
    }
}

void RunEvents::took(const std::string& key, const std::string& identifier) {
    if (observer_ == nullptr) return;
    const base::MutexLock lock(mutex_);
    Notes notes;
    notes.identifier = identifier;
    notes_[key] = std::move(notes);
}

void RunEvents::started(const std::string& key) {
    if (observer_ == nullptr) return;
    std::string identifier;
    {
        const base::MutexLock lock(mutex_);
        identifier = notes_[key].identifier;
    }
    notify([&](RunObserver& observer) { observer.started(key, identifier); });
}

void RunEvents::failed(const std::string& key, const std::string& reason, const std::string& output) {
    if (observer_ == nullptr) return;
    const base::MutexLock lock(mutex_);
    Notes& notes = notes_[key];
    if (!notes.reason.empty()) return;
    notes.reason = reason;
    notes.output = output;
}

void RunEvents::failed(const std::string& key, const CallReport& report, const std::string& otherwise) {
    failed(key, report.reason().empty() ? otherwise : report.reason(), report.output());
}

void RunEvents::applied(const std::string& key, Applied when, bool asksForRestart,
                        const std::string& output) {
    if (observer_ == nullptr) return;
    const base::MutexLock lock(mutex_);
    Notes& notes = notes_[key];
    if (!output.empty()) notes.output = output;
    // One ERI of an entry that was applied now makes the whole entry count as recorded.
    if (notes.applied != Applied::now) notes.applied = when;
    if (when == Applied::now && asksForRestart) notes.restartNeeded = true;
}

void RunEvents::warned(const std::string& key, const std::string& warning) {
    if (observer_ == nullptr) return;
    const base::MutexLock lock(mutex_);
    Notes& notes = notes_[key];
    if (notes.warning.empty()) notes.warning = warning;
}

void RunEvents::recorded(const std::string& key, unsigned long value, const std::string* removedKey) {
    if (observer_ == nullptr) return;
    RequestResult result;
    result.key = removedKey == nullptr ? key : *removedKey;
    result.value = value;
    const bool isResult = value >= RemediationManager::REM_SUCCESS;
    {
        const base::MutexLock lock(mutex_);
        Notes& shown = notes_[result.key];
        // A cancelled request is marked again at every check for cancels.
        const bool repeated = shown.value == value && (!isResult || value == RemediationManager::REM_ABORTED);
        if (repeated) return;
        shown.value = value;
        result.identifier = shown.identifier;
        Notes& notes = notes_[key];
        result.applied = notes.applied;
        result.restartNeeded = notes.restartNeeded;
        result.output = notes.output;
        if (value == RemediationManager::REM_SUCCESS) result.warning = notes.warning;
        if (value != RemediationManager::REM_SUCCESS && value != RemediationManager::REM_ABORTED)
            result.reason = notes.reason;
        if (isResult && removedKey == nullptr) {
            notes.reason.clear();
            notes.output.clear();
            notes.warning.clear();
        }
    }
    notify([&](RunObserver& observer) {
        isResult ? observer.settled(result) : observer.changed(result.key, value);
    });
}

void RunEvents::beginDownload(const std::string& key, const std::string& patch) {
    if (observer_ == nullptr) return;
    const base::MutexLock lock(mutex_);
    download_ = {key, patch, 0, 0};
    nextTransfer_ = {};
    downloadProblem_.clear();
}

void RunEvents::transferred(std::uint64_t done, std::uint64_t total) {
    if (observer_ == nullptr) return;
    DownloadState state;
    {
        const base::MutexLock lock(mutex_);
        const auto now = std::chrono::steady_clock::now();
        if (now < nextTransfer_ && done != total) return;
        nextTransfer_ = now + kTransferInterval;
        download_.bytesDone = done;
        download_.bytesTotal = total;
        state = download_;
    }
    notify([&](RunObserver& observer) { observer.downloading(state); });
}

void RunEvents::endDownload(const std::string& problem) {
    const base::MutexLock lock(mutex_);
    downloadProblem_ = problem;
}

std::string RunEvents::downloadProblem() const {
    const base::MutexLock lock(mutex_);
    return downloadProblem_;
}

void RunEvents::buffered(const std::string& patch, BufferOutcome outcome, const std::string& reason) {
    notify([&](RunObserver& observer) { observer.buffered(patch, outcome, reason); });
}

void RunEvents::ended(const RunEnd& end) {
    notify([&](RunObserver& observer) { observer.ended(end); });
}

}  // namespace zelor::remediation
