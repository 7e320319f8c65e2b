#pragma once

#include <algorithm>
#include <chrono>

namespace zelor::agent {

/// The end of the time that some work may take. A value; any thread.
class Deadline {
  public:
    /// That long from now; zero or less: there is no end.
    explicit Deadline(std::chrono::milliseconds time)
        : end_(time.count() > 0 ? Clock::now() + time : Clock::time_point::max()) {}

    /// True from the end on.
    bool passed() const { return Clock::now() >= end_; }
    /// `time`, or what is left when that is less; never below zero.
    std::chrono::milliseconds atMost(std::chrono::milliseconds time) const {
        if (end_ == Clock::time_point::max()) return time;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now());
        return std::clamp(left, std::chrono::milliseconds(0), std::max(time, std::chrono::milliseconds(0)));
    }

  private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point end_;
};

}  // namespace zelor::agent
