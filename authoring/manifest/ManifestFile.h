#pragma once

#include <optional>
#include <set>
#include <string>

#include "authoring/manifest/Manifest.h"
#include "authoring/publish/PublishState.h"

namespace zelor::authoring {

/// How to read a manifest.
struct ManifestUse {
    std::string identifier;  ///< read only what the manifest says of this one; "": everything
    PublishState published;  ///< what the repository holds, to compare with
    bool strict = false;     ///< refuse warnings as well
};

/// Reads a manifest file and the files that it publishes, and prints all findings on standard error. Throws
/// UsageError when it cannot be read, has errors, or does not name the identifier.
Manifest readManifest(const std::string& path, const ManifestUse& use = {});

/// The identifiers that a manifest file names; nothing when it cannot be read.
std::optional<std::set<std::string>> manifestIdentifiers(const std::string& path);

}  // namespace zelor::authoring
