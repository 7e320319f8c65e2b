#include "controller/plan/Plan.h"

#include <algorithm>

namespace zelor::controller {

std::string planKindName(PlanKind kind) {
    switch (kind) {
        case PlanKind::configuration:
            return "configuration";
        case PlanKind::osUpdate:
            return "os-update";
        case PlanKind::patch:
            return "patch";
        case PlanKind::unknown:
            break;
    }
    return "unknown";
}

std::string planActionName(PlanAction action) {
    switch (action) {
        case PlanAction::apply:
            return "apply";
        case PlanAction::applied:
            return "already-applied";
        case PlanAction::fail:
            return "fail";
        case PlanAction::nothing:
            break;
    }
    return "nothing";
}

std::size_t Plan::count(PlanAction action) const {
    const auto has = [&](const PlannedRequest& request) { return request.action == action; };
    return static_cast<std::size_t>(std::count_if(requests.begin(), requests.end(), has));
}

int planExitStatus(const Plan& plan) {
    const std::size_t good = plan.count(PlanAction::apply) + plan.count(PlanAction::applied);
    return runExitStatus(plan.requests.size(), good, false);
}

}  // namespace zelor::controller
