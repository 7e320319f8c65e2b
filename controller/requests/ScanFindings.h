#pragma once

#include <map>
#include <string>
#include <vector>

#include "base/Result.h"

/// What scanners report, read from untrusted text. Failures say what is wrong with "it".
namespace zelor::controller {

/// Something that a scan found to be wrong, or a line of a list.
struct ScanFinding {
    std::string source;                    ///< for messages: "rule xccdf_...", "line 3"
    std::string title;                     ///< a package name, "" for none
    std::vector<std::string> identifiers;  ///< CVE or CCE identifiers that are well formed
    std::vector<std::string> cpes;         ///< the CPE names that it is for, as written
    std::string reason;                    ///< why there can be no request for it; "" otherwise
};

/// The findings of one file.
struct Scan {
    std::string target;  ///< the machine that was scanned, "" when the file does not say
    std::vector<ScanFinding> findings;
    std::size_t passed = 0;  ///< rules that hold or do not apply
};

/// What is known of a source's rules: by id, their identifiers and title.
struct KnownRule {
    std::vector<std::string> identifiers;
    std::string title;
};
using KnownRules = std::map<std::string, KnownRule>;

/// Reads XCCDF 1.2 results, alone, in their benchmark or in a report in ARF, of one machine. Of several
/// results the one that ended last counts. The CPE names are those of the result, or else of its benchmark.
base::Result<Scan> readXccdfResults(const std::string& xml, const KnownRules& known);

/// Reads the audit property list of the macOS Security Compliance Project, in XML. It has the ids of rules,
/// and a CCE identifier only where the audit was asked for it; `known` has the others.
base::Result<Scan> readAuditList(const std::string& xml, const KnownRules& known);

/// Reads a list with a line for each identifier: "CVE-2014-4459 cpe:/a:example:editor Example Editor". CPE
/// names, with commas between, and the package name may be left out. "#" begins a comment.
Scan readIdentifierList(const std::string& text);

/// Reads any of them.
base::Result<Scan> readScan(const std::string& text, const KnownRules& known);

/// Adds the rules of the report that `zelor-content import` writes.
base::Check addKnownRules(const std::string& json, KnownRules& rules);

}  // namespace zelor::controller
