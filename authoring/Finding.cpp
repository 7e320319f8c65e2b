#include "authoring/Finding.h"

#include <algorithm>

namespace zelor::authoring {

std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(),
        [](char c) {
            const auto byte = static_cast<unsigned char>(c);
            return byte < 0x20 || byte == 0x7f;
        },
        '?');
    return text;
}

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
        text += printable(finding.place) + ": " + printable(finding.what) + '\n';
        text += "    remedy: " + printable(finding.remedy) + '\n';
    }
    return text;
}

}  // namespace zelor::authoring
