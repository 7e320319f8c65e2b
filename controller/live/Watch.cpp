#include "controller/live/Watch.h"

#include <algorithm>

namespace zelor::controller {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kShortestPause{2};
constexpr milliseconds kLongestPause{50};
constexpr int kLookShare = 20;  ///< looking takes at most one part in so many

}  // namespace

milliseconds LookPacer::next(bool changed, std::chrono::nanoseconds lookCost) {
    pause_ = changed ? kShortestPause : std::min(pause_ * 2, longest_);
    const auto least = std::chrono::duration_cast<milliseconds>(lookCost * kLookShare);
    return std::max(pause_, least);
}

namespace {

constexpr milliseconds kTickTime{80};

class Watcher {
  public:
    Watcher(const WatchedRun& run, ResultTable& table, Signals& signals,
            const std::vector<RunListener*>& listeners)
        : run_(run), table_(table), signals_(signals), listeners_(listeners) {}

    EarlyEnd watch() {
        while (!look())
            rest();
        for (RunListener* listener : listeners_)
            listener->ended(table_, now());
        return end_;
    }

  private:
    double now() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }

    /// True when the run was over before this look, so that nothing can be missed.
    bool look() {
        const bool done = run_.done();
        const auto before = Clock::now();
        const std::vector<Change> changes = table_.apply(run_.progress());
        cost_ = Clock::now() - before;
        changed_ = !changes.empty();
        const double time = now();
        for (RunListener* listener : listeners_) {
            if (changed_) listener->changed(table_, changes, time);
            listener->ticked(table_, time);
        }
        return done;
    }

    /// Waits for the next look, with an eye on signals and on the end.
    void rest() {
        const auto until = Clock::now() + pacer_.next(changed_, cost_);
        for (;;) {
            if (end_ == EarlyEnd::none) endEarly();
            const auto left = std::chrono::ceil<milliseconds>(until - Clock::now());
            if (left.count() <= 0 || run_.done()) return;
            signals_.wait(std::min(left, kTickTime));
            for (RunListener* listener : listeners_)
                listener->ticked(table_, now());
        }
    }

    void endEarly() {
        if (signals_.endAsked()) {
            end_ = EarlyEnd::signal;
        } else if (run_.endEarly) {
            end_ = run_.endEarly();
        }
        if (end_ == EarlyEnd::none) return;
        run_.cancel(end_);
        for (RunListener* listener : listeners_)
            listener->cancelling(end_, now());
    }

    const WatchedRun& run_;
    ResultTable& table_;
    Signals& signals_;
    const std::vector<RunListener*>& listeners_;
    Clock::time_point start_ = Clock::now();
    LookPacer pacer_{kLongestPause};
    Clock::duration cost_{};
    bool changed_ = false;
    EarlyEnd end_ = EarlyEnd::none;
};

}  // namespace

EarlyEnd watchRun(const WatchedRun& run, ResultTable& table, Signals& signals,
                  const std::vector<RunListener*>& listeners) {
    return Watcher(run, table, signals, listeners).watch();
}

}  // namespace zelor::controller
