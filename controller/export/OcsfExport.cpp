#include <nlohmann/json.hpp>

#include "controller/Text.h"
#include "controller/export/Export.h"

namespace zelor::controller {

namespace {

using nlohmann::ordered_json;
using std::chrono::milliseconds;
using std::chrono::system_clock;

constexpr int kSuccess = 1, kFailure = 2, kUnsupported = 5, kError = 6;

std::int64_t unixMilliseconds(system_clock::time_point time) {
    return std::chrono::duration_cast<milliseconds>(time.time_since_epoch()).count();
}

const char* statusName(int status) {
    switch (status) {
        case kSuccess:
            return "Success";
        case kFailure:
            return "Failure";
        case kUnsupported:
            return "Unsupported";
        case kError:
            return "Error";
        default:
            return "Unknown";
    }
}

/// Of the event: informational, low (worth a look) or medium (to be acted on).
int severity(const ExportedRequest& request, int status) {
    if (status == kSuccess) return request.warned ? 2 : 1;
    return status == kUnsupported || request.value == kAbortedValue ? 2 : 3;
}

const char* severityName(int severity) {
    return severity == 1 ? "Informational" : severity == 2 ? "Low" : "Medium";
}

ordered_json eventOf(const ExportedRun& run, const ExportedRequest& request) {
    const int status = ocsfStatus(request);
    const int level = severity(request, status);
    const std::string uid = commandDigest(run, request);
    const std::string label = requestLabel(request.key);
    ordered_json event = {
        {"activity_id", 4},
        {"activity_name", "Harden"},
        {"category_uid", 7},
        {"category_name", "Remediation"},
        {"class_uid", 7001},
        {"class_name", "Remediation Activity"},
        {"type_uid", 700104},
        {"type_name", "Remediation Activity: Harden"},
        {"time", unixMilliseconds(endOf(run, request))},
        {"start_time", unixMilliseconds(run.started + request.begin)},
        {"duration", request.duration.count()},
        {"severity_id", level},
        {"severity", severityName(level)},
        {"status_id", status},
        {"status", statusName(status)},
        {"status_code", std::to_string(request.value)},
        {"command_uid", uid},
        {"message", request.identifier + " for " + label + ": " + stateName(request.value)},
        {"metadata",
         {{"version", "1.3.0"},
          {"profiles", {"host"}},
          {"uid", uid},
          {"product", {{"name", "zelor-remediate"}, {"vendor_name", "Zelor"}, {"version", run.version}}}}},
        {"device",
         {{"hostname", run.host},
          {"type_id", 0},
          {"os", {{"name", run.platformName}, {"type_id", 300}, {"version", run.platformVersion}}}}},
        {"remediation", {{"desc", "The content of " + request.identifier + " for " + label}}},
        {"unmapped", {{"identifier", request.identifier}, {"key", request.key}}}};
    if (!request.detail.empty()) event["status_detail"] = request.detail;
    if (request.verified == results::Verified::noCheck) return event;
    const bool unknown = request.verified == results::Verified::unknown;
    ordered_json& unmapped = event["unmapped"];
    unmapped["verified"] =
        unknown ? ordered_json(nullptr) : ordered_json(request.verified == results::Verified::holds);
    if (!request.verifiedReason.empty()) unmapped["verified_reason"] = request.verifiedReason;
    return event;
}

}  // namespace

int ocsfStatus(const ExportedRequest& request) {
    if (!isResult(request.value)) return 0;
    switch (request.value) {
        case kSuccessValue:
            return kSuccess;
        case kContentFailedValue:
            return kUnsupported;
        case kInternalFailedValue:
        case kInvalidRequestValue:
        case kFileUnavailableValue:
            return kError;
        default:
            return kFailure;
    }
}

void writeOcsf(std::ostream& out, const ExportedRun& run) {
    for (const ExportedRequest& request : run.requests)
        out << eventOf(run, request).dump(-1, ' ', false, ordered_json::error_handler_t::replace) << '\n';
}

}  // namespace zelor::controller
