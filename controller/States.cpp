#include "controller/States.h"

namespace zelor::controller {

std::string earlyEndText(EarlyEnd why) {
    switch (why) {
        case EarlyEnd::none:
            return "";
        case EarlyEnd::signal:
            return "Cancelling; waiting for the current step.";
        case EarlyEnd::timeLimit:
            return "The run has reached its time limit; waiting for the current step.";
        case EarlyEnd::waitingRun:
            return "Stopping for a waiting run; the next job continues.";
    }
    return "";
}

int runExitStatus(std::size_t requests, std::size_t succeeded, bool cancelled) {
    if (cancelled) return exitStatus::kCancelled;
    if (succeeded == 0) return exitStatus::kNoneSucceeded;
    return succeeded == requests ? exitStatus::kAllSucceeded : exitStatus::kSomeSucceeded;
}

}  // namespace zelor::controller
