#include <sys/stat.h>

#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>

#include "authoring/Commands.h"
#include "authoring/UsageError.h"
#include "authoring/checks/RepositoryCheck.h"
#include "authoring/checks/SarifReport.h"
#include "base/StagedFile.h"

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

/// Opened before the check, so that an output that cannot be written is refused at once. Replacing a link, a
/// pipe or a device by a file would surprise.
std::optional<base::StagedFile> sarifFile(const std::string& path) {
    if (path.empty() || path == "-") return std::nullopt;
    struct stat info {};
    if (::lstat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode))
        throw UsageError("--sarif: " + path +
                         " is not a regular file; name another file, or - for standard output");
    try {
        return std::optional<base::StagedFile>(std::in_place, path);
    } catch (const std::runtime_error& e) {
        throw UsageError(std::string("--sarif: ") + e.what() + "; name a file in a directory that exists");
    }
}

}  // namespace

int runCheck(const CheckOptions& options) {
    std::optional<base::StagedFile> sarif = sarifFile(options.sarif);
    const CheckReport report = checkRepository(options.directory, options.key, options.manifests);
    if (sarif) {
        sarif->write(sarifReport(report));
        sarif->commit();
    }
    if (options.sarif == "-") {
        std::cout << sarifReport(report);
    } else if (options.json) {
        printJson(report);
    } else {
        printText(report);
    }
    const bool failed = anyError(report.findings) || (options.warningsAsErrors && !report.findings.empty());
    return failed ? exitStatus::kFailed : exitStatus::kGood;
}

}  // namespace zelor::authoring
