#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/Export.h"
#include "collaborators/AheadOfNeed.h"

namespace zelor::agent {

/// Fetches what a run needs before it asks, for `RemediationManager::setAheadOfNeed`: all content at once
/// instead of file by file, then the archives of patches, as far as `[Limits] AheadMegabytes` and the free
/// space allow. What comes is handed to the content cache and to the downloader, which check it as ever when
/// the run asks for it: results and log are those of a run without it. Any thread.
class ZELOR_API Prefetch : public AheadOfNeed {
  public:
    /// For the agent installed in `installPath`, the manager's.
    explicit Prefetch(std::string installPath);
    /// Stops what is in progress. The manager must have no run by then.
    ~Prefetch() override;

    void contentNeeded(const std::vector<NeededContent>& content) override;
    void archivesNeeded(const std::vector<NeededArchive>& archives) override;
    void notNeeded(const std::string& key) override;
    void cancelled() override;
    void ended() override;

  private:
    /// Names by the keys of the requests that need them and are not cancelled.
    class Wanted {
      public:
        void add(const std::string& key, const std::string& name);
        /// The names that no other request needs.
        std::vector<std::string> remove(const std::string& key);
        bool has(const std::string& name) const { return requests_.count(name) != 0; }

      private:
        std::map<std::string, std::vector<std::string>> names_;
        std::map<std::string, std::size_t> requests_;  ///< by name: how many need it
    };

    std::string installPath_;
    std::mutex mutex_;
    // Guarded by the mutex.
    Wanted identifiers_;
    Wanted stems_;
};

}  // namespace zelor::agent
