#include <algorithm>
#include <utility>

#include "platform/Log.h"
#include "remediation/RecordAccess.h"
#include "remediation/RemediationManager.h"
#include "remediation/intake/RequestParsing.h"
#include "remediation/progress/ProgressTable.h"
#include "remediation/progress/RunEvents.h"
#include "remediation/progress/SingleCancels.h"

namespace zlog = zelor::log;

namespace {

bool isFailure(unsigned long value) {
    return value >= RemediationManager::REM_FAILED && value <= RemediationManager::REM_FAILED_11;
}

bool isFinal(unsigned long value) {
    return value == RemediationManager::REM_SUCCESS || isFailure(value);
}

}  // namespace

std::map<std::string, unsigned long> RemediationManager::getRemediationProgressMap() {
    return progressTable->copy();
}

void RemediationManager::setRemediationProgressMap(std::map<std::string, unsigned long> progress) {
    progressTable->replace(std::move(progress));
    const boost::unique_lock<boost::mutex> lock(mutex);
    singleCancels->allWritten();
}

void RemediationManager::insertRemProgressInMap(std::string key, REM_PROGRESS progress) {
    recordProgress(key, progress);
}

void RemediationManager::recordProgress(const std::string& key, REM_PROGRESS progress) {
    REM_PROGRESS result = progress;
    if (progress >= REM_SUCCESS && progress <= REM_FAILED_11) {
        bool store = false;
        evaluateCollectiveResult(key, progress, &store, &result);
        if (!store) return;
    }
    const auto value = static_cast<unsigned long>(result);
    announce(key, value);
    const boost::unique_lock<boost::mutex> lock(mutex);
    storeProgress(key, value);
    const auto [first, last] = removedDuplicateEriMap.equal_range(key);
    for (auto duplicate = first; duplicate != last; ++duplicate) {
        zlog::debug(" [Remediation Manager] Mapping the result for removed duplicate ERIs. Key cpe= '", key,
                    "'. Removed cpe= '", duplicate->second, "'. Result = ", value);
        storeProgress(duplicate->second, value);
    }
}

// The caller holds `mutex`.
void RemediationManager::storeProgress(const std::string& key, unsigned long value) {
    const std::string mapKey = zelor::remediation::progressKey(key);
    progressTable->store(mapKey, value);
    if (value != REM_ABORTED) singleCancels->entryWritten(mapKey);
}

void RemediationManager::announce(const std::string& key, unsigned long value) {
    if (value == REM_INTERNAL_FAILED) events->failed(key, "the run stopped on an internal error");
    const auto [first, last] = removedDuplicateEriMap.equal_range(key);
    for (auto duplicate = first; duplicate != last; ++duplicate)
        events->recorded(key, value, &duplicate->second);
    events->recorded(key, value);
}

void RemediationManager::evaluateCollectiveResult(std::string key, REM_PROGRESS progress, bool* store,
                                                  REM_PROGRESS* result) {
    const auto counted = collectiveCounts.find(key);
    const std::size_t count = counted == collectiveCounts.end() ? 0 : counted->second;
    if (count < 2) {
        *store = true;
        *result = progress;
        return;
    }
    zlog::debug(" [Remediation Manager] Inside evaluateCollectiveResult: Multiple (", count,
                ") remediations needed for cpe= ", key);
    collectiveResultMap.emplace(key, progress);
    if (collectiveResultMap.count(key) != count) {
        *store = false;
        return;
    }
    const auto [first, last] = collectiveResultMap.equal_range(key);
    const bool failed = std::any_of(first, last, [](const auto& partial) {
        return isFailure(static_cast<unsigned long>(partial.second));
    });
    *store = true;
    *result = failed ? REM_FAILED : REM_SUCCESS;
    zlog::debug(
        " [Remediation Manager] Inside evaluateCollectiveResult: Evaluated collective result for cpe= ", key,
        " as (5=FAILED, 4=SUCCESS) = ", static_cast<int>(*result));
}

void RemediationManager::countForCollectiveResult(const remediateMetadata& row, bool counts) {
    const std::string& key = RecordAccess::combinedCpes(row);
    if (counts) {
        ++collectiveCounts[key];
        return;
    }
    const auto entry = collectiveCounts.find(key);
    if (entry != collectiveCounts.end() && --entry->second == 0) collectiveCounts.erase(entry);
}

void RemediationManager::setAllRemsStatusToFailed() {
    for (auto* rows : {&remMetadataForCVE, &remMetadataForCCE}) {
        for (const remediateMetadata& row : *rows) {
            insertRemProgressInMap(RecordAccess::combinedCpes(row), REM_INTERNAL_FAILED);
        }
    }
}

void RemediationManager::setRemainingRemsStatusToFailed() {
    zlog::debug(
        "[Remediation Manager] Inside setRemainingRemsStatusToFailed: Setting remaining remediations' status "
        "to "
        "'Failed' as we encountered internal error.");
    for (auto* rows : {&remMetadataForCVE, &remMetadataForCCE}) {
        for (const remediateMetadata& row : *rows) {
            const std::string& key = RecordAccess::combinedCpes(row);
            const std::string mapKey = zelor::remediation::progressKey(key);
            if (progressTable->find(mapKey)) continue;
            announce(key, REM_INTERNAL_FAILED);
            const boost::unique_lock<boost::mutex> lock(mutex);
            storeProgress(key, REM_INTERNAL_FAILED);
        }
    }
}

void RemediationManager::setAllRemainingRemStatusToAborted() {
    zlog::debug(
        "[Remediation Manager] Inside setAllRemainingRemStatusToAborted: Setting remaining remediations' "
        "status to "
        "'Aborted' as user has asked for it.");
    for (auto* rows : {&remMetadataForCVE, &remMetadataForCCE}) {
        for (const remediateMetadata& row : *rows)
            markUnlessFinal(RecordAccess::combinedCpes(row), REM_ABORTED);
    }
}

// `mutex` is not held over both steps: the second takes it, and only the run's thread makes a value final.
void RemediationManager::markUnlessFinal(const std::string& key, REM_PROGRESS progress) {
    const auto known = progressTable->find(zelor::remediation::progressKey(key));
    if (!known || !isFinal(*known)) recordProgress(key, progress);
}
