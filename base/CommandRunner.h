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
    bool timedOut = false;  ///< it ran longer than the limit
    bool waited = false;    ///< `status` is the child's own
    int status = -1;        ///< raw wait status
    std::string output;     ///< standard output; head and tail when there is more than `kOutputBound` of it
    std::size_t outputSize = 0;
};

/// Bytes of output kept per command; of longer output, the middle is dropped.
constexpr std::size_t kOutputBound = std::size_t{8} << 20;

/// Runs `argv` (its first word a path) without a terminal, with standard input from /dev/null, and blocks
/// until it has ended and its output is closed: this also waits for processes that the command leaves behind
/// with the output open. Collects standard output, and with `mergeError` also standard error, which is
/// inherited otherwise. No other descriptor is passed on. At `limit` (zero: none) the process group gets
/// SIGTERM, five seconds later SIGKILL, and the result has the output read so far.
CommandResult runCommand(const std::vector<std::string>& argv, bool mergeError, std::chrono::seconds limit);

/// Runs the file `script` with /bin/bash in the same way, but waits only for that shell: services that the
/// script leaves behind keep running and writing. Collects standard output and standard error up to the
/// shell's end, through an unnamed file in the script's directory; where none can be made, the output is
/// dropped.
CommandResult runScript(const std::string& script, std::chrono::seconds limit);

/// Keeps the first and the last half of `bound` bytes of a stream; what lies between is dropped as it comes.
class OutputBuffer {
  public:
    /// `bound` in bytes.
    explicit OutputBuffer(std::size_t bound) : half_(bound / 2) {}

    /// Appends `size` bytes of the stream.
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
