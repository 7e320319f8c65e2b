#pragma once

#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/Result.h"

/// Decisions on the names of patches and scripts.
namespace zelor::remediation {

/// A file name split at its last ".": "a.b.pkg" gives "a.b" and ".pkg".
struct PatchName {
    std::string stem;
    std::string extension;
};

/// Splits the name at its last "."; nothing when it has none.
std::optional<PatchName> splitAtLastDot(const std::string& fileName);

/// Splits the name before its last four characters, whatever they are; a shorter name is all stem. The
/// buffered-patches list and the buffer directory are keyed this way.
PatchName cutFourCharacters(const std::string& fileName);

/// Fails for a name that must never be used as a file name: it holds a path separator or a control character,
/// or is "." or "..".
base::Check checkFileName(const std::string& fileName);

/// Fails for a file that is never fetched: its name has no extension, or is unsafe.
base::Check checkFetchable(const std::string& fileName);

/// The archive in which a file is published; "" for a name without an extension.
std::string archiveName(const std::string& fileName);

/// The archive by which the buffer has a patch.
std::string bufferedArchiveName(const std::string& fileName);

/// The path of the detached signature: every occurrence of `extension` in the whole path replaced by ".sig".
std::string signaturePath(const std::string& filePath, const std::string& extension);

/// Names that contain another of the names, each with the one inside: the two share their fate in the
/// buffered-patches list. In the order of the names.
std::vector<std::pair<std::string, std::string>> containedNames(const std::set<std::string>& names);

}  // namespace zelor::remediation
