#pragma once

#include <string>
#include <vector>

#include "authoring/Finding.h"
#include "authoring/manifest/ContentEntry.h"

namespace zelor::authoring {

/// A patch that a manifest asks to publish.
struct ManifestPatch {
    std::string place;
    std::string identifier;
    std::string patchId;
    std::string file;  ///< the file or bundle folder
    std::string size;  ///< as given, "" to compute it
    std::string md5;   ///< as given, "" to compute it
    bool omitArchive = false;
};

/// What an author writes: the entries, and the files that they need.
struct Manifest {
    std::vector<ContentEntry> entries;
    std::vector<ManifestPatch> patches;
};

/// Reads a manifest; relative files are taken below `folder`. Each field that is unknown, of the wrong type
/// or missing is a finding that names entry and field. `place` names the manifest in findings.
Manifest parseManifest(const std::string& json, const std::string& folder, const std::string& place,
                       Findings& findings);

/// The findings on a manifest that reads well: names, identifiers, sizes, files that are missing or of the
/// wrong kind, and patches that would collide. Looks at the files, but reads none.
Findings manifestFindings(const Manifest& manifest);

}  // namespace zelor::authoring
