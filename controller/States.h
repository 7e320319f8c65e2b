#pragma once

#include <string>

namespace zelor::controller {

using ProgressValue = unsigned long;

/// The state's name in reports: "queued", "success", ...; a value that nobody defined is a failure.
std::string stateName(ProgressValue value);

inline constexpr ProgressValue successValue = 4;
inline constexpr ProgressValue abortedValue = 13;

/// Downloading, downloaded or installing.
inline bool isActive(ProgressValue value) {
    return value >= 1 && value <= 3;
}
/// A result; only a further ERI of the same request or a cancel of the whole run replaces it.
inline bool isResult(ProgressValue value) {
    return value >= successValue;
}

/// The content could not be obtained; the request itself is unusable.
inline constexpr ProgressValue contentFailedValue = 6;
inline constexpr ProgressValue invalidRequestValue = 8;

/// The controller's exit statuses.
namespace exitStatus {
constexpr int allSucceeded = 0;
constexpr int someSucceeded = 1;
constexpr int unusable = 2;  ///< arguments, requests or configuration; nothing was changed
constexpr int noneSucceeded = 3;
constexpr int outputFailed = 4;  ///< the command did its work, and an output cannot be written
constexpr int busy = 5;          ///< another run or buffering job works at this place; nothing was changed
constexpr int cancelled = 130;
}  // namespace exitStatus

/// How a run ends by its final values; one cancelled by a signal says so whatever was reached before.
int runExitStatus(std::size_t requests, std::size_t succeeded, bool cancelledBySignal);

}  // namespace zelor::controller
