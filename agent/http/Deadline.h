#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>

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

/// A time that several share who work one after the other: each has an equal part of it, and what those
/// before it left of theirs. A value; any thread.
class SharedTime {
  public:
    /// From now on; zero: there is no end.
    explicit SharedTime(std::chrono::milliseconds whole) : whole_(whole) {}

    /// What number `index` of `count` may take now, at least a millisecond; zero: there is no end.
    std::chrono::milliseconds left(std::size_t index, std::size_t count) const {
        using std::chrono::milliseconds;
        if (whole_ == milliseconds::zero()) return whole_;
        const auto end = start_ + whole_ * static_cast<long>(index + 1) / static_cast<long>(count);
        const auto left = std::chrono::ceil<milliseconds>(end - std::chrono::steady_clock::now());
        return std::max(left, milliseconds(1));
    }

  private:
    std::chrono::milliseconds whole_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace zelor::agent
