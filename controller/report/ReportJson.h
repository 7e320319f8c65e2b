#pragma once

#include <chrono>
#include <functional>
#include <ostream>
#include <string>

#include "controller/States.h"
#include "controller/run/ResultTable.h"
#include "controller/run/RunRecord.h"

/// The results of a run as JSON; docs/results.schema.json describes them.
namespace zelor::controller {

/// The version of the format; it grows when something that was there changes or goes.
inline constexpr int kResultSchema = 1;

/// What the run says beside the values.
struct RunFlags {
    bool rebootNeeded = false;
    bool scanNeeded = false;
    bool allFailed = false;
    bool restartNeededByThisRun = false;  ///< for what this run applied
    EarlyEnd end = EarlyEnd::none;
    std::string endReason{};  ///< printable; "" unless the run ended at its time limit
};

/// Where and when the run was.
struct RunFacts {
    std::string host;
    std::string productName;
    std::string productVersion;
    std::string platformCpe;
    std::string repository;  ///< its address without credentials
    std::chrono::system_clock::time_point started;
    std::chrono::system_clock::time_point finished;
    double seconds = 0;
};

/// What the results say of a request beside its value.
struct RequestDetails {
    Outcome outcome;
    double seconds = 0;  ///< from its first work to its result
};

/// The whole of the results, a request to a line. `detailsOf` is asked with indexes into the results.
void writeResultJson(std::ostream& out, const ResultTable& table, const RunFlags& flags,
                     const RunFacts& facts,
                     const std::function<RequestDetails(std::size_t request)>& detailsOf);

/// A line of an event file without its line end. `time`: seconds since the start. The details are written of
/// results alone, the facts of the start unless they are null.
std::string eventJson(double time, const Result& result, const RequestDetails& details,
                      const RunFacts* facts = nullptr);

}  // namespace zelor::controller
