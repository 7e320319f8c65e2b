#include "controller/Watch.h"

#include <algorithm>

namespace zelor {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds shortestPause{2};
constexpr milliseconds longestPause{50};
constexpr int lookShare = 20;  ///< looking takes at most one part in so many

}  // namespace

milliseconds LookPacer::next(bool changed, std::chrono::nanoseconds lookCost) {
    pause_ = changed ? shortestPause : std::min(pause_ * 2, longest_);
    const auto least = std::chrono::duration_cast<milliseconds>(lookCost * lookShare);
    return std::max(pause_, least);
}

bool watchRun(const WatchedRun& run, ResultTable& table, Signals& signals,
              const std::vector<RunListener*>& listeners) {
    const auto start = Clock::now();
    LookPacer pacer(longestPause);
    bool cancelled = false;
    for (;;) {
        if (!cancelled && signals.endAsked()) {
            cancelled = true;
            run.cancel();
            for (RunListener* listener : listeners)
                listener->cancelling(std::chrono::duration<double>(Clock::now() - start).count());
        }
        // In this order, the look after the end sees every value.
        const bool done = run.done();
        const auto before = Clock::now();
        const std::vector<Change> changes = table.apply(run.progress());
        const auto after = Clock::now();
        const double time = std::chrono::duration<double>(after - start).count();
        for (RunListener* listener : listeners) {
            if (!changes.empty()) listener->changed(table, changes, time);
            listener->looked(table, time);
        }
        if (done) {
            for (RunListener* listener : listeners)
                listener->ended(table, time);
            return cancelled;
        }
        signals.wait(pacer.next(!changes.empty(), after - before));
    }
}

}  // namespace zelor
