#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "agent/RepositoryStatus.h"
#include "base/Strings.h"
#include "controller/Text.h"

namespace zelor::controller {

/// What a display shows as the reason of a request when the outage was shown before.
inline constexpr char kNoAnswer[] = "no answer";

/// Shows once, not with each request or patch, that the repository does not answer.
class OutageReason {
  public:
    /// `reason`, or `kNoAnswer` when it says of another request what was shown before.
    std::string shown(const std::string& reason) {
        if (!base::hasBeginning(reason, agent::kRepositoryDown)) return reason;
        if (shown_) return kNoAnswer;
        shown_ = true;
        return reason;
    }

  private:
    bool shown_ = false;
};

/// What failed because the repository does not answer.
struct Outage {
    std::string reason;  ///< kRepositoryDown and since when; "" when there was no outage
    std::size_t requests = 0;
    std::size_t patches = 0;
};

/// The outage that these reasons, one for each request and one for each patch to buffer, speak of.
inline Outage outageIn(const std::vector<std::string>& ofRequests,
                       const std::vector<std::string>& ofPatches = {}) {
    Outage outage;
    const auto count = [&](const std::vector<std::string>& reasons, std::size_t& affected) {
        for (const std::string& reason : reasons) {
            if (!base::hasBeginning(reason, agent::kRepositoryDown)) continue;
            ++affected;
            // The request that met it first adds its own problem behind a colon.
            if (outage.reason.empty()) outage.reason = reason.substr(0, reason.find(": "));
        }
    };
    count(ofRequests, outage.requests);
    count(ofPatches, outage.patches);
    return outage;
}

/// The same as one sentence without its full stop; "" for no outage.
inline std::string outageText(const Outage& outage) {
    if (outage.reason.empty()) return "";
    std::string affected;
    if (outage.patches != 0) affected = countText(outage.patches, "patch");
    if (outage.requests != 0)
        affected += (affected.empty() ? "" : " and ") + countText(outage.requests, "request");
    return "T" + outage.reason.substr(1) + ": " + affected + " could not be completed";
}

}  // namespace zelor::controller
