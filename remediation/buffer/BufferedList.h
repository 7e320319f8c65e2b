#pragma once

#include <string>

/// The buffered-patches list as text: one "patchName=md5sum" line per buffered patch.
namespace zelor::remediation {

/// True when `line` contains `patchName` anywhere and its second field equals `md5sum`.
bool bufferedLineMatches(const std::string& line, const std::string& patchName, const std::string& md5sum);

/// What an older crash left in the list.
struct ListDamage {
    bool tornEnd = false;       ///< a last line without its end, which is given one
    bool damagedLines = false;  ///< lines that are no text, which no entry is
};

/// The lines of `list` that do not contain `patchName`, each with its line end; damaged lines are left out.
std::string linesWithout(const std::string& list, const std::string& patchName, ListDamage& damage);

}  // namespace zelor::remediation
