#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "authoring/import/ImportedRule.h"
#include "base/Result.h"

namespace zelor::authoring {

/// What is known of an identifier that was imported, now or earlier.
struct KnownEntry {
    long number = 1;      ///< of its ERI id
    std::string sha256;   ///< of its script, hexadecimal
    std::string check;    ///< the same of its check, "" without one
    bool current = true;  ///< the last import had it
};

/// The part of a report that the next import needs.
struct ImportHistory {
    std::string source;                         ///< "" when there was no import
    std::map<std::string, KnownEntry> entries;  ///< by identifier
};

/// What an import found, and wrote.
struct ImportSummary {
    std::size_t imported = 0;                       ///< rules
    std::size_t withCheck = 0;                      ///< rules, of these
    std::map<std::string, std::size_t> leftOut;     ///< rules by reason
    std::vector<std::string> added, changed, gone;  ///< identifiers, against the import before
    std::size_t unchanged = 0;                      ///< identifiers
    bool first = true;                              ///< there was no import before
    bool written = true;                            ///< false: an import before is left as it was
};

/// The id of an imported script: ERI-CCE-90001-1-2.
std::string eriId(const std::string& identifier, long number);

/// Where its scripts are, below the directory of the manifest: scripts/CCE-90001-1.bsh and
/// checks/CCE-90001-1-check.bsh.
std::string scriptFile(const std::string& identifier);
std::string checkFile(const std::string& identifier);

/// Reads a report. Fails when it is none, or has what no import wrote.
base::Result<ImportHistory> parseImportReport(const std::string& json);

/// The report as JSON: the source, every rule with what became of it, the counts, what changed, and
/// the history.
std::string importReport(const RuleSet& rules, const ImportHistory& history, const ImportSummary& summary);

/// The manifest of the rules that are imported.
std::string importManifest(const RuleSet& rules, const ImportHistory& history);

}  // namespace zelor::authoring
