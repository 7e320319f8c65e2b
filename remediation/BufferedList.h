#pragma once

#include <string>

/// The buffered-patches list as text: one "patchName=md5sum" line per buffered patch.
namespace zelor {

/// True when `line` contains `patchName` anywhere and its second field equals `md5sum`.
bool bufferedLineMatches(const std::string& line, const std::string& patchName, const std::string& md5sum);

/// The whole lines of `list` that do not contain `patchName`, each with its line end. A last line without one
/// (torn by an older crash) is left out, with `torn` set.
std::string linesWithout(const std::string& list, const std::string& patchName, bool& torn);

}  // namespace zelor
