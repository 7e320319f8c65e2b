#pragma once

#include <set>
#include <string>
#include <vector>

#include "authoring/Finding.h"

/// Findings on what a repository holds and should not.
namespace zelor::authoring {

/// On files in patches/ that no content names, and on signatures of nothing. `stems`: the archives that
/// content names, in lower case; without them archives are not judged. An archive that publish knows as
/// retired is none: a later publication removes it.
Findings leftoverFindings(const std::string& repository, const std::set<std::string>* stems);

/// On identifiers that are published and no longer named: by any of `manifests`, or, when there are none, by
/// the manifest that published them, as long as that can be read.
Findings withdrawnFindings(const std::string& repository, const std::set<std::string>& identifiers,
                           const std::vector<std::string>& manifests);

}  // namespace zelor::authoring
