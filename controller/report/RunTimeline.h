#pragma once

#include <algorithm>
#include <optional>
#include <vector>

#include "controller/live/RunListener.h"

namespace zelor::controller {

/// When a request had one value, in seconds since the start of the run.
struct StateSpan {
    ProgressValue value = 0;
    double begin = 0;
    double end = 0;
};

/// When the first work on a request began, in seconds since the start of the run; none when there was none.
inline std::optional<double> busySince(const std::vector<StateSpan>& spans) {
    const auto busy =
        std::find_if(spans.begin(), spans.end(), [](const StateSpan& span) { return span.value != 0; });
    if (busy == spans.end()) return std::nullopt;
    return busy->begin;
}

/// Seconds from the first value other than queued to the last change.
inline double busySeconds(const std::vector<StateSpan>& spans) {
    const auto since = busySince(spans);
    return since ? spans.back().begin - *since : 0;
}

/// Records every request's values during a run.
class RunTimeline : public RunListener {
  public:
    void changed(const ResultTable& /*table*/, const std::vector<Change>& changes, double time) override {
        for (const Change& change : changes)
            moments_.push_back({change, time});
    }
    void ended(const ResultTable& /*table*/, double time) override { end_ = time; }

    /// When the run ended, in seconds since its start; 0 before.
    double end() const { return end_; }
    /// The spans of each request. The time before its first change is left out, and its last span has no
    /// length.
    std::vector<std::vector<StateSpan>> spans(std::size_t requests) const {
        std::vector<std::vector<StateSpan>> all(requests);
        for (const auto& [change, time] : moments_) {
            std::vector<StateSpan>& own = all[change.request];
            if (!own.empty()) own.back().end = time;
            own.push_back({change.value, time, time});
        }
        return all;
    }

  private:
    struct Moment {
        Change change;
        double time;
    };
    std::vector<Moment> moments_;
    double end_ = 0;
};

}  // namespace zelor::controller
