#pragma once

#include <set>
#include <string>
#include <vector>

#include "authoring/Finding.h"
#include "authoring/manifest/ContentEntry.h"
#include "authoring/publish/Digests.h"

namespace zelor::authoring {

/// A patch or check script to publish.
struct ManifestPatch {
    std::string place;
    std::string identifier;
    std::string patchId;
    std::string file;  ///< the file or bundle directory
    std::string size;  ///< as given, "" to compute it
    std::string md5;   ///< as given, "" to compute it
    bool omitArchive = false;
    bool check = false;  ///< it is a check script
    Digests digests;     ///< of the file, once `sourceFindings` has read it
};

/// Whether bash runs it: it is a check, or belongs to a configuration.
bool isScript(const ManifestPatch& patch);

/// What an author writes: the entries, and the files that they need.
struct Manifest {
    std::vector<ContentEntry> entries;
    std::vector<ManifestPatch> patches;
    std::set<std::string> unread;  ///< the places of entries that have a field which could not be read
};

/// Parses a manifest; relative file names are below `directory`. Each field that is unknown, of the wrong
/// type or missing is a finding that names entry and field. `place` names the manifest in findings.
Manifest parseManifest(const std::string& json, const std::string& directory, const std::string& place,
                       Findings& findings);

/// The findings on a manifest's entries: names, identifiers, sizes, files that are missing or of the wrong
/// kind, and patches that would collide. Of an entry that could not be read as a whole, only the files are
/// checked: other findings would be misleading. Reads no files, except the beginning of packages.
Findings manifestFindings(const Manifest& manifest);

/// Reads every file, keeps its digests with the patch, and returns what is wrong with it: it cannot be read,
/// its MD5 is not the manifest's, bash cannot parse the script. Missing files are not findings here.
/// `published`: hexadecimal SHA-256 of files that were published before; those scripts are not parsed again.
Findings sourceFindings(Manifest& manifest, const std::set<std::string>& published);

}  // namespace zelor::authoring
