#pragma once

#include <string>
#include <vector>

namespace zelor::authoring {

enum class Severity { error, warning };

/// One thing that is wrong with a manifest or a repository: where, what, and how to fix it.
struct Finding {
    Severity severity = Severity::error;
    std::string place;
    std::string what;
    std::string remedy;
};

using Findings = std::vector<Finding>;

/// True when one of them is an error.
bool anyError(const Findings& findings);

/// "1 error", "2 errors".
std::string amount(std::size_t count, const std::string& one, const std::string& many);

/// One paragraph for each: "error: PLACE: WHAT" and, indented, the remedy. What must not reach a terminal
/// is shown as "?".
std::string findingsText(const Findings& findings);

}  // namespace zelor::authoring
