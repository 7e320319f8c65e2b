#pragma once

#include <chrono>
#include <cstddef>
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

/// Runs `argv` (its first word a path) in a session of its own, without a terminal, with standard input from
/// /dev/null. Reads its output to the end, which comes when nobody holds it open any more: also a process
/// that the command left behind is waited for, as by pclose(3). Standard output is collected, and standard
/// error too when `mergeError`; else that is inherited. No other descriptor is passed on, but for the one of
/// a child lock (`base/ChildLock.h`) that is taken. At `limit` (zero: none) the group gets TERM, five seconds
/// later KILL, and the output read so far is the result's.
CommandResult runCommand(const std::vector<std::string>& argv, bool mergeError, std::chrono::seconds limit);

/// Runs `script` with /bin/bash in the same way, but waits for that shell alone: services that the script
/// leaves behind go on, and go on writing. Both outputs are collected, up to the shell's end, through a file
/// without a name in the script's directory; where none can be made, the output is dropped.
CommandResult runScript(const std::string& script, std::chrono::seconds limit);

/// Keeps the first and the last half of `bound` bytes of a stream; what lies between is dropped as it comes.
class OutputBuffer {
  public:
    explicit OutputBuffer(std::size_t bound) : half_(bound / 2) {}

    void add(const char* data, std::size_t size);
    /// Counts `size` bytes of the stream as dropped. At least half of the bound is to be added before and
    /// after.
    void skip(std::size_t size) { size_ += size; }
    /// Bytes added so far, the dropped ones included.
    std::size_t size() const { return size_; }
    /// What was kept, with a line that says how much is missing where bytes were dropped. Leaves the buffer
    /// empty.
    std::string take();

  private:
    std::size_t half_;
    std::size_t size_ = 0;
    std::string head_;
    std::string tail_;  ///< a ring once it is full: the oldest byte is at `start_`
    std::size_t start_ = 0;
};

}  // namespace zelor::base
