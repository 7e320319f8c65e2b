#include "remediation/progress/SingleCancels.h"

#include "remediation/intake/RequestParsing.h"

namespace zelor::remediation {

SingleCancels::SingleCancels(const Texts& requests, const Texts& cancelled, const Duplicates& duplicates) {
    for (const auto& each : cancelled) {
        const auto request = requests.find(each.first);
        if (request == requests.end()) continue;
        entries_[ProgressKey(request->first).text()].requests.push_back(&request->first);
        const auto [first, last] = duplicates.equal_range(request->first);
        for (auto duplicate = first; duplicate != last; ++duplicate)
            entries_[ProgressKey(duplicate->second).text()].requests.push_back(&request->first);
    }
    allWritten();
}

void SingleCancels::entryWritten(const std::string& progressKey) {
    if (entries_.empty()) return;
    const auto entry = nearby_.find(entries_, progressKey);
    if (entry != entries_.end()) unmark(entry->second);
}

void SingleCancels::allWritten() {
    for (auto& entry : entries_)
        unmark(entry.second);
}

void SingleCancels::unmark(Entry& entry) {
    if (entry.unmarked) return;
    entry.unmarked = true;
    unmarked_.push_back(&entry);
}

std::vector<const std::string*> SingleCancels::takeUnmarked() {
    std::vector<const std::string*> requests;
    for (Entry* entry : unmarked_) {
        requests.insert(requests.end(), entry->requests.begin(), entry->requests.end());
        entry->unmarked = false;
    }
    unmarked_.clear();
    return requests;
}

}  // namespace zelor::remediation
