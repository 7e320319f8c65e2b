#include "controller/report/ReportJson.h"

#include <cmath>
#include <nlohmann/json.hpp>

namespace zelor::controller {

namespace {

using nlohmann::ordered_json;

std::string dumped(const ordered_json& value) {
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

const char* truth(bool value) {
    return value ? "true" : "false";
}

}  // namespace

void writeResultJson(std::ostream& out, const ResultTable& table, const RunFlags& flags) {
    out << "{\"requests\": {";
    const char* before = "\n";
    for (const Result& result : table.results()) {
        const ordered_json entry = {
            {"identifier", *result.identifier}, {"value", result.value}, {"state", stateName(result.value)}};
        out << before << "  " << dumped(*result.key) << ": " << dumped(entry);
        before = ",\n";
    }
    out << "\n}, \"rebootNeeded\": " << truth(flags.rebootNeeded)
        << ", \"scanNeeded\": " << truth(flags.scanNeeded) << ", \"allFailed\": " << truth(flags.allFailed)
        << "}\n";
}

std::string eventJson(double seconds, const std::string& key, ProgressValue value) {
    const double milliseconds = std::round(seconds * 1000) / 1000;
    return dumped({{"t", milliseconds}, {"key", key}, {"value", value}, {"state", stateName(value)}});
}

}  // namespace zelor::controller
