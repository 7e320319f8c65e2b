#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>

#include "authoring/Commands.h"
#include "authoring/OutputFile.h"
#include "authoring/checks/RepositoryCheck.h"
#include "authoring/checks/SarifReport.h"

namespace zelor::authoring {

namespace {

void printJson(const CheckReport& report) {
    nlohmann::ordered_json findings = nlohmann::ordered_json::array();
    for (const Finding& finding : report.findings) {
        findings.push_back({{"severity", finding.severity == Severity::error ? "error" : "warning"},
                            {"place", finding.place},
                            {"what", finding.what},
                            {"remedy", finding.remedy}});
    }
    const nlohmann::ordered_json document = {
        {"entries", report.entries}, {"patches", report.patches}, {"findings", findings}};
    // Content may contain invalid UTF-8, which is replaced.
    std::cout << document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

void printText(const CheckReport& report) {
    std::size_t errors = 0;
    for (const Finding& finding : report.findings)
        errors += finding.severity == Severity::error ? 1 : 0;
    std::cout << findingsText(report.findings) << amount(report.entries, "entry", "entries") << ", "
              << amount(report.patches, "patch", "patches") << ": " << amount(errors, "error", "errors")
              << ", " << amount(report.findings.size() - errors, "warning", "warnings") << '\n';
}

}  // namespace

int runCheck(const CheckOptions& options) {
    std::optional<OutputFile> sarif;
    if (!options.sarif.empty()) sarif.emplace(options.sarif, "--sarif");
    const CheckReport report = checkRepository(options.directory, options.key, options.manifests);
    if (sarif) sarif->write(sarifReport(report));
    if (options.json) {
        printJson(report);
    } else if (options.sarif != "-") {
        printText(report);
    }
    const bool failed = anyError(report.findings) || (options.warningsAsErrors && !report.findings.empty());
    return failed ? exitStatus::kFailed : exitStatus::kGood;
}

}  // namespace zelor::authoring
