#include <nlohmann/json.hpp>

#include "controller/plan/PlanText.h"
#include "controller/verify/VerifyReport.h"

namespace zelor::controller {

namespace {

using nlohmann::ordered_json;

std::string dumped(const ordered_json& value) {
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

ordered_json fileJson(const PlannedFile& file) {
    const char* signature = !file.checked ? "unchecked" : file.problem.empty() ? "good" : "refused";
    return {{"name", file.name},
            {"size", file.sizeText},
            {"source", file.buffered ? "buffer" : "download"},
            {"archiveBytes", file.bytes},
            {"partialBytes", file.partialBytes},
            {"signature", signature}};
}

ordered_json stepJson(const PlannedStep& step) {
    ordered_json one = {{"eri", step.eri}, {"action", planActionName(step.action)}, {"reason", step.reason}};
    if (step.file) one["file"] = fileJson(*step.file);
    one["commands"] = step.commands;
    one["note"] = step.note;
    return one;
}

ordered_json requestJson(const PlannedRequest& request, std::size_t order) {
    ordered_json steps = ordered_json::array();
    for (const PlannedStep& step : request.steps)
        steps.push_back(stepJson(step));
    ordered_json one = {{"order", order},
                        {"identifier", request.identifier},
                        {"kind", planKindName(request.kind)},
                        {"action", planActionName(request.action)},
                        {"value", request.expected},
                        {"state", stateName(request.expected)},
                        {"reason", request.reason},
                        {"cre", request.cre},
                        {"reboot", request.reboot},
                        {"steps", steps},
                        {"labels", request.labels},
                        {"commands", request.commands},
                        {"warnings", request.warnings}};
    if (request.verified) one["check"] = verifiedJson(*request.verified);
    return one;
}

}  // namespace

void writePlanJson(std::ostream& out, const Plan& plan) {
    const ordered_json platform = {
        {"product", plan.productName}, {"version", plan.productVersion}, {"cpe", plan.platformCpe}};
    out << "{\"platform\": " << dumped(platform) << ", \"repository\": " << dumped(plan.repository)
        << ", \"requests\": {";
    std::size_t order = 0;
    for (const PlannedRequest& request : plan.requests) {
        ++order;
        out << (order == 1 ? "\n  " : ",\n  ") << dumped(request.key) << ": "
            << dumped(requestJson(request, order));
    }
    ordered_json counts;
    for (const PlanAction action :
         {PlanAction::apply, PlanAction::applied, PlanAction::fail, PlanAction::nothing})
        counts[planActionName(action)] = plan.count(action);
    out << "\n}, \"counts\": " << dumped(counts) << ", \"warnings\": " << dumped(plan.warnings)
        << ", \"rebootNeeded\": " << (plan.rebootNeeded ? "true" : "false") << "}\n";
}

}  // namespace zelor::controller
