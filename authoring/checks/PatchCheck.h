#pragma once

#include <string>
#include <vector>

#include "authoring/Finding.h"
#include "authoring/checks/ScriptChecks.h"
#include "authoring/manifest/ContentEntry.h"

namespace zelor::authoring {

/// One ERI that names a patch or a check script.
struct PatchUse {
    std::string place;
    ContentEri eri;
    bool script = false;
    bool check = false;  ///< as its check: what `eri` says of a patch is what it says of the check
};

/// Findings on one published patch, compared with everything that content says about it: the archive exists
/// and can be unpacked safely, holds the patch with its signature and nothing else, and has the announced
/// size and MD5. A script goes to `scripts`, to be parsed.
Findings patchFindings(const std::string& repository, const std::string& keyFile, const std::string& patchId,
                       const std::vector<PatchUse>& uses, ScriptQueue& scripts);

}  // namespace zelor::authoring
