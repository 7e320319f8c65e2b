#include <utility>

#include "base/Strings.h"
#include "controller/plan/Plan.h"
#include "controller/plan/PlanState.h"
#include "controller/plan/PlanWarnings.h"
#include "remediation/RecordAccess.h"
#include "remediation/intake/ContentRules.h"
#include "remediation/intake/RequestParsing.h"

namespace zelor::controller {

namespace {

struct Row {
    PlannedRequest request;
    std::string packageName;
    creEriParsedData entry;
};

void decide(PlannedRequest& request, ProgressValue value, PlanAction action, std::string reason) {
    request.expected = value;
    request.action = action;
    request.reason = std::move(reason);
}

/// Goes through the requests in the order of a run.
class Forecast {
  public:
    explicit Forecast(const PlanFacts& facts) : facts_(facts), state_(facts) {}

    Plan make(const RequestMap& requests);

  private:
    void take(const std::string& key, const std::string& identifier);
    bool findContent(Row& row, const std::vector<std::string>& cpes) const;
    void update(Row& row);

    const PlanFacts& facts_;
    PlanState state_;
    std::vector<PlannedRequest> refused_;
    std::vector<Row> rows_;
};

Plan Forecast::make(const RequestMap& requests) {
    for (const auto& [key, identifier] : requests)
        take(key, identifier);
    Plan plan;
    plan.requests = std::move(refused_);
    for (const PlanKind kind : {PlanKind::configuration, PlanKind::osUpdate, PlanKind::patch}) {
        for (Row& row : rows_) {
            if (row.request.kind != kind) continue;
            if (kind == PlanKind::osUpdate) {
                update(row);
            } else if (foreseeContent(row.request, row.entry, facts_, state_)) {
                plan.rebootNeeded = true;
            }
            plan.requests.push_back(std::move(row.request));
        }
    }
    addMutualWarnings(plan.requests, facts_.bufferedList);
    plan.warnings = restartWarnings(plan.requests);
    return plan;
}

void Forecast::take(const std::string& key, const std::string& identifier) {
    Row row;
    PlannedRequest& request = row.request;
    request.key = key;
    request.identifier = identifier;
    const bool configuration = remediation::isConfiguration(base::trimmed(identifier));
    const remediation::RequestKey parsed = remediation::parseRequestKey(base::trimmed(key), configuration);
    row.packageName = parsed.packageName;
    const auto invalid = facts_.invalid.find(key);
    const remediation::CpeCount names = remediation::cpeCount(parsed);
    if (names == remediation::CpeCount::usable)
        addWarnings(request, keyWarnings(parsed.cpes, facts_.platformCpe));
    if (invalid != facts_.invalid.end() || names != remediation::CpeCount::usable) {
        decide(request, kInvalidRequestValue, PlanAction::fail,
               invalid != facts_.invalid.end() ? invalid->second : remediation::whyUnusable(names));
    } else if (findContent(row, parsed.cpes)) {
        if (configuration) request.kind = PlanKind::configuration;
        rows_.push_back(std::move(row));
        return;
    } else {
        decide(request, kContentFailedValue, PlanAction::fail, facts_.contentProblem(key, identifier));
    }
    refused_.push_back(std::move(request));
}

bool Forecast::findContent(Row& row, const std::vector<std::string>& cpes) const {
    const remediation::RequestTarget target =
        remediation::requestTarget(cpes, facts_.platformCpe, facts_.specialCases);
    parseOnlyMetadata metadata =
        facts_.content(target.platformCpe, target.productCpe, base::trimmed(row.request.identifier));
    if (metadata.getParsingFailed()) return false;
    row.entry = std::move(RecordAccess::creEriData(metadata));
    row.request.cre = RecordAccess::creId(row.entry);
    row.request.reboot = remediation::asksForReboot(row.entry);
    row.request.kind =
        remediation::isOsRemediation(RecordAccess::blocks(row.entry)) ? PlanKind::osUpdate : PlanKind::patch;
    return true;
}

void Forecast::update(Row& row) {
    PlannedRequest& request = row.request;
    if (!remediation::installsVendorUpdates(facts_.vendorInstallation)) {
        request.reason = "the setting Installation.VendorProducts leaves updates of the system to the user";
        return;
    }
    const std::vector<std::string>& listing = state_.listing();
    const platform::UpdateSelection selection =
        platform::selectUpdates(listing, row.packageName, facts_.productVersion);
    const std::vector<platform::UpdateStep> steps = platform::updateSteps(selection);
    std::string problem = listing.empty() ? "softwareupdate lists no update"
                                          : "softwareupdate lists no update that belongs to it";
    if (!steps.empty()) addWarnings(request, updateWarnings(selection, listing));
    const bool succeeds = platform::attemptUpdates(steps, [&](const platform::UpdateStep& step) {
        request.labels.push_back(step.label);
        if (!step.command.empty()) request.commands.push_back(step.command);
        return state_.install(step, problem);
    });
    decide(request, static_cast<ProgressValue>(remediation::stateOfUpdate(succeeds)),
           succeeds ? PlanAction::apply : PlanAction::fail, succeeds ? "" : problem);
}

}  // namespace

Plan makePlan(const RequestMap& requests, const PlanFacts& facts) {
    return Forecast(facts).make(requests);
}

}  // namespace zelor::controller
