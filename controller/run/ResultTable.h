#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "controller/States.h"
#include "controller/run/Requests.h"

namespace zelor::controller {

/// The library's progress: request, as the library reports it, to value.
using ProgressMap = std::map<std::string, ProgressValue>;

/// One request and its current value.
struct Result {
    const std::string* key;
    const std::string* identifier;
    ProgressValue value = 0;
    bool taken = false;  ///< the run has reported a value for it
};

/// A value that changed between two polls of the progress map.
struct Change {
    std::size_t request;  ///< index into the results
    ProgressValue value;
};

/// Every request's value, under the key that the caller gave, even where the library reports it under
/// another.
class ResultTable {
  public:
    /// Every request begins with 0 (queued).
    explicit ResultTable(RequestMap requests);
    ResultTable(const ResultTable&) = delete;
    ResultTable& operator=(const ResultTable&) = delete;

    /// Marks requests that never become part of a run: they have value 8 from the first `apply` on. Call it
    /// before that.
    void setInvalid(const InvalidRequests& invalid);

    /// The requests as given.
    const RequestMap& requests() const { return requests_; }
    /// In the order of the keys.
    const std::vector<Result>& results() const { return results_; }
    /// How many requests have `value`; undefined values count as failed.
    std::size_t count(ProgressValue value) const;
    /// How many have a result.
    std::size_t finished() const;

    /// Updates the values from the progress map, in one pass over both. Returns what changed, in the order of
    /// the keys.
    std::vector<Change> apply(const ProgressMap& progress);

  private:
    static std::size_t slot(ProgressValue value);

    RequestMap requests_;
    std::vector<Result> results_;
    std::vector<std::string_view> reportKeys_;  ///< by request
    std::vector<std::size_t> byReportKey_;      ///< requests, sorted by report key, without the invalid ones
    std::vector<std::size_t> invalid_;          ///< requests
    std::vector<std::size_t> counts_;
};

}  // namespace zelor::controller
