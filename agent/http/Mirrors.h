#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agent/http/RepositoryOutage.h"
#include "base/Mutex.h"

namespace zelor::agent {

class AgentSettings;

/// One address of the repository.
struct Mirror {
    std::string url;     ///< without trailing slashes
    std::string source;  ///< its name in files, without credentials; "" for the only one
    std::shared_ptr<RepositoryOutage> outage;
};

/// The addresses of the repository in one run: the one that served last is asked first, the others in the
/// order of the settings. They need not have the same files: what comes is checked, and asked for elsewhere
/// when it is not good. Any thread.
class Mirrors {
  public:
    /// For these URLs, at least one.
    explicit Mirrors(const std::vector<std::string>& urls);
    /// Those of the settings, with one memory for the current run. Throws std::runtime_error as
    /// `repositoryUrls`.
    static std::shared_ptr<Mirrors> ofRun(const AgentSettings& settings);

    /// Those to ask for `file`, one after the other until one serves: without those that are known to be
    /// down, unless all are; then only the first. Never empty.
    std::vector<Mirror> toAsk(const std::string& file) const;
    /// All in that order.
    std::vector<Mirror> inOrder() const;
    /// That one has served.
    void served(const Mirror& mirror);

  private:
    std::vector<Mirror> mirrors_;
    mutable base::Mutex mutex_;
    std::size_t first_ ZELOR_GUARDED_BY(mutex_) = 0;
};

}  // namespace zelor::agent
