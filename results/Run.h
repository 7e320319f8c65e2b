#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "base/Result.h"
#include "results/States.h"

namespace zelor::results {

/// The version of the format; raised when something in it is changed or removed.
inline constexpr int kResultSchema = 1;

/// What the check of a request's content proves after the run; `unknown`: neither.
enum class Verified { noCheck, holds, fails, unknown };

/// One request of a run, as its results have it. All texts are untrusted.
struct Request {
    std::string key;
    std::string identifier;
    ProgressValue value = 0;
    std::string detail;  ///< the reason or the warning, and what an aborted request had been; "" for none
    bool warned = false;
    bool appliedNow = false;
    bool appliedBefore = false;
    std::chrono::milliseconds begin{};     ///< from the start of the run; zero when it is not known
    std::chrono::milliseconds duration{};  ///< of the work on it
    Verified verified = Verified::noCheck;
    std::string verifiedReason;  ///< "" for none
};

/// The results of a run, as `run --json` writes them.
struct Run {
    std::string version;  ///< of the program that ran
    std::string host;
    std::string platformName;
    std::string platformVersion;
    std::string platformCpe;
    std::chrono::system_clock::time_point started;
    std::chrono::system_clock::time_point finished;
    double seconds = 0;
    std::vector<Request> requests;  ///< at least one, by key
    bool rebootNeeded = false;
    bool restartNeededByThisRun = false;
    bool scanNeeded = false;
    /// When the repository last signed what it has; nothing when that is not known.
    std::optional<std::chrono::system_clock::time_point> contentSigned;
    std::string end;  ///< "complete", "cancelled" or "time-limit"
};

/// When the work on a request ended; the end of the run when that is not known.
std::chrono::system_clock::time_point endOf(const Run& run, const Request& request);

/// Reads the results of a run. Members that this version does not know are ignored. The failure names the
/// member that is something else.
base::Result<Run> parseRun(const std::string& text);

}  // namespace zelor::results
