#pragma once

#include <string>
#include <vector>

namespace zelor::authoring {

/// An error prevents publishing and fails a check; a warning does neither unless asked for.
enum class Severity { error, warning };

/// A problem of a manifest or a repository: where, what, and how to fix it.
struct Finding {
    Severity severity = Severity::error;
    std::string place;
    std::string what;
    std::string remedy;
};

/// In the order in which they were found.
using Findings = std::vector<Finding>;

/// True when one of them is an error.
bool anyError(const Findings& findings);

/// A count with its noun: "1 error", "2 errors".
std::string amount(std::size_t count, const std::string& one, const std::string& many);

/// A paragraph for each: "error: PLACE: WHAT" and, indented, the remedy. Characters that are unsafe on a
/// terminal are shown as "?".
std::string findingsText(const Findings& findings);

}  // namespace zelor::authoring
