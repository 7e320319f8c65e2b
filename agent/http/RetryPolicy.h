#pragma once

#include <chrono>
#include <ctime>
#include <string>

namespace zelor::agent {

/// How often a transfer is attempted, and the pauses in between.
struct RetryPolicy {
    int attempts = 5;          ///< in a row without progress
    int attemptsInAll = 1000;  ///< whatever progress they make
    std::chrono::milliseconds firstPause{1000};
    double factor = 2;
    std::chrono::milliseconds longestPause{60'000};
    double jitter = 0.2;  ///< share of a pause that is randomly added or subtracted
};

/// Whether another attempt may turn that HTTP status into a good one.
bool statusIsTransient(long status);

/// The pause that a Retry-After header (seconds or an HTTP date) asks for; zero for an empty or malformed
/// one.
std::chrono::milliseconds retryAfter(const std::string& header, std::time_t now);

/// The pause before the next attempt after `failures` (1 and up) in a row. `chance` is in [0, 1).
std::chrono::milliseconds pauseAfter(int failures, std::chrono::milliseconds asked, const RetryPolicy& policy,
                                     double chance);

/// A number in [0, 1), another at each call. Any thread.
double randomChance();

}  // namespace zelor::agent
