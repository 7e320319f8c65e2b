#pragma once

#include <functional>
#include <string>
#include <vector>

#include "controller/live/RunListener.h"

namespace zelor::controller {

/// Why a request reads what it reads, in a few words; "" when there is nothing to say.
using ReasonOf = std::function<std::string(const Result&)>;

/// One timestamped line for each change, for logs and pipes.
class PlainLines : public RunListener {
  public:
    /// Lines go to the descriptor, which stays the caller's.
    PlainLines(int fd, ReasonOf reasonOf) : fd_(fd), reasonOf_(std::move(reasonOf)) {}

    void changed(const ResultTable& table, const std::vector<Change>& changes, double time) override;
    void cancelling(double time) override;

  private:
    int fd_;
    ReasonOf reasonOf_;
};

/// Writes `text` and a line end, with the time before it.
void writePlainLine(int fd, const std::string& text);

/// The last words on a run: counts by state, what is needed now, where the log is. Printable lines.
std::string runSummary(const ResultTable& table, bool rebootNeeded, const std::string& logFile,
                       double seconds);

}  // namespace zelor::controller
