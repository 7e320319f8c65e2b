#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace zelor::agent {

/// How slow the download of a patch may be.
struct PaceLimit {
    std::uint64_t bytesPerSecond = 4096;       ///< on average over the download; 0: no limit
    std::chrono::milliseconds grace{600'000};  ///< added to the time that the bytes may take
};

/// Whether a download keeps up: the time since its start is at most the grace plus what the bytes that it has
/// brought take at the pace asked for. So no download takes longer than its length at that pace plus the
/// grace, one of no announced length neither, and one that only drips ends when the grace is used up.
/// One thread at a time.
class PatchPace {
  public:
    /// The clock of all moments.
    using Time = std::chrono::steady_clock::time_point;

    /// `rate`: what the download itself is limited to, in bytes per second, 0 for no limit. A download that
    /// is to be slow gets half its own rate as the pace where that is less than the limit.
    PatchPace(PaceLimit limit, std::uint64_t rate, Time start)
        : limit_(limit),
          pace_(rate == 0 ? limit.bytesPerSecond
                          : std::min(limit.bytesPerSecond, std::max<std::uint64_t>(rate / 2, 1))),
          start_(start) {}

    /// The partial file begins with `bytes` that this download did not bring.
    void startAt(std::uint64_t bytes) { base_ = bytes; }
    /// The partial file has `bytes` now. What is fetched a second time counts once.
    void reached(std::uint64_t bytes) {
        if (bytes > base_) brought_ = std::max(brought_, bytes - base_);
    }
    /// Of the grace, this is the time until number `index` of `count` mirrors has to be done, which are asked
    /// one after the other.
    void setShare(std::size_t index, std::size_t count) {
        grace_ = limit_.grace * static_cast<long>(index + 1) / static_cast<long>(count);
    }
    /// True when the download has taken too long for what it has brought.
    bool isLate(Time now) const {
        if (limit_.bytesPerSecond == 0) return false;
        const std::chrono::duration<double> due(static_cast<double>(brought_) / static_cast<double>(pace_));
        return now - start_ > grace_ + due;
    }
    /// Bytes per second.
    std::uint64_t pace() const { return pace_; }

  private:
    PaceLimit limit_;
    std::chrono::milliseconds grace_{limit_.grace};
    std::uint64_t pace_;
    Time start_;
    std::uint64_t base_ = 0;
    std::uint64_t brought_ = 0;
};

}  // namespace zelor::agent
