#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "controller/States.h"

namespace zelor::controller {

/// One request of a run, as its results have it. All texts are untrusted.
struct ExportedRequest {
    std::string key;
    std::string identifier;
    ProgressValue value = 0;
    std::string detail;  ///< the reason or the warning, and what an aborted request had been; "" for none
    bool warned = false;
    bool appliedNow = false;
    bool appliedBefore = false;
    std::chrono::milliseconds begin{};     ///< from the start of the run; zero when it is not known
    std::chrono::milliseconds duration{};  ///< of the work on it
};

/// The results of a run, as `run --json` writes them.
struct ExportedRun {
    std::string version;  ///< of the program that ran
    std::string host;
    std::string platformName;
    std::string platformVersion;
    std::string platformCpe;
    std::chrono::system_clock::time_point started;
    std::chrono::system_clock::time_point finished;
    double seconds = 0;
    std::vector<ExportedRequest> requests;  ///< at least one, by key
    bool rebootNeeded = false;
    bool restartNeededByThisRun = false;
    bool scanNeeded = false;
    std::string end;  ///< "complete", "cancelled" or "time-limit"
};

/// When the work on a request ended; the end of the run when that is not known.
std::chrono::system_clock::time_point endOf(const ExportedRun& run, const ExportedRequest& request);

/// An identifier of a request that is the same in every run on every machine: 32 hexadecimal digits.
std::string requestDigest(const ExportedRequest& request);
/// One that is the same in every export of this run alone.
std::string commandDigest(const ExportedRun& run, const ExportedRequest& request);

/// Reads results. Members that this version does not know are ignored. Throws InputError, which names the
/// text `name` and the member, when it is something else.
ExportedRun parseResults(const std::string& text, const std::string& name);

/// Reads the results in a file, "-" for standard input. Throws InputError.
ExportedRun loadResults(const std::string& path);

}  // namespace zelor::controller
