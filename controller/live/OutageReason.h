#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "agent/RepositoryStatus.h"
#include "base/Strings.h"
#include "controller/Text.h"

namespace zelor::controller {

/// Shows once, not with each request, that the repository does not answer.
class OutageReason {
  public:
    /// `reason`, or "" when it says of another request what was shown before.
    std::string shown(const std::string& reason) {
        if (!base::hasBeginning(reason, agent::kRepositoryDown)) return reason;
        if (shown_) return "";
        shown_ = true;
        return reason;
    }

  private:
    bool shown_ = false;
};

/// How many of these reasons, one for each request, say that the repository does not answer, and since when;
/// "" for none of them.
inline std::string outageSummary(const std::vector<std::string>& reasons) {
    std::string since;
    std::size_t count = 0;
    for (const std::string& reason : reasons) {
        if (!base::hasBeginning(reason, agent::kRepositoryDown)) continue;
        // The request that met it first adds its own problem behind a colon.
        if (++count == 1) since = reason.substr(0, reason.find(": "));
    }
    if (count == 0) return "";
    return "T" + since.substr(1) + ": " + countText(count, "request") + " could not be completed";
}

}  // namespace zelor::controller
