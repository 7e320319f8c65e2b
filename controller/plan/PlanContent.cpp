#include <algorithm>
#include <utility>

#include "controller/plan/PlanState.h"
#include "controller/plan/PlanWarnings.h"
#include "platform/macos/InstallCommands.h"
#include "remediation/RecordAccess.h"
#include "remediation/fetch/PatchName.h"
#include "remediation/intake/ContentRules.h"

namespace zelor::controller {

namespace {

using remediation::BlockOutcome;
using remediation::BlockResult;

PlanAction actionOf(BlockOutcome outcome) {
    switch (outcome) {
        case BlockOutcome::passedOver:
            return PlanAction::nothing;
        case BlockOutcome::appliedBefore:
            return PlanAction::applied;
        case BlockOutcome::attempted:
            return PlanAction::apply;
        default:
            return PlanAction::fail;
    }
}

/// Predicts what a run does with the content of one request.
class Foresight : public remediation::ContentActor {
  public:
    Foresight(PlannedRequest& request, creEriParsedData& entry, const PlanFacts& facts, PlanState& state)
        : request_(request), entry_(entry), facts_(facts), state_(state) {}

    void walk();
    bool rebootNeeded() const { return rebootNeeded_; }

    bool isApplied() override {
        return remediation::countsAsApplied(
            entry_, [this](const std::string& eri) { return state_.isRecorded(eri); });
    }
    std::optional<remediation::FetchedFile> fetch(parsedEriData& block) override;
    int apply(parsedEriData& block, const std::string& path, const platform::InstallerKind* kind) override;
    void settle(const BlockResult& result) override;

  private:
    void addStep(const BlockResult& result, parsedEriData& block);
    std::string reasonOf(BlockOutcome outcome, parsedEriData& block);
    std::string whyApplied(const std::string& eri);

    PlannedRequest& request_;
    creEriParsedData& entry_;
    const PlanFacts& facts_;
    PlanState& state_;
    bool rebootNeeded_ = false;
    PlannedStep step_;  ///< of the current block
};

void Foresight::walk() {
    const bool configuration = request_.kind == PlanKind::configuration;
    configuration ? walkConfiguration(entry_, *this) : walkPatch(entry_, *this);
    const auto has = [this](PlanAction action) {
        return std::any_of(request_.steps.begin(), request_.steps.end(),
                           [action](const PlannedStep& step) { return step.action == action; });
    };
    if (request_.expected == kSuccessValue) {
        request_.action = has(PlanAction::apply) ? PlanAction::apply : PlanAction::applied;
        if (has(PlanAction::fail))
            addWarnings(request_, {"an ERI before the last fails, and the last one decides"});
        if (has(PlanAction::apply)) request_.reason.clear();
    } else if (request_.expected != 0) {
        request_.action = PlanAction::fail;
    } else if (request_.steps.empty()) {
        request_.reason = "its content has no ERI";
    }
}

std::optional<remediation::FetchedFile> Foresight::fetch(parsedEriData& block) {
    step_.file = state_.fetch(block);
    const PlannedFile& file = *step_.file;
    const std::string path = state_.pathOf(file.name);
    if (remediation::checkFetchable(file.name))
        addWarnings(request_,
                    patchWarnings(file.name, file.sizeText, path, request_.kind == PlanKind::configuration));
    return remediation::FetchedFile{file.problem.empty() ? path : "", file.buffered, false};
}

int Foresight::apply(parsedEriData& block, const std::string& path, const platform::InstallerKind* kind) {
    if (kind == nullptr) {
        step_.commands.push_back(platform::scriptCommand(path));
        return remediation::kInstalled;
    }
    const bool usesInstaller = remediation::usesBundleInstaller(block);
    const std::string& option = RecordAccess::silentModeCmd(block);
    platform::InstallerSteps steps = platform::installerSteps(
        *kind, {path, facts_.mountPoint, facts_.applications, usesInstaller, option});
    step_.commands = std::move(steps.commands);
    step_.note = std::move(steps.note);
    if (steps.readsSuccessUnseen)
        addWarnings(request_, imageWarnings(step_.file->name, usesInstaller && option.empty(),
                                            facts_.mountPointInUse ? facts_.mountPoint : ""));
    return remediation::kInstalled;
}

void Foresight::settle(const BlockResult& result) {
    if (result.state) request_.expected = static_cast<ProgressValue>(*result.state);
    if (result.needsReboot) rebootNeeded_ = true;
    state_.settle(result);
    if (result.block != nullptr) {
        addStep(result, *result.block);
    } else if (result.outcome == BlockOutcome::appliedBefore) {
        for (parsedEriData& block : RecordAccess::blocks(entry_))
            addStep(result, block);
        if (!request_.steps.empty()) request_.reason = request_.steps.front().reason;
    } else {
        request_.reason = "it has no ERI";
    }
}

void Foresight::addStep(const BlockResult& result, parsedEriData& block) {
    PlannedStep step = std::exchange(step_, {});
    step.eri = RecordAccess::eriId(block);
    step.action = actionOf(result.outcome);
    step.reason =
        result.outcome == BlockOutcome::unavailable ? step.file->problem : reasonOf(result.outcome, block);
    if (step.action != PlanAction::nothing || request_.reason.empty()) request_.reason = step.reason;
    request_.steps.push_back(std::move(step));
}

std::string Foresight::reasonOf(BlockOutcome outcome, parsedEriData& block) {
    switch (outcome) {
        case BlockOutcome::passedOver:
            return "for another platform (" + RecordAccess::mskbId(block) + "), so it is passed over";
        case BlockOutcome::nameless:
            return "its content names no patch";
        case BlockOutcome::misnamed:
            return request_.kind == PlanKind::configuration ? "its content names no script with an extension"
                                                            : "the name of its patch has no extension";
        case BlockOutcome::appliedBefore:
            return whyApplied(RecordAccess::eriId(block));
        case BlockOutcome::notInstallable:
            return "no installer accepts it: it is not a " + platform::installableText();
        default:
            return "";
    }
}

/// Why an ERI counts as applied; warns when only another ERI of its CRE is recorded.
std::string Foresight::whyApplied(const std::string& eri) {
    if (state_.isRecorded(eri)) return eri + " is recorded as applied";
    const std::vector<std::string>& eris = RecordAccess::eriIds(entry_);
    const auto other = std::find_if(eris.begin(), eris.end(),
                                    [this](const std::string& id) { return state_.isRecorded(id); });
    const std::string recorded = other == eris.end() ? "another ERI" : *other;
    addWarnings(request_,
                {eri + " is not applied: " + recorded +
                 " of the same CRE is recorded by then, which makes the whole CRE count as applied"});
    return "counts as applied, since " + recorded + " of the same CRE is recorded";
}

}  // namespace

bool foreseeContent(PlannedRequest& request, creEriParsedData& entry, const PlanFacts& facts,
                    PlanState& state) {
    Foresight foresight(request, entry, facts, state);
    foresight.walk();
    return foresight.rebootNeeded();
}

}  // namespace zelor::controller
