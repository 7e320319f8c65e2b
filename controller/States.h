#pragma once

#include <string>

#include "results/States.h"

namespace zelor::controller {

/// The states of requests, as every reader of results knows them.
using results::isActive;
using results::isResult;
using results::kAbortedValue;
using results::kContentFailedValue;
using results::kFileUnavailableValue;
using results::kInternalFailedValue;
using results::kInvalidRequestValue;
using results::kSuccessValue;
using results::ProgressValue;
using results::stateName;

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
