#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/Export.h"
#include "collaborators/AheadOfNeed.h"

namespace zelor::agent {

/// Fetches the content of a run at once instead of file by file, for `RemediationManager::setAheadOfNeed`.
/// What comes is handed to the content cache, which checks it when the run asks for it: results and log are
/// those of a run without it. Any thread.
class ZELOR_API Prefetch : public AheadOfNeed {
  public:
    /// For the agent installed in `installPath`, the manager's.
    explicit Prefetch(std::string installPath);
    /// Stops what is in hand. The manager must have no run by then.
    ~Prefetch() override;

    void contentNeeded(const std::vector<NeededContent>& content) override;
    void notNeeded(const std::string& key) override;
    void cancelled() override;
    void ended() override;

  private:
    std::string installPath_;
    std::mutex mutex_;
    // Guarded by the mutex.
    std::map<std::string, std::string>
        identifiers_;                              ///< by request key, of the requests that are not cancelled
    std::map<std::string, std::size_t> requests_;  ///< by identifier: how many need it
};

}  // namespace zelor::agent
