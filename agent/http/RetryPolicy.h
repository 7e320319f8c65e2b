#pragma once

#include <chrono>
#include <ctime>
#include <string>

namespace zelor::agent {

/// How often and how patiently a transfer is tried again.
struct RetryPolicy {
    int attempts = 5;          ///< in a row without progress
    int attemptsInAll = 1000;  ///< however much progress each of them made
    std::chrono::milliseconds firstPause{1000};
    double factor = 2;
    std::chrono::milliseconds longestPause{60'000};
    double jitter = 0.2;  ///< share of a pause that chance may add or take away
};

/// Whether another attempt may turn that HTTP status into a good one.
bool statusIsTransient(long status);

/// The pause that a Retry-After header (seconds or an HTTP date) asks for; nothing asked or unreadable: zero.
std::chrono::milliseconds retryAfter(const std::string& header, std::time_t now);

/// The pause before the next attempt after `failures` (1 and up) in a row. `chance` is in [0, 1).
std::chrono::milliseconds pauseAfter(int failures, std::chrono::milliseconds asked, const RetryPolicy& policy,
                                     double chance);

/// A number in [0, 1), another at each call. Any thread.
double randomChance();

}  // namespace zelor::agent
