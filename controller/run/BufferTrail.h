#pragma once

#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace zelor::controller {

/// What became of one patch of a buffering job.
struct PatchOutcome {
    enum class Kind { downloading, buffered, alreadyBuffered, skipped };
    std::string patch;
    Kind kind = Kind::downloading;
    std::string reason;  ///< printable; of a skipped one
};

/// Follows a buffering job by the lines that it logs. Any thread.
class BufferTrail {
  public:
    /// Takes one line of the log, as it was logged.
    void take(bool error, const std::string& line);
    /// The job is over: what is still downloading was not finished, for that reason.
    void end(const std::string& reason);

    /// Every patch once, in the order in which the job came to it.
    std::vector<PatchOutcome> outcomes() const;
    /// Those that changed since the last call.
    std::vector<PatchOutcome> takeNews();

  private:
    void endUnfinished(const std::string& reason);
    void set(const std::string& patch, PatchOutcome::Kind kind, const std::string& reason);

    mutable std::mutex mutex_;
    std::vector<PatchOutcome> outcomes_;
    std::unordered_map<std::string, std::size_t> places_;  ///< of the patches in the outcomes
    std::vector<PatchOutcome> news_;
    std::string problem_;  ///< the last error since a download began
};

}  // namespace zelor::controller
