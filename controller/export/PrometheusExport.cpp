#include <array>
#include <iomanip>
#include <map>
#include <sstream>

#include "base/PrintableText.h"
#include "controller/Text.h"
#include "controller/export/Export.h"

namespace zelor::controller {

namespace {

/// A label's value: a backslash and a quote are escaped, what else could end it or the line becomes "?".
std::string labelValue(const std::string& text) {
    std::string value;
    for (const char letter : base::printable(text)) {
        if (letter == '\\' || letter == '"') value += '\\';
        value += letter;
    }
    return '"' + value + '"';
}

void head(std::ostream& out, const std::string& name, const char* help) {
    out << "# HELP " << name << ' ' << help << "\n# TYPE " << name << " gauge\n";
}

void gauge(std::ostream& out, const char* name, const char* help, double value) {
    const std::string full = std::string("zelor_remediation_") + name;
    std::ostringstream number;
    number << std::fixed << std::setprecision(3) << value;
    std::string text = number.str();
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    head(out, full, help);
    out << full << ' ' << text << '\n';
}

/// Every state has its line, so that no series ends when a state no longer occurs.
void writeStates(std::ostream& out, const ExportedRun& run) {
    std::map<std::string, std::size_t> counts;
    for (ProgressValue value = 0; value <= kAbortedValue; ++value)
        counts[stateName(value)] = 0;
    for (const ExportedRequest& request : run.requests)
        ++counts[stateName(request.value)];
    head(out, "zelor_remediation_requests", "Requests of the last run by their state at its end.");
    for (const auto& [state, count] : counts)
        out << "zelor_remediation_requests{state=" << labelValue(state) << "} " << count << '\n';
}

void writeVerified(std::ostream& out, const ExportedRun& run) {
    std::array<std::size_t, 4> counts{};
    for (const ExportedRequest& request : run.requests)
        ++counts.at(static_cast<std::size_t>(request.verified));
    head(out, "zelor_remediation_verified_requests", "Requests by what their check says after the last run.");
    const std::array<const char*, 4> names = {"no-check", "true", "false", "unknown"};
    for (std::size_t i = 0; i < names.size(); ++i)
        out << "zelor_remediation_verified_requests{verified=\"" << names.at(i) << "\"} " << counts.at(i)
            << '\n';
}

}  // namespace

void writePrometheus(std::ostream& out, const ExportedRun& run) {
    writeStates(out, run);
    writeVerified(out, run);
    gauge(out, "last_run_timestamp_seconds", "When the last run ended, in seconds since 1970.",
          static_cast<double>(std::chrono::system_clock::to_time_t(run.finished)));
    gauge(out, "last_run_duration_seconds", "How long the last run took.", run.seconds);
    gauge(out, "last_run_complete", "Whether the last run went on to its end.",
          run.end == "complete" ? 1 : 0);
    if (run.contentSigned) {
        const std::chrono::duration<double> age = run.finished - *run.contentSigned;
        gauge(out, "content_age_seconds",
              "How old the repository's signed index was when the last run ended.", age.count());
    }
    gauge(out, "reboot_needed", "Whether content that is applied asks for a restart.",
          run.rebootNeeded ? 1 : 0);
    gauge(out, "restart_needed_by_last_run", "Whether what the last run applied needs a restart.",
          run.restartNeededByThisRun ? 1 : 0);
    gauge(out, "scan_needed", "Whether a new scan is needed.", run.scanNeeded ? 1 : 0);
    head(out, "zelor_remediation_info", "The program and the system of the last run.");
    out << "zelor_remediation_info{version=" << labelValue(run.version) << ",host=" << labelValue(run.host)
        << ",platform=" << labelValue(run.platformCpe)
        << ",system=" << labelValue(run.platformName + ' ' + run.platformVersion) << "} 1\n";
}

}  // namespace zelor::controller
