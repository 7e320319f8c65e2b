#pragma once

#include <functional>
#include <string>
#include <vector>

#include "controller/live/InvalidRequestLimit.h"
#include "controller/live/OutageReason.h"
#include "controller/live/RunListener.h"
#include "controller/report/ReportJson.h"

namespace zelor::controller {

/// Why a request has its value, in a few words; "" when there is nothing to say.
using ReasonOf = std::function<std::string(const Result&)>;

/// Writes a timestamped line for each change, for logs and pipes.
class PlainLines : public RunListener {
  public:
    /// Lines go to the descriptor, which stays the caller's.
    PlainLines(int fd, ReasonOf reasonOf) : fd_(fd), reasonOf_(std::move(reasonOf)) {}

    void changed(const ResultTable& table, const std::vector<Change>& changes, double time) override;
    void cancelling(EarlyEnd why, double time) override;

  private:
    int fd_;
    ReasonOf reasonOf_;
    InvalidRequestLimit invalid_;
    OutageReason outage_;
};

/// Writes the time, `text` and a line end, folded at the width of a terminal.
void writePlainLine(int fd, const std::string& text);

/// Counts by state: "3 success, 1 failed".
std::string countsText(const std::vector<ProgressValue>& values);

/// The last words on a run: counts by state, what cancelled requests read before, what is needed now, where
/// the log is. Printable lines.
std::string runSummary(const ResultTable& table, const std::vector<ProgressValue>& beforeCancel,
                       const RunFlags& flags, const std::string& logFile, double seconds);

/// What the flags say about a restart, "" when there is nothing to say.
std::string restartText(const RunFlags& flags);

}  // namespace zelor::controller
