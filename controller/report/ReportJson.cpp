#include "controller/report/ReportJson.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "controller/Text.h"
#include "remediation/Version.h"

namespace zelor::controller {

namespace {

using nlohmann::ordered_json;

std::string dumped(const ordered_json& value) {
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

double milliseconds(double seconds) {
    return std::round(seconds * 1000) / 1000;
}

void addDetails(ordered_json& entry, const RequestDetails& details) {
    const Outcome& outcome = details.outcome;
    if (!outcome.reason.empty()) entry["reason"] = outcome.reason;
    if (!outcome.warning.empty()) entry["warning"] = outcome.warning;
    if (outcome.applied != Applied::no) entry["applied"] = outcome.applied == Applied::now ? "now" : "before";
    if (details.begin) entry["begin"] = milliseconds(*details.begin);
    entry["seconds"] = milliseconds(details.seconds);
    if (details.proof) {
        const Truth truth = details.proof->truth;
        entry["verified"] =
            truth == Truth::unknown ? ordered_json(nullptr) : ordered_json(truth == Truth::holds);
        entry["verifiedReason"] = details.proof->reason;
    }
    if (!outcome.beforeCancel) return;
    ordered_json& before = entry["beforeCancel"];
    before = {{"value", outcome.beforeCancel->value}, {"state", stateName(outcome.beforeCancel->value)}};
    if (!outcome.beforeCancel->reason.empty()) before["reason"] = outcome.beforeCancel->reason;
}

void addHead(ordered_json& object, const RunFacts& facts) {
    object["schema"] = kResultSchema;
    object["version"] = ZELOR_VERSION_STRING;
    object["host"] = facts.host;
    object["platform"] = {
        {"name", facts.productName}, {"version", facts.productVersion}, {"cpe", facts.platformCpe}};
    object["started"] = utcText(facts.started);
}

const char* endName(EarlyEnd end) {
    if (end == EarlyEnd::none) return "complete";
    return end == EarlyEnd::timeLimit ? "time-limit" : "cancelled";
}

/// The members of an object without its braces.
std::string members(const ordered_json& object) {
    const std::string text = dumped(object);
    return text.substr(1, text.size() - 2);
}

}  // namespace

void writeResultJson(std::ostream& out, const ResultTable& table, const RunFlags& flags,
                     const RunFacts& facts,
                     const std::function<RequestDetails(std::size_t request)>& detailsOf) {
    ordered_json head;
    addHead(head, facts);
    head["finished"] = utcText(facts.finished);
    head["seconds"] = milliseconds(facts.seconds);
    out << '{' << members(head) << ",\n\"requests\": {";
    const char* before = "\n";
    for (std::size_t i = 0; i < table.results().size(); ++i) {
        const Result& result = table.results()[i];
        ordered_json entry = {
            {"identifier", *result.identifier}, {"value", result.value}, {"state", stateName(result.value)}};
        addDetails(entry, detailsOf(i));
        out << before << "  " << dumped(*result.key) << ": " << dumped(entry);
        before = ",\n";
    }
    ordered_json end = {{"rebootNeeded", flags.rebootNeeded},
                        {"restartNeededByThisRun", flags.restartNeededByThisRun},
                        {"scanNeeded", flags.scanNeeded},
                        {"allFailed", flags.allFailed},
                        {"end", endName(flags.end)}};
    if (!flags.outage.reason.empty())
        end["outage"] = {{"reason", flags.outage.reason}, {"requests", flags.outage.requests}};
    if (!flags.warnings.empty()) end["warnings"] = flags.warnings;
    if (!flags.contentSigned.empty()) end["contentSigned"] = flags.contentSigned;
    out << "\n}, " << members(end) << "}\n";
}

std::string eventJson(double time, const Result& result, const RequestDetails& details,
                      const RunFacts* facts) {
    ordered_json line = {{"t", milliseconds(time)},
                         {"key", *result.key},
                         {"value", result.value},
                         {"state", stateName(result.value)}};
    if (isResult(result.value)) addDetails(line, details);
    if (facts != nullptr) addHead(line, *facts);
    return dumped(line);
}

}  // namespace zelor::controller
