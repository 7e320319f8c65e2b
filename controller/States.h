#pragma once

#include <string>

namespace zelor::controller {

/// A progress value of a request, as a `RemediationManager::REM_PROGRESS`.
using ProgressValue = unsigned long;

/// The state's name in reports: "queued", "success", ...; an undefined value is "failed".
std::string stateName(ProgressValue value);

/// The values of a success and of a cancelled request.
inline constexpr ProgressValue kSuccessValue = 4;
inline constexpr ProgressValue kAbortedValue = 13;

/// Downloading, downloaded or installing.
inline bool isActive(ProgressValue value) {
    return value >= 1 && value <= 3;
}
/// A result; only another ERI of the same request or a cancel of the whole run replaces it.
inline bool isResult(ProgressValue value) {
    return value >= kSuccessValue;
}

/// The content could not be obtained; the run failed; the request itself is unusable; its file is missing or
/// not good.
inline constexpr ProgressValue kContentFailedValue = 6;
inline constexpr ProgressValue kInternalFailedValue = 7;
inline constexpr ProgressValue kInvalidRequestValue = 8;
inline constexpr ProgressValue kFileUnavailableValue = 12;

/// Why a run or a buffering job ends before its time.
enum class EarlyEnd {
    none,       ///< it went on to its end
    signal,     ///< a signal cancelled it
    timeLimit,  ///< a run reached [Limits] RunMinutes
    waitingRun  ///< a buffering job gave way to a run
};

/// The same as a sentence for people, "" for none.
std::string earlyEndText(EarlyEnd why);

/// The controller's exit statuses.
namespace exitStatus {
/// All, some or none of the requests succeeded; `kCancelled`: a signal ended the command.
constexpr int kAllSucceeded = 0;
constexpr int kSomeSucceeded = 1;
constexpr int kUnusable = 2;  ///< arguments, requests or configuration; nothing was changed
constexpr int kNoneSucceeded = 3;
constexpr int kOutputFailed = 4;  ///< the command did its work, but an output could not be written
constexpr int kBusy = 5;          ///< another run or buffering job works at this place; nothing was changed
constexpr int kCancelled = 130;
}  // namespace exitStatus

/// How a run ends by its final values; one that a signal or its time limit cancelled says so whatever was
/// reached before.
int runExitStatus(std::size_t requests, std::size_t succeeded, bool cancelled);

}  // namespace zelor::controller
