#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/Export.h"

namespace zelor::agent {

/// What the reason of a request begins with when its content or archive is missing because the repository
/// does not answer; the time since when follows. A display may say it once for all such requests.
inline constexpr char kRepositoryDown[] = "the repository does not answer";

/// Why content that was used since the last `startNewRun` is not known to be the newest that the repository
/// has: an index that has expired or is older than one seen before, or none. Each text names the cause and
/// the remedy; the texts are not escaped. Empty when all is well, without a root in the settings, and when
/// they ask for silence. `installPath` is the manager's. Any thread.
ZELOR_API std::vector<std::string> indexWarnings(const std::string& installPath);

/// What the agent has of a repository's signed index.
struct KeptIndex {
    /// One of the files that it begins with.
    struct Role {
        std::string name;          ///< "root", "timestamp", "snapshot" or "targets"
        std::int64_t version = 0;  ///< 1 and up
        std::string expires;       ///< as YYYY-MM-DDTHH:MM:SSZ
    };
    bool configured = false;  ///< the settings name a root
    std::vector<Role> roles;  ///< empty when there is none yet
    /// When the repository last signed what it has, as YYYY-MM-DDTHH:MM:SSZ; "" when it does not say.
    std::string signedAt;
    /// As of `indexWarnings`, for what is kept now, and why the last answer of the repository was refused.
    std::vector<std::string> warnings;
};

/// Reads what is kept below `installPath`, without the network and without changing anything. Any thread.
ZELOR_API KeptIndex keptIndex(const std::string& installPath);

}  // namespace zelor::agent
