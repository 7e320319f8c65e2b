#pragma once

#include <vector>

#include "authoring/Finding.h"
#include "authoring/manifest/ContentEntry.h"

/// Findings on what content says, before any file is looked at.
namespace zelor::authoring {

/// On one entry: identifier, CREs that compete for a request, ERIs that can never be applied, names of
/// patches.
Findings entryFindings(const ContentEntry& entry);

/// Between entries: identifiers and ERI ids that stand twice.
Findings repetitionFindings(const std::vector<ContentEntry>& entries);

/// The place of one ERI, for findings.
std::string placeOf(const ContentEntry& entry, const ContentEri& eri);

}  // namespace zelor::authoring
