#pragma once

#include <functional>
#include <map>
#include <set>
#include <vector>

#include "agent/DownloadProgress.h"
#include "controller/live/InvalidRequestLimit.h"
#include "controller/live/LiveTerminal.h"
#include "controller/live/OutageReason.h"
#include "controller/live/PlainLines.h"
#include "controller/live/RateMeter.h"
#include "controller/live/RunListener.h"

namespace zelor::controller {

/// What the live display of a run shows, without a terminal. A result is settled, and not drawn again, once
/// it has not changed for a moment: a request of several ERIs has intermediate results.
class LiveModel {
  public:
    /// For a run of `requests` requests; `reasonOf` gives the reasons of results.
    LiveModel(std::size_t requests, ReasonOf reasonOf);

    /// Takes changes of the table into account. Times are seconds since the start of the run.
    void changed(const ResultTable& table, const std::vector<Change>& changes, double time);
    /// The rows that settled since the last call, in the order of their keys; with `atEnd`, all results.
    std::vector<LiveRow> takeSettled(const ResultTable& table, double time, bool atEnd);
    /// A line on invalid requests that were not among them, "" for none since the last call.
    std::string takeLeftOut() { return invalid_.takeText(); }
    /// The display at `time`: at most `rows` rows, with the current download.
    LiveView view(const ResultTable& table, double time, std::size_t rows,
                  const agent::DownloadSnapshot& download);

  private:
    struct Interval {
        double begun = 0;    ///< when work on the request began
        double changed = 0;  ///< when the current value began
    };

    LiveRow row(const ResultTable& table, std::size_t request, double time) const;
    /// Makes the columns wide enough for the requests, or for the first of very many.
    void measure(const ResultTable& table);

    ReasonOf reasonOf_;
    std::set<std::size_t> waiting_;
    std::set<std::size_t> busy_;
    std::map<std::size_t, Interval>
        intervals_;                  ///< of the requests that are being worked on or have just ended
    std::set<std::size_t> resting_;  ///< with a result that is not settled
    InvalidRequestLimit invalid_;
    OutageReason outage_;
    RateMeter meter_;
    std::string resource_;
    std::size_t nameColumns_ = 0;
    std::size_t identifierColumns_ = 0;
};

/// Shows a run on a terminal.
class LiveProgress : public RunListener {
  public:
    /// Draws on the descriptor, which stays the caller's.
    LiveProgress(int fd, std::size_t requests, ReasonOf reasonOf);

    void changed(const ResultTable& table, const std::vector<Change>& changes, double time) override;
    void ticked(const ResultTable& table, double time) override;
    void cancelling(EarlyEnd why, double time) override;
    void ended(const ResultTable& table, double time) override;

  private:
    void draw(const ResultTable& table, double time, bool atEnd);

    LiveTerminal terminal_;
    LiveModel model_;
    double drawn_ = -1;
    EarlyEnd end_ = EarlyEnd::none;
};

/// How many results have each state, for the total.
std::vector<std::pair<std::string, std::size_t>> countsByState(const ResultTable& table);

}  // namespace zelor::controller
