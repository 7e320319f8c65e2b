#pragma once

#include "authoring/Finding.h"
#include "authoring/manifest/Manifest.h"
#include "authoring/publish/PublishState.h"

namespace zelor::authoring {

/// A warning for each ERI id that was published with another file before: a machine that has recorded the id
/// treats it as installed and never applies the new file. The manifest's files must have been read.
Findings changedFileFindings(const Manifest& manifest, const PublishState& published);

/// Records the file of each of the manifest's ERIs, for the next publication to compare with.
void noteFiles(const Manifest& manifest, PublishState& state);

}  // namespace zelor::authoring
