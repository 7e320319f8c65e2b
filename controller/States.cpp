#include "controller/States.h"

#include <array>

namespace zelor::controller {

std::string stateName(ProgressValue value) {
    static constexpr std::array<const char*, 14> kNames = {
        "queued", "downloading",    "downloaded",       "installing",      "success",
        "failed", "content-failed", "internal-failed",  "invalid-request", "failed",
        "failed", "failed",         "file-unavailable", "aborted"};
    return value < kNames.size() ? kNames.at(value) : "failed";
}

int runExitStatus(std::size_t requests, std::size_t succeeded, bool cancelledBySignal) {
    if (cancelledBySignal) return exitStatus::kCancelled;
    if (succeeded == 0) return exitStatus::kNoneSucceeded;
    return succeeded == requests ? exitStatus::kAllSucceeded : exitStatus::kSomeSucceeded;
}

}  // namespace zelor::controller
