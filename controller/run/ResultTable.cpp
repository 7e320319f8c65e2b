#include "controller/run/ResultTable.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "remediation/intake/RequestParsing.h"

namespace zelor::controller {

namespace {

constexpr std::size_t kDefinedValues = 14;
constexpr ProgressValue kFailedValue = 5;

}  // namespace

ResultTable::ResultTable(RequestMap requests) : requests_(std::move(requests)), counts_(kDefinedValues) {
    results_.reserve(requests_.size());
    reportKeys_.reserve(requests_.size());
    for (const auto& [key, identifier] : requests_) {
        results_.push_back({&key, &identifier});
        // A shortened key is always a prefix of the key.
        reportKeys_.push_back(std::string_view(key).substr(0, remediation::ProgressKey(key).text().size()));
    }
    byReportKey_.resize(results_.size());
    std::iota(byReportKey_.begin(), byReportKey_.end(), std::size_t{0});
    std::stable_sort(byReportKey_.begin(), byReportKey_.end(),
                     [this](std::size_t a, std::size_t b) { return reportKeys_[a] < reportKeys_[b]; });
    counts_[0] = results_.size();
}

void ResultTable::setInvalid(const InvalidRequests& invalid) {
    const auto valid = [&](std::size_t request) { return invalid.count(*results_[request].key) == 0; };
    const auto first = std::stable_partition(byReportKey_.begin(), byReportKey_.end(), valid);
    invalid_.assign(first, byReportKey_.end());
    byReportKey_.erase(first, byReportKey_.end());
}

std::size_t ResultTable::slot(ProgressValue value) {
    return value < kDefinedValues ? value : kFailedValue;
}

std::size_t ResultTable::count(ProgressValue value) const {
    return counts_[slot(value)];
}

std::size_t ResultTable::finished() const {
    return std::accumulate(counts_.begin() + static_cast<std::ptrdiff_t>(kSuccessValue), counts_.end(),
                           std::size_t{0});
}

std::vector<Change> ResultTable::apply(const ProgressMap& progress) {
    std::vector<Change> changes;
    const auto set = [&](std::size_t request, ProgressValue value) {
        Result& result = results_[request];
        if (result.taken && result.value == value) return;
        --counts_[slot(result.value)];
        ++counts_[slot(value)];
        result.value = value;
        result.taken = true;
        changes.push_back({request, value});
    };
    for (const std::size_t request : invalid_)
        set(request, kInvalidRequestValue);
    auto reported = progress.begin();
    for (const std::size_t request : byReportKey_) {
        const std::string_view key = reportKeys_[request];
        while (reported != progress.end() && reported->first < key)
            ++reported;
        if (reported == progress.end()) break;
        if (reported->first == key) set(request, reported->second);
    }
    std::sort(changes.begin(), changes.end(),
              [](const Change& a, const Change& b) { return a.request < b.request; });
    return changes;
}

}  // namespace zelor::controller
