#pragma once

#include <set>
#include <string>
#include <vector>

#include "authoring/Finding.h"
#include "authoring/manifest/ContentEntry.h"
#include "authoring/manifest/Manifest.h"
#include "authoring/publish/PublishState.h"

/// Findings on what content says and on the names in it; reads no files.
namespace zelor::authoring {

/// On one entry: identifier, CREs that compete for a request, ERIs that can never be applied, names of
/// patches.
Findings entryFindings(const ContentEntry& entry);

/// Across entries: identifiers and ERI ids that are duplicated.
Findings repetitionFindings(const std::vector<ContentEntry>& entries);

/// The place of one ERI, for findings.
std::string placeOf(const ContentEntry& entry, const ContentEri& eri);

/// On the id of one patch. `script`: it belongs to a configuration, so no installer has to accept it.
Findings patchNameFindings(const std::string& place, const std::string& patchId, bool script);

/// On the name of a check script of an ERI whose patch is `patchId`.
Findings checkNameFindings(const std::string& place, const std::string& script, const std::string& patchId);

/// One for each name that is contained in another: the list of buffered patches cannot distinguish them.
Findings containmentFindings(const std::set<std::string>& patchIds);

/// On an identifier, which is both a request's value and a file name.
Findings identifierFindings(const std::string& place, const std::string& identifier);

/// A warning for each ERI id that was published with another file before: a machine that has recorded the id
/// treats it as installed and never applies the new file. The manifest's files must have been read.
Findings changedFileFindings(const Manifest& manifest, const PublishState& published);

/// Records the file of each of the manifest's ERIs, for the next publication to compare with.
void noteFiles(const Manifest& manifest, PublishState& state);

}  // namespace zelor::authoring
