#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "authoring/import/ImportedRule.h"

namespace zelor::authoring {

/// What an import wrote.
struct ImportSummary {
    std::size_t imported = 0;                       ///< rules
    std::map<std::string, std::size_t> leftOut;     ///< rules by reason
    std::vector<std::string> added, changed, gone;  ///< identifiers, against the import before
    std::size_t unchanged = 0;                      ///< identifiers
    bool first = true;                              ///< there was no import before
};

/// Parses the scripts with bash, leaves out rules whose scripts it cannot parse and identifiers that an
/// earlier rule has, and writes `scripts/`, `import.json` (the report) and `manifest.json` to `out`. A script
/// that differs from the one of the import before gets a new ERI id; ids are never used again. `rules` is
/// left as it was written, with the new reasons. Throws UsageError when `out` holds another manifest, and
/// std::runtime_error when something cannot be written.
ImportSummary writeImport(RuleSet& rules, const std::string& out);

}  // namespace zelor::authoring
