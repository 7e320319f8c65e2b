#pragma once

#include <string>

#include "authoring/import/ImportReport.h"
#include "authoring/import/ImportedRule.h"

namespace zelor::authoring {

/// Parses the scripts with bash, leaves out rules whose scripts it cannot parse and identifiers that an
/// earlier rule has, and writes `scripts/`, `checks/`, `import.json` (the report) and `manifest.json` to
/// `out`. A script or check that differs from the one of the import before gets a new ERI id; ids are never
/// used again. When no rule is left, an import before stays as it was. `rules` is left as it was written,
/// with the new reasons. Throws UsageError when `out` holds another manifest, and std::runtime_error when
/// something cannot be written.
ImportSummary writeImport(RuleSet& rules, const std::string& out);

}  // namespace zelor::authoring
