#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "controller/report/ReportJson.h"
#include "controller/report/RunTimeline.h"
#include "controller/run/ResultTable.h"

/// The report of a run: one page of HTML that is also well-formed XML, without scripts and external
/// resources. Everything from keys, content and tools is escaped.
namespace zelor::controller {

/// What the page shows.
struct RunReport {
    const ResultTable& table;
    std::vector<std::vector<StateSpan>> spans;  ///< by request
    RunFlags flags;
    bool cancelled = false;
    RunFacts facts;
    std::string logFile;
    std::function<std::string(const Result&)> reasonOf;
    std::function<Outcome(const Result&)> outcomeOf;
    std::vector<std::optional<Proof>> proofs{};  ///< by request; none at all: nothing was checked
};

/// The most rows of the table and of the timeline. Of more requests, those that did not succeed are shown
/// first, then those that took longest.
inline constexpr std::size_t kReportTableRows = 20000;
inline constexpr std::size_t kReportTimelineRows = 300;

/// Writes the whole page. Errors are left in the stream's state.
void writeReportPage(std::ostream& out, const RunReport& report);

}  // namespace zelor::controller
