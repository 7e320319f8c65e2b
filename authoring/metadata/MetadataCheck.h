#pragma once

#include <string>

#include "authoring/Finding.h"
#include "trust/Time.h"

namespace zelor::authoring {

/// What clients that trust the first root of a repository would find wrong at `now`: metadata that they
/// refuse or soon will, content that is not listed as it is, listed files that are missing. A repository
/// without metadata has no findings.
Findings metadataFindings(const std::string& repository, trust::Time now);

}  // namespace zelor::authoring
