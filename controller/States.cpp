#include "controller/States.h"

#include <array>

namespace zelor::controller {

std::string stateName(ProgressValue value) {
    static constexpr std::array<const char*, 14> names = {
        "queued", "downloading",    "downloaded",       "installing",      "success",
        "failed", "content-failed", "internal-failed",  "invalid-request", "failed",
        "failed", "failed",         "file-unavailable", "aborted"};
    return value < names.size() ? names.at(value) : "failed";
}

int runExitStatus(std::size_t requests, std::size_t succeeded, bool cancelledBySignal) {
    if (cancelledBySignal) return exitStatus::cancelled;
    if (succeeded == 0) return exitStatus::noneSucceeded;
    return succeeded == requests ? exitStatus::allSucceeded : exitStatus::someSucceeded;
}

}  // namespace zelor::controller
