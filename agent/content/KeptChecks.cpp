#include "agent/content/KeptChecks.h"

#include <utility>

#include "agent/ContentCacheControl.h"

namespace zelor::agent {

namespace {

std::vector<std::string> keyOf(const WantedPatches::Source& source) {
    return {source.installPath, source.identifier, source.platform, source.product};
}

}  // namespace

KeptChecks& KeptChecks::instance() {
    // Kept to the very end of the process: a run's thread may outlive main().
    static KeptChecks& kept = *new KeptChecks;
    return kept;
}

void KeptChecks::say(const WantedPatches::Source& source, const creEriParsedData& entry,
                     std::vector<ContentCheck> checks) {
    const std::uint64_t run = currentRun();
    const base::MutexLock lock(mutex_);
    if (run != run_) entries_.clear();
    run_ = run;
    if (checks.empty() && (wanted_ == nullptr || !wanted_(entry))) {
        entries_.erase(keyOf(source));
    } else {
        entries_[keyOf(source)] = {entry, std::move(checks)};
    }
}

CheckedEntry KeptChecks::of(const WantedPatches::Source& source) const {
    const base::MutexLock lock(mutex_);
    const auto found = entries_.find(keyOf(source));
    return found == entries_.end() ? CheckedEntry() : found->second;
}

void KeptChecks::keepAlso(bool (*wanted)(const creEriParsedData& entry)) {
    const base::MutexLock lock(mutex_);
    wanted_ = wanted;
}

}  // namespace zelor::agent
