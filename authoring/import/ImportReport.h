#pragma once

#include <map>
#include <string>

#include "authoring/import/ImportedRule.h"
#include "base/Result.h"

namespace zelor::authoring {

/// What is known of an identifier that was imported, now or earlier.
struct KnownEntry {
    long number = 1;      ///< of its ERI id
    std::string sha256;   ///< of its script, hexadecimal
    bool current = true;  ///< the last import had it
};

/// The part of a report that the next import needs.
struct ImportHistory {
    std::string source;                         ///< "" when there was no import
    std::map<std::string, KnownEntry> entries;  ///< by identifier
};

/// The id of an imported script: ERI-CCE-90001-1-2.
std::string eriId(const std::string& identifier, long number);

/// Reads a report. Fails when it is none, or has what no import wrote.
base::Result<ImportHistory> parseImportReport(const std::string& json);

/// The report as JSON: the source, every rule with what became of it, and the history.
std::string importReport(const RuleSet& rules, const ImportHistory& history);

/// The manifest of the rules that are imported.
std::string importManifest(const RuleSet& rules, const ImportHistory& history);

}  // namespace zelor::authoring
