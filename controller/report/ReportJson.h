#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "controller/States.h"
#include "controller/live/OutageReason.h"
#include "controller/run/ResultTable.h"
#include "controller/run/RunRecord.h"
#include "controller/verify/Proof.h"
#include "results/Run.h"

/// The results of a run as JSON; docs/results.schema.json describes them.
namespace zelor::controller {

/// The version of the format.
using results::kResultSchema;

/// What a run reports besides the values.
struct RunFlags {
    bool rebootNeeded = false;
    bool scanNeeded = false;
    bool allFailed = false;
    bool restartNeededByThisRun = false;  ///< for what this run applied
    EarlyEnd end = EarlyEnd::none;
    std::string endReason{};  ///< printable; "" unless the run ended at its time limit
    Outage outage{};
    std::vector<std::string> warnings{};  ///< printable; not about a single request
    std::string contentSigned{};  ///< when the content was current, as a time of the results; "" if unknown
};

/// Where and when the run took place.
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

/// What the results say about a request besides its value.
struct RequestDetails {
    Outcome outcome;
    double seconds = 0;             ///< from its first work to its result
    std::optional<double> begin{};  ///< of its first work, in seconds since the start of the run
    std::optional<Proof> proof{};   ///< nothing: there is no check of it
};

/// Writes all results as one JSON object, one line for each request. `detailsOf` is called with indexes into
/// the results.
void writeResultJson(std::ostream& out, const ResultTable& table, const RunFlags& flags,
                     const RunFacts& facts,
                     const std::function<RequestDetails(std::size_t request)>& detailsOf);

/// A line of an event file without its line end. `time`: seconds since the start. The details are written
/// only for results, the facts unless null.
std::string eventJson(double time, const Result& result, const RequestDetails& details,
                      const RunFacts* facts = nullptr);

}  // namespace zelor::controller
