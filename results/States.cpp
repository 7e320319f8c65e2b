#include "results/States.h"

#include <array>

namespace zelor::results {

std::string stateName(ProgressValue value) {
    static constexpr std::array<const char*, 14> kNames = {
        "queued", "downloading",    "downloaded",       "installing",      "success",
        "failed", "content-failed", "internal-failed",  "invalid-request", "failed",
        "failed", "failed",         "file-unavailable", "aborted"};
    return value < kNames.size() ? kNames.at(value) : "failed";
}

}  // namespace zelor::results
