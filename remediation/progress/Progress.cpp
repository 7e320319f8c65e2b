#include "remediation/progress/Progress.h"

#include <algorithm>
#include <utility>

#include "platform/Log.h"
#include "remediation/RecordAccess.h"
#include "remediation/intake/RequestParsing.h"

namespace zelor::remediation {

namespace {

bool isFailure(unsigned long value) {
    return value >= RemediationManager::REM_FAILED && value <= RemediationManager::REM_FAILED_11;
}

bool isFinal(unsigned long value) {
    return value == RemediationManager::REM_SUCCESS || isFailure(value);
}

}  // namespace

Progress::Progress(Map& map, const Duplicates& duplicates, PartialResults& partialResults,
                   boost::mutex& mutex, RunEvents& events)
    : table_(map),
      duplicates_(duplicates),
      partialResults_(partialResults),
      mutex_(mutex),
      events_(events),
      cancels_(std::make_unique<SingleCancels>()) {}

void Progress::replace(Map progress) {
    table_.replace(std::move(progress));
    const boost::unique_lock<boost::mutex> lock(mutex_);
    cancels_->allWritten();
    cancelsUnmarked_ = true;
}

void Progress::record(const std::string& key, State state) {
    State result = state;
    if (isFinal(static_cast<unsigned long>(state))) {
        const auto collective = collectiveResult(key, state);
        if (!collective) return;
        result = *collective;
    }
    const auto value = static_cast<unsigned long>(result);
    announce(key, value);
    const boost::unique_lock<boost::mutex> lock(mutex_);
    store(key, value);
    const auto [first, last] = duplicates_.equal_range(key);
    for (auto duplicate = first; duplicate != last; ++duplicate) {
        log::debug(" [Remediation Manager] Mapping the result for removed duplicate ERIs. Key cpe= '", key,
                   "'. Removed cpe= '", duplicate->second, "'. Result = ", value);
        store(duplicate->second, value);
    }
}

// The caller holds `mutex_`.
void Progress::store(const std::string& key, unsigned long value) {
    const ProgressKey entry(key);
    table_.store(entry.text(), value);
    if (value == RemediationManager::REM_ABORTED) return;
    cancels_->entryWritten(entry.text());
    if (cancels_->anyUnmarked()) cancelsUnmarked_ = true;
}

void Progress::announce(const std::string& key, unsigned long value) {
    if (value == RemediationManager::REM_INTERNAL_FAILED)
        events_.failed(key, "the run stopped on an internal error");
    const auto [first, last] = duplicates_.equal_range(key);
    for (auto duplicate = first; duplicate != last; ++duplicate)
        events_.recorded(key, value, &duplicate->second);
    events_.recorded(key, value);
}

// `mutex_` is not held over both steps: the second locks it, and only the run's thread makes a value final.
void Progress::recordUnlessFinal(const std::string& key, State state) {
    const auto known = table_.find(ProgressKey(key).text());
    if (!known || !isFinal(*known)) record(key, state);
}

std::optional<Progress::State> Progress::collectiveResult(const std::string& key, State state) {
    const auto counted = remediations_.find(key);
    const std::size_t count = counted == remediations_.end() ? 0 : counted->second;
    if (count < 2) return state;
    log::debug(" [Remediation Manager] Inside evaluateCollectiveResult: Multiple (", count,
               ") remediations needed for cpe= ", key);
    partialResults_.emplace(key, state);
    if (partialResults_.count(key) != count) return std::nullopt;
    const auto [first, last] = partialResults_.equal_range(key);
    const bool failed = std::any_of(first, last, [](const auto& partial) {
        return isFailure(static_cast<unsigned long>(partial.second));
    });
    const State result = failed ? RemediationManager::REM_FAILED : RemediationManager::REM_SUCCESS;
    log::debug(
        " [Remediation Manager] Inside evaluateCollectiveResult: Evaluated collective result for cpe= ", key,
        " as (5=FAILED, 4=SUCCESS) = ", static_cast<int>(result));
    return result;
}

void Progress::addRemediation(const remediateMetadata& row) {
    ++remediations_[RecordAccess::combinedCpes(row)];
}

void Progress::removeRemediation(const remediateMetadata& row) {
    const auto entry = remediations_.find(RecordAccess::combinedCpes(row));
    if (entry != remediations_.end() && --entry->second == 0) remediations_.erase(entry);
}

void Progress::failAll(const RequestRows& rows) {
    for (const auto* list : {&rows.patches, &rows.configurations}) {
        for (const remediateMetadata& row : *list)
            record(RecordAccess::combinedCpes(row), RemediationManager::REM_INTERNAL_FAILED);
    }
}

void Progress::failRemaining(const RequestRows& rows) {
    log::debug(
        "[Remediation Manager] Inside setRemainingRemsStatusToFailed: Setting remaining remediations' status "
        "to 'Failed' as we encountered internal error.");
    for (const auto* list : {&rows.patches, &rows.configurations}) {
        for (const remediateMetadata& row : *list) {
            const std::string& key = RecordAccess::combinedCpes(row);
            if (!table_.find(ProgressKey(key).text())) failInternally(key);
        }
    }
}

void Progress::abortRemaining(const RequestRows& rows) {
    log::debug(
        "[Remediation Manager] Inside setAllRemainingRemStatusToAborted: Setting remaining remediations' "
        "status to 'Aborted' as user has asked for it.");
    for (const auto* list : {&rows.patches, &rows.configurations}) {
        for (const remediateMetadata& row : *list)
            recordUnlessFinal(RecordAccess::combinedCpes(row), RemediationManager::REM_ABORTED);
    }
}

void Progress::failUnfinished(const std::string& key, const std::string& reason) {
    const auto known = table_.find(ProgressKey(key).text());
    if (known.value_or(RemediationManager::REM_QUEUED) > RemediationManager::REM_INSTALLING) return;
    events_.failed(key, reason);
    failInternally(key);
}

void Progress::failInternally(const std::string& key) {
    announce(key, RemediationManager::REM_INTERNAL_FAILED);
    const boost::unique_lock<boost::mutex> lock(mutex_);
    store(key, RemediationManager::REM_INTERNAL_FAILED);
}

std::vector<const std::string*> Progress::takeUnmarkedCancels(std::unique_ptr<SingleCancels> cancels) {
    const boost::unique_lock<boost::mutex> lock(mutex_);
    if (cancels) cancels_.swap(cancels);
    cancelsUnmarked_ = false;
    return cancels_->takeUnmarked();
}

}  // namespace zelor::remediation
