#pragma once

#include <map>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "controller/plan/Plan.h"
#include "platform/macos/UpdateSelection.h"
#include "remediation/apply/ContentWalk.h"

namespace zelor::controller {

/// What a request of a plan would find: the facts, and what the requests before it leave behind in the
/// record, the buffer and the listing of updates.
class PlanState {
  public:
    /// `facts` outlive the object.
    explicit PlanState(const PlanFacts& facts)
        : facts_(facts), bufferedList_(facts.bufferedList), bufferFiles_(facts.bufferFiles) {}

    /// True when the record, or what the run will have added to it, has the ERI.
    bool isRecorded(const std::string& eri) const;
    /// How a run would get the block's file.
    PlannedFile fetch(parsedEriData& block) const;
    /// Where a run would have the file.
    std::string pathOf(const std::string& fileName) const { return facts_.contentDir + '/' + fileName; }
    /// Takes in what the block leaves behind.
    void settle(const remediation::BlockResult& result);

    /// The starred lines of the updates that are not installed yet.
    const std::vector<std::string>& listing();
    /// Attempts an update that is in `listing`. `problem`: why it would not be installed, else "".
    platform::UpdateOutcome install(const platform::UpdateStep& step, std::string& problem);

  private:
    const PlanFacts& facts_;
    std::unordered_set<std::string> recorded_;  ///< ERIs, by requests before
    std::string bufferedList_;
    std::map<std::string, std::uint64_t> bufferFiles_;
    std::optional<std::vector<std::string>> listing_;
};

/// Foresees what a run does with the content of a configuration or of a product's patch, from `state` as it
/// will be then. True when the run reports by it that a reboot is needed.
bool foreseeContent(PlannedRequest& request, creEriParsedData& entry, const PlanFacts& facts,
                    PlanState& state);

}  // namespace zelor::controller
