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

/// What the live display of a run shows, without a terminal. A result is settled, never to be redrawn, once
/// it has not changed for a moment: a request of several ERIs passes through results on its way.
class LiveModel {
  public:
    /// For a run of `requests` requests; `reasonOf` gives the reasons of results.
    LiveModel(std::size_t requests, ReasonOf reasonOf);

    /// Takes over changes of the table. Times are seconds since the start of the run.
    void changed(const ResultTable& table, const std::vector<Change>& changes, double time);
    /// The rows that have come to rest since the last call, by their keys; all with `atEnd`.
    std::vector<LiveRow> takeSettled(const ResultTable& table, double time, bool atEnd);
    /// A line on invalid requests that were not among them, "" for none since the last call.
    std::string takeLeftOut() { return invalid_.takeText(); }
    /// The display at `time`: at most `rows` rows, with the download in hand.
    LiveView view(const ResultTable& table, double time, std::size_t rows,
                  const agent::DownloadSnapshot& download);

  private:
    struct Interval {
        double begun = 0;    ///< of the request's first work
        double changed = 0;  ///< of the present value
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

/// Results by state, for the total.
std::vector<std::pair<std::string, std::size_t>> countsByState(const ResultTable& table);

}  // namespace zelor::controller
