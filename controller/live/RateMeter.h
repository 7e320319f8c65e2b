#pragma once

#include <cstdint>
#include <deque>

namespace zelor::controller {

/// The speed of a transfer over its last few seconds. Times in seconds.
class RateMeter {
  public:
    /// Adds a measurement, `bytes` of the transfer so far, and returns bytes per second; 0 until enough time
    /// has passed.
    double rate(std::uint64_t bytes, double time) {
        if (!samples_.empty() && bytes < samples_.back().bytes) samples_.clear();
        samples_.push_back({bytes, time});
        while (samples_.size() > 2 && time - samples_[1].time > kWindow)
            samples_.pop_front();
        const Sample& first = samples_.front();
        if (time - first.time < kLeast) return 0;
        return static_cast<double>(bytes - first.bytes) / (time - first.time);
    }
    /// Forgets the transfer.
    void reset() { samples_.clear(); }

  private:
    static constexpr double kWindow = 3;
    static constexpr double kLeast = 0.3;

    struct Sample {
        std::uint64_t bytes;
        double time;
    };
    std::deque<Sample> samples_;
};

}  // namespace zelor::controller
