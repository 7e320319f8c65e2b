#pragma once

#include <string>

/// The results of runs: what their states mean, reading them, and the look of pages about them.
namespace zelor::results {

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

}  // namespace zelor::results
