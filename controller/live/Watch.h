#pragma once

#include <chrono>
#include <functional>
#include <vector>

#include "controller/live/RunListener.h"
#include "controller/run/ResultTable.h"
#include "controller/run/Signals.h"

namespace zelor::controller {

/// How long to wait before the next poll: short after a change, longer while nothing happens, and never so
/// short that polling takes more than a small share of the time.
class LookPacer {
  public:
    /// Never waits longer than `longest`, unless polling is that slow.
    explicit LookPacer(std::chrono::milliseconds longest) : longest_(longest) {}
    /// The next pause, after a poll that took `lookCost` and found a change or none.
    std::chrono::milliseconds next(bool changed, std::chrono::nanoseconds lookCost);

  private:
    std::chrono::milliseconds longest_;
    std::chrono::milliseconds pause_{2};
};

/// A run as the watcher sees it: its progress now, whether it is over, and how to cancel it. All are called
/// on the watcher's thread.
struct WatchedRun {
    std::function<ProgressMap()> progress;
    std::function<bool()> done;
    std::function<void(EarlyEnd why)> cancel;
    /// Asked some ten times a second until there is a reason to end early; may be empty.
    std::function<EarlyEnd()> endEarly;
};

/// Watches until the run is done, keeping `table` up to date; the first ending signal, or `endEarly`, cancels
/// the run. Returns which of them did.
EarlyEnd watchRun(const WatchedRun& run, ResultTable& table, Signals& signals,
                  const std::vector<RunListener*>& listeners);

}  // namespace zelor::controller
