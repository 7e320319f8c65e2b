#include "authoring/Finding.h"

#include <algorithm>

#include "base/PrintableText.h"

namespace zelor::authoring {

std::string amount(std::size_t count, const std::string& one, const std::string& many) {
    return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

bool anyError(const Findings& findings) {
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding& finding) { return finding.severity == Severity::error; });
}

std::string findingsText(const Findings& findings) {
    std::string text;
    for (const Finding& finding : findings) {
        text += finding.severity == Severity::error ? "error: " : "warning: ";
        text += base::printable(finding.place) + ": " + base::printable(finding.what) + '\n';
        text += "    remedy: " + base::printable(finding.remedy) + '\n';
    }
    return text;
}

}  // namespace zelor::authoring
