#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace zelor::base {

/// How an external command went.
struct CommandResult {
    bool started = false;
    int startError = 0;     ///< errno when it could not be started
    bool timedOut = false;  ///< the limit ended it
    bool waited = false;    ///< `status` is the child's own
    int status = -1;        ///< raw wait status
    std::string output;     ///< standard output; head and tail when there is more than `kOutputBound` of it
    std::size_t outputSize = 0;
};

/// Output kept in memory per command; beyond it the middle goes.
constexpr std::size_t kOutputBound = std::size_t{8} << 20;

/// Runs `argv` (its first word a path) in a process group of its own with standard input from /dev/null and
/// waits for it. Standard output is collected, and standard error too when `mergeError`; else that is
/// inherited. No other descriptor is passed on. At `limit` (zero: none) the group gets TERM, five seconds
/// later KILL. A descendant that keeps the output open after the command itself ended is waited for five
/// seconds at most.
CommandResult runCommand(const std::vector<std::string>& argv, bool mergeError, std::chrono::seconds limit);

}  // namespace zelor::base
