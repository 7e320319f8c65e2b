#include "controller/run/RunRecord.h"

#include <algorithm>
#include <utility>

#include "base/Mutex.h"
#include "base/Strings.h"
#include "controller/Text.h"

namespace zelor::controller {

namespace {

constexpr std::size_t kOutputLines = 40;

std::string lastLines(const std::string& text, std::size_t lines) {
    auto start = text.size();
    for (std::size_t i = 0; i < lines && start != std::string::npos && start > 0; ++i)
        start = text.rfind('\n', start - 1);
    return start == std::string::npos || start == 0 ? text : "...\n" + text.substr(start + 1);
}

std::string warningText(const RequestResult& result) {
    if (result.warning.empty()) return "";
    return (result.applied == Applied::no ? "success, but nothing was installed: "
                                          : "success, but a part of it installed nothing: ") +
           base::printable(result.warning);
}

bool isFailure(ProgressValue value) {
    return isResult(value) && value != kSuccessValue && value != kAbortedValue;
}

}  // namespace

void RunRecord::settled(const RequestResult& result) {
    const base::MutexLock lock(mutex_);
    Entry& entry = entries_[result.key];
    const bool cancelled = result.value == kAbortedValue;
    if (!cancelled) entry.beforeCancel.reset();
    if (cancelled && isResult(entry.last.value) && entry.last.value != kAbortedValue)
        entry.beforeCancel = EarlierResult{entry.last.value, base::printable(entry.last.reason)};
    std::string output = cancelled ? entry.last.output : result.output;
    entry.last = result;
    entry.last.output = std::move(output);
    restartNeeded_ |= result.restartNeeded;
}

void RunRecord::setAbortReason(const std::string& reason) {
    const base::MutexLock lock(mutex_);
    abortReason_ = reason;
}

void RunRecord::setInvalid(const Requests& requests) {
    for (const auto& [key, reason] : requests.invalid) {
        RequestResult result;
        result.key = key;
        result.identifier = requests.all.at(key);
        result.value = kInvalidRequestValue;
        result.reason = reason;
        settled(result);
    }
}

Outcome RunRecord::outcome(const Result& result) const {
    const base::MutexLock lock(mutex_);
    const auto found = entries_.find(*result.key);
    Outcome outcome;
    if (result.value == kAbortedValue) outcome.reason = abortReason_;
    if (found == entries_.end()) return outcome;
    const Entry& entry = found->second;
    if (entry.last.value == result.value) {
        if (result.value != kAbortedValue) outcome.reason = base::printable(entry.last.reason);
        outcome.applied = entry.last.applied;
        outcome.warning = warningText(entry.last);
        outcome.beforeCancel = entry.beforeCancel;
    } else if (entry.beforeCancel && entry.beforeCancel->value == result.value) {
        outcome.reason = entry.beforeCancel->reason;
    } else {
        return outcome;
    }
    const bool failed =
        isFailure(result.value) || (outcome.beforeCancel && isFailure(outcome.beforeCancel->value));
    if (failed) outcome.output = lastLines(base::trimmed(entry.last.output), kOutputLines);
    return outcome;
}

std::string RunRecord::reason(const Result& result) const {
    const Outcome known = outcome(result);
    if (!known.beforeCancel) return known.reason.empty() ? known.warning : known.reason;
    const EarlierResult& earlier = *known.beforeCancel;
    return (known.reason.empty() ? "" : known.reason + "; ") + "before the cancel " +
           stateName(earlier.value) + (earlier.reason.empty() ? "" : ": " + earlier.reason);
}

bool RunRecord::restartNeeded() const {
    const base::MutexLock lock(mutex_);
    return restartNeeded_;
}

void BufferRecord::buffered(const std::string& patch, BufferOutcome outcome, const std::string& reason) {
    const base::MutexLock lock(patchMutex_);
    set(patch, outcome,
        outcome == BufferOutcome::tooLarge ? reason + "; raise PatchesDirSizeMB in section Buffer" : reason);
}

void BufferRecord::end(const std::string& reason) {
    const base::MutexLock lock(patchMutex_);
    for (std::size_t i = 0; i < outcomes_.size(); ++i) {
        const std::string patch = outcomes_[i].patch;
        if (outcomes_[i].kind == BufferOutcome::downloading) set(patch, BufferOutcome::skipped, reason);
    }
}

void BufferRecord::set(const std::string& patch, BufferOutcome kind, const std::string& reason) {
    const auto [place, isNew] = places_.emplace(patch, outcomes_.size());
    if (isNew) outcomes_.push_back({patch, kind, ""});
    PatchOutcome& outcome = outcomes_[place->second];
    // Another request may name a patch that this job has just buffered.
    if (outcome.kind == BufferOutcome::buffered && kind == BufferOutcome::alreadyBuffered) return;
    outcome.kind = kind;
    outcome.reason = base::printable(reason);
    news_.push_back(outcome);
}

std::string BufferRecord::inHand() const {
    const base::MutexLock lock(patchMutex_);
    const auto found = std::find_if(outcomes_.begin(), outcomes_.end(), [](const PatchOutcome& outcome) {
        return outcome.kind == BufferOutcome::downloading;
    });
    return found == outcomes_.end() ? "" : found->patch;
}

std::vector<PatchOutcome> BufferRecord::outcomes() const {
    const base::MutexLock lock(patchMutex_);
    return outcomes_;
}

std::vector<PatchOutcome> BufferRecord::takeNews() {
    const base::MutexLock lock(patchMutex_);
    return std::exchange(news_, {});
}

}  // namespace zelor::controller
