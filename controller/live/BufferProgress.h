#pragma once

#include <memory>
#include <string>
#include <vector>

#include "controller/live/InvalidRequestLimit.h"
#include "controller/live/LiveTerminal.h"
#include "controller/live/OutageReason.h"
#include "controller/live/PlainLines.h"
#include "controller/live/RateMeter.h"
#include "controller/live/RunListener.h"
#include "controller/run/RunRecord.h"

namespace zelor::controller {

/// The outcome's name in output: "buffered", "already-buffered", ...
std::string outcomeName(BufferOutcome kind);

/// Shows a buffering job: live on a terminal, else in timestamped lines.
class BufferProgress : public RunListener {
  public:
    /// The descriptor stays the caller's.
    BufferProgress(int fd, bool live, BufferRecord& record);

    void changed(const ResultTable& table, const std::vector<Change>& changes, double time) override;
    void ticked(const ResultTable& table, double time) override;
    void cancelling(EarlyEnd why, double time) override;
    void ended(const ResultTable& table, double time) override;

  private:
    void draw(double time);
    void settle(const LiveRow& row);
    void writeLine(const std::string& text);

    int fd_;
    BufferRecord& record_;
    std::unique_ptr<LiveTerminal> terminal_;
    std::vector<FrameLine> settled_;
    LiveView view_;
    RateMeter meter_;
    InvalidRequestLimit invalid_;
    OutageReason outage_;
    double drawn_ = -1;
};

}  // namespace zelor::controller
